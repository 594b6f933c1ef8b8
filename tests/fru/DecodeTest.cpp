// Board fields at fixed places, the five properties they give, typed FRU data
// (processor, SPD, fixed-offset VPD) and the manufacturer names.
#include <gtest/gtest.h>

#include <tuple>

#include "fru/IPMIVPDEntry.h"
#include "tests/fru/FRUTestSupport.h"

namespace ipmisel::test {
namespace {

using Texts = std::vector<std::string>;

void PutAt(IPMIFRULocator& l, size_t at, const std::string& text) {
    std::memcpy(l.fruData + at, text.data(), text.size());
}

TEST(BoardFields, AreReadAtFixedPlacesInTheirOrder) {
    IPMIFRULocator l;
    l.fruData[3] = 1; // board area at 8
    PutAt(l, 8 + 38, "PROD-NAME");
    PutAt(l, 8 + 7, "MAKER");
    PutAt(l, 8 + 134, std::string(40, 'x'));
    PutAt(l, 8 + 102, "ABC#123");
    PutAt(l, 8 + 71, "a_b[c]\\d/e(f).g Z9");
    l.GetFRUAreas("Mainboard", false);
    const Texts board = {"PROD-NAME", "MAKER", std::string(32, 'x'), "ABC", "a_b[c]\\d/e(f).g Z9"};
    EXPECT_EQ(board, l.boardFields);
    EXPECT_EQ(Texts(board.begin() + 1, board.end()), l.productFields);

    l.GetFRUAreas("Mainboard", true); // board only; both vectors start empty again
    EXPECT_EQ(board, l.boardFields);
    EXPECT_TRUE(l.productFields.empty());

    // A processor keeps blanks in front; its product fields are the blanks
    // and then board fields 1..4, which are blanks too.
    l.GetFRUAreas("CPU", false);
    Texts cpu(5, " ");
    cpu.insert(cpu.end(), board.begin(), board.end());
    EXPECT_EQ(cpu, l.boardFields);
    EXPECT_EQ(Texts(8, " "), l.productFields);
}

TEST(BoardFields, StayInsideTheDataAndGiveTheFiveProperties) {
    // Board offset byte 41h puts the area at 520: only the field at 527 has a
    // byte inside the 528, the others start past the end.
    Bytes exact(kFRUDataSize); // on the heap, exactly 528: a sanitizer sees one byte more
    exact[527] = 'Z';
    EXPECT_EQ("Z", ReadBoardField(exact.data(), 527));
    EXPECT_EQ("", ReadBoardField(exact.data(), 528));
    IPMIFRULocator l;
    l.fruData[3] = 0x41;
    l.fruData[527] = 'Z';
    l.GetFRUAreas("X", false);
    EXPECT_EQ((Texts{"", "Z", "", "", ""}), l.boardFields);
    l.fruData[3] = 0; // no board area
    l.GetFRUAreas("X", false);
    EXPECT_TRUE(l.boardFields.empty() && l.productFields.empty());

    IPMIVPDEntry entry;
    EXPECT_EQ(NOXAQSV20::QSV_ERROR, entry.IPMISELShowFRUData(l, false)); // no current set
    EXPECT_TRUE(entry.PropertySets().empty());

    // Product fields 0..3 or board fields 1..4; none at all: four blanks.
    l.boardFields = {"b0", "b1", "b2", "b3", "b4"};
    l.productFields = {"p0", "p1", "p2", "p3"};
    const std::tuple<bool, Texts, std::string> cases[] = {
        {false, l.productFields,
         "IdentifyingNumber= |Vendor=p0|FRUNumber=p1|PartNumber=p2|SerialNumber=p3"},
        {true, l.productFields,
         "IdentifyingNumber= |Vendor=b1|FRUNumber=b2|PartNumber=b3|SerialNumber=b4"},
        {false, {}, "IdentifyingNumber= |Vendor= |FRUNumber= |PartNumber= |SerialNumber= "}};
    for (const auto& [boardOnly, product, expected] : cases) {
        l.productFields = product;
        FRUProperties& p = entry.NewPropertySet();
        EXPECT_EQ(0, entry.IPMISELShowFRUData(l, boardOnly));
        EXPECT_EQ(Props(expected), p);
    }
}

// "PartNumber|FRUNumber|SerialNumber|Vendor" as GetFRUOffsets sets them;
// "IdentifyingNumber" is always the serial again.
std::string Offsets(const Bytes& data, const std::string& id, bool blade = false) {
    Bytes full = data;
    full.resize(kFRUDataSize);
    FRUProperties p;
    GetFRUOffsets(p, full.data(), id, blade);
    EXPECT_EQ(5u, p.size());
    EXPECT_EQ(p["SerialNumber"], p["IdentifyingNumber"]);
    return p["PartNumber"] + "|" + p["FRUNumber"] + "|" + p["SerialNumber"] + "|" + p["Vendor"];
}

TEST(TypedData, MemoryModulesByType) {
    // SPD of type 0Bh or 09h: part at 128, serial 122..125 printed from 125
    // down, maker as bank byte 117 and code 118. Other types: part at 73,
    // serial 95..98 in order, maker as continuation bytes from 64.
    auto late = [](uint8_t type, Bytes serial, uint8_t bank, uint8_t code) {
        Bytes d(256);
        d[2] = type;
        std::copy(serial.begin(), serial.end(), d.begin() + 122);
        d[117] = bank;
        d[118] = code;
        Put(d, 128, "M393B1K70DH0-CK0  ");
        return d;
    };
    auto early = [](Bytes serial, Bytes maker) {
        Bytes d(256);
        d[2] = 0x08;
        std::copy(serial.begin(), serial.end(), d.begin() + 95);
        std::copy(maker.begin(), maker.end(), d.begin() + 64);
        Put(d, 73, "K\x01"); // not printable: the part number is blank
        return d;
    };
    const Bytes seven = B(0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x01);
    const std::tuple<Bytes, std::string> cases[] = {
        {late(0x0B, B(1, 2, 3, 4), 0x80, 0xCE), "M393B1K70DH0-CK0  | |04030201|Samsung"},
        {late(0x09, B(0, 0, 0, 0), 0x01, 0x98), "M393B1K70DH0-CK0  | ||Kingston"},
        {late(0x0B, B(1, 2, 3, 4), 0x07, 0x01), "M393B1K70DH0-CK0  | |04030201|"},
        {late(0x0B, B(1, 2, 3, 4), 0x00, 0x7F), "M393B1K70DH0-CK0  | |04030201|"},
        {early(B(1, 2, 3, 4), B(0x7F, 0x98)), " | |01020304|Kingston"},
        {early(B(0xAB, 0, 0, 0), Bytes(seven.begin() + 1, seven.end())), " | |AB000000|MOVEKING"},
        {early(B(1, 2, 3, 4), seven), " | |01020304|"},
    };
    for (const auto& [data, expected] : cases) {
        EXPECT_EQ(expected, Offsets(data, "DIMM"));
    }
    EXPECT_EQ(" | | | ", Offsets(late(0x0B, B(1, 2, 3, 4), 0x80, 0xCE), "CPU"));
}

TEST(TypedData, FixedOffsetVPDInRackAndBladeLayout) {
    // Part, FRU, serial, (unused), vendor: 12, 12, 6, 6, 4 characters from 14
    // on a rack board, from 60 on a blade.
    for (bool blade : {false, true}) {
        Bytes d(kFRUDataSize);
        Put(d, blade ? 60 : 14, "12+34-56-78+FRUNUMBER123SER456XXXXXXOXA1TAIL");
        EXPECT_EQ("123456-78+|FRUNUMBER123|SER456|OXA1", Offsets(d, "PSU", blade));
        EXPECT_EQ(" | | | ", Offsets(d, "PSU", !blade));
    }
    Bytes d(kFRUDataSize);
    Put(d, 14, "AB\tCD");
    Put(d, 26, "F");
    Put(d, 38, "S1");
    EXPECT_EQ(" |F|S1| ", Offsets(d, "Backplane"));
}

TEST(TypedData, TextValidityAndManufacturerNames) {
    const std::tuple<std::string, bool> texts[] = {{"", false},     {" ", true},
                                                   {"A~", true},    {"A\x7F", false},
                                                   {"\x1F", false}, {"\xC3\xA9", false}};
    for (const auto& [text, valid] : texts) {
        EXPECT_EQ(valid, IsValidFRUText(text)) << text;
    }
    EXPECT_EQ("AMD|AMD|Micron Technology|Triad Semiconductor, Inc.|||",
              JEP106Name(0, 0x01) + "|" + JEP106Name(0, 0x81) + "|" + JEP106Name(0, 0x2C) + "|" +
                  JEP106Name(6, 0x7E) + "|" + JEP106Name(7, 0x01) + "|" + JEP106Name(0, 0x00) +
                  "|" + JEP106Name(0, 0xFF));
    const uint8_t twoBanks[] = {0x7F, 0x7F, 0x05};
    EXPECT_EQ("HYPERTEC", JEP106FromContinuation(twoBanks, 3));
    EXPECT_EQ("", JEP106FromContinuation(twoBanks, 2)); // the code lies past what may be read
    EXPECT_EQ("Kingston", JEP106FromBankByte(0x81, 0x18));
}

} // namespace
} // namespace ipmisel::test
