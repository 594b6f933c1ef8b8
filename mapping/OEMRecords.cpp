// OEM SEL records: C0h (POST) and C1h (SMI handler) with time stamp, and their
// follow-ups without time stamp, E0h and E1h, which carry the details.
#include <cstring>
#include <string>

#include "base/log.h"
#include "base/text.h"
#include "mapping/IPMIMapping.h"
#include "mapping/MappingConfig.h"
#include "mapping/OffsetIds.h"

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

// The record byte each byte a decoder receives comes from. The E0h hand-over
// leaves bytes 12-14 out, so its last byte (15) does not follow byte 11: a
// number is only ever built from bytes that are neighbours in the record.
const uint8_t kPostRecordBytes[10] = {3, 4, 5, 6, 7, 8, 9, 10, 11, 15};
const uint8_t kSmiRecordBytes[13] = {3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
// Bytes 3-5 hold the event identifier and byte 6 the type; fields start here.
constexpr size_t kFirstFieldIndex = 4;

enum class FieldKind : uint8_t {
    Dec,       // one byte, decimal
    Device,    // bits 7:3 of a device/function byte
    Function,  // bits 2:0
    Hex,       // bytes first..last, least significant first, hexadecimal
    Kind,      // one byte choosing a text at id + value, below limit
    LinkState, // scalability link state
};

struct Field {
    FieldKind kind;
    uint8_t first; // record bytes the field is read from
    uint8_t last;
    int16_t id;    // label id, or first text id for Kind
    uint8_t limit; // Kind: number of texts
};

struct Layout {
    uint8_t type;
    const Field* fields;
    size_t count;
};

// Every layout reads record bytes 7 to 11 only, which both records carry in
// one piece; the bytes after them are shown as they are.
// PCI(e) device: bus, device, function, status register, error kind.
const Field kPciFields[] = {
    {FieldKind::Dec, 7, 7, ids::kBus, 0},
    {FieldKind::Device, 8, 8, ids::kDevice, 0},
    {FieldKind::Function, 8, 8, ids::kFunction, 0},
    {FieldKind::Hex, 9, 10, ids::kStatus, 0},
    {FieldKind::Kind, 11, 11, ids::kErrorKindBase, 3},
};
// Processor: socket, machine-check bank, low 24 bits of the bank status.
const Field kProcessorFields[] = {
    {FieldKind::Dec, 7, 7, ids::kProcessor, 0},
    {FieldKind::Dec, 8, 8, ids::kBank, 0},
    {FieldKind::Hex, 9, 11, ids::kStatus, 0},
};
// Memory: DIMM, rank, single- or multi-bit, ECC syndrome.
const Field kMemoryFields[] = {
    {FieldKind::Dec, 7, 7, ids::kDimm, 0},
    {FieldKind::Dec, 8, 8, ids::kRank, 0},
    {FieldKind::Kind, 9, 9, ids::kErrorKindBase + 3, 2},
    {FieldKind::Hex, 10, 11, ids::kSyndrome, 0},
};
// Scalability link: chassis, port, link state.
const Field kLinkFields[] = {
    {FieldKind::Dec, 7, 7, ids::kChassis, 0},
    {FieldKind::Dec, 8, 8, ids::kPort, 0},
    {FieldKind::LinkState, 9, 9, ids::kLinkState, 0},
};

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

// What tells the two records apart.
struct DetailKind {
    const uint8_t* recordBytes; // where each byte received came from
    int32_t titleId;
    int32_t typeBase; // type texts, as the time-stamped record's
    uint8_t typeCount;
    const Layout* layouts;
    size_t layoutCount;
};
const DetailKind kPostDetail{.recordBytes = kPostRecordBytes,
                             .titleId = ids::kPostDetailTitle,
                             .typeBase = ids::kPostTypeBase,
                             .typeCount = 7,
                             .layouts = kPostLayouts,
                             .layoutCount = std::size(kPostLayouts)};
const DetailKind kSmiDetail{.recordBytes = kSmiRecordBytes,
                            .titleId = ids::kSmiDetailTitle,
                            .typeBase = ids::kSmiTypeBase,
                            .typeCount = 6,
                            .layouts = kSmiLayouts,
                            .layoutCount = std::size(kSmiLayouts)};

// Builds the text of one non-time-stamped record and appends it to out. A
// text the message file lacks leaves a gap (and a log line); the numbers are
// still written. Returns 0 when text was appended, 1 when out had no room.
int detailText(IPMIMapping& mapping, TCPluginCallbacks* cb, const DetailKind& r,
               const uint8_t* bytes, size_t count, char* out, uint32_t size) {
    char word[256];
    auto lookup = [&](int32_t id) -> const char* {
        if (mapping.GetINIStringById(cb, id, word, sizeof word) != 0) {
            Log(SevError, "Error in obtaining string.");
        }
        return word;
    };
    // Index of a record byte among those received, when it was received.
    auto indexOf = [&](uint8_t recordByte) -> size_t {
        for (size_t i = 0; i < count; ++i) {
            if (r.recordBytes[i] == recordByte) {
                return i;
            }
        }
        return count;
    };

    char text[512] = {};
    TextAppendF(text, sizeof text, "%s: ", lookup(r.titleId));
    const uint8_t type = bytes[3];
    if (type < r.typeCount) {
        TextAppendF(text, sizeof text, "%s. ", lookup(r.typeBase + type));
    }
    // Part 1 of the event whose part 0 is the time-stamped record before it;
    // the identifier ties the two together.
    TextAppendF(text, sizeof text, "%s 1. ", lookup(ids::kRecordPart));
    TextAppendF(text, sizeof text, "%s %u. ", lookup(ids::kEventIdentifier),
                number24(bytes[0], bytes[1], bytes[2]));

    const Field* fields = nullptr;
    size_t fieldCount = 0;
    for (size_t i = 0; i < r.layoutCount; ++i) {
        if (r.layouts[i].type == type) {
            fields = r.layouts[i].fields;
            fieldCount = r.layouts[i].count;
        }
    }
    bool shown[16] = {};
    const char* separator = "";
    for (size_t i = 0; i < fieldCount; ++i) {
        const Field& f = fields[i];
        const size_t at = indexOf(f.first);
        const size_t n = static_cast<size_t>(f.last - f.first) + 1;
        // A field is read only when all its bytes arrived side by side.
        if (at + n > count || r.recordBytes[at + n - 1] != f.last) {
            continue;
        }
        TextAppend(text, sizeof text, separator);
        separator = ", ";
        const uint8_t v = bytes[at];
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
        case FieldKind::Hex: {
            uint32_t value = 0;
            for (size_t j = n; j-- > 0;) {
                value = value << 8 | bytes[at + j];
            }
            TextAppendF(text, sizeof text, "%s %0*Xh", lookup(f.id), static_cast<int>(2 * n),
                        value);
            break;
        }
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
        }
        for (size_t j = 0; j < n; ++j) {
            shown[at + j] = true;
        }
    }

    // Every byte no field took, in runs of neighbouring record bytes, each run
    // named by its record byte numbers: "Data bytes 7-11: A7 A8 A9 AA AB,
    // byte 15: AF".
    bool first = true;
    for (size_t i = kFirstFieldIndex; i < count;) {
        if (shown[i]) {
            ++i;
            continue;
        }
        size_t end = i + 1;
        while (end < count && !shown[end] && r.recordBytes[end] == r.recordBytes[end - 1] + 1) {
            ++end;
        }
        TextAppend(text, sizeof text, separator);
        separator = ", ";
        if (first) {
            TextAppendF(text, sizeof text, "%s ", lookup(ids::kData));
            first = false;
        }
        if (end - i == 1) {
            TextAppendF(text, sizeof text, "%s %u:", lookup(ids::kByte), r.recordBytes[i]);
        } else {
            TextAppendF(text, sizeof text, "%s %u-%u:", lookup(ids::kBytes), r.recordBytes[i],
                        r.recordBytes[end - 1]);
        }
        for (; i < end; ++i) {
            TextAppendF(text, sizeof text, " %02X", bytes[i]);
        }
    }
    TextAppend(text, sizeof text, ". ");

    const size_t before = out == nullptr ? 0 : TextLength(out, size);
    if (out != nullptr) {
        TextAppend(out, size, text);
    }
    return out != nullptr && TextLength(out, size) > before ? 0 : 1;
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
    int result = detailText(*this, cb, kPostDetail, bytes, std::size(bytes), out, size);
    Log(SevTrace, "IPMIMapping::GetOEMxE0() function completed.");
    return result;
}

int IPMIMapping::GetOEMxE1(TCPluginCallbacks* cb, const uint8_t (&bytes)[13], char* out,
                           uint32_t size) {
    Log(SevTrace, "IPMIMapping::GetOEMxE1() function entered.");
    int result = detailText(*this, cb, kSmiDetail, bytes, std::size(bytes), out, size);
    Log(SevTrace, "IPMIMapping::GetOEMxE1() function completed.");
    return result;
}

} // namespace ipmisel
