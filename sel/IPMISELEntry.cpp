// Accessors of one SEL record: each builds its text in a scratch buffer of its
// own and hands it to the caller with strncpy semantics, so a caller that sizes
// its buffer exactly gets the text without a terminator, as the export expects.
#include "sel/IPMISELEntry.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "base/log.h"
#include "base/text.h"
#include "sel/SELFormat.h"

namespace ipmisel {

namespace {

constexpr size_t kSlotWidth = 58; // one SELEntryText slot
constexpr size_t kScratch = 128;  // accessors' own texts
constexpr size_t kMessage = 256;  // one text from the message file
constexpr size_t kEventData = 256;
constexpr size_t kRawString = 64;
constexpr size_t kRawHex = 16;

// Sizes at or above 2^31 come from signed callers gone negative; like the text
// helpers, treat them as no buffer at all rather than clear 2 GB.
bool RealBuffer(uint32_t size) {
    return size > 0 && size < (uint32_t{1} << 31);
}

void Clear(void* out, uint32_t size) {
    if (RealBuffer(size)) {
        std::memset(out, 0, size);
    }
}

// What the caller's buffer holds after CopyOut, for the log: it may have no
// terminator.
std::string CopiedText(const char* out, uint32_t size) {
    if (!RealBuffer(size)) {
        return std::string();
    }
    return std::string(out, TextLength(out, size));
}

// System software IDs (generator byte 7 bits 7:1 with bit 0 set) by range, to
// the message-file text that names the range.
struct SoftwareRange {
    uint8_t last; // highest ID of the range
    int32_t dataId;
};
constexpr SoftwareRange kSoftwareRanges[] = {
    {0x0F, 535}, // BIOS
    {0x1F, 536}, // SMI handler
    {0x2F, 537}, // system management software
    {0x3F, 538}, // OEM
    {0x46, 539}, // remote console software
    {0x47, 540}, // terminal mode remote console
    {0x7F, 541}, // reserved
};
constexpr int32_t kLunFormatId = 543;
constexpr int32_t kChannelFormatId = 544;

int32_t SoftwareDataId(uint8_t softwareId) {
    for (const SoftwareRange& range : kSoftwareRanges) {
        if (softwareId <= range.last) {
            return range.dataId;
        }
    }
    return kSoftwareRanges[std::size(kSoftwareRanges) - 1].dataId; // 7 bits never get here
}

// Event/reading type classes as GetEventType prints them.
struct EventClass {
    uint8_t first;
    uint8_t last;
    const char* text;
};
constexpr EventClass kEventClasses[] = {
    {0x01, 0x01, "Threshold."},
    {0x02, 0x0C, "Generic."},
    {0x6F, 0x6F, "Sensor-specific."},
};

const char* EventClassText(uint8_t type) {
    for (const EventClass& c : kEventClasses) {
        if (type >= c.first && type <= c.last) {
            return c.text;
        }
    }
    return "Unknown event type.";
}

void LogEntered(const char* op) {
    LogF(SevTrace, "IPMISELEntry::%s() function entered.", op);
}
void LogCompleted(const char* op) {
    LogF(SevTrace, "IPMISELEntry::%s() function completed.", op);
}

} // namespace

int IPMISELEntry::ScanSELDataFile(const char* text, uint32_t index) {
    LogEntered("ScanSELDataFile");

    // Scan a terminated copy of the one slot, so an unterminated slot can
    // never lead the scanner into the next one or past the last.
    const char* slot = text + static_cast<size_t>(index) * kSlotWidth;
    char line[kSlotWidth + 1];
    size_t n = strnlen(slot, kSlotWidth);
    std::memcpy(line, slot, n);
    line[n] = '\0';

    // A short line is not rejected: the fields it lacks stay 0.
    unsigned int f[19] = {};
    int got = std::sscanf(line, "%x %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x", &f[0],
                          &f[1], &f[2], &f[3], &f[4], &f[5], &f[6], &f[7], &f[8], &f[9], &f[10],
                          &f[11], &f[12], &f[13], &f[14], &f[15], &f[16], &f[17], &f[18]);
    if (got == EOF) {
        Log(SevDetail, "System event log end-of-file found.\n");
        Log(SevTrace, "IPMISELEntry::ScanSELDataFile() function returned.");
        return 2;
    }

    // Fields 0-2 are the completion code and the next record ID. The record
    // ID arrives low byte first and is kept high byte first.
    bytes[1] = static_cast<uint8_t>(f[3]);
    bytes[0] = static_cast<uint8_t>(f[4]);
    for (size_t i = 2; i < 16; ++i) {
        bytes[i] = static_cast<uint8_t>(f[i + 3]);
    }

    char trace[kScratch] = "Results of ScanSELDataFile:";
    for (uint8_t b : bytes) {
        TextAppendF(trace, sizeof trace, " %d", b);
    }
    Log(SevTrace, trace);
    LogCompleted("ScanSELDataFile");
    return 0;
}

int IPMISELEntry::GetRecordID(char* out, uint32_t size) {
    LogEntered("GetRecordID");
    char text[kScratch] = {};
    TextFormat(text, sizeof text, "%d", bytes[0] * 256 + bytes[1]);
    CopyOut(out, size, text);
    LogF(SevTrace, "Record ID    = %d", bytes[0] * 256 + bytes[1]);
    LogCompleted("GetRecordID");
    return 0;
}

int IPMISELEntry::GetGeneratorID(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out,
                                 uint32_t size) {
    Log(SevTrace, "IPMISELEntry::GetGeneratorID function entered.");
    const uint8_t gen1 = bytes[7];
    const uint8_t gen2 = bytes[8];
    LogF(SevTrace, "GenID1, GenID2 = %d %d", gen1, gen2);

    const uint8_t id = gen1 >> 1;
    char text[kScratch] = {};
    char message[kMessage] = {};
    char piece[kMessage] = {};

    if ((gen1 & 0x01) == 0) {
        // IPMB slave address, then the LUN through the file's format.
        TextFormat(text, sizeof text, "%d (address). ", id);
        if (mapping.GetINIStringById(cb, kLunFormatId, message, sizeof message) != 0) {
            Log(SevError, "Error in obtaining string.");
            message[0] = '\0';
        }
        FormatWithNumber(piece, sizeof piece, message, gen2 & 0x03);
        TextAppend(text, sizeof text, piece);
    } else {
        if (mapping.GetINIStringById(cb, SoftwareDataId(id), message, sizeof message) == 0) {
            TextCopy(text, sizeof text, message);
        } else {
            Log(SevError, "Error in obtaining string.");
        }
    }

    if (mapping.GetINIStringById(cb, kChannelFormatId, message, sizeof message) == 0) {
        FormatWithNumber(piece, sizeof piece, message, gen2 >> 4);
        TextAppend(text, sizeof text, piece);
    } else {
        Log(SevError, "Error in obtaining string.");
    }

    CopyOut(out, size, text);
    Log(SevTrace, "IPMISELEntry::GetGeneratorID function completed.");
    return 0;
}

int IPMISELEntry::CopySensorType(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out,
                                 uint32_t size) {
    LogEntered("CopySensorType");
    char name[kScratch] = {};
    mapping.GetSensorType(cb, SensorType(), name, sizeof name, SensorNumber());
    char text[kScratch] = {};
    TextFormat(text, sizeof text, "%s", name);
    CopyOut(out, size, text);
    Log(SevTrace, "Sensor Type = " + CopiedText(out, size));
    LogCompleted("CopySensorType");
    return 0;
}

int IPMISELEntry::GetEventType(char* out, uint32_t size) {
    LogEntered("GetEventType");
    char text[kScratch] = {};
    TextCopy(text, sizeof text, (bytes[12] & 0x80) ? "Deassertion, " : "Assertion, ");
    TextAppend(text, sizeof text, EventClassText(bytes[12] & 0x7F));
    CopyOut(out, size, text);
    Log(SevTrace, text);
    LogCompleted("GetEventType");
    return 0;
}

int IPMISELEntry::GetEventData(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out,
                               uint32_t size, const SensorConversion& conversion,
                               std::string sensorName) {
    LogEntered("GetEventData");
    const uint8_t type = bytes[12] & 0x7F;
    const uint8_t ed1 = bytes[13];
    const uint8_t ed2 = bytes[14];
    const uint8_t ed3 = bytes[15];
    char text[kEventData] = {};

    if (type == 0x01) {
        mapping.GetThresholdOffset(cb, ed1, ed2, ed3, text, sizeof text, conversion);
    } else if (type >= 0x02 && type <= 0x0C) {
        // The name keys a site's own words for OEM codes, as for 6Fh below.
        mapping.GetGenericOffset(cb, ed1, ed2, ed3, type, SensorType(), SensorNumber(), text,
                                 sizeof text, sensorName);
    } else if (type == 0x6F) {
        mapping.GetSensorOffset(cb, SensorType(), ed1, ed2, ed3, type, text, sizeof text,
                                sensorName, SensorNumber());
    }
    // Any other type (OEM 70h-7Fh, reserved) has no decoder: the text stays empty.

    CopyOut(out, size, text);
    Log(SevTrace, std::string("Event Data   = ") + text);
    LogCompleted("GetEventData");
    return 0;
}

int IPMISELEntry::CopyRawDataString(char* out, uint32_t size) {
    LogEntered("CopyRawDataString");
    Clear(out, size);
    if (size < kRawString) {
        Log(SevFailure, "Buffer not big enough to copy Raw Data.");
        return 1;
    }
    // Wire order: the record ID goes back to low byte first.
    TextFormat(out, size,
               "%02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x",
               bytes[1], bytes[0], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7],
               bytes[8], bytes[9], bytes[10], bytes[11], bytes[12], bytes[13], bytes[14],
               bytes[15]);
    Log(SevDetail, "RawDataString = " + CopiedText(out, size));
    LogCompleted("CopyRawDataString");
    return 0;
}

