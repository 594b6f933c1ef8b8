// The standard IPMI FRU information areas. Each area is checked whole (inside
// the data, checksum, format version, every field inside the area) before any
// of its fields becomes a property, so a damaged area adds nothing rather than
// a guess; the other areas are decoded on their own.
#include "fru/FRUInfoAreas.h"

#include <ctime>
#include <span>
#include <vector>

#include "base/log.h"
#include "base/text.h"

namespace ipmisel {

namespace {

// An 8-byte common header with format version 01h; area offsets and lengths
// count 8-byte units; in an area, type/length bytes (type in bits 7:6, length
// in bits 5:0) up to the end-of-fields byte C1h.
enum : size_t { kCommonHeaderSize = 8, kAreaMultiple = 8 };
enum : uint8_t { kFormatVersion = 0x01, kEndOfFields = 0xC1, kLengthMask = 0x3F, kTypeShift = 6 };

enum FieldType { Binary = 0, BCDPlus = 1, SixBitASCII = 2, EightBitASCII = 3 };

// 8-bit ASCII is text only in English (legacy code 0 or code 25); in any
// other language the IPMI definition makes it 16-bit text, which we do not
// read.
enum : uint8_t { kEnglishLegacy = 0, kEnglish = 25 };

constexpr char kBCDPlusDigits[] = "0123456789 -.";
constexpr uint8_t kSixBitBase = 0x20;

// 1996-01-01 00:00 UTC in seconds since 1970: the FRU clock's start.
constexpr int64_t kFRUEpoch = 820454400;

// IPMI chassis types (the SMBIOS system enclosure codes), by code.
constexpr const char* kChassisTypeNames[] = {
    "Unknown",               // 00h: not defined
    "Other",                 // 01h
    "Unknown",               // 02h
    "Desktop",               // 03h
    "Low Profile Desktop",   // 04h
    "Pizza Box",             // 05h
    "Mini Tower",            // 06h
    "Tower",                 // 07h
    "Portable",              // 08h
    "LapTop",                // 09h
    "Notebook",              // 0Ah
    "Hand Held",             // 0Bh
    "Docking Station",       // 0Ch
    "All in One",            // 0Dh
    "Sub Notebook",          // 0Eh
    "Space-saving",          // 0Fh
    "Lunch Box",             // 10h
    "Main Server Chassis",   // 11h
    "Expansion Chassis",     // 12h
    "SubChassis",            // 13h
    "Bus Expansion Chassis", // 14h
    "Peripheral Chassis",    // 15h
    "RAID Chassis",          // 16h
    "Rack Mount Chassis",    // 17h
    "Sealed-case PC",        // 18h
    "Multi-system chassis",  // 19h
    "Compact PCI",           // 1Ah
    "Advanced TCA",          // 1Bh
    "Blade",                 // 1Ch
    "Blade Enclosure",       // 1Dh
};

// The properties of an area's type/length fields in their order; null for a
// field that is read past but not reported (the FRU file ID). Custom fields
// after them are checked like the others and not reported.
constexpr const char* kChassisFields[] = {"ChassisPartNumber", "ChassisSerialNumber"};
constexpr const char* kBoardFields[] = {"BoardManufacturer", "BoardProductName",
                                        "BoardSerialNumber", "BoardPartNumber", nullptr};
constexpr const char* kProductFields[] = {"ProductManufacturer",
                                          "ProductName",
                                          "ProductPartNumber",
                                          "ProductVersion",
                                          "ProductSerialNumber",
                                          "ProductAssetTag",
                                          nullptr};

enum class Area { Chassis, Board, Product };

struct AreaLayout {
    Area area;
    const char* name;  // for the log
    size_t headerByte; // common header byte holding the area's offset / 8
    size_t firstField; // area byte of the first type/length byte
    bool hasLanguage;  // area byte 2 is a language code
    std::span<const char* const> fields;
};

constexpr AreaLayout kAreas[] = {
    {Area::Chassis, "chassis", 2, 3, false, kChassisFields},
    {Area::Board, "board", 3, 6, true, kBoardFields},
    {Area::Product, "product", 4, 3, true, kProductFields},
};

// Board area bytes 3..5: manufacturing time, least significant byte first.
constexpr size_t kBoardMfgTime = 3;
// Chassis area byte 2: chassis type.
constexpr size_t kChassisType = 2;
constexpr size_t kLanguageCode = 2;

void Trim(std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) {
        text.clear();
        return;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    text.erase(0, first);
}

void DecodeSixBit(const uint8_t* bytes, size_t n, std::string& text) {
    // Four characters in three bytes, the first in the low bits of the first
    // byte; a last group of one or two bytes gives one or two characters.
    for (size_t i = 0; i < n; i += 3) {
        const size_t left = n - i;
        uint32_t group = bytes[i];
        group |= left > 1 ? static_cast<uint32_t>(bytes[i + 1]) << 8 : 0;
        group |= left > 2 ? static_cast<uint32_t>(bytes[i + 2]) << 16 : 0;
        const size_t chars = left > 2 ? 4 : left;
        for (size_t c = 0; c < chars; ++c) {
            text.push_back(static_cast<char>(kSixBitBase + ((group >> (6 * c)) & 0x3F)));
        }
    }
}

bool Checksummed(const uint8_t* bytes, size_t n) {
    uint8_t sum = 0;
    for (size_t i = 0; i < n; ++i) {
        sum = static_cast<uint8_t>(sum + bytes[i]);
    }
    return sum == 0;
}

void LeaveOut(const AreaLayout& layout, const std::string& name, const char* why) {
    LogF(SevFailure, "FRU %s info area of %s left out: %s.", layout.name, name.c_str(), why);
}

void AddArea(FRUProperties& properties, const uint8_t* data, size_t size, const AreaLayout& layout,
             const std::string& name) {
    const size_t start = kAreaMultiple * data[layout.headerByte];
    if (start == 0) {
        return; // the FRU has no such area
    }
    if (start + 1 >= size) {
        LeaveOut(layout, name, "it starts past the FRU data");
        return;
    }
    const size_t length = kAreaMultiple * data[start + 1];
    if (length == 0) {
        LeaveOut(layout, name, "its length is 0");
        return;
    }
    if (start + length > size) {
        LeaveOut(layout, name, "it runs past the FRU data");
        return;
    }
    const uint8_t* area = data + start;
    if (!Checksummed(area, length)) {
        LeaveOut(layout, name, "its checksum is invalid");
        return;
    }
    if (area[0] != kFormatVersion) {
        LeaveOut(layout, name, "its format version is not 01h");
        return;
    }

    // Where each reported field's type/length byte is. Every field, custom
    // ones included, must end inside the area, and the area must not end
    // before its standard fields unless the end-of-fields byte came first.
    std::vector<std::pair<const char*, size_t>> reported;
    size_t pos = layout.firstField;
    for (size_t index = 0;; ++index) {
        const bool standard = index < layout.fields.size();
        if (pos >= length && !standard) {
            break;
        }
        if (pos < length && area[pos] == kEndOfFields) {
            break;
        }
        const size_t next = pos + 1 + (pos < length ? area[pos] & kLengthMask : 0);
        if (next > length) {
            LeaveOut(layout, name, "a field runs past the area's end");
            return;
        }
        if (standard && layout.fields[index] != nullptr) {
            reported.emplace_back(layout.fields[index], pos);
        }
        pos = next;
    }

    if (layout.area == Area::Chassis) {
        properties["ChassisType"] = ChassisTypeName(area[kChassisType]);
    } else if (layout.area == Area::Board) {
        const uint32_t minutes =
            area[kBoardMfgTime] | area[kBoardMfgTime + 1] << 8 | area[kBoardMfgTime + 2] << 16;
        properties["BoardMfgDateTime"] = FRUMfgDateTimeText(minutes);
    }
    const uint8_t language = layout.hasLanguage ? area[kLanguageCode] : uint8_t{kEnglish};
    for (const auto& [property, pos] : reported) {
        std::string text;
        switch (DecodeFRUField(area[pos], area + pos + 1, language, text)) {
        case FRUFieldResult::Text:
            if (!text.empty()) {
                properties[property] = text;
            }
            break;
        case FRUFieldResult::BadBCD:
            LogF(SevFailure, "FRU field %s of %s left out: invalid BCD plus digit.", property,
                 name.c_str());
            break;
        case FRUFieldResult::Language:
            LogF(SevFailure, "FRU field %s of %s left out: language code %u is not English.",
                 property, name.c_str(), language);
            break;
        }
    }
}

} // namespace

bool HasIPMICommonHeader(const uint8_t* data, size_t size) {
    return size >= kCommonHeaderSize && data[0] == kFormatVersion &&
           Checksummed(data, kCommonHeaderSize);
}

FRUFieldResult DecodeFRUField(uint8_t typeLength, const uint8_t* bytes, uint8_t languageCode,
                              std::string& text) {
    text.clear();
    const size_t n = typeLength & kLengthMask;
    if (n == 0) {
        return FRUFieldResult::Text;
    }
    switch (typeLength >> kTypeShift) {
    case Binary:
        for (size_t i = 0; i < n; ++i) {
            char piece[8];
            TextFormat(piece, sizeof piece, i == 0 ? "%02Xh" : " %02Xh", bytes[i]);
            text += piece;
        }
        break;
    case BCDPlus:
        for (size_t i = 0; i < n; ++i) {
            if (bytes[i] >= sizeof kBCDPlusDigits - 1) {
                text.clear();
                return FRUFieldResult::BadBCD;
            }
            text.push_back(kBCDPlusDigits[bytes[i]]);
        }
        break;
    case SixBitASCII:
        DecodeSixBit(bytes, n, text);
        break;
    default:
        if (languageCode != kEnglishLegacy && languageCode != kEnglish) {
            return FRUFieldResult::Language;
        }
        for (size_t i = 0; i < n && bytes[i] != 0; ++i) {
            text.push_back(static_cast<char>(bytes[i]));
        }
        break;
    }
    Trim(text);
    return FRUFieldResult::Text;
}

std::string FRUMfgDateTimeText(uint32_t minutes) {
    const time_t seconds = static_cast<time_t>(kFRUEpoch + int64_t{minutes} * 60);
    struct tm utc = {};
    gmtime_r(&seconds, &utc);
    char text[32];
    TextFormat(text, sizeof text, "%04d%02d%02d%02d%02d%02d.000000+000", utc.tm_year + 1900,
               utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
    return text;
}

const char* ChassisTypeName(uint8_t type) {
    return type < std::size(kChassisTypeNames) ? kChassisTypeNames[type] : "Unknown";
}

void AddStandardFRUAreas(FRUProperties& properties, const uint8_t* data, size_t size,
                         const std::string& name) {
    if (!HasIPMICommonHeader(data, size)) {
        return;
    }
    for (const AreaLayout& layout : kAreas) {
        AddArea(properties, data, size, layout, name);
    }
}

} // namespace ipmisel
