// OEM SEL records: C0h (POST) and C1h (SMI handler) with time stamp, and their
// follow-ups without time stamp, E0h and E1h, which carry the details.
#include <cstring>
#include <string>

#include "mapping/IPMIMapping.h"
#include "mapping/MappingConfig.h"
#include "mapping/OffsetIds.h"
#include "base/log.h"
#include "base/text.h"

namespace ipmisel {

namespace {

uint32_t number24(uint8_t low, uint8_t mid, uint8_t high) {
    return static_cast<uint32_t>(low) | static_cast<uint32_t>(mid) << 8 |
           static_cast<uint32_t>(high) << 16;
}

// ---- C0h, detailed layout --------------------------------------------------

enum class DetailForm : uint8_t { Plain, Dimm, DimmRank, Swap, Pcie, Cpu };

struct DetailRow {
    uint8_t type;
    DetailForm form;
    const char* text;
};

const DetailRow kDetailRows[] = {
    {0x01, DetailForm::Dimm, ":Multi-Bit ECC error occurred."},
    {0x02, DetailForm::DimmRank,
     ":The occurrence of Single-Bit ECC error has exceeded predictive threshold."},
    {0x03, DetailForm::Dimm, ":Disabled."},
    {0x04, DetailForm::Swap, ":Swap done."},
    {0x05, DetailForm::Plain, "No memory detected."},
    {0x06, DetailForm::Plain, "No usable memory detected."},
    {0x07, DetailForm::Dimm, ":The population is unsupported."},
    {0x08, DetailForm::Dimm, ":Memory test was failed."},
    {0x09, DetailForm::Dimm, ":Invalid population for sparing mode."},
    {0x0A, DetailForm::Dimm, ":Memory population changed."},
    {0x0B, DetailForm::Pcie, ":PCIE SERR."},
    {0x0C, DetailForm::Pcie, ":PCIE PERR."},
    {0x0D, DetailForm::Pcie, ":PCIE uncorrectable error."},
    {0x0E, DetailForm::Cpu, ":HT error."},
    {0x0F, DetailForm::Cpu, ":Cache error."},
    {0x10, DetailForm::Cpu, ":Mismatch error."},
    {0x11, DetailForm::Cpu, ":Microprocessor unsupported."},
    {0x12, DetailForm::Cpu, ":Microcode update failed."},
    {0x13, DetailForm::Cpu, ":Microprocessor BIST failed."},
    {0x14, DetailForm::Plain, "BIOS firmware corrupt."},
    {0x15, DetailForm::Cpu, ":Uncorrectable error."},
    {0x80, DetailForm::Plain, "BIOS boot failed."},
    {0x81, DetailForm::Plain, "CPU thermal trip error."},
};

void detailedPostText(char* text, size_t size, uint8_t b10, uint8_t b11, uint8_t b12, uint8_t b13,
                      uint8_t b14) {
    for (const DetailRow& row : kDetailRows) {
        if (row.type != b10) {
            continue;
        }
        switch (row.form) {
        case DetailForm::Plain:
            TextFormat(text, size, "%s", row.text);
            break;
        case DetailForm::Dimm:
            TextFormat(text, size, "DIMM %u%s", b11, row.text);
            break;
        case DetailForm::DimmRank:
            TextFormat(text, size, "DIMM %u Rank %u%s", b11, b12, row.text);
            break;
        case DetailForm::Swap:
            TextFormat(text, size, "DIMM %u Rank %u DIMM %u Rank %u%s", b11, b12, b13, b14,
                       row.text);
            break;
        case DetailForm::Pcie:
            // The device field is printed as it sits in the byte (not shifted
            // down), which is how these lines have always read.
            TextFormat(text, size, "Bus:%uDev:%uFun:%u%s", b11, b12 & 0xF8u, b12 & 0x07u, row.text);
            break;
        case DetailForm::Cpu:
            TextFormat(text, size, "CPU %u%s", b11, row.text);
            break;
        }
        return;
    }
    TextFormat(text, size, "%s", "Unspecified error.");
}

const char* const kPostClasses[] = {
    "PCI Event/Error occurred",
    "Processor Event/Error occurred",
    "Memory Event/Error occurred",
};

// ---- E0h and E1h: label/value fields -----------------------------------------

enum class FieldKind : uint8_t {
    Dec,       // one byte, decimal
    Device,    // bits 7:3 of a device/function byte
    Function,  // bits 2:0
    Hex16,     // two bytes, least significant first
    Hex32,     // four bytes, least significant first
    Kind,      // one byte choosing a text at id + value, below limit
    LinkState, // scalability link state
    Raw,       // every byte from here to the end, in hexadecimal
};

struct Field {
    FieldKind kind;
    uint8_t at;    // index into the bytes the decoder received
    int16_t id;    // label id, or first text id for Kind
    uint8_t limit; // Kind: number of texts
};

struct Layout {
    uint8_t type;
    const Field* fields;
    size_t count;
};

// PCI(e) device: bus, device, function, status register, error kind.
const Field kPciFields[] = {
    {FieldKind::Dec, 4, ids::kBus, 0},
    {FieldKind::Device, 5, ids::kDevice, 0},
    {FieldKind::Function, 5, ids::kFunction, 0},
    {FieldKind::Hex16, 6, ids::kStatus, 0},
    {FieldKind::Kind, 8, ids::kErrorKindBase, 3},
};
// Processor: socket, machine-check bank, low 32 bits of the bank status.
const Field kProcessorFields[] = {
    {FieldKind::Dec, 4, ids::kProcessor, 0},
    {FieldKind::Dec, 5, ids::kBank, 0},
    {FieldKind::Hex32, 6, ids::kStatus, 0},
};
// Memory: DIMM, rank, single- or multi-bit, ECC syndrome.
const Field kMemoryFields[] = {
    {FieldKind::Dec, 4, ids::kDimm, 0},
    {FieldKind::Dec, 5, ids::kRank, 0},
    {FieldKind::Kind, 6, ids::kErrorKindBase + 3, 2},
    {FieldKind::Hex16, 7, ids::kSyndrome, 0},
};
// Scalability link: chassis, port, link state.
const Field kLinkFields[] = {
    {FieldKind::Dec, 4, ids::kChassis, 0},
    {FieldKind::Dec, 5, ids::kPort, 0},
    {FieldKind::LinkState, 6, ids::kLinkState, 0},
};
const Field kRawFields[] = {{FieldKind::Raw, 4, ids::kData, 0}};

// E0h follows a C0h record; its class is C0h's byte 10 (0 PCI, 1 processor,
// 2 memory).
const Layout kPostLayouts[] = {
    {0, kPciFields, std::size(kPciFields)},
    {1, kProcessorFields, std::size(kProcessorFields)},
    {2, kMemoryFields, std::size(kMemoryFields)},
};
// E1h follows a C1h record; its type is C1h's byte 10 (0 memory, 1 processor,
// 2 PCI Express, 3 scalability link).
const Layout kSmiLayouts[] = {
    {0, kMemoryFields, std::size(kMemoryFields)},
    {1, kProcessorFields, std::size(kProcessorFields)},
    {2, kPciFields, std::size(kPciFields)},
    {3, kLinkFields, std::size(kLinkFields)},
};

// Builds the text of one non-time-stamped record. Returns 0 when every text
// was found in the message file.
int detailText(IPMIMapping& mapping, TCPluginCallbacks* cb, const uint8_t* bytes, size_t count,
               int32_t titleId, int32_t typeBase, uint8_t typeCount, const Layout* layouts,
               size_t layoutCount, char* out, uint32_t size) {
    int result = 0;
    char word[256];
    auto lookup = [&](int32_t id) -> const char* {
        if (mapping.GetINIStringById(cb, id, word, sizeof word) != 0) {
            Log(SevError, "Error in obtaining string.");
            result = 1;
        }
        return word;
    };

    char text[512] = {};
    TextAppendF(text, sizeof text, "%s: ", lookup(titleId));
    const uint8_t type = bytes[3];
    if (type < typeCount) {
        TextAppendF(text, sizeof text, "%s. ", lookup(typeBase + type));
    }
    // Part 1 of the event whose part 0 is the time-stamped record before it;
    // the identifier ties the two together.
    TextAppendF(text, sizeof text, "%s 1. ", lookup(ids::kRecordPart));
    TextAppendF(text, sizeof text, "%s %u. ", lookup(ids::kEventIdentifier),
                number24(bytes[0], bytes[1], bytes[2]));

    const Field* fields = kRawFields;
    size_t fieldCount = std::size(kRawFields);
    for (size_t i = 0; i < layoutCount; ++i) {
        if (layouts[i].type == type) {
            fields = layouts[i].fields;
            fieldCount = layouts[i].count;
        }
    }
    for (size_t i = 0; i < fieldCount; ++i) {
        const Field& f = fields[i];
        TextAppend(text, sizeof text, i == 0 ? "" : ", ");
        const uint8_t v = bytes[f.at];
        switch (f.kind) {
        case FieldKind::Dec:
            TextAppendF(text, sizeof text, "%s %u", lookup(f.id), v);
            break;
        case FieldKind::Device:
            TextAppendF(text, sizeof text, "%s %u", lookup(f.id), v >> 3);
            break;
        case FieldKind::Function:
            TextAppendF(text, sizeof text, "%s %u", lookup(f.id), v & 0x07u);
            break;
        case FieldKind::Hex16:
            TextAppendF(text, sizeof text, "%s %04Xh", lookup(f.id),
                        static_cast<unsigned>(v | bytes[f.at + 1] << 8));
            break;
        case FieldKind::Hex32:
            TextAppendF(text, sizeof text, "%s %08Xh", lookup(f.id),
                        static_cast<unsigned>(v) | static_cast<unsigned>(bytes[f.at + 1]) << 8 |
                            static_cast<unsigned>(bytes[f.at + 2]) << 16 |
                            static_cast<unsigned>(bytes[f.at + 3]) << 24);
            break;
        case FieldKind::Kind:
            if (v < f.limit) {
                TextAppend(text, sizeof text, lookup(f.id + v));
            } else {
                TextAppendF(text, sizeof text, "%s %u", lookup(ids::kErrorKindUnknown), v);
            }
            break;
        case FieldKind::LinkState:
            if (v == 0) {
                TextAppend(text, sizeof text, lookup(ids::kLinkDown));
            } else if (v <= 3) {
                TextAppend(text, sizeof text, lookup(ids::kLinkInvalidNode));
            } else {
                TextAppendF(text, sizeof text, "%s %u", lookup(f.id), v);
            }
            break;
        case FieldKind::Raw: {
            TextAppend(text, sizeof text, lookup(f.id));
            for (size_t j = f.at; j < count; ++j) {
                TextAppendF(text, sizeof text, " %02X", bytes[j]);
            }
            break;
        }
        }
    }
    TextAppend(text, sizeof text, ". ");
    TextAppend(out, size, text);
    return result;
}

} // namespace

namespace {
// The opening both time-stamped OEM records share: title, the type's text
// when the type is one the file names, "Record part 0" and the 24-bit event
// identifier that ties the record to its E0h/E1h detail.
void TimestampedHeader(IPMIMapping& m, TCPluginCallbacks* cb, char* text, size_t size,
                       int32_t titleId, int32_t typeBase, uint8_t typeCount, uint8_t type,
                       uint32_t identifier) {
    char word[256];
    auto lookup = [&](int32_t id) -> const char* {
        if (m.GetINIStringById(cb, id, word, sizeof word) != 0) {
            Log(SevError, "Error in obtaining string.");
        }
        return word;
    };
    TextAppendF(text, size, "%s: ", lookup(titleId));
    if (type < typeCount) {
        TextAppendF(text, size, "%s. ", lookup(typeBase + type));
    }
    TextAppend(text, size, lookup(ids::kRecordPart));
    TextAppend(text, size, " 0. ");
    TextAppend(text, size, lookup(ids::kEventIdentifier));
    TextAppendF(text, size, " %u. ", identifier);
}

} // namespace

int IPMIMapping::GetOEMxC0(TCPluginCallbacks* cb, uint8_t b7, uint8_t b8, uint8_t b9, uint8_t b10,
                           uint8_t b11, uint8_t b12, uint8_t b13, uint8_t b14, char* out,
                           uint32_t size) {
    Log(SevTrace, "IPMIMapping::GetOEMxC0() function entered.");
    char text[512] = {};
    if (NOXAQSV20::TOSSpecific::GetBiosID() == kDetailedOEMBiosID) {
        detailedPostText(text, sizeof text, b10, b11, b12, b13, b14);
    } else {
        TimestampedHeader(*this, cb, text, sizeof text, ids::kPostTitle, ids::kPostTypeBase, 7, b10,
                          number24(b7, b8, b9));
        if (b11 == 0) {
            if (b10 < std::size(kPostClasses)) {
                TextAppendF(text, sizeof text, "%s. ", kPostClasses[b10]);
            }
            TextAppend(text, sizeof text,
                       "Next non-timestamped OEM SEL entry will contain details of the specific "
                       "Processor event/error. ");
        } else {
            Log(SevDetail, "Error Type (Byte 12) is undefined.");
        }
    }
    TextAppend(out, size, text);
    Log(SevTrace, "IPMIMapping::GetOEMxC0() function completed.");
    return 0;
}

int IPMIMapping::GetOEMxC1(TCPluginCallbacks* cb, uint8_t b7, uint8_t b8, uint8_t b9, uint8_t b10,
                           uint8_t /*b11*/, uint8_t b12, uint8_t b13, char* out, uint32_t size) {
    Log(SevTrace, "IPMIMapping::GetOEMxC1() function entered.");
    char text[512] = {};
    TimestampedHeader(*this, cb, text, sizeof text, ids::kSmiTitle, ids::kSmiTypeBase, 6, b10,
                      number24(b7, b8, b9));
    if (b10 == 3) {
        // Scalability link: byte 11 carries nothing the text uses.
        TextAppend(text, sizeof text, ". ");
        if (b12 < 9) {
            TextAppendF(text, sizeof text, "Chassis Number %u. ", b12);
        }
        if (b13 == 0) {
            TextAppend(text, sizeof text, "Scalability Link Down. ");
        } else if (b13 <= 3) {
            TextAppend(text, sizeof text, "Scalability Link Invalid Node. ");
        }
    }
    TextAppend(out, size, text);
    Log(SevTrace, "IPMIMapping::GetOEMxC1() function completed.");
    return 0;
}

int IPMIMapping::GetOEMxE0(TCPluginCallbacks* cb, const uint8_t (&bytes)[10], char* out,
                           uint32_t size) {
    Log(SevTrace, "IPMIMapping::GetOEMxE0() function entered.");
    int result =
        detailText(*this, cb, bytes, std::size(bytes), ids::kPostDetailTitle, ids::kPostTypeBase, 7,
                   kPostLayouts, std::size(kPostLayouts), out, size);
    Log(SevTrace, "IPMIMapping::GetOEMxE0() function completed.");
    return result;
}

int IPMIMapping::GetOEMxE1(TCPluginCallbacks* cb, const uint8_t (&bytes)[13], char* out,
                           uint32_t size) {
    Log(SevTrace, "IPMIMapping::GetOEMxE1() function entered.");
    int result = detailText(*this, cb, bytes, std::size(bytes), ids::kSmiDetailTitle,
                            ids::kSmiTypeBase, 6, kSmiLayouts, std::size(kSmiLayouts), out, size);
    Log(SevTrace, "IPMIMapping::GetOEMxE1() function completed.");
    return result;
}

} // namespace ipmisel
