#include "firmware/FirmwareElement.h"

#include <cstring>

#include "base/log.h"
#include "base/text.h"

using namespace NOXAQSV20;

namespace ipmisel {

namespace {

// Get Device ID response data, byte by byte.
enum : size_t {
    kDevID = 0,
    kDevRevision = 1,   // bits 3:0
    kFwMajor = 2,       // bits 6:0; bit 7 is "device available"
    kFwMinor = 3,       // two BCD digits
    kIPMIVersion = 4,   // bits 3:0 major, 7:4 minor
    kManufacturer = 6,  // 20 bits, least significant byte first
    kProduct = 9,       // 16 bits, least significant byte first
    kAuxRevision = 11,  // four bytes, when sent
    kDevIDWithAux = 15, // answer length that carries them
};

std::string DecimalString(unsigned long value) {
    char text[24];
    TextFormat(text, sizeof text, "%lu", value);
    return text;
}

} // namespace

// ---- the entry ---------------------------------------------------------------------

void FirmwareElement::AddText(const char* name, const std::string& value) {
    Property p;
    p.name = name;
    p.text = value;
    properties_.push_back(std::move(p));
}

void FirmwareElement::AddBytes(const char* name, const uint8_t* bytes, size_t count) {
    Property p;
    p.name = name;
    p.isBytes = true;
    if (bytes != nullptr) {
        p.bytes.assign(bytes, bytes + count);
    }
    properties_.push_back(std::move(p));
}

const std::string* FirmwareElement::GetText(const char* name) const {
    for (const Property& p : properties_) {
        if (!p.isBytes && p.name == name) {
            return &p.text;
        }
    }
    return nullptr;
}

int FirmwareElement::Export(fdriIOHandle* io, const char* className) const {
    if (fdrGetInstance(io, className) != QSV_SUCCESS) {
        LogF(SevFailure, "Error adding %s.", className);
        return 1;
    }
    for (const Property& p : properties_) {
        if (!p.isBytes) {
            if (fdrAddProperty(io, p.name.c_str(), p.text.c_str()) != QSV_SUCCESS) {
                LogF(SevFailure, "Error adding %s.", p.name.c_str());
                return 1;
            }
            continue;
        }
        TCIMValueArray* array = nullptr;
        if (fdrNewCIMValueArray(&array) != QSV_SUCCESS || array == nullptr) {
            Log(SevFailure, "Could not create Array for Raw Hex Data.");
            return 1;
        }
        bool written = true;
        for (uint8_t b : p.bytes) {
            if (fdrArrayAddUint8(array, b) != QSV_SUCCESS) {
                Log(SevFailure, "Failed to add uint8 to array.");
                written = false;
                break;
            }
        }
        // A value array with bytes missing would pass for the whole answer.
        if (written && fdrAddArrayProperty(io, p.name.c_str(), array) != QSV_SUCCESS) {
            Log(SevFailure, "Failed to add array property.");
            written = false;
        }
        fdrDeleteCIMValueArray(array);
        if (!written) {
            return 1;
        }
    }
    if (fdrAddInstance(io) != QSV_SUCCESS) {
        LogF(SevFailure, "Error adding %s.", className);
        return 1;
    }
    return 0;
}

// ---- version texts ---------------------------------------------------------------------

std::string FirmwareRevisionText(uint8_t majorByte, uint8_t minorByte) {
    char text[16];
    TextFormat(text, sizeof text, "%u.%02x", static_cast<unsigned>(majorByte & 0x7F),
               static_cast<unsigned>(minorByte));
    return text;
}

std::string MinorRevisionText(uint8_t minorByte) {
    // Two BCD digits read as hexadecimal are the decimal number they encode.
    char text[8];
    TextFormat(text, sizeof text, "%x", static_cast<unsigned>(minorByte));
    return text;
}

std::string IPMIVersionText(uint8_t versionByte) {
    char text[8];
    TextFormat(text, sizeof text, "%u.%u", static_cast<unsigned>(versionByte & 0x0F),
               static_cast<unsigned>(versionByte >> 4));
    return text;
}

std::string ByteVersionText(uint8_t version) {
    char text[8];
    TextFormat(text, sizeof text, "0x%02X", static_cast<unsigned>(version));
    return text;
}

std::string DottedVersionText(const uint8_t* bytes, size_t count) {
    std::string out;
    for (size_t i = 0; i < count; ++i) {
        if (i > 0) {
            out += '.';
        }
        out += DecimalString(bytes[i]);
    }
    return out;
}

std::string HexText(const uint8_t* bytes, size_t count) {
    std::string out = HexBytes(bytes, count);
    if (!out.empty()) {
        out.pop_back(); // the blank after the last byte
    }
    return out;
}

std::string PrintableText(const uint8_t* bytes, size_t count) {
    size_t end = 0;
    while (end < count && bytes[end] != 0) {
        ++end;
    }
    // Only zeros may follow the text: anything else means these bytes are
    // not a zero-padded text after all.
    for (size_t i = end; i < count; ++i) {
        if (bytes[i] != 0) {
            return "";
        }
    }
    while (end > 0 && bytes[end - 1] == ' ') {
        --end;
    }
    for (size_t i = 0; i < end; ++i) {
        if (bytes[i] < 0x20 || bytes[i] > 0x7E) {
            return "";
        }
    }
    return std::string(reinterpret_cast<const char*>(bytes), end);
}

void AddDeviceIDProperties(FirmwareElement& entry, const uint8_t* d, size_t count) {
    if (d == nullptr || count < kAuxRevision) {
        return;
    }
    entry.AddText("VersionString", FirmwareRevisionText(d[kFwMajor], d[kFwMinor]));
    entry.AddText("MajorVersion", DecimalString(d[kFwMajor] & 0x7Fu));
    entry.AddText("MinorVersion", MinorRevisionText(d[kFwMinor]));
    entry.AddText("IPMIVersion", IPMIVersionText(d[kIPMIVersion]));
    entry.AddText("DeviceID", DecimalString(d[kDevID]));
    entry.AddText("DeviceRevision", DecimalString(d[kDevRevision] & 0x0Fu));
    const unsigned long manufacturer =
        (d[kManufacturer] | d[kManufacturer + 1] << 8 | (d[kManufacturer + 2] & 0x0F) << 16);
    entry.AddText("ManufacturerID", DecimalString(manufacturer));
    entry.AddText("ProductID",
                  DecimalString(static_cast<unsigned long>(d[kProduct] | d[kProduct + 1] << 8)));
    if (count >= kDevIDWithAux) {
        entry.AddText("AuxFirmwareRevision", HexText(d + kAuxRevision, 4));
    }
}

} // namespace ipmisel
