// The record builders put every field where the collector reads it.
#include <gtest/gtest.h>

#include "host/sim/Builders.h"

namespace ipmisel::sim {
namespace {

TEST(Builders, FullSensorRecordLayout) {
    FullSensorFields f;
    f.id = 0x1234;
    f.number = 0x30;
    f.entityId = 3;
    f.entityInstance = 2;
    f.sensorType = 0x01;
    f.units1 = 0x80;
    f.baseUnit = 1;
    f.linearization = 0;
    f.name = "CPU 1 Temp";
    auto r = buildFullSensorRecord(f);
    ASSERT_EQ(r.size(), 48u + 10u);
    EXPECT_EQ(r[0], 0x34); // record ID, low byte first
    EXPECT_EQ(r[1], 0x12);
    EXPECT_EQ(r[2], 0x51);
    EXPECT_EQ(r[3], 0x01);
    EXPECT_EQ(r[4], r.size() - 5);
    EXPECT_EQ(r[7], 0x30);
    EXPECT_EQ(r[8], 3);
    EXPECT_EQ(r[9], 2);
    EXPECT_EQ(r[20], 0x80);
    EXPECT_EQ(r[21], 1);
    EXPECT_EQ(r[kFullNameOffset], 0xC0 | 10);
    EXPECT_EQ(kFullNameOffset, 47u);
    EXPECT_EQ(std::string(r.begin() + 48, r.end()), "CPU 1 Temp");
}

struct ConversionCase {
    int m, b, rExp, bExp;
    uint8_t tolerance;
    uint16_t accuracy;
    uint8_t byte24, byte25, byte26, byte27, byte28, byte29;
};

TEST(Builders, ConversionFactorsSplitAndPackTwosComplement) {
    const ConversionCase cases[] = {
        // M 784 = 0x310: low byte 10h, top bits 11b into bits 7:6.
        {784, 0, 0, 0, 0, 0, 0x10, 0xC0, 0x00, 0x00, 0x00, 0x00},
        // The same pattern given as a negative number (-240).
        {-240, 0, 0, 0, 0, 0, 0x10, 0xC0, 0x00, 0x00, 0x00, 0x00},
        // B -1 is 3FFh; tolerance and the low accuracy bits share the bytes.
        {1, -1, 0, 0, 0x15, 0x3FF, 0x01, 0x15, 0xFF, 0xFF, 0xF0, 0x00},
        // R -1 and B 1 give F1h; R 15 given raw is the same nibble.
        {1, 0, -1, 1, 0, 0, 0x01, 0x00, 0x00, 0x00, 0x00, 0xF1},
        {1, 0, 15, -8, 0, 0, 0x01, 0x00, 0x00, 0x00, 0x00, 0xF8},
        {-512, 511, 7, 7, 0x3F, 0x40, 0x00, 0xBF, 0xFF, 0x40, 0x10, 0x77},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << "m=" << c.m << " b=" << c.b << " r=" << c.rExp << " bx=" << c.bExp);
        FullSensorFields f;
        f.m = c.m;
        f.b = c.b;
        f.rExp = c.rExp;
        f.bExp = c.bExp;
        f.tolerance = c.tolerance;
        f.accuracy = c.accuracy;
        auto r = buildFullSensorRecord(f);
        EXPECT_EQ(r[24], c.byte24);
        EXPECT_EQ(r[25], c.byte25);
        EXPECT_EQ(r[26], c.byte26);
        EXPECT_EQ(r[27], c.byte27);
        EXPECT_EQ(r[28], c.byte28);
        EXPECT_EQ(r[29], c.byte29);
        // Read back as the collector does: the 10-bit value, not sign-extended.
        EXPECT_EQ(r[24] + ((r[25] & 0xC0) << 2), c.m & 0x3FF);
        EXPECT_EQ(r[26] + ((r[27] & 0xC0) << 2), c.b & 0x3FF);
    }
}

TEST(Builders, OutOfRangeFactorsAreRefused) {
    FullSensorFields f;
    f.m = 1024;
    EXPECT_THROW(buildFullSensorRecord(f), std::invalid_argument);
    f.m = -513;
    EXPECT_THROW(buildFullSensorRecord(f), std::invalid_argument);
    f.m = 1;
    f.bExp = 16;
    EXPECT_THROW(buildFullSensorRecord(f), std::invalid_argument);
    f.bExp = 0;
    f.name = "seventeen chars!!";
    EXPECT_THROW(buildFullSensorRecord(f), std::invalid_argument);
}

TEST(Builders, CompactAndFruLocatorNamesSitWhereTheyAreRead) {
    CompactSensorFields c;
    c.number = 0x40;
    c.sharing = 0x0102;
    c.name = "PSU 1";
    auto r = buildCompactSensorRecord(c);
    EXPECT_EQ(r[3], 0x02);
    EXPECT_EQ(kCompactNameOffset, 31u);
    EXPECT_EQ(r[31], 0xC5);
    EXPECT_EQ(std::string(r.begin() + 32, r.end()), "PSU 1");
    EXPECT_EQ(r[4], r.size() - 5);
    EXPECT_EQ(r[23], 0x02);
    EXPECT_EQ(r[24], 0x01);

    FruLocatorFields l;
    l.fruId = 5;
    l.accessLun = 2;
    l.bus = 3;
    l.channel = 0xA;
    l.entityId = 7;
    l.name = "Mainboard";
    auto fr = buildFruLocatorRecord(l);
    EXPECT_EQ(fr[3], 0x11);
    EXPECT_EQ(fr[6], 5);
    EXPECT_EQ(fr[7], 0x80 | 2 << 3 | 3);
    EXPECT_EQ(fr[8], 0xA0);
    EXPECT_EQ(fr[12], 7);
    EXPECT_EQ(fr[15], 0xC9);
    EXPECT_EQ(std::string(fr.begin() + 16, fr.end()), "Mainboard");
}

TEST(Builders, SelRecordsInWireOrder) {
    SelEventFields e;
    e.id = 0x0102;
    e.timestamp = 0x65E1B1C0;
    e.sensorType = 0x0C;
    e.sensorNumber = 0x11;
    e.eventType = 0x6F;
    e.deassertion = true;
    e.data = {0xA0, 0x00, 0x01};
    EXPECT_EQ(toHex(selRecord(e)), "02 01 02 C0 B1 E1 65 20 00 04 0C 11 EF A0 00 01");

    const uint8_t oem9[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    EXPECT_EQ(toHex(selOemRecord(5, 0xC0, 0x01020304, oem9)),
              "05 00 C0 04 03 02 01 01 02 03 04 05 06 07 08 09");
    EXPECT_THROW(selOemRecord(5, 0xE0, 0, oem9), std::invalid_argument);
    EXPECT_THROW(selOemRecord(5, 0x02, 0, oem9), std::invalid_argument);
}

TEST(Builders, AuxEntryLayout) {
    AuxEntryFields a;
    a.recordId = 0x0203;
    a.type = 2;
    a.severity = 0x80;
    a.operation = 0x1234;
    a.subClass = 5;
    a.cls = 3;
    a.instance = 0x0A0B0C0D;
    a.callerId = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    a.extendedData = {0xEE, 0xFF};
    auto e = buildAuxEntry(a, 0xFFFF);
    EXPECT_EQ(toHex(e), "C1 A3 00 18 00 03 02 FF FF 00 "
                        "02 00 00 80 34 12 05 03 0D 0C 0B 0A 00 01 02 03 04 05 06 07 08 09 EE FF");
    a.extendedData.assign(234, 0);
    EXPECT_THROW(buildAuxEntry(a, 1), std::invalid_argument);
}

TEST(Builders, SmbiosStructuresEndInTheirStringSet) {
    auto none = smbiosIpmiDevice({});
    EXPECT_EQ(none.size(), 0x12u + 2u);
    EXPECT_EQ(none[1], 0x12);
    EXPECT_EQ(none[none.size() - 1], 0);
    EXPECT_EQ(none[none.size() - 2], 0);

    auto oem = smbiosOemStrings(7, {"A", "BC"});
    EXPECT_EQ(toHex(oem), "0B 05 07 00 02 41 00 42 43 00 00");

    SmbiosSystem s;
    s.product = "Blade X";
    auto sys = smbiosSystem(s);
    EXPECT_EQ(sys[1], 0x1B);
    EXPECT_EQ(sys[4], 0);    // no manufacturer
    EXPECT_EQ(sys[5], 1);    // product is the first string
    EXPECT_EQ(sys[0x18], 6); // wake-up type
    EXPECT_EQ(std::string(sys.begin() + 0x1B, sys.end() - 2), "Blade X");
}

TEST(Builders, HexTextRoundTrip) {
    EXPECT_EQ(parseHex("01 0a\tFF00"), (std::vector<uint8_t>{0x01, 0x0A, 0xFF, 0x00}));
    EXPECT_EQ(parseHex(""), std::vector<uint8_t>{});
    EXPECT_THROW(parseHex("0 1"), std::invalid_argument);
    EXPECT_EQ(toHex(std::vector<uint8_t>{0x00, 0xAB}), "00 AB");
}

} // namespace
} // namespace ipmisel::sim
