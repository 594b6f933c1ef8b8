// One FRU device locator record of a BMC's SDR repository, with the FRU data
// read from its device and the board fields picked out of that data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ipmisel {

// FRU data kept per locator: the first 528 bytes of the device, enough for
// the common header, the chassis, board and product areas of every board we
// know and the SPD fields of a memory module.
inline constexpr size_t kFRUDataSize = 528;

class IPMIFRULocator {
  public:
    // SDR bytes 0..14 (byte 9 is reserved and not kept).
    uint8_t recordID[2] = {0, 0}; // high, low
    uint8_t sdrVersion = 0;
    uint8_t recordType = 0;
    uint8_t recordLength = 0;
    uint8_t deviceAccessAddress = 0;
    uint8_t fruDeviceID = 0;
    // Bit 7: logical FRU device; bits 4:3 access LUN; bits 2:0 private bus.
    uint8_t logicalPhysical = 0;
    uint8_t channelNumber = 0;
    uint8_t deviceType = 0;
    uint8_t deviceTypeModifier = 0;
    uint8_t fruEntityID = 0;
    uint8_t fruEntityInstance = 0;
    uint8_t oem = 0;
    // SDR byte 15 as the BMC sent it, and the text after it.
    uint8_t idStringTypeLength = 0;
    std::string idString;

    uint8_t fruData[kFRUDataSize] = {};

    // Filled by GetFRUAreas.
    std::vector<std::string> boardFields;
    std::vector<std::string> productFields;

    // Read FRU Data reaches logical FRU devices only.
    bool IsLogicalFRUDevice() const { return (logicalPhysical & 0x80) != 0; }

    // False (and logged) when the first 101 bytes of FRU data are all zero:
    // nothing was read, or the device holds nothing.
    bool HasFRUData() const;

    // The board fields at fixed places of the board area, and the product
    // fields copied from them unless `boardOnly` is set.
    void GetFRUAreas(const std::string& id, bool boardOnly);
};

// The text of the board field that starts at `pos` of the FRU data: at most
// 32 characters, up to a zero byte or the first character outside the set a
// board field may hold; empty when `pos` lies outside the data.
std::string ReadBoardField(const uint8_t* fruData, size_t pos);

} // namespace ipmisel
