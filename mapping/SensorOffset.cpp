// Sensor-specific offsets (event/reading type 6Fh).
#include <cstring>
#include <string>

#include "base/log.h"
#include "base/text.h"
#include "mapping/IPMIMapping.h"
#include "mapping/MessageFile.h"
#include "mapping/OffsetIds.h"

namespace ipmisel {

namespace {

const char kLineBreak[] = "\n               ";

// How a sensor type's offset becomes text.
enum class Kind : uint8_t {
    File,        // message-file text at base + offset, then ". "
    BuiltIn,     // one of the texts below, as it stands
    Processor,   // file, and offset 0Ah built in
    Memory,      // file up to 5, built in 6..10, then the module number
    Firmware,    // file with ": ", then the progress or error code
    LogDisabled, // file up to 3, built in 4 and 5, offset 1 decoded further
    SystemEvent, // file, then per offset
    Slot,        // slot type and number first, then file
    Watchdog2,   // file, offset 8 with interrupt type and timer use
};

struct OffsetRow {
    uint8_t sensorType;
    Kind kind;
    int16_t base;             // first data id (File kinds)
    uint8_t count;            // offsets taken: 0 .. count-1
    const char* const* texts; // BuiltIn texts, count of them
};

const char* const kDriveSlot[] = {
    "Drive Presence",
    "Drive Fault",
    "Predictive Failure",
    "Hot Spare",
    "Consistency Check / Parity Check in progress",
    "In Critical Array",
    "In Failed Array",
    "Rebuild/Remap in progress",
    "Rebuild/Remap Aborted (was not completed normally)",
};
const char* const kCable16[] = {"Cable is connected"};
const char* const kCable1B[] = {
    "Cable/Interconnect is connected",
    "Configuration Error - Incorrect cable connected / Incorrect interconnection",
};
const char* const kSession[] = {"Session Activated", "Session Deactivated"};
const char* const kVersionChange[] = {
    "Hardware change detected with associated Entity",
    "Firmware or software change detected with associated Entity",
    "Hardware incompatibility detected with associated Entity",
    "Firmware or software incompatibility detected with associated Entity",
    "Entity is of an invalid or unsupported hardware version",
    "Entity contains an invalid or unsupported firmware or software version",
    "Hardware Change detected with associated Entity was successful",
    "Software or Firmware Change detected with associated Entity was successful",
};
const char* const kFruState[] = {
    "FRU Not Installed",
    "FRU Inactive",
    "FRU Activation Requested",
    "FRU Activation In Progress",
    "FRU Active",
    "FRU Deactivation Requested",
    "FRU Deactivation In Progress",
    "FRU Communication Lost",
};
const char* const kCpuCheck[] = {
    "Vtt Enable Check", "CPU Cache Size", "Old VRM",   "Cache VID mismatch",
    "CPU Mismatch",     "CPU Speed",      "CPU Cores",
};
// Memory offsets 6..10 have no message-file text.
const char* const kMemoryBuiltIn[] = {
    "Presence detected.",
    "Configuration error.",
    "Spare.",
    "Memory Automatically Throttled.",
    "Critical Overtemperature.",
};

const OffsetRow kRows[] = {
    {0x05, Kind::File, 230, 7, nullptr},
    {0x06, Kind::File, 240, 6, nullptr},
    {0x07, Kind::Processor, 250, 10, nullptr},
    {0x08, Kind::File, 260, 6, nullptr},
    {0x09, Kind::File, 270, 8, nullptr},
    {0x0C, Kind::Memory, 280, 6, nullptr},
    {0x0D, Kind::BuiltIn, 0, 9, kDriveSlot},
    {0x0F, Kind::Firmware, 290, 3, nullptr},
    {0x10, Kind::LogDisabled, 346, 4, nullptr},
    {0x11, Kind::File, 350, 8, nullptr},
    {0x12, Kind::SystemEvent, 373, 6, nullptr},
    {0x13, Kind::File, 360, 10, nullptr},
    {0x14, Kind::File, 370, 3, nullptr},
    {0x16, Kind::BuiltIn, 0, 1, kCable16}, // a cable text on 16h, as it always was
    {0x1B, Kind::BuiltIn, 0, 2, kCable1B},
    {0x1D, Kind::File, 380, 5, nullptr},
    {0x1E, Kind::File, 390, 5, nullptr},
    {0x1F, Kind::File, 400, 7, nullptr},
    {0x20, Kind::File, 410, 2, nullptr},
    {0x21, Kind::Slot, 420, 9, nullptr},
    {0x22, Kind::File, 430, 15, nullptr},
    {0x23, Kind::Watchdog2, 450, 9, nullptr},
    {0x24, Kind::File, 460, 4, nullptr},
    {0x25, Kind::File, 477, 3, nullptr},
    {0x27, Kind::File, 480, 2, nullptr},
    {0x28, Kind::File, 490, 4, nullptr},
    {0x29, Kind::File, 500, 4, nullptr},
    {0x2A, Kind::BuiltIn, 0, 2, kSession},
    {0x2B, Kind::BuiltIn, 0, 8, kVersionChange},
    {0x2C, Kind::BuiltIn, 0, 8, kFruState},
    {0xC1, Kind::File, 856, 10, nullptr},
    {0xD2, Kind::BuiltIn, 0, 7, kCpuCheck},
};

const OffsetRow* findRow(uint8_t sensorType) {
    for (const OffsetRow& row : kRows) {
        if (row.sensorType == sensorType) {
            return &row;
        }
    }
    return nullptr;
}

// Platform event actions (system event offset 4) by bit of event data 2.
struct ActionBit {
    uint8_t mask;
    const char* text;
};
const ActionBit kActions[] = {
    {0x80, "Reserved  "},    {0x40, "Reserved  "},     {0x20, "Diagnostic Interrupt (NMI).  "},
    {0x10, "OEM action.  "}, {0x08, "power cycle.  "}, {0x04, "reset.  "},
    {0x02, "power off.  "},  {0x01, "Alert.  "},
};

// Sensor-specific offsets nest only through "logging disabled for one event
// type", which names a further offset; a BMC can make that chain point at
// itself, so the depth is bounded. A plain module value, like the rest of the
// plug-in's state: collections run on the framework's one calling thread, and
// thread-local storage in a library opened with dlopen costs a loader
// allocation on first use.
constexpr int kMaxNesting = 2;
int s_nesting = 0;

struct NestingGuard {
    NestingGuard() { ++s_nesting; }
    ~NestingGuard() { --s_nesting; }
};

} // namespace

void IPMIMapping::GetSensorOffset(TCPluginCallbacks* cb, uint8_t sensorType, uint8_t ed1,
                                  uint8_t ed2, uint8_t ed3, uint8_t eventType, char* out,
                                  uint32_t size, std::string sensorName, uint8_t sensorNumber) {
    Log(SevTrace, "IPMIMapping::GetSensorOffset() function entered.");
    NestingGuard nesting;
    char text[256] = {};
    const uint8_t offset = ed1 & 0x0F;
    const uint8_t ed1High = (ed1 >> 6) & 0x03;
    const uint8_t ed1Mid = (ed1 >> 4) & 0x03;

    // Looks up one id into text (empty on failure, logged) and appends it with
    // its separator.
    auto fileText = [&](int32_t id, const char* separator) {
        if (GetINIStringById(cb, id, text, sizeof text) != 0) {
            Log(SevError, "Error in obtaining string.");
        }
        TextAppend(text, sizeof text, separator);
        TextAppend(out, size, text);
    };

    const OffsetRow* row = findRow(sensorType);
    if (row != nullptr) {
        const bool inRange = offset < row->count;
        switch (row->kind) {
        case Kind::File:
            if (inRange) {
                fileText(row->base + offset, ". ");
            }
            break;
        case Kind::BuiltIn:
            if (inRange) {
                TextAppend(out, size, row->texts[offset]);
            }
            break;
        case Kind::Processor:
            if (inRange) {
                fileText(row->base + offset, ". ");
            } else if (offset == 0x0A) {
                TextAppend(out, size, "Processor Automatically Throttled. ");
            }
            break;
        case Kind::Memory: {
            if (inRange) {
                fileText(row->base + offset, ". ");
            } else if (offset - row->count < static_cast<int>(std::size(kMemoryBuiltIn))) {
                TextAppend(out, size, kMemoryBuiltIn[offset - row->count]);
            }
            if (ed1Mid == 3) {
                // The file's text names the module with the number in byte 3.
                char format[256];
                if (GetINIStringById(cb, 286, format, sizeof format) != 0) {
                    Log(SevError, "Error in obtaining string.");
                }
                char module[256];
                message::FormatOneNumber(module, sizeof module, format, ed3);
                TextAppend(out, size, module);
            }
            break;
        }
        case Kind::Firmware:
            if (inRange) {
                fileText(row->base + offset, ": ");
                if (ed1High == 3) {
                    // Only the low nibble of the code picks the text, so codes
                    // 10h and above repeat 00h..0Fh; earlier releases printed
                    // them so and the texts are kept that way.
                    int32_t base = offset == 0 ? 300 : 320;
                    fileText(base + (ed2 & 0x0F), ". ");
                }
            }
            break;
        case Kind::LogDisabled:
            if (offset == 0) {
                fileText(row->base, ".");
            } else if (offset == 1) {
                char format[256];
                if (GetINIStringById(cb, row->base + 1, format, sizeof format) != 0) {
                    Log(SevError, "Error in obtaining string.");
                }
                message::FormatOneNumber(text, sizeof text, format, ed3 & 0x0F);
                TextAppend(out, size, text);
                TextAppend(out, size, ".");
                TextAppend(out, size, kLineBreak);
                TextAppend(out, size,
                           (ed3 & 0x10) != 0 ? "Assertion event. " : "Deassertion event. ");
                uint8_t disabledType = ed2;
                if ((ed3 & 0x20) != 0) {
                    TextAppend(out, size, "Logging has been disabled for all events of ");
                    if ((ed2 & 0x0F) < 0x0D) {
                        if (GetINIStringById(cb, 650 + (ed2 & 0x0F), text, sizeof text) != 0) {
                            Log(SevError, "Error in obtaining string.");
                        }
                        TextAppendF(out, size, "%s. ", text);
                    } else {
                        TextAppend(out, size, " Sensor-specific type. ");
                        disabledType = 0x6F;
                    }
                    TextAppend(out, size, kLineBreak);
                }
                const uint8_t disabledOffset = ed3 & 0x0F;
                if (disabledType == 0x6F) {
                    TextAppend(out, size, "Sensor-specific Type. ");
                    if (s_nesting < kMaxNesting) {
                        GetSensorOffset(cb, sensorType, disabledOffset, 0, 0, eventType, out, size,
                                        sensorName, sensorNumber);
                    }
                } else if (disabledType == 0x01) {
                    TextAppend(out, size, "Threshold Type. ");
                    GetThresholdOffset(cb, disabledOffset, 0, 0, out, size, SensorConversion{});
                } else if (disabledType >= 0x02 && disabledType <= 0x0C) {
                    if (GetINIStringById(cb, 650 + disabledType, text, sizeof text) != 0) {
                        Log(SevError, "Error in obtaining string.");
                    }
                    TextAppendF(out, size, "%s - ", text);
                    GetGenericOffset(cb, disabledOffset, 0, 0, disabledType, sensorType,
                                     sensorNumber, out, size, sensorName);
                }
            } else if (offset == 2 || offset == 3) {
                fileText(row->base + offset, ". ");
            } else if (offset == 4) {
                TextAppend(out, size, "SEL Full. ");
            } else if (offset == 5) {
                TextAppend(out, size, "SEL Almost Full. ");
            }
            break;
        case Kind::SystemEvent:
            if (!inRange) {
                break;
            }
            if (offset <= 2) {
                fileText(row->base + offset, ".");
            } else if (offset == 3) {
                fileText(row->base + offset, ": ");
                if (ed1High == 3) {
                    // Event data 2 names the log (bits 3:0: MCA, OEM 1, OEM
                    // 2) and what happened in it (bits 7:4: entry added,
                    // ..., log cleared, disabled, enabled).
                    // Both pieces are built in the same scratch text: a lookup
                    // that is skipped leaves the previous piece there, and it
                    // is appended once more. Logs read that way since the
                    // first release and are compared by tools.
                    if ((ed2 & 0x0F) < 3) {
                        if (GetINIStringById(cb, 385 + (ed2 & 0x0F), text, sizeof text) != 0) {
                            Log(SevError, "Error in obtaining string.");
                        }
                    }
                    TextAppend(text, sizeof text, " ");
                    TextAppend(out, size, text);
                    if ((ed2 >> 4) <= 5) {
                        if (GetINIStringById(cb, 412 + (ed2 >> 4), text, sizeof text) != 0) {
                            Log(SevError, "Error in obtaining string.");
                        }
                    }
                    TextAppend(text, sizeof text, ".");
                    TextAppend(out, size, text);
                }
            } else if (offset == 4) {
                fileText(row->base + offset, ": ");
                if (ed1High == 3) {
                    for (const ActionBit& a : kActions) {
                        if ((ed2 & a.mask) != 0) {
                            TextAppend(out, size, a.text);
                        }
                    }
                }
            } else {
                fileText(row->base + offset, ": ");
                TextAppend(out, size,
                           (ed2 & 0x80) != 0 ? "event is first of pair. "
                                             : "event is second of pair. ");
                TextAppend(out, size,
                           (ed2 & 0x0F) == 0 ? "SEL Timestamp Clock updated."
                                             : "SDR Timestamp Clock updated.");
            }
            break;
        case Kind::Slot:
            if (ed1High == 3 && (ed2 & 0x0F) < 0x0D) {
                fileText(464 + (ed2 & 0x0F), " ");
            }
            if (ed1Mid == 3) {
                TextAppendF(out, size, "#%d ", ed3);
            }
            if (inRange) {
                fileText(row->base + offset, ". ");
            }
            break;
        case Kind::Watchdog2:
            if (inRange) {
                fileText(row->base + offset, ". ");
                if (offset == 8 && ed1High == 3) {
                    if ((ed2 >> 4) <= 3) {
                        fileText(510 + (ed2 >> 4), ". ");
                    }
                    if ((ed2 & 0x0F) < 6) {
                        fileText(515 + (ed2 & 0x0F), ". ");
                    }
                }
            }
            break;
        }
    } else if (sensorType == 0xD0) {
        TextAppend(out, size, "SEL Fullness");
    }

    // OEM codes in bytes 2 and 3, looked up by a key that names the sensor, so
    // that a site can word its own codes in the message file.
    if (eventType == 0x6F || (eventType >= 0x03 && eventType <= 0x0B)) {
        // These appends never use more than 256 bytes of the output.
        const uint32_t oemSize = size < 256 ? size : 256;
        if (ed1High == 2) {
            if ((ed2 >> 4) < 9) {
                if (GetINIStringById(cb, 170 + (ed2 >> 4), text, sizeof text) != 0) {
                    Log(SevError, "Error in obtaining severity string for OEM Byte 2.");
                }
                TextAppend(text, sizeof text, ". ");
                TextAppend(out, oemSize, text);
            }
            if (GetOEMCodeString(cb, sensorName, sensorType, sensorNumber, 2, ed2 & 0x0F, text,
                                 sizeof text) != 0) {
                Log(SevError, "Error in obtaining OEM string for Byte 2.");
            }
            TextAppend(text, sizeof text, ". ");
            TextAppend(out, oemSize, text);
        }
        if (ed1Mid == 2) {
            if (GetOEMCodeString(cb, sensorName, sensorType, sensorNumber, 3, ed3, text,
                                 sizeof text) != 0) {
                Log(SevError, "Error in obtaining OEM string for Byte 3.");
            }
            TextAppend(text, sizeof text, ". ");
            TextAppend(out, oemSize, text);
        }
    }
    Log(SevTrace, "IPMIMapping::GetSensorOffset() function completed.");
}

int IPMIMapping::GetOEMCodeString(TCPluginCallbacks* cb, const std::string& sensorName,
                                  uint8_t sensorType, uint8_t sensorNumber, int byte, uint8_t value,
                                  char* out, int32_t size) {
    const std::string key = sensorName + "-" + std::to_string(sensorType) + "-" +
                            std::to_string(sensorNumber) + "-" + std::to_string(byte) + "-" +
                            std::to_string(value);
    return GetINIString(cb, key, out, size);
}

} // namespace ipmisel

