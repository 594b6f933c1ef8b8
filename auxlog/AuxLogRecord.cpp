// Decoding auxiliary-log slots into readable status-code records.
#include <algorithm>
#include <cstddef>
#include <string>

#include "auxlog/AuxLog.h"
#include "base/log.h"
#include "base/text.h"

namespace ipmisel {

namespace {

constexpr const char* kNotSet = "Not set";
constexpr const char* kUnknown = "Unknown";

struct NamedValue {
    uint8_t value;
    const char* name;
};

constexpr NamedValue kTypeNames[] = {
    {1, "PROGRESS_CODE"},
    {2, "ERROR_CODE"},
    {3, "DEBUG_CODE"},
    {0x80, "PLATFORM_P80_CODE"},
};

// 90h and A0h are both fatal: firmware of different generations uses either.
constexpr NamedValue kSeverityNames[] = {
    {0x40, "OXA_ERROR_INFO"},
    {0x80, "OXA_ERROR_WARNING"},
    {0x90, "OXA_ERROR_FATAL"},
    {0xA0, "OXA_ERROR_FATAL"},
};

template <size_t N> const char* Lookup(const NamedValue (&table)[N], uint8_t value) {
    for (const auto& entry : table) {
        if (entry.value == value) {
            return entry.name;
        }
    }
    return kUnknown;
}

// Sub-class names by sub-class number; a null entry is a gap in the status-code
// classes and reads "Unknown".
constexpr const char* kComputingSubClasses[] = {
    "Undefined", "Host Processor", "Boot Processor", "I/O Processor", "Cache", "Memory", "Chipset",
};

constexpr const char* kPeripheralSubClasses[] = {
    "Undefined",     "Keyboard",      "Mouse",       "Local Console",   "Remote Console",
    "Serial Port",   "Parallel Port", "Fixed Media", "Removable Media", "Spec Reserved",
    "Spec Reserved", "Spec Reserved", "Network",
};

constexpr const char* kIOBusSubClasses[] = {
    "Undefined", "PCI",   "USB",   nullptr, nullptr, nullptr, "LPC",
    "SCSI",      "ATAPI", nullptr, nullptr, "SMBUS", "I2C",
};

constexpr const char* kSoftwareSubClasses[] = {
    "Undefined",
    "SEC",
    "PEI Core",
    "PEI Driver",
    "DXE Core",
    "DXE Boot Driver",
    "DXE Runtime Driver",
    "SMM Driver",
    "uEFI Application",
    "OS Loader",
    nullptr,
    nullptr,
    "EBC Exception",
    "X86 Exception",
    nullptr,
    "PEI Service",
    "uEFI Boot Service",
    "uEFI Runtime Service",
    "DXE Service",
};

struct StatusClass {
    const char* name;
    const char* const* subClasses;
    size_t subClassCount;
};

constexpr StatusClass kClasses[] = {
    {"Computing", kComputingSubClasses, std::size(kComputingSubClasses)},
    {"Peripheral", kPeripheralSubClasses, std::size(kPeripheralSubClasses)},
    {"I/O BUS", kIOBusSubClasses, std::size(kIOBusSubClasses)},
    {"Software", kSoftwareSubClasses, std::size(kSoftwareSubClasses)},
};

} // namespace

AuxLogRecord::AuxLogRecord()
    : typeName_(kNotSet), severityName_(kNotSet), operationText_(kNotSet), subClassName_(kNotSet),
      className_(kNotSet), instanceText_(kNotSet), callerIDText_(kNotSet) {}

void AuxLogRecord::SetRecordID(uint8_t low, uint8_t high) {
    recordID_ = static_cast<uint16_t>(low + 256u * high);
}

void AuxLogRecord::SetType(uint8_t type) {
    type_ = type;
    typeName_ = Lookup(kTypeNames, type);
}

void AuxLogRecord::SetSeverity(uint8_t severity) {
    severity_ = severity;
    severityName_ = Lookup(kSeverityNames, severity);
}

void AuxLogRecord::SetOperation(uint8_t b14, uint8_t b15) {
    operation_[0] = b14;
    operation_[1] = b15;
    char text[16];
    TextFormat(text, sizeof text, "0x%02X%02X", b14, b15);
    operationText_ = text;
}

void AuxLogRecord::SetSubClass(uint8_t subClass) {
    subClass_ = subClass;
}

void AuxLogRecord::SetClass(uint8_t cls) {
    class_ = cls;
    if (cls >= std::size(kClasses)) {
        // The sub-class name is left as it stands: an unknown class cannot
        // say what its sub-class means.
        className_ = kUnknown;
        return;
    }
    const StatusClass& c = kClasses[cls];
    className_ = c.name;
    const char* sub = subClass_ < c.subClassCount ? c.subClasses[subClass_] : nullptr;
    subClassName_ = sub != nullptr ? sub : kUnknown;
}

void AuxLogRecord::SetInstance(const uint8_t* bytes4) {
    std::copy(bytes4, bytes4 + 4, instance_);
    char text[16];
    TextFormat(text, sizeof text, "0x%02X%02X%02X%02X", bytes4[0], bytes4[1], bytes4[2], bytes4[3]);
    instanceText_ = text;
}

void AuxLogRecord::SetCallerID(const uint8_t* bytes10) {
    std::copy(bytes10, bytes10 + 10, callerID_);
    char text[32];
    TextFormat(text, sizeof text, "0x%02X%02X%02X%02X%02X%02X%02X%02X%02X%02X", bytes10[0],
               bytes10[1], bytes10[2], bytes10[3], bytes10[4], bytes10[5], bytes10[6], bytes10[7],
               bytes10[8], bytes10[9]);
    callerIDText_ = text;
}

void AuxLogRecord::SetExtendedData(const std::string& text) {
    extendedData_ = text;
}

void ParseExtendedSELData(std::vector<AuxLogRecord>& records, const s_AuxLog_entry* slots,
                          uint32_t count) {
    Log(SevDetail, "Entering ParseExtendedSELData.");
    // One working record for the whole pass: fields an entry does not set keep
    // the previous entry's value (the sub-class name of an unknown class).
    AuxLogRecord record;
    records.clear();
    if (slots == nullptr) {
        count = 0;
    }
    for (uint32_t i = 0; i < count; ++i) {
        const s_AuxLog_entry& slot = slots[i];
        if (!IsOwnAuxEntry(slot)) {
            continue;
        }
        const uint8_t* b = slot.data;
        record.SetRecordID(b[5], b[6]);
        record.SetType(b[10]);
        record.SetSeverity(b[13]);
        record.SetOperation(b[14], b[15]);
        record.SetSubClass(b[16]);
        record.SetClass(b[17]);
        record.SetInstance(b + 18);
        record.SetCallerID(b + 22);

        const uint32_t length = AuxBodyLength(slot);
        char piece[48];
        TextFormat(piece, sizeof piece, "recordsize = %u\n", length);
        std::string trace = piece;
        std::string extended;
        // The extended data is what follows the 22 fixed body bytes, as far as
        // the slot holds it (a slot keeps at most 246 body bytes).
        uint32_t dumped = 0;
        if (length > kAuxFixedBodySize) {
            dumped = std::min<uint32_t>(length - kAuxFixedBodySize, kAuxExtendedRoom);
        }
        for (uint32_t k = 0; k < dumped; ++k) {
            const uint8_t byte = b[kAuxExtendedStart + k];
            TextFormat(piece, sizeof piece, "%02X ", byte);
            extended += piece;
            TextFormat(piece, sizeof piece, " %u t = %02X", byte, byte);
            trace += piece;
            if (k % 10 == 0) {
                trace += "\n";
            }
        }
        TextFormat(piece, sizeof piece, "\n x = %u", dumped);
        trace += piece;
        Log(SevDetail, trace);
        Log(SevDetail, extended);
        record.SetExtendedData(extended);
        records.push_back(record);
    }
    Log(SevDetail, "Leaving ParseExtendedSELData.");
}

} // namespace ipmisel
