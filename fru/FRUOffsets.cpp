// Typed FRU data: processors, memory modules (SPD) and the fixed-offset VPD of
// boards that carry no IPMI common header, and the blade test that picks the
// VPD layout.
#include <cstring>
#include <string>

#include "base/log.h"
#include "base/text.h"
#include "fru/FruConfig.h"
#include "fru/IPMIVPDEntry.h"
#include "fru/Jep106.h"

using namespace NOXAQSV20;

namespace ipmisel {

namespace {

constexpr const char* kBlank = " ";

// ---- SPD -------------------------------------------------------------------------

constexpr size_t kSPDMemoryType = 2;
// Module types whose SPD keeps part number, serial and maker at the later
// places, with the serial's bytes in the reverse order.
constexpr uint8_t kSPDLateLayoutTypes[] = {0x0B, 0x09};
constexpr size_t kSPDPartNumberSize = 18;

struct SPDLayout {
    size_t partNumber;
    size_t serial[4]; // in the order they are printed
    size_t maker;
    bool bankByte; // bank byte and code, or continuation bytes and code
};

constexpr SPDLayout kSPDLateLayout = {128, {125, 124, 123, 122}, 117, true};
constexpr SPDLayout kSPDEarlyLayout = {73, {95, 96, 97, 98}, 64, false};
// Continuation bytes for banks 1..7 fit in the eight maker bytes.
constexpr size_t kSPDMakerBytes = 8;

// ---- fixed-offset VPD ------------------------------------------------------------

struct FixedField {
    size_t offset;
    size_t length;
};

// Part number, FRU number, serial number, (unused), vendor.
struct VPDLayout {
    FixedField part, fru, serial, unused, vendor;
};

constexpr VPDLayout kBladeLayout = {{60, 12}, {72, 12}, {84, 6}, {90, 6}, {96, 4}};
constexpr VPDLayout kRackLayout = {{14, 12}, {26, 12}, {38, 6}, {44, 6}, {50, 4}};

// ---- SMBIOS ----------------------------------------------------------------------

constexpr int32_t kSmbiosSystemInformation = 1;
constexpr size_t kSmbiosBufferSize = 1024;
constexpr size_t kSmbiosLengthByte = 1;
constexpr size_t kSmbiosProductNameByte = 5;

// Bytes [offset, offset + length) up to the first zero, held inside the data.
std::string Cut(const uint8_t* data, size_t offset, size_t length) {
    std::string text;
    for (size_t i = offset; i < offset + length && i < kFRUDataSize && data[i] != 0; ++i) {
        text.push_back(static_cast<char>(data[i]));
    }
    return text;
}

std::string ValidOrBlank(const std::string& text) {
    return IsValidFRUText(text) ? text : kBlank;
}

void EraseFirst(std::string& text, char c) {
    const size_t at = text.find(c);
    if (at != std::string::npos) {
        text.erase(at, 1);
    }
}

void SetProcessor(FRUProperties& p) {
    for (const char* name :
         {"PartNumber", "FRUNumber", "IdentifyingNumber", "SerialNumber", "Vendor"}) {
        p[name] = kBlank;
    }
    Log(SevTrace, "IPMIVPDEntry::GetVPDOffsets() function processor completed.");
}

void SetMemoryModule(FRUProperties& p, const uint8_t* data) {
    const uint8_t type = data[kSPDMemoryType];
    LogF(SevDetail, "IPMIFRULocator::GetFRUOffsets() - DIMM Type = 0x%x \n", type);
    const bool late = std::memchr(kSPDLateLayoutTypes, type, sizeof kSPDLateLayoutTypes) != nullptr;
    const SPDLayout& layout = late ? kSPDLateLayout : kSPDEarlyLayout;

    const std::string part = Cut(data, layout.partNumber, kSPDPartNumberSize);
    char serial[16] = "";
    const uint8_t* s = data;
    if (s[layout.serial[0]] | s[layout.serial[1]] | s[layout.serial[2]] | s[layout.serial[3]]) {
        TextFormat(serial, sizeof serial, "%02X%02X%02X%02X", s[layout.serial[0]],
                   s[layout.serial[1]], s[layout.serial[2]], s[layout.serial[3]]);
    }
    const std::string vendor = layout.bankByte
                                   ? JEP106FromBankByte(data[layout.maker], data[layout.maker + 1])
                                   : JEP106FromContinuation(data + layout.maker, kSPDMakerBytes);

    p["PartNumber"] = ValidOrBlank(part);
    p["FRUNumber"] = kBlank;
    p["IdentifyingNumber"] = serial;
    p["SerialNumber"] = serial;
    p["Vendor"] = vendor;
    Log(SevTrace, "IPMIFRULocator::GetFRUOffsets() function DIMM completed.");
}

void SetFixedOffsetVPD(FRUProperties& p, const uint8_t* data, bool blade) {
    if (blade) {
        Log(SevDetail, "this is a blade");
    }
    const VPDLayout& layout = blade ? kBladeLayout : kRackLayout;
    std::string part = Cut(data, layout.part.offset, layout.part.length);
    if (IsValidFRUText(part)) {
        EraseFirst(part, '+');
        EraseFirst(part, '-');
        p["PartNumber"] = part;
    } else {
        p["PartNumber"] = kBlank;
    }
    const std::string serial = ValidOrBlank(Cut(data, layout.serial.offset, layout.serial.length));
    p["FRUNumber"] = ValidOrBlank(Cut(data, layout.fru.offset, layout.fru.length));
    p["IdentifyingNumber"] = serial;
    p["SerialNumber"] = serial;
    p["Vendor"] = ValidOrBlank(Cut(data, layout.vendor.offset, layout.vendor.length));
    Log(SevTrace, "IPMIFRUEntry::GetVPDOffsets() function completed.");
}

// String number n (from 1) of an SMBIOS structure of `size` bytes; empty when
// there is none.
std::string SmbiosString(const uint8_t* s, size_t size, uint8_t n) {
    if (n == 0 || size <= kSmbiosLengthByte) {
        return {};
    }
    size_t at = s[kSmbiosLengthByte];
    for (uint8_t k = 1; at < size; ++k) {
        const size_t start = at;
        while (at < size && s[at] != 0) {
            ++at;
        }
        if (at == start) {
            return {}; // the set's closing zero: fewer strings than n
        }
        if (k == n) {
            return std::string(reinterpret_cast<const char*>(s + start), at - start);
        }
        ++at;
    }
    return {};
}

} // namespace

bool IsValidFRUText(const std::string& text) {
    if (text.empty()) {
        return false;
    }
    for (unsigned char c : text) {
        if (c < 32 || c > 126) {
            return false;
        }
    }
    return true;
}

std::string JEP106Name(unsigned bank, uint8_t code) {
    code &= 0x7F;
    if (bank >= kJep106Banks || code < 1 || code > kJep106Codes) {
        return {};
    }
    return g_Jep106Names[bank * kJep106Codes + code - 1];
}

std::string JEP106FromContinuation(const uint8_t* bytes, size_t count) {
    constexpr uint8_t kContinuation = 0x7F;
    size_t bank = 0;
    while (bank < count && bytes[bank] == kContinuation) {
        ++bank;
    }
    if (bank >= kJep106Banks || bank >= count) {
        return {};
    }
    return JEP106Name(static_cast<unsigned>(bank), bytes[bank]);
}

std::string JEP106FromBankByte(uint8_t bank, uint8_t code) {
    return JEP106Name(bank & 0x7F, code);
}

void GetFRUOffsets(FRUProperties& properties, const uint8_t* fruData, const std::string& id,
                   bool blade) {
    Log(SevTrace, "IPMIFRULocator::GetFRUOffsets() function entered.");
    if (id == "CPU") {
        SetProcessor(properties);
    } else if (id == "DIMM") {
        SetMemoryModule(properties, fruData);
    } else {
        SetFixedOffsetVPD(properties, fruData, blade);
    }
}

bool IsBladePlatform(TCPluginCallbacks* cb) {
    TPluginManagerProvider* provider = nullptr;
    fdrGetHandle(cb, &provider);
    SMBIOSHANDLE handle = nullptr;
    const TQSVStatusCode opened = smBiosLoad(provider, &handle);
    if (opened != QSV_SUCCESS) {
        LogF(SevNotice, "Unable to open SMBIOS lib error = %d", static_cast<int>(opened));
        return false;
    }
    uint8_t buffer[kSmbiosBufferSize] = {};
    uint32_t size = sizeof buffer;
    const TQSVStatusCode found = smBiosGetFirst(handle, kSmbiosSystemInformation, buffer, &size);
    bool blade = false;
    if (found != QSV_SUCCESS) {
        LogF(SevNotice, "SMBIOSGetFirst rc = %d", static_cast<int>(found));
    } else {
        const size_t held = size < sizeof buffer ? size : sizeof buffer;
        // A formatted area too short for the product name has none.
        const bool named =
            held > kSmbiosProductNameByte && buffer[kSmbiosLengthByte] > kSmbiosProductNameByte;
        const uint8_t number = named ? buffer[kSmbiosProductNameByte] : 0;
        const std::string product = SmbiosString(buffer, held, number);
        blade = product.find(kBladeFamilyName) != std::string::npos ||
                product.find(kBladeMachineType) != std::string::npos;
    }
    smBiosClose(&handle);
    return blade;
}

} // namespace ipmisel
