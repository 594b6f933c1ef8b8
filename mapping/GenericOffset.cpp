// Generic offsets: event/reading types 02h to 0Ch, whose offsets mean the same
// whatever the sensor type.
#include <iterator>

#include "base/log.h"
#include "base/text.h"
#include "mapping/IPMIMapping.h"
#include "mapping/OffsetIds.h"

namespace ipmisel {

int IPMIMapping::GetGenericOffset(TCPluginCallbacks* cb, uint8_t ed1, uint8_t ed2, uint8_t ed3,
                                  uint8_t eventType, uint8_t sensorType, uint8_t sensorNumber,
                                  char* out, uint32_t size, const std::string& sensorName) {
    Log(SevTrace, "IPMIMapping::GetGenericOffset() function entered.");
    const int32_t base = ids::GenericBase(eventType);
    if (base < 0) {
        Log(SevTrace, "IPMIMapping::GetGenericOffset() function completed.");
        return 1;
    }
    const uint8_t count = ids::GenericCount(eventType);
    char text[256] = {};
    int result = 0;

    auto lookup = [&](int32_t id) {
        if (GetINIStringById(cb, id, text, sizeof text) != 0) {
            Log(SevError, "Error in obtaining string.");
            result = 1;
        }
    };

    const uint8_t offset = ed1 & 0x0F;
    if (offset < count) {
        lookup(base + offset);
        TextAppend(text, sizeof text, ". ");
        TextAppend(out, size, text);
    } else {
        // An offset the event/reading type does not define: say so, with the
        // number, rather than leave the message without its reason.
        lookup(ids::kGenericReservedOffset);
        TextAppendF(out, size, "%s: %u. ", text, offset);
        result = 1;
    }

    // An OEM code of types 03h..0Bh is worded by the site's text for it, keyed
    // by sensor as for sensor-specific events; the code itself is shown when
    // the site has none, since the shipped file holds no such texts.
    const bool siteTexts = eventType >= 0x03 && eventType <= 0x0B;
    auto oemCode = [&](int byte, uint8_t value, uint8_t code) {
        if (siteTexts && GetOEMCodeString(cb, sensorName, sensorType, sensorNumber, byte, code,
                                          text, sizeof text) == 0) {
            TextAppendF(out, size, "%s. ", text);
        } else {
            TextAppendF(out, size, "OEM code %02x. ", value);
        }
    };

    // Event data 2: previous state and severity, or an OEM or extension code.
    switch ((ed1 >> 6) & 0x03) {
    case 1: {
        const uint8_t previous = ed2 & 0x0F;
        const uint8_t severity = ed2 >> 4;
        if (previous != 0x0F && previous < count) {
            char label[64] = {};
            if (GetINIStringById(cb, ids::kGenericPreviousState, label, sizeof label) != 0) {
                Log(SevError, "Error in obtaining string.");
                result = 1;
            }
            lookup(base + previous);
            TextAppendF(out, size, "%s: %s. ", label, text);
        }
        if (severity != 0x0F && severity < ids::kSeverityCount) {
            char label[64] = {};
            if (GetINIStringById(cb, ids::kGenericSeverity, label, sizeof label) != 0) {
                Log(SevError, "Error in obtaining string.");
                result = 1;
            }
            lookup(ids::kSeverityBase + severity);
            TextAppendF(out, size, "%s: %s. ", label, text);
        }
        break;
    }
    case 2:
        // The high nibble is the code's severity, the low one the code.
        if (siteTexts && (ed2 >> 4) < ids::kSeverityCount) {
            if (GetINIStringById(cb, ids::kSeverityBase + (ed2 >> 4), text, sizeof text) == 0) {
                TextAppendF(out, size, "%s. ", text);
            } else {
                Log(SevError, "Error in obtaining severity string for OEM Byte 2.");
                result = 1;
            }
        }
        oemCode(2, ed2, ed2 & 0x0F);
        break;
    case 3:
        TextAppendF(out, size, "Sensor-specific event extension code %02x. ", ed2);
        break;
    default:
        break;
    }
    // Event data 3: only OEM and extension codes are defined for these types.
    switch ((ed1 >> 4) & 0x03) {
    case 2:
        oemCode(3, ed3, ed3);
        break;
    case 3:
        TextAppendF(out, size, "Sensor-specific event extension code %02x. ", ed3);
        break;
    default:
        break;
    }
    Log(SevTrace, "IPMIMapping::GetGenericOffset() function completed.");
    return result;
}

} // namespace ipmisel
