// Questions asked of the platform before any IPMI traffic: the machine type,
// whether SMBIOS describes a BMC, whether a service adapter is on board, and
// whether CPLD or FPGA data is present.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/framework.h"
#include "plugin/PlatformConfig.h"

namespace ipmisel {

// Set by getMachineType: the machine type is read once per process.
extern bool g_machineTypeRead;

// Writes the core library's machine type into machineType[size] (cut and
// terminated); status is always 0.
void getMachineType(int* status, char* machineType, size_t size);

// 0 when SMBIOS holds an IPMI device information record (type 38), else 1.
// Logs one line saying which.
int FindSMBIOSType38(NOXAQSV20::TCPluginCallbacks* cb);

// 1 when an SMBIOS OEM string names the on-board service adapter, else 0.
int HasTVK2onBoard();

// The SMBIOS lookups of CPLD and FPGA data.
class SMBIOSInfo {
  public:
    explicit SMBIOSInfo(NOXAQSV20::TCPluginCallbacks* cb) : cb_(cb) {}
    // 0 when the structure of that kind is present; its device selectors are
    // then in selectors (when given). 1 when absent or unreadable.
    int getSMBIOSInfo(platform::SMBIOSDataKind kind, std::vector<uint8_t>* selectors = nullptr);

  private:
    NOXAQSV20::TCPluginCallbacks* cb_;
};

} // namespace ipmisel
