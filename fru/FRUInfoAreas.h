// The standard IPMI FRU information areas (chassis, board, product), decoded
// by their type/length bytes into properties of a FRU instance.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "fru/IPMIVPDEntry.h"

namespace ipmisel {

// Format version 01h and the eight header bytes summing to 0 (mod 256).
bool HasIPMICommonHeader(const uint8_t* data, size_t size);

// How one type/length field decodes.
enum class FRUFieldResult { Text, BadBCD, Language };

// The text of the field whose type/length byte is `typeLength` and whose
// `typeLength & 3Fh` data bytes follow at `bytes`: 8-bit ASCII (English
// only; cut at a zero byte), 6-bit packed ASCII, BCD plus, or binary as
// "DEh ADh". Blanks at either end are trimmed.
FRUFieldResult DecodeFRUField(uint8_t typeLength, const uint8_t* bytes, uint8_t languageCode,
                              std::string& text);

// Board manufacturing time (minutes since 1996-01-01 00:00 UTC) as CIM text.
std::string FRUMfgDateTimeText(uint32_t minutes);

// Name of an IPMI chassis type code ("Rack Mount Chassis"; "Unknown" when the
// code has none).
const char* ChassisTypeName(uint8_t type);

// Adds "Chassis...", "Board..." and "Product..." properties for every area the
// common header names and whose checksum, format version and fields are
// sound; a field left empty adds nothing. `name` is the FRU's ID string for
// the log. Reads nothing outside data[0 .. size).
void AddStandardFRUAreas(FRUProperties& properties, const uint8_t* data, size_t size,
                         const std::string& name);

} // namespace ipmisel
