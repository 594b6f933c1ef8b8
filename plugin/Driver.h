// The collection driver's view of the platform, shared with the collectors,
// and the hooks tests use to start every collection from a clean process.
#pragma once

#include <cstdint>
#include <vector>

#include "firmware/FirmwareCollectors.h"

namespace ipmisel {

// What the driver learned about the platform in the current collection; the
// firmware collectors read it.
struct PlatformState {
    bool lan = false;                   // the BMC is reached over the LAN, not a local driver
    bool cpld = false;                  // SMBIOS carries CPLD data
    bool fpga = false;                  // SMBIOS carries FPGA data
    bool ami = false;                   // node 0's BMC has the AMI backplane controller
    int bmcTypeIndex = -1;              // row of firmware::kBMCMachineTypes, -1 when none matched
    std::vector<uint8_t> cpldSelectors; // as SMBIOS lists them
    std::vector<uint8_t> fpgaSelectors;
    // What the firmware collectors ask for: the flags above with the
    // selectors, bus IDs and VPD devices of the machine type's row.
    FirmwarePlatform firmware;
};

const PlatformState& CurrentPlatform();

// The machine type as read once per process ("No machine type found." when it
// could not be read; empty before the first collection).
const char* CurrentMachineType();

// Forgets everything that survives between collections: the machine type and
// its read flag, the BMC-found counter, the node count, the FRU-once flag and
// its reset time, the FRU entry object and the platform state. For tests,
// which run many collections in one process.
void ResetDriverState();

// Test hook: when set and answering true for an object's name ("ipmi_sdrp",
// "ipmi_selp", "ipmi_vpdp", "ipmi_sdr_headp", "ipmi_mappingp",
// "ipmi_selentryp", "ipmi_vpdentryp", "sdr_listp", "ipmi_auxlogp",
// "fIpmiVpdentryFru", "sel_slots", "auxlog_slots"), that
// allocation fails as if memory were exhausted.
extern bool (*g_allocationFails)(const char* what);

} // namespace ipmisel
