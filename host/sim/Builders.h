// Byte builders for the simulated BMC: SEL records, SDR records (full sensor,
// compact sensor, FRU device locator), auxiliary log entries and SMBIOS
// structures, each from named fields. The scenario parser builds its records
// with these, and tests use them to write a BMC's contents without counting
// bytes by hand.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ipmisel::sim {

// "01 0a FF", "010AFF" and any mix of blanks between digit pairs. Throws
// std::invalid_argument with a short reason ("odd number of hex digits").
std::vector<uint8_t> parseHex(std::string_view text);
// Upper-case pairs separated by one blank: "01 0A FF".
std::string toHex(std::span<const uint8_t> bytes);

// ---- SEL ---------------------------------------------------------------------

// A system event record (type 02h and the other non-OEM types).
struct SelEventFields {
    uint16_t id = 1;
    uint8_t type = 0x02;
    uint32_t timestamp = 0;
    uint8_t generator = 0x20;  // byte 7: IPMB address of the BMC
    uint8_t generator2 = 0x00; // byte 8: channel and LUN
    uint8_t evmRev = 0x04;
    uint8_t sensorType = 0;
    uint8_t sensorNumber = 0;
    uint8_t eventType = 0x6F; // event/reading type, bits 6:0 of byte 12
    bool deassertion = false; // bit 7 of byte 12
    // Event data 1-3; FFh is "not specified" in the event message format.
    std::array<uint8_t, 3> data{0x00, 0xFF, 0xFF};
};

// 16 bytes in wire order (record ID low byte first).
std::vector<uint8_t> selRecord(const SelEventFields& f);

// An OEM record: types C0h-DFh carry a time stamp and 9 OEM bytes, types
// E0h-FFh 13 OEM bytes and no time stamp. Throws std::invalid_argument when
// the type is below C0h or `oem` has the wrong length.
std::vector<uint8_t> selOemRecord(uint16_t id, uint8_t type, uint32_t timestamp,
                                  std::span<const uint8_t> oem);
// How many OEM bytes a record of this type carries (0 for a non-OEM type).
size_t selOemLength(uint8_t type);

// ---- SDR ---------------------------------------------------------------------

// The ID string of a record. The type/length byte is C0h | length (8-bit
// ASCII); at most 16 bytes are kept, as the record format allows.
struct SdrName {
    std::vector<uint8_t> bytes;
    SdrName() = default;
    SdrName(const char* text) : bytes(text, text + std::string_view(text).size()) {}
    SdrName(std::string_view text) : bytes(text.begin(), text.end()) {}
    SdrName(const std::string& text) : bytes(text.begin(), text.end()) {}
    explicit SdrName(std::vector<uint8_t> raw) : bytes(std::move(raw)) {}
};

// Sensor units 1 (record byte 20).
struct Units1 {
    uint8_t analogFormat = 0; // bits 7:6: 0 unsigned, 1 one's, 2 two's complement, 3 none
    uint8_t rate = 0;         // bits 5:3
    uint8_t modifier = 0;     // bits 2:1: 0 none, 1 divide, 2 multiply
    bool percentage = false;  // bit 0
    uint8_t pack() const;
};

struct FullSensorFields {
    uint16_t id = 1;
    uint8_t version = 0x51;
    uint8_t owner = 0x20;
    uint8_t ownerLun = 0;
    uint8_t number = 0;
    uint8_t entityId = 0;
    uint8_t entityInstance = 1;
    uint8_t initialization = 0x7F;
    uint8_t capabilities = 0x68;
    uint8_t sensorType = 0;
    uint8_t eventType = 0x01;
    uint16_t assertionMask = 0;
    uint16_t deassertionMask = 0;
    uint16_t readingMask = 0;
    uint8_t units1 = 0;
    uint8_t baseUnit = 0;
    uint8_t modifierUnit = 0;
    uint8_t linearization = 0;
    int m = 1;               // 10-bit two's complement: -512..511, or the raw pattern 0..1023
    int b = 0;               // same
    uint8_t tolerance = 0;   // 6 bits
    uint16_t accuracy = 0;   // 10 bits
    uint8_t accuracyExp = 0; // 2 bits
    uint8_t direction = 0;   // 2 bits
    int rExp = 0;            // 4-bit two's complement: -8..7, or the raw nibble 0..15
    int bExp = 0;
    uint8_t analogFlags = 0;
    uint8_t nominal = 0, normalMax = 0, normalMin = 0, sensorMax = 0xFF, sensorMin = 0;
    uint8_t unr = 0, uc = 0, unc = 0, lnr = 0, lc = 0, lnc = 0;
    uint8_t hysteresisPos = 0, hysteresisNeg = 0;
    uint8_t oem = 0;
    SdrName name;
};

