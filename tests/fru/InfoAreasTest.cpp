// The standard IPMI FRU information areas, byte by byte, and the same images
// read by FreeIPMI's ipmi-fru when it is installed.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <tuple>

#include "fru/FRUInfoAreas.h"
#include "tests/fru/FRUTestSupport.h"

namespace ipmisel::test {
namespace {

// Chassis: rack mount. Board: made 2024-11-13 16:12 (15184332 minutes, E7B1CCh),
// 8-bit text with blanks to trim, 6-bit packed text (21 43 65 | 87 A9: "A,49"
// and "'F"), BCD plus, binary, FRU file ID and a custom field. Product:
// language 25 (English), 6-bit text of four bytes (2F 1E 36 | 11: "OXA-" and
// "1"), an empty asset tag.
const Bytes kChassis = Area(Cat({{0x17}, Text8("CPN-1"), Text8("CSN-1"), {0xC1}}));
const Bytes kBoard = Area(Cat({{0x00, 0xCC, 0xB1, 0xE7},
                               Text8("  Maker Inc  "),
                               {0x85, 0x21, 0x43, 0x65, 0x87, 0xA9},
                               {0x44, 0x01, 0x0A, 0x0C, 0x0B},
                               {0x03, 0xDE, 0xAD, 0x01},
                               Text8("ID"),
                               Text8("C1x"),
                               {0xC1}}));
const Bytes kProduct = Area(Cat({{25},
                                 Text8("PMaker"),
                                 Text8("PName"),
                                 Text8("PP-1"),
                                 {0x84, 0x2F, 0x1E, 0x36, 0x11},
                                 Text8("PS9"),
                                 {0xC0},
                                 Text8("F1"),
                                 {0xC1}}));

const FRUProperties kChassisProperties = {{"ChassisType", "Rack Mount Chassis"},
                                          {"ChassisPartNumber", "CPN-1"},
                                          {"ChassisSerialNumber", "CSN-1"}};
const FRUProperties kBoardProperties = {{"BoardMfgDateTime", "20241113161200.000000+000"},
                                        {"BoardManufacturer", "Maker Inc"},
                                        {"BoardProductName", "A,49'F"},
                                        {"BoardSerialNumber", "1 .-"},
                                        {"BoardPartNumber", "DEh ADh 01h"}};
const FRUProperties kProductProperties = {{"ProductManufacturer", "PMaker"},
                                          {"ProductName", "PName"},
                                          {"ProductPartNumber", "PP-1"},
                                          {"ProductVersion", "OXA-1"},
                                          {"ProductSerialNumber", "PS9"}};

FRUProperties Join(std::initializer_list<FRUProperties> parts) {
    FRUProperties all;
    for (const auto& p : parts) {
        all.insert(p.begin(), p.end());
    }
    return all;
}

FRUProperties Decode(const Bytes& image) {
    FRUProperties p;
    AddStandardFRUAreas(p, image.data(), image.size(), "Mainboard");
    return p;
}

// A damaged image: the header says where the board is, `board` is put there.
Bytes BoardAt(uint8_t offsetByte, const Bytes& board) {
    Bytes img(kFRUDataSize);
    img[0] = 1;
    img[3] = offsetByte;
    img[7] = ZeroSum(img, 7);
    for (size_t i = 0; i < board.size() && 8u * offsetByte + i < img.size(); ++i) {
        img[8u * offsetByte + i] = board[i];
    }
    return img;
}

// The damaged images and what is left of them. Each bad area is left out whole.
std::vector<std::tuple<std::string, Bytes, FRUProperties, std::string>> DamagedImages() {
    auto line = [&](const char* area, const char* why) {
        return std::string("FRU ") + area + " info area of Mainboard left out: " + why + ".";
    };
    return {
        {"chassis checksum",
         Image(Area(Cat({{0x17}, Text8("CPN-1"), {0xC1}}), 1), kBoard, kProduct),
         Join({kBoardProperties, kProductProperties}), line("chassis", "its checksum is invalid")},
        {"board version", Image(kChassis, Bytes{0x02, 0x01, 0, 0, 0, 0, 0xC1, 0x3C}, kProduct),
         Join({kChassisProperties, kProductProperties}),
         line("board", "its format version is not 01h")},
        {"product field past the area", Image(kChassis, kBoard, Area({25, 0xC8, 'A', 'B'})),
         Join({kChassisProperties, kBoardProperties}),
         line("product", "a field runs past the area's end")},
        {"custom field past the area",
         Image({}, Area({0, 0, 0, 0, 0xC2, 'M', 'M', 0xC2, 'P', 'N', 0, 0, 0, 0xCF}), {}),
         {},
         line("board", "a field runs past the area's end")},
        // The part number's 8 bytes take the padding and the checksum: the
        // area ends where the FRU file ID should be.
        {"area ending before its standard fields",
         Image({}, Area({0,   0,   0,    0,   0xC2, 'M', 'M', 0xC2, 'P', 'N', 0xC2,
                         'S', 'N', 0xC8, 'A', 'B',  'C', 'D', 'E',  'F', 'G'}),
               {}),
         {},
         line("board", "a field runs past the area's end")},
        {"area at 520 running past 528",
         BoardAt(0x41, {0x01, 0x02, 0x00}),
         {},
         line("board", "it runs past the FRU data")},
        {"area at 528", BoardAt(0x42, {}), {}, line("board", "it starts past the FRU data")},
        {"area offset FFh", BoardAt(0xFF, {}), {}, line("board", "it starts past the FRU data")},
        {"length 0", BoardAt(1, {0x01, 0x00}), {}, line("board", "its length is 0")},
        {"end of fields after the date",
         Image({}, Area({0, 0x01, 0, 0, 0xC1, 0xC2, 'M', 'M'}), {}),
         {{"BoardMfgDateTime", "19960101000100.000000+000"}},
         ""},
        {"not English",
         Image({}, Area(Cat({{5, 0, 0, 0}, Text8("Maker"), {0x82, 0x21, 0x43}, {0xC1}})), {}),
         {{"BoardMfgDateTime", "19960101000000.000000+000"}, {"BoardProductName", "A,"}},
         "FRU field BoardManufacturer of Mainboard left out: language code 5 is not English."},
        {"bad BCD plus",
         Image({}, Area({0, 0, 0, 0, 0xC2, 'M', 'M', 0xC2, 'P', 'N', 0x42, 0x01, 0x12, 0xC1}), {}),
         {{"BoardMfgDateTime", "19960101000000.000000+000"},
          {"BoardManufacturer", "MM"},
          {"BoardProductName", "PN"}},
         "FRU field BoardSerialNumber of Mainboard left out: invalid BCD plus digit."},
    };
}

TEST(InfoAreas, DecodeEveryAreaTheHeaderNames) {
    EXPECT_EQ(Join({kChassisProperties, kBoardProperties, kProductProperties}),
              Decode(Image(kChassis, kBoard, kProduct)));
    HostCapture host;
    for (const auto& [what, image, expected, log] : DamagedImages()) {
        host.clear();
        EXPECT_EQ(expected, Decode(image)) << what;
        EXPECT_TRUE(log.empty() || host.hasLog(1, log)) << what;
    }
}

TEST(InfoAreas, CommonHeaderAndFieldEncodings) {
    Bytes header = {0x01, 0, 0, 1, 0, 0, 0, 0xFE};
    EXPECT_TRUE(HasIPMICommonHeader(header.data(), 8));
    EXPECT_FALSE(HasIPMICommonHeader(header.data(), 7));
    header[7] = 0xFF;
    EXPECT_FALSE(HasIPMICommonHeader(header.data(), 8));
    const Bytes zeros(8), version2 = {0x02, 0, 0, 0, 0, 0, 0, 0xFE};
    EXPECT_FALSE(HasIPMICommonHeader(zeros.data(), 8));
    EXPECT_FALSE(HasIPMICommonHeader(version2.data(), 8));

    const std::tuple<uint8_t, Bytes, uint8_t, FRUFieldResult, std::string> fields[] = {
        {0xC6, {' ', 'A', 0, 'B', ' ', ' '}, 0, FRUFieldResult::Text, "A"},
        {0xC3, {'a', ' ', 'b'}, 25, FRUFieldResult::Text, "a b"},
        {0xC2, {'a', 'b'}, 1, FRUFieldResult::Language, ""},
        {0xC0, {}, 1, FRUFieldResult::Text, ""},
        {0x81, {0x3F}, 1, FRUFieldResult::Text, "_"},
        {0x83, {0x01, 0x02, 0x03}, 0, FRUFieldResult::Text, "!(P"}, // the fourth, a blank, trimmed
        {0x84, {0x2F, 0x1E, 0x36, 0x11}, 0, FRUFieldResult::Text, "OXA-1"},
        {0x4D,
         {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0x0B, 0x0C, 0x0A},
         7,
         FRUFieldResult::Text,
         "0123456789-."},
        {0x41, {0x0D}, 0, FRUFieldResult::BadBCD, ""},
        {0x01, {0x00}, 3, FRUFieldResult::Text, "00h"},
    };
    for (const auto& [typeLength, bytes, language, result, text] : fields) {
        std::string decoded = "stale";
        EXPECT_EQ(result, DecodeFRUField(typeLength, bytes.data(), language, decoded)) << text;
        EXPECT_EQ(text, decoded) << int(typeLength);
    }

    EXPECT_EQ("19960101000000.000000+000", FRUMfgDateTimeText(0));
    EXPECT_EQ("20271124201500.000000+000", FRUMfgDateTimeText(0xFFFFFF));
    const std::tuple<uint8_t, std::string> chassis[] = {{0x00, "Unknown"},
                                                        {0x01, "Other"},
                                                        {0x1C, "Blade"},
                                                        {0x1D, "Blade Enclosure"},
                                                        {0x1E, "Unknown"}};
    for (const auto& [type, name] : chassis) {
        EXPECT_EQ(name, ChassisTypeName(type));
    }
}

// What ipmi-fru prints for an image, as our property names; blanks trimmed,
// empty values and its per-field errors left out.
FRUProperties ReadWithIpmiFru(const Bytes& image) {
    const std::string path = writeTempFile("fru.bin", std::string(image.begin(), image.end()));
    FILE* pipe = popen(("TZ=UTC ipmi-fru --fru-file " + path + " 2>&1").c_str(), "r");
    const std::map<std::string, std::string> names = {
        {"FRU Chassis Type", "ChassisType"},
        {"FRU Chassis Part Number", "ChassisPartNumber"},
        {"FRU Chassis Serial Number", "ChassisSerialNumber"},
        {"FRU Board Manufacturing Date/Time", "BoardMfgDateTime"},
        {"FRU Board Manufacturer", "BoardManufacturer"},
        {"FRU Board Product Name", "BoardProductName"},
        {"FRU Board Serial Number", "BoardSerialNumber"},
        {"FRU Board Part Number", "BoardPartNumber"},
        {"FRU Product Manufacturer Name", "ProductManufacturer"},
        {"FRU Product Name", "ProductName"},
        {"FRU Product Part/Model Number", "ProductPartNumber"},
        {"FRU Product Version", "ProductVersion"},
        {"FRU Product Serial Number", "ProductSerialNumber"},
        {"FRU Product Asset Tag", "ProductAssetTag"},
    };
    FRUProperties seen;
    char line[512];
    while (pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr) {
        std::string text(line);
        const size_t colon = text.find(": ");
        const size_t first = text.find_first_not_of(' ');
        if (colon == std::string::npos || first == std::string::npos) {
            continue;
        }
        const auto name = names.find(text.substr(first, colon - first));
        std::string value = text.substr(colon + 2);
        value.erase(value.find_last_not_of(" \n") + 1);
        value.erase(0, value.find_first_not_of(' '));
        if (name == names.end() || value.empty() || value.rfind("Error '", 0) == 0) {
            continue;
        }
        if (name->second == "BoardMfgDateTime") { // mm/dd/yy - hh:mm:ss
            const std::string yy = value.substr(6, 2);
            value = (yy < "96" ? "20" : "19") + yy + value.substr(0, 2) + value.substr(3, 2) +
                    value.substr(11, 2) + value.substr(14, 2) + value.substr(17, 2) + ".000000+000";
        }
        seen[name->second] = value;
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
        if (what.find("past 528") == std::string::npos &&
            what.find("area at") == std::string::npos && what.find("offset") == std::string::npos &&
            what != "length 0") {
            images.push_back(image);
        }
    }
    for (const Bytes& image : images) {
        EXPECT_EQ(ReadWithIpmiFru(image), Decode(image));
    }
}

} // namespace
} // namespace ipmisel::test
