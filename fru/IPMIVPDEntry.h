// The FRU inventory's instances: one property set per FRU, filled from the
// FRU data by the layout that fits the FRU, and written as "OXASG_IPMIFRU"
// instances.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fru/IPMIFRULocator.h"
#include "host/framework.h"

namespace ipmisel {

// Property name -> text. Ordered by name, so properties reach the framework in
// ascending name order whatever order they were set in; setting a name again
// replaces its value.
using FRUProperties = std::map<std::string, std::string>;

// The FRU entry of one collection: the property sets of every FRU found, in
// the order found.
class IPMIVPDEntry {
  public:
    // Starts the set of the next instance; it is the current set until it is
    // written.
    FRUProperties& NewPropertySet();
    // The set being filled, or null when there is none.
    FRUProperties* CurrentPropertySet();

    // "IdentifyingNumber" blank, and "Vendor", "FRUNumber", "PartNumber",
    // "SerialNumber" from the locator's board fields 1..4 (`boardFields` set)
    // or product fields 0..3, into the current set. QSV_ERROR, and nothing
    // written, when there is no current set.
    NOXAQSV20::EQSVStatusCode IPMISELShowFRUData(const IPMIFRULocator& locator, bool boardFields);

    // Writes one instance of `className` per set not written before, then
    // there is no current set. Returns the number of instances committed.
    uint32_t GenerateCIMInstance(NOXAQSV20::fdriIOHandle* io, const char* className);

    const std::vector<FRUProperties>& PropertySets() const { return sets_; }

  private:
    std::vector<FRUProperties> sets_;
    size_t written_ = 0;
    std::optional<size_t> current_;
};

// "PartNumber", "FRUNumber", "IdentifyingNumber", "SerialNumber", "Vendor"
// from typed FRU data: a processor (ID string "CPU"), a memory module's SPD
// ("DIMM"), or else the fixed-offset VPD of a board in blade or rack layout.
// `fruData` holds kFRUDataSize bytes.
void GetFRUOffsets(FRUProperties& properties, const uint8_t* fruData, const std::string& id,
                   bool blade);

// Not empty, and printable ASCII (32..126) throughout.
bool IsValidFRUText(const std::string& text);

// JEP106 manufacturer names. Bank counted from 0; a code's parity bit is
// dropped. Empty for a bank over 6 or a code outside 1..126.
std::string JEP106Name(unsigned bank, uint8_t code);
// SPD forms: continuation bytes (7Fh) counting the bank, then the code; or
// a bank byte (parity bit dropped) and a code byte. `count` bounds the read.
std::string JEP106FromContinuation(const uint8_t* bytes, size_t count);
std::string JEP106FromBankByte(uint8_t bank, uint8_t code);

// True when the first SMBIOS system information structure names a blade in
// its product name (the blade family's name or the configured machine type).
bool IsBladePlatform(NOXAQSV20::TCPluginCallbacks* cb);

} // namespace ipmisel
