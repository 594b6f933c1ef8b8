// Sensor-type names, the message-file lookup, threshold events and the
// conversion of readings into engineering units.
#include "mapping/IPMIMapping.h"

#include <cmath>
#include <cstring>

#include "base/format.h"
#include "base/log.h"
#include "base/text.h"
#include "mapping/MessageFile.h"

namespace ipmisel {

namespace {

// Names by sensor type code 00h..2Dh. The wording (and "Managment") is the one
// operators know from earlier releases of this plug-in; 2Dh is never reached.
const char* const kSensorTypeNames[46] = {
    "Unknown Sensor Type",
    "Temperature",
    "Voltage",
    "Current",
    "Fan",
    "Physical Security (Chassis Intrusion)",
    "Platform Security Violation Attempt",
    "Processor",
    "Power Supply",
    "Power Unit",
    "Cooling Device",
    "Other Units-based Sensor",
    "Memory",
    "Drive Slot (Bay)",
    "POST Memory Resize",
    "System Firmware Progress",
    "Event Logging Disabled",
    "Watchdog 1",
    "System Event",
    "Critical Interrupt",
    "Button",
    "Module/Board",
    "Microcontroller/Coprocessor",
    "Add-in Card",
    "Chassis",
    "Chip Set",
    "Other FRU",
    "Cable/Interconnect",
    "Terminator",
    "System Boot Initiated",
    "Boot Error",
    "OS Boot",
    "OS Critical Stop",
    "Slot/Connector",
    "System ACPI Power State",
    "Watchdog 2",
    "Platform Alert",
    "Entity Presence",
    "Monitor ASIC/IC",
    "LAN",
    "Managment Subsystem Health",
    "Battery",
    "Session Audit",
    "Version Change",
    "FRU State",
    "Reserved",
};

// OEM drive sensors (types C1h and D1h) by sensor number.
struct OemDriveName {
    uint8_t first;
    uint8_t last;
    const char* name;
};
const OemDriveName kOemDriveNames[] = {
    {0x60, 0x67, "Drive Status"},   {0x94, 0x94, "CPU 1 Mismatch"}, {0x95, 0x95, "CPU 2 Mismatch"},
    {0x96, 0x96, "CPU 3 Mismatch"}, {0x97, 0x97, "CPU 4 Mismatch"},
};

const char kFifteenSpaces[] = "               ";

// The OEM reading of a threshold event's byte 3: pairs of DIMMs.
struct DimmName {
    uint8_t code;
    const char* name;
};
const DimmName kDimmNames[] = {
    {0x00, "DIMM_00."}, {0x01, "DIMM_01."}, {0x04, "DIMM_10."}, {0x05, "DIMM_11."},
    {0x08, "DIMM_20."}, {0x09, "DIMM_21."}, {0x0C, "DIMM_30."}, {0x0D, "DIMM_31."},
};

const char* dimmName(uint8_t code) {
    for (const DimmName& d : kDimmNames) {
        if (d.code == code) {
            return d.name;
        }
    }
    return "";
}

// Sign extension as the stored fields are handled: any bit above the field's
// sign bit set means "negative", and the field's range is taken off in 16 bits.
int16_t extend10(uint16_t stored) {
    return static_cast<int16_t>((stored & 0xFE00) != 0 ? static_cast<uint16_t>(stored - 0x400)
                                                       : stored);
}
int16_t extend4(uint16_t stored) {
    return static_cast<int16_t>((stored & 0xFFF8) != 0 ? static_cast<uint16_t>(stored - 0x10)
                                                       : stored);
}

// 10^n for n >= 0, as std::pow gives it. Up to 10^22 every power of ten is a
// double exactly, which pow returns, so those come from a table.
constexpr double kExactPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                        1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                        1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

double tenToThe(int n) {
    if (n >= 0 && n < static_cast<int>(std::size(kExactPowersOfTen))) {
        return kExactPowersOfTen[n];
    }
    return std::pow(10.0, n);
}

double powerOfTen(int exponent) {
    return exponent > 0 ? tenToThe(exponent) : 1.0 / tenToThe(-exponent);
}

void lookupOrLog(IPMIMapping& m, TCPluginCallbacks* cb, int32_t id, char* out, int32_t size) {
    if (m.GetINIStringById(cb, id, out, size) != 0) {
        Log(SevError, "Error in obtaining string.");
    }
}

// IPMI names unit type codes 0 to 92; their texts are 730 + code. The ids of
// the codes above (823 to 985) partly belong to other blocks (856 + n, 870 + n),
// so those codes are never looked up: their text stays empty, as for a text
// the file lacks.
constexpr uint8_t kUnitCodes = 93;

void unitText(IPMIMapping& m, TCPluginCallbacks* cb, uint8_t code, char* out, int32_t size) {
    if (code < kUnitCodes) {
        lookupOrLog(m, cb, 730 + code, out, size);
    } else {
        out[0] = '\0';
        Log(SevError, "Error in obtaining string.");
    }
}

// The message file lies beside the plug-in, whose file name starts with
// "ipmisel": everything before the first occurrence is the folder. Null when
// the path holds no "ipmisel". The host answers the same path for every
// lookup, so the last answer is kept rather than built again each time.
const std::string* messageFilePath(const char* pluginPath) {
    static std::string lastPluginPath;
    static std::string lastMessageFile;
    if (!lastMessageFile.empty() && lastPluginPath == pluginPath) {
        return &lastMessageFile;
    }
    const char* marker = std::strstr(pluginPath, "ipmisel");
    if (marker == nullptr) {
        return nullptr;
    }
    lastPluginPath = pluginPath;
    lastMessageFile.assign(pluginPath, static_cast<size_t>(marker - pluginPath));
    lastMessageFile += "ipmisel.INI";
    return &lastMessageFile;
}

} // namespace

int IPMIMapping::GetSensorType(TCPluginCallbacks* /*cb*/, uint8_t sensorType, char* out,
                               int32_t size, uint8_t sensorNumber) {
    Log(SevTrace, "IPMIMapping::GetSensorType() function entered.");
    size_t bound = size > 0 ? static_cast<size_t>(size) : 0;
    if (sensorType >= 0x01 && sensorType <= 0x2C) {
        TextCopy(out, bound, kSensorTypeNames[sensorType]);
    } else {
        const char* name = kSensorTypeNames[0];
        if (sensorType == 0xC1 || sensorType == 0xD1) {
            name = "Drive/Slot Status";
            for (const OemDriveName& d : kOemDriveNames) {
                if (sensorNumber >= d.first && sensorNumber <= d.last) {
                    name = d.name;
                }
            }
        } else if (sensorType == 0xD0) {
            name = "SEL Fullness";
        }
        TextCopy(out, bound, name);
    }
    Log(SevTrace, "IPMIMapping::GetSensorType() function completed.");
    return 0;
}

int IPMIMapping::GetOnesComplement(TCPluginCallbacks* /*cb*/, int8_t value, char* out,
                                   int32_t size) {
    size_t bound = size > 0 ? static_cast<size_t>(size) : 0;
    if (value >= 0) {
        TextBuilder(out, bound).Add(Decimal(value));
    } else {
        // 1's complement: the magnitude is the inverted bits, and FFh is the
        // negative zero, printed "-0".
        TextBuilder(out, bound).Add("-").Add(Decimal(~static_cast<int>(value)));
    }
    Log(SevTrace, "IPMIMapping::GetOnesComplement() function completed.");
    return 0;
}

namespace {

// What both lookups do before the search: clear the output and find the
// message file. Null (after the log line) when there is no file to search.
const std::string* startLookup(TCPluginCallbacks* cb, char* out, int32_t size) {
    if (size > 0) {
        std::memset(out, 0, static_cast<size_t>(size));
    }
    const char* pluginPath = nullptr;
    if (tape::PluginPath(cb, &pluginPath) != NOXAQSV20::QSV_SUCCESS || pluginPath == nullptr) {
        Log(SevError, "fdrGetPluginPath failed.");
        return nullptr;
    }
    const std::string* iniPath = messageFilePath(pluginPath);
    if (iniPath == nullptr) {
        Log(SevFailure, "Path not found for ipmisel INI file.");
    }
    return iniPath;
}

// How a lookup ended: with a text, or with none (the file could not be read,
// which is logged here, or no line holds the key), or on a line without text,
// which the caller logs with its key.
enum class Outcome { Text, Failed, NoText };

Outcome outcomeOf(message::Lookup found, const char* out, int32_t size) {
    switch (found) {
    case message::Lookup::OpenFailed:
        // The file may be there at the next lookup, which must then read it.
        tape::Spoil();
        Log(SevFailure, "Can't open ipmisel INI file.");
        return Outcome::Failed;
    case message::Lookup::NoMatch:
        return Outcome::Failed;
    case message::Lookup::Found:
        break;
    }
    return size <= 0 || out[0] == '\0' ? Outcome::NoText : Outcome::Text;
}

void logNoText(std::string_view key) {
    LogLine().Add("Can't find data id '").Add(key).Add("'").Write(SevError);
}

} // namespace

int IPMIMapping::GetINIString(TCPluginCallbacks* cb, const std::string& key, char* out,
                              int32_t size) {
    const std::string* iniPath = startLookup(cb, out, size);
    if (iniPath == nullptr) {
        return 1;
    }
    const Outcome outcome = outcomeOf(message::Find(*iniPath, key, out, size), out, size);
    if (outcome == Outcome::NoText) {
        logNoText(key.c_str());
    }
    return outcome == Outcome::Text ? 0 : 1;
}

int IPMIMapping::GetINIStringById(TCPluginCallbacks* cb, int32_t id, char* out, int32_t size) {
    const std::string* iniPath = startLookup(cb, out, size);
    if (iniPath == nullptr) {
        return 1;
    }
    const Outcome outcome = outcomeOf(message::FindId(*iniPath, id, out, size), out, size);
    if (outcome == Outcome::NoText) {
        logNoText(Decimal(id).View());
    }
    return outcome == Outcome::Text ? 0 : 1;
}

void IPMIMapping::GetThresholdOffset(TCPluginCallbacks* cb, uint8_t ed1, uint8_t ed2, uint8_t ed3,
                                     char* out, uint32_t size, const SensorConversion& sdr) {
    Log(SevTrace, "IPMIMapping::GetThresholdOffset() function entered.");
    char text[256] = {};
    char value[128] = {};

    // Every piece goes after what out holds; nothing else writes to out here.
    TextBuilder result = TextBuilder::Appending(out, size);
    uint8_t offset = ed1 & 0x0F;
    if (offset < 0x0C) {
        lookupOrLog(*this, cb, 100 + offset, text, sizeof text);
        TextAppend(text, sizeof text, ". ");
        result.Add(text);
    }

    // Byte 3 first, then the fifteen spaces, then byte 2: the order in which
    // readers of earlier logs expect the lines.
    text[0] = '\0';
    switch ((ed1 >> 4) & 0x03) {
    case 1:
        GetSensorUnits(cb, sdr, ed3, value, sizeof value);
        TextBuilder(text, sizeof text)
            .Add("\n               Trigger threshold value: ")
            .Add(value)
            .Add(". \n");
        break;
    case 2:
        TextBuilder(text, sizeof text).Add(dimmName(ed3)).Add("\n");
        break;
    case 3:
        TextBuilder(text, sizeof text)
            .Add("\n               Sensor-specific event extension code ")
            .Add(HexByteLower(ed3))
            .Add(". \n");
        break;
    default:
        break;
    }
    result.Add(text).Add(kFifteenSpaces);

    text[0] = '\0';
    switch ((ed1 >> 6) & 0x03) {
    case 1:
        GetSensorUnits(cb, sdr, ed2, value, sizeof value);
        TextBuilder(text, sizeof text).Add("Trigger reading: ").Add(value).Add(".");
        break;
    case 2:
        TextBuilder(text, sizeof text).Add("OEM code ").Add(HexByteLower(ed2)).Add(".");
        break;
    case 3:
        TextBuilder(text, sizeof text)
            .Add("Sensor-specific event extension code ")
            .Add(HexByteLower(ed2))
            .Add(".");
        break;
    default:
        break;
    }
    result.Add(text);
    Log(SevTrace, "IPMIMapping::GetThresholdOffset() function completed.");
}

void IPMIMapping::GetSensorUnits(TCPluginCallbacks* cb, const SensorConversion& sdr, uint8_t raw,
                                 char* out, uint32_t size) {
    float y = 0.0f;
    double r = 0.0;
    double b = 0.0;
    if (sdr.RecordType == 0x01) {
        Log(SevTrace, "SDRType is 1");
        if (sdr.Linearization == 0x00) {
            Log(SevTrace, "Linear sensor.");
            int16_t m = extend10(sdr.M);
            int16_t bb = extend10(sdr.B);
            int16_t rexp = extend4(sdr.RExp);
            int16_t bexp = extend4(sdr.BExp);
            LogLine()
                .Add("Bexp = ")
                .Add(Decimal(static_cast<int16_t>(sdr.BExp)))
                .Add(". FinalBexp = ")
                .Add(Decimal(bexp))
                .Add(". Rexp = ")
                .Add(Decimal(static_cast<int16_t>(sdr.RExp)))
                .Add(". FinalRexp = ")
                .Add(Decimal(rexp))
                .Add(". B = ")
                .Add(Decimal(static_cast<int16_t>(sdr.B)))
                .Add(". FinalB = ")
                .Add(Decimal(bb))
                .Add(". M = ")
                .Add(Decimal(static_cast<int16_t>(sdr.M)))
                .Add(". FinalM = ")
                .Add(Decimal(m))
                .Write(SevTrace);
            r = powerOfTen(rexp);
            b = bexp > 0 ? bb * tenToThe(bexp) : bb / tenToThe(-bexp);
            int32_t product = static_cast<int32_t>(m) * static_cast<int32_t>(raw);
            y = static_cast<float>((static_cast<double>(product) + b) * r);
        }
    }
    // Single precision as it is printed; %g is a text stream's default form.
    LogLine()
        .Add("Value = ")
        .Add(Decimal(raw))
        .Add(". Value1 = ")
        .Add(General(static_cast<float>(r)))
        .Add(". Value2 = ")
        .Add(General(static_cast<float>(b)))
        .Add(". FinalValue = ")
        .Add(General(y))
        .Write(SevTrace);
    Log(SevTrace, "IPMIMapping::GetSensorUnits() function entered.");

    // Only the unsigned format is converted; the signed formats show the raw
    // byte as the BMC sent it.
    TextBuilder text(out, size);
    switch ((sdr.SensorUnits1 >> 6) & 0x03) {
    case 1: {
        char ones[16] = {};
        GetOnesComplement(cb, static_cast<int8_t>(raw), ones, sizeof ones);
        text.Add(ones);
        break;
    }
    case 2:
        text.Add(Decimal(static_cast<int8_t>(raw)));
        break;
    default:
        text.Add(Fixed(y, 2));
        break;
    }
    if ((sdr.SensorUnits1 & 0x01) != 0) {
        text.Add("%");
    }
    uint8_t rate = (sdr.SensorUnits1 >> 3) & 0x07;
    if (rate != 0) {
        char rateText[64];
        lookupOrLog(*this, cb, 720 + rate, rateText, sizeof rateText);
        text.Add(" ").Add(rateText);
    }
    char base[64];
    char modifier[64];
    switch ((sdr.SensorUnits1 >> 1) & 0x03) {
    case 0:
        unitText(*this, cb, sdr.BaseUnit, base, sizeof base);
        text.Add(" ").Add(base);
        break;
    case 1:
        unitText(*this, cb, sdr.BaseUnit, base, sizeof base);
        unitText(*this, cb, sdr.ModifierUnit, modifier, sizeof modifier);
        text.Add(" ").Add(base).Add("/").Add(modifier);
        break;
    case 2:
        unitText(*this, cb, sdr.BaseUnit, base, sizeof base);
        unitText(*this, cb, sdr.ModifierUnit, modifier, sizeof modifier);
        text.Add(" ").Add(base).Add("*").Add(modifier);
        break;
    default:
        text.Add(" reserved units");
        break;
    }
    Log(SevTrace, "IPMIMapping::GetSensorUnits() function completed.");
}

} // namespace ipmisel
