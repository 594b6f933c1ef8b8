// One full or compact sensor record as the SEL decoder needs it, scanned from
// the text pieces the SDR walk produced.
#pragma once

#include <cstdint>

namespace ipmisel {

// What the reading conversion needs of a sensor record, in the order the
// threshold decoder takes it. M, B and the exponents are the raw bit patterns.
struct SensorConversion {
    uint8_t RecordType = 0;
    uint8_t SensorUnits1 = 0;
    uint8_t BaseUnit = 0;
    uint8_t ModifierUnit = 0;
    uint8_t Linearization = 0;
    uint16_t M = 0;
    uint16_t B = 0;
    uint16_t RExp = 0;
    uint16_t BExp = 0;
};

class IPMISDREntry {
  public:
    uint8_t RecordIDHigh = 0;
    uint8_t RecordIDLow = 0;
    uint8_t SDRVersion = 0;
    uint8_t RecordType = 0;
    uint8_t RecordLength = 0;
    uint8_t SensorNumber = 0;
    uint8_t EntityID = 0;
    uint8_t EntityInstance = 0;
    uint8_t Reserved[2] = {0, 0};
    uint8_t SensorUnits1 = 0;
    uint8_t BaseUnit = 0;
    uint8_t ModifierUnit = 0;
    uint8_t Linearization = 0;
    uint16_t M = 0;   // 10-bit, not sign-extended
    uint16_t B = 0;   // 10-bit, not sign-extended
    uint8_t RExp = 0; // 4-bit nibble as stored
    uint8_t BExp = 0; // 4-bit nibble as stored
    uint8_t IDStringTypeLength = 0;
    uint32_t SpareCounter = 0;
    char* IDString; // 17 characters, owned

    IPMISDREntry();
    ~IPMISDREntry();
    IPMISDREntry(const IPMISDREntry&) = delete;
    IPMISDREntry& operator=(const IPMISDREntry&) = delete;

    // 0 when the repository's SDR version is 51h, else 1.
    int ScanSDRInfoDataFile(const char* info);
    // 0 filled, 1 a piece unreadable, 3 version mismatch (header fields only).
    int ScanSDRDataFile(const char* header, const char* units, const char* idString);

    SensorConversion Conversion() const;
};

} // namespace ipmisel