namespace ipmisel::ids {

std::vector<int32_t> UsedDataIds() {
    std::vector<int32_t> used;
    auto range = [&](int32_t first, int32_t count) {
        for (int32_t i = 0; i < count; ++i) {
            used.push_back(first + i);
        }
    };
    range(100, 12);       // threshold offsets
    range(kPostTitle, 1); // C0h
    range(kPostTypeBase, 7);
    range(kRecordPart, 1);
    range(kEventIdentifier, 1);
    range(kSmiTitle, 1); // C1h
    range(kSmiTypeBase, 6);
    range(kSmiDetailTitle, 1); // E1h
    range(kChassis, kLinkState - kChassis + 1);
    for (uint8_t type = 0x02; type <= 0x0C; ++type) {
        range(GenericBase(type), GenericCount(type));
    }
    range(kSeverityBase, kSeverityCount);
    range(kGenericPreviousState, 1);
    range(kGenericSeverity, 1);
    range(kGenericReservedOffset, 1);
    for (const OffsetRow& row : kRows) {
        if (row.kind != Kind::BuiltIn) {
            range(row.base, row.kind == Kind::LogDisabled ? 4 : row.count);
        }
    }
    range(286, 1);  // memory module format
    range(300, 16); // firmware error codes
    range(320, 16); // firmware progress codes
    range(385, 3);  // auxiliary log types (event data 2 bits 3:0)
    range(412, 6);  // what happened in the auxiliary log (bits 7:4)
    range(464, 13); // slot types
    range(510, 4);  // watchdog interrupt types
    range(515, 6);  // watchdog timer uses
    range(535, 7);  // generator software IDs
    range(543, 2);  // LUN and channel formats
    range(650, 13); // event/reading type names
    range(721, 7);  // rate units
    range(730, 93); // unit types 0..92
    range(kPostDetailTitle, kBytes - kPostDetailTitle + 1); // E0h and E1h
    range(1000, 0x29);                                      // entity names
    return used;
}

} // namespace ipmisel::ids
