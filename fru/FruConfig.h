// Product configuration of the FRU inventory: values that come from the
// product's hardware list rather than from IPMI. Each can be set at build time
// (-D...) for a product line; the defaults are what we ship.
#pragma once

// The machine type (four characters, as it appears in the SMBIOS product name,
// e.g. "... -[QB20AC1]-") of the one blade model whose product name does not
// carry the blade family's name. Boards of a blade keep their fixed-offset VPD
// at other offsets than rack boards, so the FRU inventory has to know. The
// shipped value is a placeholder of this project; a product build sets the
// real one with -DIPMISEL_BLADE_MACHINE_TYPE=\"NNNN\".
#ifndef IPMISEL_BLADE_MACHINE_TYPE
#define IPMISEL_BLADE_MACHINE_TYPE "QB20"
#endif

namespace ipmisel {

inline constexpr const char* kBladeMachineType = IPMISEL_BLADE_MACHINE_TYPE;
// Every other blade says so in its product name.
inline constexpr const char* kBladeFamilyName = "Stackfield";

} // namespace ipmisel
