// The standard IPMI FRU information areas, byte by byte, and the same images
// read by FreeIPMI's ipmi-fru when it is installed.
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <tuple>

#include "fru/FRUInfoAreas.h"
#include "tests/fru/FRUTestSupport.h"

namespace ipmisel::test {
namespace {

// Chassis: rack mount. Board: made 2024-11-13 16:12 (15184332 minutes,
// E7B1CCh), 8-bit text with blanks to trim, 6-bit packed text (21 43 65 | 87
// A9: "A,49" and "'F"), BCD plus, binary, FRU file ID and a custom field.
// Product: language 25 (English), 6-bit text of four bytes (2F 1E 36 | 11:
// "OXA-" and "1"), an empty asset tag.
const Bytes kChassis = Area(Cat(B(0x17), Text8("CPN-1"), Text8("CSN-1"), B(0xC1)));
const Bytes kBoard =
    Area(Cat(B(0x00, 0xCC, 0xB1, 0xE7), Text8("  Maker Inc  "),
             B(0x85, 0x21, 0x43, 0x65, 0x87, 0xA9), B(0x44, 0x01, 0x0A, 0x0C, 0x0B),
             B(0x03, 0xDE, 0xAD, 0x01), Text8("ID"), Text8("C1x"), B(0xC1)));
const Bytes kProduct =
    Area(Cat(B(25), Text8("PMaker"), Text8("PName"), Text8("PP-1"), B(0x84, 0x2F, 0x1E, 0x36, 0x11),
             Text8("PS9"), B(0xC0), Text8("F1"), B(0xC1)));

const std::string kChassisProperties =
    "ChassisType=Rack Mount Chassis|ChassisPartNumber=CPN-1|ChassisSerialNumber=CSN-1";
const std::string kBoardProperties = "BoardMfgDateTime=20241113161200.000000+000|"
                                     "BoardManufacturer=Maker Inc|BoardProductName=A,49'F|"
                                     "BoardSerialNumber=1 .-|BoardPartNumber=DEh ADh 01h";
const std::string kProductProperties =
    "ProductManufacturer=PMaker|ProductName=PName|"
    "ProductPartNumber=PP-1|ProductVersion=OXA-1|ProductSerialNumber=PS9";

FRUProperties Decode(const Bytes& image) {
    FRUProperties p;
    AddStandardFRUAreas(p, image.data(), image.size(), "Mainboard");
    return p;
}

// The header says the board is at 8 x `offset`; `board` is put there.
Bytes BoardAt(uint8_t offset, const std::string& board) {
    const char sum = char(-1 - offset);
    return Filled(kFRUDataSize, {{0, {1, 0, 0, char(offset), 0, 0, 0, sum}}, {8 * offset, board}});
}

std::string Line(const char* area, const char* why) {
    return std::string("FRU ") + area + " info area of Mainboard left out: " + why + ".";
}

// Damaged images, what is left of them and the log line. A bad area is left
// out whole; the others stay.
std::vector<std::tuple<std::string, Bytes, std::string, std::string>> DamagedImages() {
    const std::string date0 = "BoardMfgDateTime=19960101000000.000000+000";
    return {
        {"chassis checksum",
         Image(Area(Cat(B(0x17), Text8("CPN-1"), B(0xC1)), 1), kBoard, kProduct),
         kBoardProperties + "|" + kProductProperties, Line("chassis", "its checksum is invalid")},
        {"board version", Image(kChassis, B(0x02, 0x01, 0, 0, 0, 0, 0xC1, 0x3C), kProduct),
         kChassisProperties + "|" + kProductProperties,
         Line("board", "its format version is not 01h")},
        {"custom field past the area",
         Image({}, Area(B(0, 0, 0, 0, 0xC2, 'M', 'M', 0xC2, 'P', 'N', 0, 0, 0, 0xCF)), {}), "",
         Line("board", "a field runs past the area's end")},
        // The part number's 8 bytes take the padding and the checksum: the
        // area ends where the FRU file ID should be.
        {"area ending before its standard fields",
         Image({},
               Area(Cat(B(0, 0, 0, 0, 0xC2, 'M', 'M', 0xC2, 'P', 'N', 0xC2, 'S', 'N', 0xC8),
                        Bytes{'A', 'B', 'C', 'D', 'E', 'F', 'G'})),
               {}),
         "", Line("board", "a field runs past the area's end")},
        {"area at 520 running past 528", BoardAt(0x41, "\x01\x02"), "",
         Line("board", "it runs past the FRU data")},
        {"area at 528", BoardAt(0x42, ""), "", Line("board", "it starts past the FRU data")},
        {"length 0", BoardAt(1, {1, 0}), "", Line("board", "its length is 0")},
        {"end of fields after the date",
         Image({}, Area(B(0, 0x01, 0, 0, 0xC1, 0xC2, 'M', 'M')), {}),
         "BoardMfgDateTime=19960101000100.000000+000", ""},
        {"not English",
         Image({}, Area(Cat(B(5, 0, 0, 0), Text8("Maker"), B(0x82, 0x21, 0x43, 0xC1))), {}),
         date0 + "|BoardProductName=A,",
         "FRU field BoardManufacturer of Mainboard left out: language code 5 is not English."},
        {"bad BCD plus",
         Image({}, Area(B(0, 0, 0, 0, 0xC2, 'M', 'M', 0xC2, 'P', 'N', 0x42, 0x01, 0x12, 0xC1)), {}),
         date0 + "|BoardManufacturer=MM|BoardProductName=PN",
         "FRU field BoardSerialNumber of Mainboard left out: invalid BCD plus digit."},
    };
}

TEST(InfoAreas, DecodeEveryAreaTheHeaderNames) {
    EXPECT_EQ(Props(kChassisProperties + "|" + kBoardProperties + "|" + kProductProperties),
              Decode(Image(kChassis, kBoard, kProduct)));
    HostCapture host;
    for (const auto& [what, image, expected, log] : DamagedImages()) {
        host.clear();
        EXPECT_EQ(Props(expected), Decode(image)) << what;
        EXPECT_TRUE(log.empty() || host.hasLog(1, log)) << what;
    }
}

TEST(InfoAreas, CommonHeaderAndFieldEncodings) {
    // Version 01h and a zero sum; a version 02h, a bad sum, all zeros, too few bytes.
    const Bytes good = B(0x01, 0, 0, 1, 0, 0, 0, 0xFE), v2 = B(0x02, 0, 0, 1, 0, 0, 0, 0xFD),
                sum = B(0x01, 0, 0, 1, 0, 0, 0, 0xFF), zeros(8);
    EXPECT_TRUE(HasIPMICommonHeader(good.data(), 8));
    EXPECT_FALSE(HasIPMICommonHeader(good.data(), 7) || HasIPMICommonHeader(v2.data(), 8) ||
                 HasIPMICommonHeader(sum.data(), 8) || HasIPMICommonHeader(zeros.data(), 8));

    using R = FRUFieldResult;
    const std::tuple<uint8_t, Bytes, uint8_t, R, std::string> fields[] = {
        {0xC6, B(' ', 'A', 0, 'B', ' ', ' '), 0, R::Text, "A"},
        {0x41, B(0x0D), 0, R::BadBCD, ""},
        {0x01, B(0x00), 3, R::Text, "00h"},
    };
    for (const auto& [typeLength, bytes, language, result, text] : fields) {
        std::string decoded = "stale";
        EXPECT_EQ(result, DecodeFRUField(typeLength, bytes.data(), language, decoded)) << text;
        EXPECT_EQ(text, decoded) << int(typeLength);
    }
    EXPECT_EQ("19960101000000.000000+000", FRUMfgDateTimeText(0));
    EXPECT_EQ("20271124201500.000000+000", FRUMfgDateTimeText(0xFFFFFF));
    EXPECT_EQ("Unknown|Other|Blade Enclosure|Unknown",
              std::string(ChassisTypeName(0)) + "|" + ChassisTypeName(1) + "|" +
                  ChassisTypeName(0x1D) + "|" + ChassisTypeName(0x1E));
}

// What ipmi-fru prints for an image under our property names: blanks trimmed,
// empty values and its per-field errors left out, the date as CIM text.
FRUProperties ReadWithIpmiFru(const Bytes& image) {
    const std::string path = writeTempFile("fru.bin", std::string(image.begin(), image.end()));
    FILE* pipe = popen(("TZ=UTC ipmi-fru --fru-file " + path + " 2>&1").c_str(), "r");
    // "  FRU Board Part Number: ..." is BoardPartNumber; custom, error and FRU
    // file ID lines name no property.
    const std::regex field("\\s*FRU (Chassis|Board|Product) (?!Info|Custom)([^:]*): *(.*?) *\n?");
    const FRUProperties renames = Props("BoardManufacturingDate/Time=BoardMfgDateTime|"
                                        "ProductManufacturerName=ProductManufacturer|"
                                        "ProductPart/ModelNumber=ProductPartNumber");
    FRUProperties seen;
    char line[512];
    std::smatch m;
    while (pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr) {
        const std::string text(line);
        if (!std::regex_match(text, m, field)) {
            continue;
        }
        std::string name = m[1].str() + m[2].str(), value = m[3];
        std::erase(name, ' ');
        name = renames.contains(name) ? renames.at(name) : name;
        if (name == "BoardMfgDateTime") { // mm/dd/yy - hh:mm:ss
            const std::string yy = value.substr(6, 2);
            value = (yy < "96" ? "20" : "19") + yy + value.substr(0, 2) + value.substr(3, 2) +
                    value.substr(11, 2) + value.substr(14, 2) + value.substr(17, 2) + ".000000+000";
        }
        if (!value.empty() && value.rfind("Error '", 0) != 0) {
            seen[name] = value;
        }
    }
    if (pipe != nullptr) {
        pclose(pipe);
    }
    return seen;
}

TEST(InfoAreas, ReadAsFreeIPMIReadsThem) {
    if (std::system("command -v ipmi-fru >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "ipmi-fru (freeipmi-tools) is not installed";
    }
    std::vector<Bytes> images = {Image(kChassis, kBoard, kProduct)};
    for (const auto& [what, image, expected, log] : DamagedImages()) {
        // ipmi-fru gives up on the whole device for an area it cannot place;
        // we keep the other areas, so only the images it reads area by area.
        if (what.rfind("area at", 0) != 0 && what != "length 0") {
            images.push_back(image);
        }
    }
    for (const Bytes& image : images) {
        EXPECT_EQ(ReadWithIpmiFru(image), Decode(image));
    }
}

} // namespace
} // namespace ipmisel::test
