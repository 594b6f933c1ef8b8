// Product configuration the driver and the platform probes read: which machine
// types have an on-board service adapter, where the missing-driver notice sends
// people, which SMBIOS structures announce CPLD and FPGA data. Everything a
// product release may need to change in the driver lives here, as data; the
// machine-type table of the firmware collectors is firmware/FirmwareConfig.h.
//
// The machine types and addresses below are placeholders of this project (the
// addresses are under the reserved example.com domain); a product build
// replaces them with its own hardware list and support pages.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ipmisel::platform {

// ---- missing-driver notice ---------------------------------------------------

// Machine types whose on-board service-processor adapter makes the
// missing-driver notice pointless: the adapter is reached without the host's
// IPMI driver. On these, an adapter found among the SMBIOS OEM strings
// suppresses the notice.
inline constexpr const char* kAdapterMachineTypes[5] = {"QA01", "QA02", "QA03", "QA04", "QA05"};

// The OEM string that names the adapter (a case-sensitive substring match).
inline constexpr const char* kAdapterOemString = "OXA Torvik Adapter";

// Pages the notice points to.
inline constexpr const char* kDriverPageRack = "https://support.example.com/ipmi/drivers/rack";
inline constexpr const char* kDriverPageBlade =
    "https://support.example.com/ipmi/drivers/stackfield";
inline constexpr const char* kDriverTipPage = "https://support.example.com/ipmi/tips/driver";

// Message classes of the core logger for the two forms of the notice.
inline constexpr uint32_t kNoticeClassMarkup = 100;
inline constexpr uint32_t kNoticeClassPlain = 101;
// Message class of the adapter scan's progress lines.
inline constexpr uint32_t kScanMessageClass = 3;

// Environment variable that tells the driver it runs from a bootable
// diagnostics medium, where no driver can be installed; only "yes" counts.
inline constexpr const char* kBootableVariable = "QSV_ISBOOTABLE";
inline constexpr const char* kBootableValue = "yes";

// ---- SMBIOS probes -------------------------------------------------------------

// SMBIOS structure types the probes read.
inline constexpr int32_t kSmbiosIpmiDevice = 38;
inline constexpr int32_t kSmbiosOemStrings = 11;

// What a CPLD or FPGA probe looks for: an OEM SMBIOS structure (types 128..255
// belong to the system maker) whose formatted area carries, from byte 4, the
// number of devices and then one device selector per device. The selectors
// are what the firmware requests send to the BMC.
enum class SMBIOSDataKind { CPLD, FPGA };

struct SMBIOSProbe {
    SMBIOSDataKind kind;
    const char* name;
    int32_t structureType;
};

inline constexpr SMBIOSProbe kSmbiosProbes[] = {
    {SMBIOSDataKind::CPLD, "CPLD", 0xD8},
    {SMBIOSDataKind::FPGA, "FPGA", 0xD9},
};

// Offsets inside such a structure.
inline constexpr size_t kProbeCountOffset = 4;
inline constexpr size_t kProbeSelectorOffset = 5;

// ---- FRU gate --------------------------------------------------------------------

// FRU inventory changes only when hardware does: it is read once for all nodes
// and then not again until this many seconds have passed.
inline constexpr long kFruRefreshSeconds = 600;

} // namespace ipmisel::platform
