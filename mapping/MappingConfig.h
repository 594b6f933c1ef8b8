// Site configuration of the event interpretation.
#pragma once

namespace ipmisel {

// BIOS identification (TOSSpecific::GetBiosID, compared for equality) of the
// board family whose POST writes C0h records with the detailed layout: DIMM,
// PCIe and CPU numbers in bytes 11 to 14 instead of the generic error class.
// Every other BIOS gets the generic C0h text.
inline constexpr const char kDetailedOEMBiosID[] = "QSVX3";

} // namespace ipmisel
