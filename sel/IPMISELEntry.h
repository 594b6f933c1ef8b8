// One SEL record, 16 bytes, as the BMC sent it except for the record ID, which
// is held high byte first. Accessors turn the bytes into the export's texts.
#pragma once

#include <cstdint>
#include <string>

#include "host/framework.h"
#include "mapping/IPMIMapping.h"
#include "sdr/IPMISDREntry.h"

namespace ipmisel {

using NOXAQSV20::TCIMDateTime;

enum class StampSource { Record, Embedded }; // bytes 3..6, or bytes 11..14

class IPMISELEntry {
  public:
    uint8_t bytes[16] = {};

    // 0 record read, 2 end of data.
    int ScanSELDataFile(const char* text, uint32_t index);
    int GetRecordID(char* out, uint32_t size);
    int GetGeneratorID(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out, uint32_t size);
    int CopySensorType(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out, uint32_t size);
    int GetEventType(char* out, uint32_t size);
    int GetEventData(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out, uint32_t size,
                     const SensorConversion& conversion, std::string sensorName);
    int CopyRawDataString(char* out, uint32_t size);
    int CopyRawDataHex(uint8_t* out, uint32_t size);
    int GetShutDownEvent(char* out, uint32_t size);
    // true when the decoder failed.
    bool GetOEMxC0(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out, uint32_t size);
    bool GetOEMxC1(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out, uint32_t size);
    bool GetOEMxE0(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out, uint32_t size);
    bool GetOEMxE1(IPMIMapping& mapping, TCPluginCallbacks* cb, char* out, uint32_t size);

    // The CIM text of the record's time stamp. The difference and flags are
    // accepted and not applied: records keep the BMC's own time.
    int GetTimestamp(char* out, uint32_t size, TCIMDateTime diffTime, bool synchronize,
                     bool bmcNotBehind, StampSource source = StampSource::Record);

    uint8_t RecordType() const { return bytes[2]; }
    uint8_t SensorType() const { return bytes[10]; }
    uint8_t SensorNumber() const { return bytes[11]; }
    uint16_t RecordID() const { return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]); }
};

static_assert(sizeof(IPMISELEntry) == 16, "a SEL record is 16 bytes");

// Measures how far the BMC's clock stands from the OS clock (Get SEL Time).
// 0 when measured; 1 when not (diffTime and bmcNotBehind are then unchanged).
int GetDiffTime(TCIMDateTime& diffTime, bool& bmcNotBehind, NOXAQSV20::SPLibrary* library);

} // namespace ipmisel
