// Data ids of the message file that the generic-offset and OEM record
// decoders use (the sensor-specific bases are in SensorOffset.cpp's table).
// docs/messages.md lists the whole allocation.
#pragma once

#include <cstdint>
#include <vector>

namespace ipmisel::ids {

// Generic event/reading types 02h..0Ch: base 120 + 10 x (type - 2), and the
// number of offsets each type defines.
inline constexpr uint8_t kGenericCounts[11] = {3, 2, 2, 2, 2, 9, 2, 2, 9, 8, 4};
inline int32_t GenericBase(uint8_t eventType) {
    return eventType >= 0x02 && eventType <= 0x0C ? 120 + 10 * (eventType - 2) : -1;
}
inline uint8_t GenericCount(uint8_t eventType) {
    return eventType >= 0x02 && eventType <= 0x0C ? kGenericCounts[eventType - 2] : 0;
}
// Severity texts (the offsets of event/reading type 07h), also used for the
// severity nibble of OEM event data 2.
inline constexpr int32_t kSeverityBase = 170;
inline constexpr uint8_t kSeverityCount = 9;

inline constexpr int32_t kGenericPreviousState = 525;
inline constexpr int32_t kGenericSeverity = 526;
inline constexpr int32_t kGenericReservedOffset = 531;

// C0h (POST) and C1h (SMI handler) records and the record-part phrases that
// their non-time-stamped follow-ups E0h and E1h share.
inline constexpr int32_t kPostTitle = 112;
inline constexpr int32_t kPostTypeBase = 113; // + byte 10, below 7
inline constexpr int32_t kRecordPart = 123;
inline constexpr int32_t kEventIdentifier = 124;
inline constexpr int32_t kSmiTitle = 132;
inline constexpr int32_t kSmiTypeBase = 133; // + byte 10, below 6

// E1h: the title and the scalability-link phrases.
inline constexpr int32_t kSmiDetailTitle = 139;
inline constexpr int32_t kChassis = 142;
inline constexpr int32_t kPort = 143;
inline constexpr int32_t kLinkDown = 144;
inline constexpr int32_t kLinkInvalidNode = 145;
inline constexpr int32_t kLinkState = 146;

// E0h and E1h: 870 + n.
inline constexpr int32_t kPostDetailTitle = 870;
inline constexpr int32_t kBus = 871;
inline constexpr int32_t kDevice = 872;
inline constexpr int32_t kFunction = 873;
inline constexpr int32_t kStatus = 874;
inline constexpr int32_t kProcessor = 875;
inline constexpr int32_t kBank = 876;
inline constexpr int32_t kDimm = 877;
inline constexpr int32_t kRank = 878;
inline constexpr int32_t kSyndrome = 879;
inline constexpr int32_t kData = 880;
inline constexpr int32_t kErrorKindBase = 881; // + kind, kErrorKindCount of them
inline constexpr uint8_t kErrorKindCount = 5;  // SERR, PERR, uncorrectable, single, multi
inline constexpr int32_t kErrorKindUnknown = 886;
// Bytes no field takes are shown as "<kData> <kByte> 15: AF" or
// "<kData> <kBytes> 7-11: A7 A8 A9 AA AB".
inline constexpr int32_t kByte = 887;
inline constexpr int32_t kBytes = 888;

// Every numeric data id some decoder of this subsystem may ask the message
// file for (the OEM byte keys excepted), for checking a message file.
std::vector<int32_t> UsedDataIds();

} // namespace ipmisel::ids