struct CompactSensorFields {
    uint16_t id = 1;
    uint8_t version = 0x51;
    uint8_t owner = 0x20;
    uint8_t ownerLun = 0;
    uint8_t number = 0;
    uint8_t entityId = 0;
    uint8_t entityInstance = 1;
    uint8_t initialization = 0x7F;
    uint8_t capabilities = 0x68;
    uint8_t sensorType = 0;
    uint8_t eventType = 0x6F;
    uint16_t assertionMask = 0;
    uint16_t deassertionMask = 0;
    uint16_t readingMask = 0;
    uint8_t units1 = 0xC0; // no analog reading
    uint8_t baseUnit = 0;
    uint8_t modifierUnit = 0;
    uint16_t sharing = 0; // record sharing, bytes 23..24
    uint8_t hysteresisPos = 0, hysteresisNeg = 0;
    uint8_t oem = 0;
    SdrName name;
};

struct FruLocatorFields {
    uint16_t id = 1;
    uint8_t version = 0x51;
    uint8_t deviceAddress = 0x20; // byte 5: controller that reaches the FRU
    uint8_t fruId = 0;            // byte 6: FRU device ID (logical) or slave address
    bool logical = true;          // byte 7 bit 7
    uint8_t accessLun = 0;        // byte 7 bits 4:3
    uint8_t bus = 0;              // byte 7 bits 2:0, private bus
    uint8_t channel = 0;          // byte 8 bits 7:4
    uint8_t deviceType = 0x10;
    uint8_t deviceTypeModifier = 0;
    uint8_t entityId = 0;
    uint8_t entityInstance = 1;
    uint8_t oem = 0;
    SdrName name;
};

// Where the plug-in reads a record's ID string type/length byte.
inline constexpr size_t kFullNameOffset = 47;
inline constexpr size_t kCompactNameOffset = 31;
inline constexpr size_t kFruLocatorNameOffset = 15;

// Whole records, 5-byte header included; record length (byte 4) counts the
// bytes after the header. Throw std::invalid_argument for values out of range
// (M outside -512..1023, an exponent outside -8..15, a name over 16 bytes).
std::vector<uint8_t> buildFullSensorRecord(const FullSensorFields& f);
std::vector<uint8_t> buildCompactSensorRecord(const CompactSensorFields& f);
std::vector<uint8_t> buildFruLocatorRecord(const FruLocatorFields& f);

// ---- auxiliary log -------------------------------------------------------------

inline constexpr uint32_t kAuxManufacturer = 0x00A3C1;

struct AuxEntryFields {
    uint16_t recordId = 1; // the SEL record the entry belongs to
    uint8_t type = 3;      // status-code type: 1 progress, 2 error, 3 debug, 80h port 80
    uint8_t severity = 0x40;
    uint16_t operation = 0; // stored least significant byte first
    uint8_t subClass = 0;
    uint8_t cls = 0;
    uint32_t instance = 0; // stored least significant byte first
    std::array<uint8_t, 10> callerId{};
    std::vector<uint8_t> extendedData;
    uint32_t manufacturer = kAuxManufacturer;
};

// The 10-byte header and the body. `successor` goes into header bytes 7..8
// (FFFFh marks the last entry of the log). Throws std::invalid_argument when
// the body would exceed 255 bytes.
std::vector<uint8_t> buildAuxEntry(const AuxEntryFields& f, uint16_t successor);
// A whole log: each entry's successor is the next entry's record ID, the
// last one's FFFFh.
std::vector<std::vector<uint8_t>> buildAuxLog(const std::vector<AuxEntryFields>& entries);

// ---- SMBIOS ----------------------------------------------------------------------

// A structure: formatted area (type, length, handle and `formatted`) followed
// by the string set, ending in a double NUL.
std::vector<uint8_t> smbiosStructure(uint8_t type, uint16_t handle,
                                     std::span<const uint8_t> formatted,
                                     const std::vector<std::string>& strings);

// Type 38, IPMI device information.
struct SmbiosIpmiDevice {
    uint16_t handle = 0;
    uint8_t interfaceType = 1; // KCS
    uint8_t specRevision = 0x20;
    uint8_t i2cAddress = 0x20;
    uint8_t nvStorage = 0xFF;
    uint64_t baseAddress = 0xCA3; // I/O space, 0xCA2
    uint8_t baseModifier = 0;
    uint8_t interrupt = 0;
};
std::vector<uint8_t> smbiosIpmiDevice(const SmbiosIpmiDevice& f);
// Type 11, OEM strings.
std::vector<uint8_t> smbiosOemStrings(uint16_t handle, const std::vector<std::string>& strings);
// Type 1, system information; empty texts are left out (string number 0).
struct SmbiosSystem {
    uint16_t handle = 0;
    std::string manufacturer, product, version, serial, sku, family;
    std::array<uint8_t, 16> uuid{};
    uint8_t wakeUp = 6; // power switch
};
std::vector<uint8_t> smbiosSystem(const SmbiosSystem& f);

} // namespace ipmisel::sim