int IPMISELEntry::CopyRawDataHex(uint8_t* out, uint32_t size) {
    LogEntered("CopyRawDataHex");
    if (size < kRawHex) {
        Log(SevFailure, "Buffer not big enough to copy Raw Hex Data.");
        return 1;
    }
    Clear(out, size);
    out[0] = bytes[1];
    out[1] = bytes[0];
    std::memcpy(out + 2, bytes + 2, 14);
    LogCompleted("CopyRawDataHex");
    return 0;
}

int IPMISELEntry::GetShutDownEvent(char* out, uint32_t size) {
    LogEntered("GetShutDownEvent");
    Clear(out, size);
    char text[kScratch] = {};
    if (bytes[10] != 0) {
        const int32_t reason = static_cast<int32_t>(
            static_cast<uint32_t>(bytes[11]) | static_cast<uint32_t>(bytes[12]) << 8 |
            static_cast<uint32_t>(bytes[13]) << 16 | static_cast<uint32_t>(bytes[14]) << 24);
        TextFormat(text, sizeof text, "(Shutdown Event): ReasonCode: %d", reason);
    } else {
        // The comment arrives four characters a record; the part number is
        // not carried, so every part is printed as part 0.
        TextFormat(text, sizeof text, "(Shutdown Event): Comment String Part %d: ", 0);
        for (size_t i = 11; i <= 14; ++i) {
            if (bytes[i] != 0) { // a gap in the comment, not its end
                const char c[2] = {static_cast<char>(bytes[i]), '\0'};
                TextAppend(text, sizeof text, c);
            }
        }
    }
    CopyOut(out, size, text);
    LogCompleted("GetShutDownEvent");
    return 0;
}

