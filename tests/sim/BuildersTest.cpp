// The record builders put every field where the collector reads it.
#include <cstring>
#include <gtest/gtest.h>

#include "host/sim/Builders.h"

namespace ipmisel::sim {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(Builders, SdrRecordsPutEachFieldWhereItIsRead) {
    FullSensorFields f;
    f.id = 0x1234, f.number = 0x30, f.entityId = 3, f.entityInstance = 2;
    f.units1 = 0x80, f.baseUnit = 1, f.name = "CPU 1 Temp";
    CompactSensorFields c;
    c.number = 0x40, c.sharing = 0x0102, c.name = "PSU 1";
    FruLocatorFields l;
    l.fruId = 5, l.accessLun = 2, l.bus = 3, l.channel = 0xA, l.entityId = 7, l.name = "Mainboard";
    // Record ID low byte first, version, type, length, then the fields read.
    const std::tuple<Bytes, const char*, size_t, const char*> cases[] = {
        {buildFullSensorRecord(f),
         "34 12 51 01 35 20 00 30 03 02 7F 68 00 01 00 00 00 00 00 00 80 01", 47, "CPU 1 Temp"},
        {buildCompactSensorRecord(c),
         "01 00 51 02 20 20 00 40 00 01 7F 68 00 6F 00 00 00 00 00 00 C0 00 00 02 01", 31, "PSU 1"},
        {buildFruLocatorRecord(l), "01 00 51 11 14 20 05 93 A0 00 10 00 07", 15, "Mainboard"},
    };
    for (const auto& [r, head, nameAt, name] : cases) {
        ASSERT_EQ(r.size(), nameAt + 1 + std::string(name).size()) << name;
        EXPECT_EQ(r[4], r.size() - 5);
        EXPECT_EQ(toHex(std::span(r).first((std::strlen(head) + 1) / 3)), head) << name;
        EXPECT_EQ(r[nameAt], 0xC0 | std::string(name).size());
        EXPECT_EQ(std::string(r.begin() + static_cast<long>(nameAt) + 1, r.end()), name);
    }
}

TEST(Builders, ConversionFactorsSplitAndPackTwosComplement) {
    struct Case {
        int m, b, rExp, bExp;
        uint8_t tolerance;
        uint16_t accuracy;
        const char* bytes24to29;
    };
    const Case cases[] = {
        // M 784 = 310h: low byte 10h, top bits 11b into bits 7:6; -240 is the same pattern.
        {784, 0, 0, 0, 0, 0, "10 C0 00 00 00 00"},
        {-240, 0, 0, 0, 0, 0, "10 C0 00 00 00 00"},
        // B -1 is 3FFh; tolerance and the low accuracy bits share the bytes.
        {1, -1, 0, 0, 0x15, 0x3FF, "01 15 FF FF F0 00"},
        // R -1 and B 1 give F1h.
        {1, 0, -1, 1, 0, 0, "01 00 00 00 00 F1"},
        {-512, 511, 7, 7, 0x3F, 0x40, "00 BF FF 40 10 77"},
    };
    for (const auto& c : cases) {
        FullSensorFields f;
        f.m = c.m, f.b = c.b, f.rExp = c.rExp, f.bExp = c.bExp;
        f.tolerance = c.tolerance, f.accuracy = c.accuracy;
        const auto r = buildFullSensorRecord(f);
        EXPECT_EQ(toHex(std::span(r).subspan(24, 6)), c.bytes24to29)
            << "m=" << c.m << " b=" << c.b << " r=" << c.rExp << " bx=" << c.bExp;
    }
}

TEST(Builders, SelRecordsAndAuxEntriesInWireOrder) {
    SelEventFields e;
    e.id = 0x0102, e.timestamp = 0x65E1B1C0, e.sensorType = 0x0C, e.sensorNumber = 0x11;
    e.eventType = 0x6F, e.deassertion = true, e.data = {0xA0, 0x00, 0x01};
    EXPECT_EQ(toHex(selRecord(e)), "02 01 02 C0 B1 E1 65 20 00 04 0C 11 EF A0 00 01");
    const uint8_t oem9[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    EXPECT_EQ(toHex(selOemRecord(5, 0xC0, 0x01020304, oem9)),
              "05 00 C0 04 03 02 01 01 02 03 04 05 06 07 08 09");

    AuxEntryFields a;
    a.recordId = 0x0203, a.type = 2, a.severity = 0x80, a.operation = 0x1234;
    a.subClass = 5, a.cls = 3, a.instance = 0x0A0B0C0D;
    a.callerId = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    a.extendedData = {0xEE, 0xFF};
    EXPECT_EQ(toHex(buildAuxEntry(a, 0xFFFF)),
              "C1 A3 00 18 00 03 02 FF FF 00 "
              "02 00 00 80 34 12 05 03 0D 0C 0B 0A 00 01 02 03 04 05 06 07 08 09 EE FF");
    a.extendedData.assign(234, 0); // a body of 256 bytes
    EXPECT_THROW(buildAuxEntry(a, 1), std::invalid_argument);
}

TEST(Builders, SmbiosStructuresAndHexText) {
    EXPECT_EQ(toHex(smbiosOemStrings(7, {"A", "BC"})), "0B 05 07 00 02 41 00 42 43 00 00");
    SmbiosSystem s;
    s.product = "Blade X";
    auto sys = smbiosSystem(s);
    EXPECT_EQ(toHex(std::span(sys).first(6)), "01 1B 00 00 00 01"); // no maker; product first
    EXPECT_EQ(std::string(sys.begin() + 0x1B, sys.end() - 2), "Blade X");

    EXPECT_THROW(parseHex("0 1"), std::invalid_argument);
}

TEST(Builders, HexTextInAnyLayoutReadsTheSameBytes) {
    using Bytes = std::vector<uint8_t>;
    const Bytes ab = {0x0A, 0xBC, 0xD0};
    // The usual layout, then layouts that leave it part-way: no blanks, two
    // blanks, tabs, lower case, a blank at either end.
    for (const char* text :
         {"0A BC D0", "0A BC D0 ", "0abcd0", "0A  BC\tD0", "0A BCD0", " 0A BC D0", "0ABC D0"}) {
        EXPECT_EQ(parseHex(text), ab) << text;
    }
    EXPECT_EQ(parseHex(""), Bytes{});
    EXPECT_EQ(parseHex("FF"), Bytes{0xFF});
    // Broken texts fail wherever the break is, also after a good start.
    for (const char* text : {"0A B", "0A BC D", "0A BCD 0", "0A BG", "0A B C", "0A,BC", "0AB"}) {
        EXPECT_THROW(parseHex(text), std::invalid_argument) << text;
    }
}

} // namespace
} // namespace ipmisel::sim
