// Product configuration of the IPMI command layer: values that come from the
// product's hardware list rather than from IPMI itself. Each can be set at
// build time (-D...) for a product line; the defaults are what we ship.
#pragma once

// Machine type (the four-digit text TOSSpecific::GetMachineType answers) whose
// BMC puts 31 bytes of its own ahead of the ID string in a Get SDR answer for
// the string piece. On that machine the string text is rendered from response
// byte 39 instead of byte 8, so the scanner finds the type/length byte and the
// characters where it expects them.
#ifndef IPMISEL_SHIFTED_SDR_STRING_MACHINE_TYPE
#define IPMISEL_SHIFTED_SDR_STRING_MACHINE_TYPE "6006"
#endif

namespace ipmisel {

inline constexpr const char* kShiftedSDRStringMachineType = IPMISEL_SHIFTED_SDR_STRING_MACHINE_TYPE;
// Where the string text starts on that machine, and everywhere else.
inline constexpr int kShiftedSDRStringStart = 39;
inline constexpr int kResponseTextStart = 8;

} // namespace ipmisel
