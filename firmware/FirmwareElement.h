// One firmware element as it will be written: its properties, texts or byte
// arrays, in the order they are added. The collectors fill an element from the
// answers of IPMIRequestVPD and write it as one instance of their class.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/framework.h"

namespace ipmisel {

class FirmwareElement {
  public:
    struct Property {
        std::string name;
        bool isBytes = false;
        std::string text;
        std::vector<uint8_t> bytes;
    };

    void Clear() { properties_.clear(); }
    void AddText(const char* name, const std::string& value);
    void AddBytes(const char* name, const uint8_t* bytes, size_t count);
    bool Empty() const { return properties_.empty(); }
    const std::vector<Property>& Properties() const { return properties_; }
    // The text of a property, or null when there is none of that name.
    const std::string* GetText(const char* name) const;

    // Writes the properties as one instance of `className`. 0 when the
    // instance was handed to the framework; 1 (logged) when the framework
    // refused any part of it, and the instance is dropped.
    int Export(NOXAQSV20::fdriIOHandle* io, const char* className) const;

  private:
    std::vector<Property> properties_;
};

// ---- version texts -----------------------------------------------------------------

// The firmware revision of Get Device ID as management tools print it: the
// major revision (bits 6:0) in decimal, ".", the minor's two BCD digits.
std::string FirmwareRevisionText(uint8_t majorByte, uint8_t minorByte);
// The minor revision alone, its two BCD digits without a leading zero.
std::string MinorRevisionText(uint8_t minorByte);
// The IPMI version byte: low nibble major, high nibble minor ("2.0").
std::string IPMIVersionText(uint8_t versionByte);
// A version that is one byte with no known inner layout: "0x1C".
std::string ByteVersionText(uint8_t version);
// Bytes in decimal joined by dots: "1.2.0.3".
std::string DottedVersionText(const uint8_t* bytes, size_t count);
// Bytes as "%02X" joined by blanks: "01 02 0A FF".
std::string HexText(const uint8_t* bytes, size_t count);
// The bytes as text when they are printable ASCII up to the first zero (and
// trailing zeros or blanks dropped); "" when they are not text.
std::string PrintableText(const uint8_t* bytes, size_t count);

// Adds the Get Device ID fields of `data` (count 11 to 15 bytes) to `element`,
// in this order: "VersionString", "MajorVersion", "MinorVersion",
// "IPMIVersion", "DeviceID", "DeviceRevision", "ManufacturerID", "ProductID"
// and, when all four bytes came, "AuxFirmwareRevision".
void AddDeviceIDProperties(FirmwareElement& element, const uint8_t* data, size_t count);

} // namespace ipmisel
