#include "export/ExportSEL.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "base/log.h"
#include "base/text.h"
#include "export/ExportConfig.h"
#include "mapping/IPMIMapping.h"

using namespace NOXAQSV20;

namespace ipmisel {

namespace {

const char kDefaultTimestamp[] = "19700101000000.000000+000";
const char kLogRecordClass[] = "OXASG_IPMILogRecord";
const uint32_t kTextSize = 0x200; // every decoder writes into 512 bytes

// Entity IDs from 29h on are named here rather than in the message file.
const char* const kHighEntityNames[] = {
    "Processing blade",               // 29h
    "Connectivity switch",            // 2Ah
    "Processor or memory module",     // 2Bh
    "IO module",                      // 2Ch
    "Processor or IO module",         // 2Dh
    "Management Controller Firmware", // 2Eh
    "IPMI Channel",                   // 2Fh
    "PCI Bus",                        // 30h
    "PCI Express Bus",                // 31h
    "SCSI Bus",                       // 32h
    "SATA or SAS bus",                // 33h
    "Processor or front-side bus",    // 34h
};
const uint8_t kFirstHighEntity = 0x29;

// What a record kind writes beyond the common properties.
enum class Kind { Standard, OEMxC0, OEMxC1, BootTime, Shutdown, OEMxE0, OEMxE1, Unknown };

struct KindInfo {
    uint8_t type;
    Kind kind;
    const char* sensorType;
    const char* failure; // message when the decoder fails
};

const KindInfo kKinds[] = {
    {0x02, Kind::Standard, nullptr, nullptr},
    {0xC0, Kind::OEMxC0, "OEM POST with Time Stamp", "Error in obtaining OEMxC0"},
    {0xC1, Kind::OEMxC1, "OEM SMI Handler with Time Stamp", "Error in obtaining OEMxC1"},
    {0xDC, Kind::BootTime, "Boot Time", nullptr},
    {0xDD, Kind::Shutdown, "Shutdown Event", nullptr},
    {0xE0, Kind::OEMxE0, "OEM POST No Time Stamp", "Error in obtaining OEMxE0"},
    {0xE1, Kind::OEMxE1, "OEM SMI No Time Stamp", "Error in obtaining OEMxE1"},
};

const KindInfo kUnknownKind = {0, Kind::Unknown, nullptr, nullptr};

const KindInfo& KindOf(uint8_t recordType) {
    for (const KindInfo& k : kKinds) {
        if (k.type == recordType) {
            return k;
        }
    }
    return kUnknownKind;
}

bool Contains(const std::string& text, const char* fragment) {
    return text.find(fragment) != std::string::npos;
}

// Adds one text property; logs "Error adding <name>." when the framework
// refuses it. Returns true when it was added.
bool AddText(fdriIOHandle* io, const char* name, const char* value,
             const char* failureText = nullptr) {
    if (fdrAddProperty(io, name, value) == QSV_SUCCESS) {
        return true;
    }
    if (failureText) {
        Log(SevFailure, failureText);
    } else {
        LogF(SevFailure, "Error adding %s.", name);
    }
    return false;
}

bool AddText(fdriIOHandle* io, const char* name, const std::string& value,
             const char* failureText = nullptr) {
    return AddText(io, name, value.c_str(), failureText);
}

// The decoded pieces of one standard record that make up its message.
struct StandardTexts {
    std::string sensorType;
    std::string entity;
    std::string entityInstance;
    std::string sensorInformation;
    std::string event;
};

std::string EntityText(TCPluginCallbacks* cb, IPMIMapping& mapping, uint8_t entityID) {
    if (entityID < kFirstHighEntity) {
        char text[kTextSize] = {};
        if (mapping.GetINIStringById(cb, 1000 + entityID, text, kTextSize) != 0) {
            Log(SevError, "Error in obtaining string.");
        }
        return std::string(text, TextLength(text, kTextSize));
    }
    size_t index = entityID - kFirstHighEntity;
    if (index < sizeof kHighEntityNames / sizeof kHighEntityNames[0]) {
        return kHighEntityNames[index];
    }
    return std::string();
}

std::string EntityInstanceText(uint8_t instance) {
    char text[16];
    if (TOSSpecific::GetMachineTypeFromID() == kSecondInstanceNumberingMachineType &&
        instance >= kDeviceRelativeInstanceBase) {
        // Device-relative instances (60h-7Fh) are shown counted from the
        // controller they belong to, the way that machine's labels read.
        TextFormat(text, sizeof text, "%d", instance - kDeviceRelativeInstanceBase);
    } else {
        TextFormat(text, sizeof text, "%d", instance);
    }
    return text;
}

// Drive bays carry their number in the sensor name ("Drive 12"); that number
// reads better than the entity instance in the message.
void ApplyDriveNumber(uint8_t sensorType, StandardTexts& t) {
    if (g_driveNumberingFlag || (sensorType != 0xC1 && sensorType != 0x0D) ||
        !Contains(t.sensorInformation, "Drive")) {
        return;
    }
    size_t first = t.sensorInformation.find_first_of("0123456789");
    if (first == std::string::npos) {
        Log(SevFailure, "Error retrieving Drive No..");
        return;
    }
    size_t last = t.sensorInformation.find_last_of("0123456789");
    std::string digits = t.sensorInformation.substr(first, last - first + 1);
    char text[16];
    TextFormat(text, sizeof text, "%d", std::atoi(digits.c_str()));
    t.entityInstance = text;
}

void ApplyAdjustments(StandardTexts& t) {
    if (Contains(t.sensorType, "Memory")) {
        t.entityInstance.clear();
    }
    if (Contains(t.sensorType, "Power Supply") && Contains(t.sensorInformation, "VRM")) {
        t.sensorType = "Voltage Regulator Module";
    }
    if (Contains(t.sensorInformation, "HSDC")) {
        t.entity = "HS IO Expansion";
    } else if (Contains(t.entity, "Unknown") || Contains(t.entity, "Cannot")) {
        t.entity = t.sensorInformation;
    }
    size_t unknown = t.sensorType.find("Unknown");
    if (unknown != std::string::npos) {
        t.sensorType.erase(unknown, 7);
    }
}

std::string Text(const char* buf) {
    return std::string(buf, TextLength(buf, kTextSize));
}

// Properties and message of a type 02h record.
void ExportStandard(TCPluginCallbacks* cb, fdriIOHandle* io, const SDRCache& cache,
                    IPMISELEntry& rec, IPMIMapping& mapping) {
    const IPMISDREntry* sdr = nullptr;
    if (cache.empty()) {
        Log(SevTrace, "SDR cache is empty.");
    } else {
        sdr = FindSDR(cache, rec.SensorNumber());
    }

    char buf[kTextSize];
    std::memset(buf, 0, sizeof buf);
    if (rec.GetGeneratorID(mapping, cb, buf, kTextSize) != 0) {
        Log(SevNotice, "Error CopyGeneratorID().");
    }
    AddText(io, "Source", Text(buf));

    StandardTexts t;
    std::memset(buf, 0, sizeof buf);
    if (rec.CopySensorType(mapping, cb, buf, kTextSize) != 0) {
        Log(SevNotice, "Error CopySensorType().");
    }
    t.sensorType = Text(buf);
    AddText(io, "SensorType", t.sensorType);

    std::memset(buf, 0, sizeof buf);
    if (rec.GetEventType(buf, kTextSize) != 0) {
        Log(SevNotice, "Error CopyEventType().");
    }
    AddText(io, "EventType", Text(buf));

    std::memset(buf, 0, sizeof buf);
    int eventResult;
    if (!sdr) {
        Log(SevTrace, "No matching SDR for this SEL.");
        eventResult = rec.GetEventData(mapping, cb, buf, kTextSize, SensorConversion{}, "");
    } else {
        Log(SevTrace, "Found matching SDR for this SEL.");
        LogF(SevDetail,
             "RecordID = %d %d. Linearization = %d. M = %d. B = %d. Rexp = %d. Bexp = %d. "
             "SDRType = %d. SensorUnits1 = %d. SensorUnits2 = %d. SensorUnits3 = %d",
             sdr->RecordIDHigh * 256 + sdr->RecordIDLow, sdr->SDRVersion, sdr->Linearization,
             sdr->M, sdr->B, sdr->RExp, sdr->BExp, sdr->RecordType, sdr->SensorUnits1,
             sdr->BaseUnit, sdr->ModifierUnit);
        eventResult = rec.GetEventData(mapping, cb, buf, kTextSize, sdr->Conversion(),
                                       std::string(sdr->IDString));
    }
    if (eventResult != 0) {
        Log(SevNotice, "Error CopyEventData().");
    }
    std::string eventData = Text(buf);

    if (sdr) {
        t.entity = EntityText(cb, mapping, sdr->EntityID);
        t.entityInstance = EntityInstanceText(sdr->EntityInstance);
        t.sensorInformation = sdr->IDString;
    }
    AddText(io, "Entity", t.entity);
    AddText(io, "EntityInstance", t.entityInstance);
    AddText(io, "SensorInformation", t.sensorInformation);

    ApplyDriveNumber(rec.SensorType(), t);
    t.event = (rec.bytes[12] & 0x80) ? "Deassertion: " : "Assertion: ";
    t.event += eventData;
    ApplyAdjustments(t);

    std::string message = t.entity + " " + t.entityInstance + " (" + t.sensorType + " - " +
                          t.sensorInformation + "): " + t.event;
    AddText(io, "Message", message);
}

// "Message" (and "SensorType") of every other kind.
void ExportSpecial(TCPluginCallbacks* cb, fdriIOHandle* io, const KindInfo& kind, IPMISELEntry& rec,
                   IPMIMapping& mapping, const char* timestamp) {
    char buf[kTextSize];
    std::memset(buf, 0, sizeof buf);
    std::string message;
    bool failed = false;
    switch (kind.kind) {
    case Kind::OEMxC0:
        failed = rec.GetOEMxC0(mapping, cb, buf, kTextSize);
        break;
    case Kind::OEMxC1:
        failed = rec.GetOEMxC1(mapping, cb, buf, kTextSize);
        break;
    case Kind::OEMxE0:
        failed = rec.GetOEMxE0(mapping, cb, buf, kTextSize);
        break;
    case Kind::OEMxE1:
        failed = rec.GetOEMxE1(mapping, cb, buf, kTextSize);
        break;
    case Kind::BootTime:
        message = std::string("(") + kind.sensorType + "): " + timestamp;
        break;
    case Kind::Shutdown:
        rec.GetShutDownEvent(buf, kTextSize);
        break;
    case Kind::Unknown:
        rec.CopyRawDataString(buf, kTextSize);
        message = std::string("Unknown log type. Raw Data:\n") + Text(buf);
        break;
    case Kind::Standard:
        break;
    }
    if (message.empty()) {
        message = failed ? kind.failure : Text(buf);
    }

    if (kind.sensorType) {
        const char* failure = nullptr;
        if (kind.kind == Kind::BootTime || kind.kind == Kind::Shutdown) {
            failure = "Error adding OS bootTime SensorType.";
        }
        AddText(io, "SensorType", kind.sensorType, failure);
    }
    AddText(io, "Message", message);
}

std::string AuxLogText(const std::vector<AuxLogRecord>& auxRecords, uint16_t recordID) {
    for (const AuxLogRecord& aux : auxRecords) {
        if (aux.GetRecordID() == recordID) {
            std::string text =
                "Type: " + aux.GetTypeName() + " Sev: " + aux.GetSeverityName() +
                " Class: " + aux.GetClassName() + " Sub-Class: " + aux.GetSubClassName() +
                " Instance: " + aux.GetInstanceText() + " GUID: " + aux.GetCallerIDText() +
                " Extended Data: " + aux.GetExtendedData();
            if (text.size() >= kTextSize) {
                text.resize(kTextSize - 1);
            }
            return text;
        }
    }
    return "No Extended Data";
}

void ExportRawData(fdriIOHandle* io, IPMISELEntry& rec) {
    TCIMValueArray* array = nullptr;
    if (fdrNewCIMValueArray(&array) != QSV_SUCCESS || !array) {
        Log(SevFailure, "Could not create Array for Raw Hex Data.");
        array = nullptr;
    } else {
        uint8_t raw[16];
        if (rec.CopyRawDataHex(raw, sizeof raw) != 0) {
            Log(SevTrace, "No Raw Hex Data obtained.");
        } else {
            Log(SevTrace, "Raw Hex Data values:");
            Log(SevTrace, HexBytes(raw, sizeof raw));
            for (uint8_t byte : raw) {
                if (fdrArrayAddUint8(array, byte) != QSV_SUCCESS) {
                    Log(SevFailure, "Failed to add uint8 to array.");
                } else {
                    Log(SevTrace, "Exporting array element.");
                }
            }
            if (fdrAddArrayProperty(io, "RawData", array) != QSV_SUCCESS) {
                Log(SevFailure, "Failed to add array property.");
            }
        }
    }
    fdrAddInstance(io);
    if (array) {
        Log(SevTrace, "Deleting valArray.");
        fdrDeleteCIMValueArray(array);
    }
}

// Generator filter on the first node: only the BMC's own range (7-bit address
// or software ID up to 10h) and 26h are reported there.
bool FilteredOnFirstNode(int32_t node, const IPMISELEntry& rec) {
    int g = (rec.bytes[7] >> 1) - 16;
    return node == 0 && g > 0 && g != 22;
}

} // namespace

bool g_driveNumberingFlag = false;

const char* OEMDecoderFailureText(uint8_t recordType) {
    return KindOf(recordType).failure;
}

int FillSELArray(TCPluginCallbacks*, const char* selText, IPMISELEntry* records, uint32_t count) {
    Log(SevTrace, "FillSELArray() function entered.");
    if (count == 0) {
        return 0;
    }
    for (uint32_t i = 0; i < count; ++i) {
        if (records[i].ScanSELDataFile(selText, i) != 0) {
            Log(SevFailure, "Could not open process all SELs.");
            return 1;
        }
    }
    Log(SevTrace, "FillSELArray() function completed.");
    return 0;
}

int ExportSEL(int32_t node, TCPluginCallbacks* cb, fdriIOHandle* io, const SDRCache& cache,
              IPMISELEntry* records, uint32_t count, int32_t recordOffset,
              const std::vector<AuxLogRecord>& auxRecords, SPLibrary* library) {
    Log(SevTrace, "ExportSEL() function entered.");
    bool synchronize = true;
    TCIMDateTime diffTime;
    diffTime.Set(uint32_t{0}, 0, 0, 0, 0);
    bool bmcNotBehind = true;
    if (GetDiffTime(diffTime, bmcNotBehind, library) == 1) {
        Log(SevNotice, "Not synchronizing BMC time with OS time.");
        synchronize = false;
    }

    IPMIMapping mapping;
    char sourceNode[16];
    TextFormat(sourceNode, sizeof sourceNode, "%d", node + 1);

    for (uint32_t i = 0; i < count; ++i) {
        IPMISELEntry& rec = records[i];
        if (FilteredOnFirstNode(node, rec)) {
            continue;
        }
        const KindInfo& kind = KindOf(rec.RecordType());

        char timestamp[64];
        TextCopy(timestamp, sizeof timestamp, kDefaultTimestamp);
        char idText[kTextSize] = {};
        rec.GetRecordID(idText, kTextSize);
        int recordID = std::atoi(idText);
        if (kind.kind == Kind::Unknown) {
            LogF(SevTrace, "This SEL entry (ID %d) has an unknown type (0x%x).\n", recordID,
                 rec.RecordType());
        } else {
            rec.GetTimestamp(timestamp, sizeof timestamp - 1, diffTime, synchronize, bmcNotBehind);
            if (kind.kind == Kind::BootTime) {
                // The boot record carries the moment the OS booted in its data;
                // that moment is what the record reports.
                rec.GetTimestamp(timestamp, sizeof timestamp - 1, diffTime, synchronize,
                                 bmcNotBehind, StampSource::Embedded);
            }
        }

        if (fdrGetInstance(io, kLogRecordClass) != QSV_SUCCESS) {
            Log(SevFailure, "Error adding OXASG_IPMILogRecord.");
            continue;
        }
        char recordIDText[16];
        TextFormat(recordIDText, sizeof recordIDText, "%d", recordID + recordOffset);
        const bool osRecord = kind.kind == Kind::BootTime || kind.kind == Kind::Shutdown;
        // A record without these six is no record at all: it is dropped.
        if (!AddText(io, "CreationClassName", "OXASG_IPMILog") ||
            !AddText(io, "LogCreationClassName", "OXASG_IPMILog") ||
            !AddText(io, "LogName", "IPMILogEntry") ||
            !AddText(io, "RecordID", recordIDText,
                     osRecord ? "Error adding OS bootTime RecordID." : nullptr) ||
            !AddText(io, "MessageTimestamp", timestamp) ||
            !AddText(io, "CreationTimeStamp", timestamp)) {
            continue;
        }

        if (kind.kind == Kind::Standard) {
            ExportStandard(cb, io, cache, rec, mapping);
        } else {
            ExportSpecial(cb, io, kind, rec, mapping, timestamp);
        }

        AddText(io, "AuxLog", AuxLogText(auxRecords, rec.RecordID()));
        AddText(io, "SourceNode", sourceNode, "Error adding OXASG_IPMILogRecord -- SourceNode.");
        ExportRawData(io, rec);
    }

    Log(SevTrace, "ExportSEL() function complete.");
    return 0;
}

} // namespace ipmisel
