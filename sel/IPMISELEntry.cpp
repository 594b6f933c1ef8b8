// Accessors of one SEL record: each builds its text in a scratch buffer of its
// own and hands it to the caller with strncpy semantics, so a caller that sizes
// its buffer exactly gets the text without a terminator, as the export expects.
#include "sel/IPMISELEntry.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "base/format.h"
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
std::string_view CopiedText(const char* out, uint32_t size) {
    if (!RealBuffer(size)) {
        return std::string_view();
    }
    return std::string_view(out, TextLength(out, size));
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

} // namespace

int IPMISELEntry::ScanSELDataFile(const char* text, uint32_t index) {
    Log(SevTrace, "IPMISELEntry::ScanSELDataFile() function entered.");

    // Scan a terminated copy of the one slot, so an unterminated slot can
    // never lead the scanner into the next one or past the last.
    const char* slot = text + static_cast<size_t>(index) * kSlotWidth;
    char line[kSlotWidth + 1];
    size_t n = strnlen(slot, kSlotWidth);
    std::memcpy(line, slot, n);
    line[n] = '\0';

    // A short line is not rejected: the fields it lacks stay 0.
    unsigned int f[19] = {};
    if (ScanHexFields(line, f, 19) == EOF) {
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

    LogLine trace;
    trace.Add("Results of ScanSELDataFile:");
    for (uint8_t b : bytes) {
        trace.AddPiece(kSpacedDecimal[b].text, kSpacedDecimal[b].length);
    }
    trace.Write(SevTrace);
    Log(SevTrace, "IPMISELEntry::ScanSELDataFile() function completed.");
    return 0;
}

int IPMISELEntry::GetRecordID(char* out, uint32_t size) {
    Log(SevTrace, "IPMISELEntry::GetRecordID() function entered.");
    char text[kScratch] = {};
    const NumberText id = Decimal(bytes[0] * 256 + bytes[1]);
    TextBuilder(text, sizeof text).Add(id);
    CopyOut(out, size, text);
    LogLine().Add("Record ID    = ").Add(id).Write(SevTrace);
    Log(SevTrace, "IPMISELEntry::GetRecordID() function completed.");
    return 0;
}

int IPMISELEntry::GetGeneratorID(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out,
                                 uint32_t size) {
    Log(SevTrace, "IPMISELEntry::GetGeneratorID function entered.");
    const uint8_t gen1 = bytes[7];
    const uint8_t gen2 = bytes[8];
    LogLine()
        .Add("GenID1, GenID2 = ")
        .Add(Decimal(gen1))
        .Add(" ")
        .Add(Decimal(gen2))
        .Write(SevTrace);

    const uint8_t id = gen1 >> 1;
    char text[kScratch] = {};
    char message[kMessage] = {};
    char piece[kMessage] = {};

    if ((gen1 & 0x01) == 0) {
        // IPMB slave address, then the LUN through the file's format.
        TextBuilder(text, sizeof text).Add(Decimal(id)).Add(" (address). ");
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
    Log(SevTrace, "IPMISELEntry::CopySensorType() function entered.");
    char name[kScratch] = {};
    mapping.GetSensorType(cb, SensorType(), name, sizeof name, SensorNumber());
    char text[kScratch] = {};
    TextCopy(text, sizeof text, name);
    CopyOut(out, size, text);
    LogLine().Add("Sensor Type = ").Add(CopiedText(out, size)).Write(SevTrace);
    Log(SevTrace, "IPMISELEntry::CopySensorType() function completed.");
    return 0;
}

int IPMISELEntry::GetEventType(char* out, uint32_t size) {
    Log(SevTrace, "IPMISELEntry::GetEventType() function entered.");
    char text[kScratch] = {};
    TextCopy(text, sizeof text, (bytes[12] & 0x80) ? "Deassertion, " : "Assertion, ");
    TextAppend(text, sizeof text, EventClassText(bytes[12] & 0x7F));
    CopyOut(out, size, text);
    Log(SevTrace, text);
    Log(SevTrace, "IPMISELEntry::GetEventType() function completed.");
    return 0;
}

int IPMISELEntry::GetEventData(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out,
                               uint32_t size, const SensorConversion& conversion,
                               std::string sensorName) {
    Log(SevTrace, "IPMISELEntry::GetEventData() function entered.");
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
    LogLine().Add("Event Data   = ").Add(text).Write(SevTrace);
    Log(SevTrace, "IPMISELEntry::GetEventData() function completed.");
    return 0;
}

int IPMISELEntry::CopyRawDataString(char* out, uint32_t size) {
    Log(SevTrace, "IPMISELEntry::CopyRawDataString() function entered.");
    Clear(out, size);
    if (size < kRawString) {
        Log(SevFailure, "Buffer not big enough to copy Raw Data.");
        return 1;
    }
    // "%02x" per byte, blank-separated, in wire order: the record ID goes
    // back to low byte first.
    TextBuilder raw(out, size);
    raw.Add(HexByteLower(bytes[1])).Add(" ").Add(HexByteLower(bytes[0]));
    for (size_t i = 2; i < 16; ++i) {
        raw.Add(" ").Add(HexByteLower(bytes[i]));
    }
    LogLine().Add("RawDataString = ").Add(CopiedText(out, size)).Write(SevDetail);
    Log(SevTrace, "IPMISELEntry::CopyRawDataString() function completed.");
    return 0;
}

int IPMISELEntry::CopyRawDataHex(uint8_t* out, uint32_t size) {
    Log(SevTrace, "IPMISELEntry::CopyRawDataHex() function entered.");
    if (size < kRawHex) {
        Log(SevFailure, "Buffer not big enough to copy Raw Hex Data.");
        return 1;
    }
    Clear(out, size);
    out[0] = bytes[1];
    out[1] = bytes[0];
    std::memcpy(out + 2, bytes + 2, 14);
    Log(SevTrace, "IPMISELEntry::CopyRawDataHex() function completed.");
    return 0;
}

int IPMISELEntry::GetShutDownEvent(char* out, uint32_t size) {
    Log(SevTrace, "IPMISELEntry::GetShutDownEvent() function entered.");
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
    Log(SevTrace, "IPMISELEntry::GetShutDownEvent() function completed.");
    return 0;
}

bool IPMISELEntry::GetOEMxC0(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out,
                             uint32_t size) {
    Log(SevTrace, "IPMISELEntry::GetOEMxC0() function entered.");
    Clear(out, size);
    // Byte 15 is not part of the C0h payload the decoder reads.
    const int rc = mapping.GetOEMxC0(cb, bytes[7], bytes[8], bytes[9], bytes[10], bytes[11],
                                     bytes[12], bytes[13], bytes[14], out, size);
    Log(SevTrace, "IPMISELEntry::GetOEMxC0() function completed.");
    return rc != 0;
}

bool IPMISELEntry::GetOEMxC1(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out,
                             uint32_t size) {
    Log(SevTrace, "IPMISELEntry::GetOEMxC1() function entered.");
    Clear(out, size);
    const int rc = mapping.GetOEMxC1(cb, bytes[7], bytes[8], bytes[9], bytes[10], bytes[11],
                                     bytes[12], bytes[13], out, size);
    Log(SevTrace, "IPMISELEntry::GetOEMxC1() function completed.");
    return rc != 0;
}

bool IPMISELEntry::GetOEMxE0(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out,
                             uint32_t size) {
    Log(SevTrace, "IPMISELEntry::GetOEMxE0() function entered.");
    Clear(out, size);
    // Bytes 12-14 are left out on purpose: the E0h decoder reads byte 15 in
    // the place after byte 11.
    const uint8_t payload[10] = {bytes[3], bytes[4], bytes[5],  bytes[6],  bytes[7],
                                 bytes[8], bytes[9], bytes[10], bytes[11], bytes[15]};
    const int rc = mapping.GetOEMxE0(cb, payload, out, size);
    Log(SevTrace, "IPMISELEntry::GetOEMxE0() function completed.");
    return rc != 0;
}

bool IPMISELEntry::GetOEMxE1(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out,
                             uint32_t size) {
    Log(SevTrace, "IPMISELEntry::GetOEMxE1() function entered.");
    Clear(out, size);
    uint8_t payload[13];
    std::memcpy(payload, bytes + 3, sizeof payload);
    const int rc = mapping.GetOEMxE1(cb, payload, out, size);
    Log(SevTrace, "IPMISELEntry::GetOEMxE1() function completed.");
    return rc != 0;
}

} // namespace ipmisel
