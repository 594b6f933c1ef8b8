// The collectors of the firmware element classes, one entry per class. Each
// reads one BMC node's answers through IPMIRequestVPD, fills a FirmwareElement
// and writes at most one instance of its class for the node. None throws and
// none fails the collection: a BMC that does not answer a class gives no
// instance of it, and the other classes go on.
#pragma once

#include <cstdint>
#include <vector>

#include "firmware/FirmwareConfig.h"
#include "firmware/FirmwareElement.h"
#include "firmware/IPMIRequestVPD.h"
#include "host/framework.h"

namespace ipmisel {

inline constexpr const char* kBMCFirmwareClass = "OXASG_IPMIFirmwareElement";
inline constexpr const char* kCPLDFirmwareClass = "OXASG_CPLDFirmwareElement";
inline constexpr const char* kFPGAFirmwareClass = "OXASG_FPGAFirmwareElement";
inline constexpr const char* kAMIFirmwareClass = "OXASG_AMIFirmwareElement";
inline constexpr const char* kQsvVPDClass = "OXASG_QsvVPD";

// What the collectors need to know of the machine: which controllers the
// platform probes found, and whom to ask.
struct FirmwarePlatform {
    bool cpld = false; // SMBIOS carries CPLD data
    bool fpga = false; // SMBIOS carries FPGA data
    bool ami = false;  // node 0's BMC has the AMI backplane controller
    std::vector<uint8_t> cpldSelectors;
    std::vector<uint8_t> fpgaSelectors;
    std::vector<uint8_t> backplaneBusIDs;
    std::vector<uint8_t> vpdDevices;
};

// The platform description from the probes and the machine-type row (null
// when the machine type has none): the flags as probed; CPLD and FPGA
// selectors from SMBIOS when it lists any, else the row's; bus IDs and VPD
// devices from the row.
FirmwarePlatform DescribeFirmwarePlatform(const firmware::BMCMachineType* row, bool cpld, bool fpga,
                                          bool ami, const std::vector<uint8_t>& smbiosCpldSelectors,
                                          const std::vector<uint8_t>& smbiosFpgaSelectors);

// Each answers 0 when it wrote its instance for `node` (0-based) and 1 when
// it wrote none. `request` talks to the node's BMC.
int CollectBMCFirmware(IPMIRequestVPD& request, NOXAQSV20::fdriIOHandle* io, int32_t node,
                       const FirmwarePlatform& platform);
int CollectCPLDFirmware(IPMIRequestVPD& request, NOXAQSV20::fdriIOHandle* io, int32_t node,
                        const FirmwarePlatform& platform);
int CollectFPGAFirmware(IPMIRequestVPD& request, NOXAQSV20::fdriIOHandle* io, int32_t node,
                        const FirmwarePlatform& platform);
int CollectQsvVPD(IPMIRequestVPD& request, NOXAQSV20::fdriIOHandle* io, int32_t node,
                  const FirmwarePlatform& platform);
int CollectAMIFirmware(IPMIRequestVPD& request, NOXAQSV20::fdriIOHandle* io, int32_t node,
                       const FirmwarePlatform& platform);

} // namespace ipmisel
