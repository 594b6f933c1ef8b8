// Board fields at fixed places, the five properties they give, typed FRU data
// (processor, SPD, fixed-offset VPD) and the manufacturer names.
#include <gtest/gtest.h>

#include <tuple>

#include "fru/IPMIVPDEntry.h"
#include "tests/fru/FRUTestSupport.h"

namespace ipmisel::test {
namespace {

using Texts = std::vector<std::string>;
using namespace std::string_literals;

TEST(BoardFields, AreReadAtFixedPlacesInTheirOrder) {
    IPMIFRULocator l; // the board area at 8
    const Bytes img = Filled(kFRUDataSize, {{3, "\x01"},
                                            {8 + 38, "PROD-NAME"},
                                            {8 + 7, "MAKER"},
                                            {8 + 134, std::string(40, 'x')},
                                            {8 + 102, "ABC#123"},
                                            {8 + 71, "a_b[c]\\d/e(f).g Z9"}});
    std::copy(img.begin(), img.end(), l.fruData);
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
    auto late = [](char type, const std::string& serial, const std::string& maker) {
        return Filled(256, {{2, {type}}, {117, maker}, {122, serial}, {128, "M393B1K70DH0-CK0  "}});
    };
    auto early = [](const std::string& serial, const std::string& maker) {
        // 01h is not printable: the part number is blank.
        return Filled(256, {{2, "\x08"}, {64, maker}, {73, "K\x01"}, {95, serial}});
    };
    const std::string seven = "\x7F\x7F\x7F\x7F\x7F\x7F\x7F\x01", serial = "\x01\x02\x03\x04";
    const std::tuple<Bytes, std::string> cases[] = {
        {late(0x0B, serial, "\x80\xCE"), "M393B1K70DH0-CK0  | |04030201|Samsung"},
        {late(0x09, "\0\0\0\0"s, "\x01\x98"), "M393B1K70DH0-CK0  | ||Kingston"},
        {late(0x0B, serial, "\x07\x01"), "M393B1K70DH0-CK0  | |04030201|"},
        {late(0x0B, serial, "\0\x7F"s), "M393B1K70DH0-CK0  | |04030201|"},
        {early(serial, "\x7F\x98"), " | |01020304|Kingston"},
        {early("\xAB\0\0\0"s, seven.substr(1)), " | |AB000000|MOVEKING"},
        {early(serial, seven), " | |01020304|"},
    };
    for (const auto& [data, expected] : cases) {
        EXPECT_EQ(expected, Offsets(data, "DIMM"));
    }
    EXPECT_EQ(" | | | ", Offsets(late(0x0B, serial, "\x80\xCE"), "CPU"));
}

TEST(TypedData, FixedOffsetVPDInRackAndBladeLayout) {
    // Part, FRU, serial, (unused), vendor: 12, 12, 6, 6, 4 characters from 14
    // on a rack board, from 60 on a blade.
    for (bool blade : {false, true}) {
        const Bytes d = Filled(kFRUDataSize,
                               {{blade ? 60 : 14, "12+34-56-78+FRUNUMBER123SER456XXXXXXOXA1TAIL"}});
        EXPECT_EQ("123456-78+|FRUNUMBER123|SER456|OXA1", Offsets(d, "PSU", blade));
        EXPECT_EQ(" | | | ", Offsets(d, "PSU", !blade));
    }
    const Bytes d = Filled(kFRUDataSize, {{14, "AB\tCD"}, {26, "F"}, {38, "S1"}});
    EXPECT_EQ(" |F|S1| ", Offsets(d, "Backplane"));
}

TEST(TypedData, TextValidityAndManufacturerNames) {
    const std::tuple<std::string, bool> texts[] = {{"", false},     {" ", true},
                                                   {"A~", true},    {"A\x7F", false},
                                                   {"\x1F", false}, {"\xC3\xA9", false}};
    for (const auto& [text, valid] : texts) {
        EXPECT_EQ(valid, IsValidFRUText(text)) << text;
    }
    // The parity bit is not part of the code; bank 6 ends at 7Eh.
    EXPECT_EQ("AMD|AMD|Triad Semiconductor, Inc.|||",
              JEP106Name(0, 0x01) + "|" + JEP106Name(0, 0x81) + "|" + JEP106Name(6, 0x7E) + "|" +
                  JEP106Name(6, 0x7F) + "|" + JEP106Name(0, 0x00) + "|" + JEP106Name(0, 0xFF));
    const uint8_t twoBanks[] = {0x7F, 0x7F, 0x05};
    EXPECT_EQ("HYPERTEC", JEP106FromContinuation(twoBanks, 3));
    EXPECT_EQ("", JEP106FromContinuation(twoBanks, 2)); // the code lies past what may be read
}

} // namespace
} // namespace ipmisel::test