bool IPMISELEntry::GetOEMxC0(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out,
                             uint32_t size) {
    LogEntered("GetOEMxC0");
    Clear(out, size);
    // Byte 15 is not part of the C0h payload the decoder reads.
    const int rc = mapping.GetOEMxC0(cb, bytes[7], bytes[8], bytes[9], bytes[10], bytes[11],
                                     bytes[12], bytes[13], bytes[14], out, size);
    LogCompleted("GetOEMxC0");
    return rc != 0;
}

bool IPMISELEntry::GetOEMxC1(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out,
                             uint32_t size) {
    LogEntered("GetOEMxC1");
    Clear(out, size);
    const int rc = mapping.GetOEMxC1(cb, bytes[7], bytes[8], bytes[9], bytes[10], bytes[11],
                                     bytes[12], bytes[13], out, size);
    LogCompleted("GetOEMxC1");
    return rc != 0;
}

bool IPMISELEntry::GetOEMxE0(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out,
                             uint32_t size) {
    LogEntered("GetOEMxE0");
    Clear(out, size);
    // Bytes 12-14 are left out on purpose: the E0h decoder reads byte 15 in
    // the place after byte 11.
    const uint8_t payload[10] = {bytes[3], bytes[4], bytes[5],  bytes[6],  bytes[7],
                                 bytes[8], bytes[9], bytes[10], bytes[11], bytes[15]};
    const int rc = mapping.GetOEMxE0(cb, payload, out, size);
    LogCompleted("GetOEMxE0");
    return rc != 0;
}

bool IPMISELEntry::GetOEMxE1(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out,
                             uint32_t size) {
    LogEntered("GetOEMxE1");
    Clear(out, size);
    uint8_t payload[13];
    std::memcpy(payload, bytes + 3, sizeof payload);
    const int rc = mapping.GetOEMxE1(cb, payload, out, size);
    LogCompleted("GetOEMxE1");
    return rc != 0;
}

} // namespace ipmisel
