// Product configuration of the firmware collectors: which controllers each
// machine type carries (VPD devices, CPLD and FPGA device selectors, backplane
// bus IDs) and which named properties of the management controller each
// element class asks for. A product release changes these rows, not the code.
//
// The machine types below are placeholders of this project; a product build
// replaces them with its own hardware list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace ipmisel::firmware {

// ---- BMC machine-type table ----------------------------------------------------

// One machine type whose BMC has firmware data beyond Get Device ID: the VPD
// devices of IPMIGetVPDEntryData, the CPLD and FPGA device selectors of the
// version requests (used when SMBIOS does not list its own), and the I2C bus
// IDs behind which a backplane controller may sit.
struct BMCMachineType {
    const char* machineType;
    const char* machine; // what the row serves, for people reading this table
    std::span<const uint8_t> vpdDevices;
    std::span<const uint8_t> cpldSelectors;
    std::span<const uint8_t> fpgaSelectors;
    std::span<const uint8_t> backplaneBusIDs;
};

inline constexpr uint8_t kVpdDevicesRack[] = {0x00, 0x01, 0x02};
inline constexpr uint8_t kVpdDevicesBlade[] = {0x00, 0x03};
inline constexpr uint8_t kVpdDevicesDense[] = {0x00, 0x01, 0x04, 0x05};

inline constexpr uint8_t kCpldSelectorsOne[] = {0x01};
inline constexpr uint8_t kCpldSelectorsTwo[] = {0x01, 0x02};
inline constexpr uint8_t kFpgaSelectorsOne[] = {0x00};
inline constexpr uint8_t kFpgaSelectorsTwo[] = {0x00, 0x01};
inline constexpr uint8_t kBackplaneBusesRack1U[] = {0x03};
inline constexpr uint8_t kBackplaneBusesRack2U[] = {0x03, 0x05};
inline constexpr uint8_t kBackplaneBusesDense[] = {0x07};

inline constexpr BMCMachineType kBMCMachineTypes[] = {
    {"QB10", "1U two-socket rack server", kVpdDevicesRack, kCpldSelectorsOne, kFpgaSelectorsOne,
     kBackplaneBusesRack1U},
    {"QB11", "2U two-socket rack server", kVpdDevicesRack, kCpldSelectorsTwo, kFpgaSelectorsOne,
     kBackplaneBusesRack2U},
    {"QB20", "blade server", kVpdDevicesBlade, kCpldSelectorsOne, {}, {}},
    {"QB30", "dense multi-node server", kVpdDevicesDense, kCpldSelectorsTwo, kFpgaSelectorsTwo,
     kBackplaneBusesDense},
};

inline constexpr int kBMCMachineTypeCount =
    static_cast<int>(sizeof kBMCMachineTypes / sizeof kBMCMachineTypes[0]);

// Index of the row whose machine type equals `machineType` byte for byte, or
// -1 when there is none (or no machine type).
inline int FindBMCMachineType(const char* machineType) {
    if (machineType == nullptr) {
        return -1;
    }
    for (int i = 0; i < kBMCMachineTypeCount; ++i) {
        if (std::strcmp(kBMCMachineTypes[i].machineType, machineType) == 0) {
            return i;
        }
    }
    return -1;
}

// The row at `index`, or null outside the table.
inline const BMCMachineType* BMCMachineTypeRow(int index) {
    return index >= 0 && index < kBMCMachineTypeCount ? &kBMCMachineTypes[index] : nullptr;
}

// ---- named properties ------------------------------------------------------------

// A property of the management controller (IPMIPropertyCMD) and the instance
// property its value becomes. Asked in this order; the answers are written in
// this order.
struct PropertyPath {
    const char* path;
    const char* propertyName;
};

// Build data of the FPGA image, on "OXASG_FPGAFirmwareElement".
inline constexpr PropertyPath kFPGAProperties[] = {
    {"/v2/fpga/build_id", "BuildID"},
    {"/v2/fpga/build_date", "BuildDate"},
    {"/v2/fpga/build_version", "BuildVersion"},
};

// Build data of the diagnostics image the BMC carries, on "OXASG_QsvVPD".
inline constexpr PropertyPath kDiagnosticsProperties[] = {
    {"/v2/qsv/build_id", "BuildID"},
    {"/v2/qsv/build_date", "BuildDate"},
    {"/v2/qsv/build_version", "BuildVersion"},
};

} // namespace ipmisel::firmware
