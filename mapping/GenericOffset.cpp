// Generic offsets: event/reading types 02h to 0Ch, whose offsets mean the same
// whatever the sensor type.
#include <iterator>

#include "mapping/IPMIMapping.h"
#include "mapping/OffsetIds.h"
#include "base/log.h"
#include "base/text.h"

namespace ipmisel {

int IPMIMapping::GetGenericOffset(TCPluginCallbacks* cb, uint8_t ed1, uint8_t ed2, uint8_t ed3,
                                  uint8_t eventType, uint8_t /*sensorType*/,
                                  uint8_t /*sensorNumber*/, char* out, uint32_t size) {
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
        TextAppendF(out, size, "OEM code %02x. ", ed2);
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
        TextAppendF(out, size, "OEM code %02x. ", ed3);
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
