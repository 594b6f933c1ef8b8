// Event interpretation: sensor-type names, the message-file lookup, threshold
// readings in engineering units, sensor-specific and generic offsets and the
// OEM record texts. No data of its own; every text goes into a caller's buffer.
#pragma once

#include <cstdint>
#include <string>

#include "host/framework.h"
#include "sdr/IPMISDREntry.h"

namespace ipmisel {

using NOXAQSV20::TCPluginCallbacks;

class IPMIMapping {
  public:
    int GetSensorType(TCPluginCallbacks* cb, uint8_t sensorType, char* out, int32_t size,
                      uint8_t sensorNumber);
    int GetOnesComplement(TCPluginCallbacks* cb, int8_t value, char* out, int32_t size);
    // 0 when a non-empty text was found for the key, 1 otherwise (out empty).
    int GetINIString(TCPluginCallbacks* cb, const std::string& key, char* out, int32_t size);
    int GetINIStringById(TCPluginCallbacks* cb, int32_t id, char* out, int32_t size);

    // Appends the threshold text to what out already holds.
    void GetThresholdOffset(TCPluginCallbacks* cb, uint8_t ed1, uint8_t ed2, uint8_t ed3, char* out,
                            uint32_t size, const SensorConversion& sdr);
    // Overwrites out with the converted value and its units.
    void GetSensorUnits(TCPluginCallbacks* cb, const SensorConversion& sdr, uint8_t raw, char* out,
                        uint32_t size);
    // Event/reading type 6Fh; appends to out.
    void GetSensorOffset(TCPluginCallbacks* cb, uint8_t sensorType, uint8_t ed1, uint8_t ed2,
                         uint8_t ed3, uint8_t eventType, char* out, uint32_t size,
                         std::string sensorName, uint8_t sensorNumber);
    // Event/reading types 02h..0Ch; appends to out. 0 when a text was written.
    int GetGenericOffset(TCPluginCallbacks* cb, uint8_t ed1, uint8_t ed2, uint8_t ed3,
                         uint8_t eventType, uint8_t sensorType, uint8_t sensorNumber, char* out,
                         uint32_t size, const std::string& sensorName = std::string());

    // OEM records; each appends to out and returns 0 when it decoded the record.
    int GetOEMxC0(TCPluginCallbacks* cb, uint8_t b7, uint8_t b8, uint8_t b9, uint8_t b10,
                  uint8_t b11, uint8_t b12, uint8_t b13, uint8_t b14, char* out, uint32_t size);
    int GetOEMxC1(TCPluginCallbacks* cb, uint8_t b7, uint8_t b8, uint8_t b9, uint8_t b10,
                  uint8_t b11, uint8_t b12, uint8_t b13, char* out, uint32_t size);
    // Record bytes 3..11 and 15 (bytes 12..14 are not passed).
    int GetOEMxE0(TCPluginCallbacks* cb, const uint8_t (&bytes)[10], char* out, uint32_t size);
    // Record bytes 3..15.
    int GetOEMxE1(TCPluginCallbacks* cb, const uint8_t (&bytes)[13], char* out, uint32_t size);

  private:
    // A site's own text for the OEM code in event data 2 (byte 2) or 3
    // (byte 3), keyed "<sensor name>-<type>-<number>-<byte>-<value>" with the
    // numbers in decimal; what GetINIString returns for that key.
    int GetOEMCodeString(TCPluginCallbacks* cb, const std::string& sensorName, uint8_t sensorType,
                         uint8_t sensorNumber, int byte, uint8_t value, char* out, int32_t size);
};

} // namespace ipmisel
