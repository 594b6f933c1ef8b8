// Configuration of the SEL export that depends on the hardware list.
#pragma once

#include <cstdint>

namespace ipmisel {

// On this machine type (as the core library reports it from the system's
// identification) entity instances of device-relative sensors are numbered
// from the controller that owns them: instance 61h reads "1", not "97".
inline constexpr const char kSecondInstanceNumberingMachineType[] = "8877";
inline constexpr uint8_t kDeviceRelativeInstanceBase = 0x60;

// Process-wide switch: when set, drive sensors keep their entity instance
// instead of the number in their name. Clear unless a product turns it on.
extern bool g_driveNumberingFlag;

} // namespace ipmisel
