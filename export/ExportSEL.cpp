#include "export/ExportSEL.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>

#include "base/format.h"
#include "base/log.h"
#include "base/tape.h"
#include "base/text.h"
#include "export/ExportConfig.h"
#include "mapping/IPMIMapping.h"
#include "mapping/MessageFile.h"

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

bool Contains(const std::string& text, std::string_view fragment) {
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

// AddText for the properties of a standard record's decoding, which a tape
// may stand in for: while a playback catches up, the property was added
// already; while taping, the lines of a refusal are not part of the decoding.
void AddDecodedText(fdriIOHandle* io, const char* name, const char* value) {
    if (!tape::Property(name, value)) {
        return;
    }
    const tape::Pause untaped;
    AddText(io, name, value);
}

void AddDecodedText(fdriIOHandle* io, const char* name, const std::string& value) {
    AddDecodedText(io, name, value.c_str());
}

// The decoded pieces of one standard record that make up its message. One
// set serves every record of the export, so the texts keep their room from
// record to record instead of being allocated for each.
struct StandardTexts {
    std::string sensorType;
    std::string entity;
    std::string entityInstance;
    std::string sensorInformation;
    std::string event;
    std::string message;
};

void EntityText(TCPluginCallbacks* cb, IPMIMapping& mapping, uint8_t entityID, std::string& out) {
    out.clear();
    if (entityID < kFirstHighEntity) {
        char text[kTextSize]; // the lookup clears it first
        if (mapping.GetINIStringById(cb, 1000 + entityID, text, kTextSize) != 0) {
            Log(SevError, "Error in obtaining string.");
        }
        out.assign(text, TextLength(text, kTextSize));
        return;
    }
    size_t index = entityID - kFirstHighEntity;
    if (index < sizeof kHighEntityNames / sizeof kHighEntityNames[0]) {
        out.assign(kHighEntityNames[index]);
    }
}

void EntityInstanceText(uint8_t instance, std::string& out) {
    if (TOSSpecific::GetMachineTypeFromID() == kSecondInstanceNumberingMachineType &&
        instance >= kDeviceRelativeInstanceBase) {
        // Device-relative instances (60h-7Fh) are shown counted from the
        // controller they belong to, the way that machine's labels read.
        out.assign(Decimal(instance - kDeviceRelativeInstanceBase).View());
        return;
    }
    out.assign(Decimal(instance).View());
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

// A decoder's 512-byte text with one byte more that always stays zero, so
// that what the decoder wrote reads as a terminated text even when it filled
// all 512. It is cleared once: every accessor hands its text over with
// strncpy's rule, which writes all 512 bytes, padding with zeros.
struct DecoderText {
    char text[kTextSize + 1] = {};
};

// Properties and message of a type 02h record.
void ExportStandard(TCPluginCallbacks* cb, fdriIOHandle* io, const SDRCache& cache,
                    const SDRIndex& sdrs, IPMISELEntry& rec, IPMIMapping& mapping,
                    StandardTexts& t) {
    const IPMISDREntry* sdr = nullptr;
    if (cache.empty()) {
        Log(SevTrace, "SDR cache is empty.");
    } else {
        sdr = sdrs.Find(rec.SensorNumber());
    }

    DecoderText decoded;
    const char* buf = decoded.text;
    if (rec.GetGeneratorID(mapping, cb, decoded.text, kTextSize) != 0) {
        Log(SevNotice, "Error CopyGeneratorID().");
    }
    AddDecodedText(io, "Source", buf);

    if (rec.CopySensorType(mapping, cb, decoded.text, kTextSize) != 0) {
        Log(SevNotice, "Error CopySensorType().");
    }
    t.sensorType.assign(buf);
    AddDecodedText(io, "SensorType", t.sensorType);

    if (rec.GetEventType(decoded.text, kTextSize) != 0) {
        Log(SevNotice, "Error CopyEventType().");
    }
    AddDecodedText(io, "EventType", buf);

    int eventResult;
    if (!sdr) {
        Log(SevTrace, "No matching SDR for this SEL.");
        eventResult =
            rec.GetEventData(mapping, cb, decoded.text, kTextSize, SensorConversion{}, "");
    } else {
        Log(SevTrace, "Found matching SDR for this SEL.");
        LogLine()
            .Add("RecordID = ")
            .Add(Decimal(sdr->RecordIDHigh * 256 + sdr->RecordIDLow))
            .Add(" ")
            .Add(Decimal(sdr->SDRVersion))
            .Add(". Linearization = ")
            .Add(Decimal(sdr->Linearization))
            .Add(". M = ")
            .Add(Decimal(sdr->M))
            .Add(". B = ")
            .Add(Decimal(sdr->B))
            .Add(". Rexp = ")
            .Add(Decimal(sdr->RExp))
            .Add(". Bexp = ")
            .Add(Decimal(sdr->BExp))
            .Add(". SDRType = ")
            .Add(Decimal(sdr->RecordType))
            .Add(". SensorUnits1 = ")
            .Add(Decimal(sdr->SensorUnits1))
            .Add(". SensorUnits2 = ")
            .Add(Decimal(sdr->BaseUnit))
            .Add(". SensorUnits3 = ")
            .Add(Decimal(sdr->ModifierUnit))
            .Write(SevDetail);
        eventResult = rec.GetEventData(mapping, cb, decoded.text, kTextSize, sdr->Conversion(),
                                       std::string(sdr->IDString));
    }
    if (eventResult != 0) {
        Log(SevNotice, "Error CopyEventData().");
    }
    // The event text is taken now: the entity lookup below has a text of its own.
    t.event.assign((rec.bytes[12] & 0x80) ? "Deassertion: " : "Assertion: ");
    t.event.append(buf);

    t.entity.clear();
    t.entityInstance.clear();
    t.sensorInformation.clear();
    if (sdr) {
        EntityText(cb, mapping, sdr->EntityID, t.entity);
        EntityInstanceText(sdr->EntityInstance, t.entityInstance);
        t.sensorInformation.assign(sdr->IDString);
    }
    AddDecodedText(io, "Entity", t.entity);
    AddDecodedText(io, "EntityInstance", t.entityInstance);
    AddDecodedText(io, "SensorInformation", t.sensorInformation);

    ApplyDriveNumber(rec.SensorType(), t);
    ApplyAdjustments(t);

    t.message.assign(t.entity)
        .append(" ")
        .append(t.entityInstance)
        .append(" (")
        .append(t.sensorType)
        .append(" - ")
        .append(t.sensorInformation)
        .append("): ")
        .append(t.event);
    AddDecodedText(io, "Message", t.message);
}

// The standard records of one export decoded once per distinct event: the
// first decoding of an event is taped (base/tape.h) and its repeats play the
// tape. The decoding reads the generator ID, event message revision, sensor
// type and number, event type and the three event data bytes (bytes 7-15),
// the node's SDR records and the message file, and nothing else of the
// record: not its ID and not its time stamp. The SDR records do not change
// during an export and the message file stays as it was first read for the
// whole pass.
class StandardDecoder {
  public:
    StandardDecoder(TCPluginCallbacks* cb, fdriIOHandle* io, const SDRCache& cache,
                    const SDRIndex& sdrs, IPMIMapping& mapping)
        : cb_(cb), io_(io), cache_(cache), sdrs_(sdrs), mapping_(mapping) {}

    void Export(IPMISELEntry& rec) {
        const Key key = KeyOf(rec);
        auto known = tapes_.find(key);
        if (known != tapes_.end()) {
            tape::Playback playback(cb_);
            const bool played =
                playback.Play(known->second, [this](const char* name, const char* value) {
                    AddText(io_, name, value);
                });
            if (!played) {
                // The framework gave another plug-in path than when the tape
                // was made: the rest is decoded for real, and the event taped
                // again the next time it comes.
                {
                    const tape::CatchUp catchUp(playback);
                    ExportStandard(cb_, io_, cache_, sdrs_, rec, mapping_, texts_);
                }
                tapes_.erase(known);
            }
            return;
        }
        if (tapes_.size() >= g_decodedEventLimit) {
            ExportStandard(cb_, io_, cache_, sdrs_, rec, mapping_, texts_);
            return;
        }
        tape::Tape made;
        {
            const tape::Recording recording(made);
            ExportStandard(cb_, io_, cache_, sdrs_, rec, mapping_, texts_);
        }
        if (!made.spoiled) {
            tapes_.emplace(key, std::move(made));
        }
    }

  private:
    struct Key {
        uint64_t data;     // bytes 8-15
        uint8_t generator; // byte 7
        bool operator==(const Key& o) const { return data == o.data && generator == o.generator; }
    };
    struct KeyHash {
        size_t operator()(const Key& k) const {
            return static_cast<size_t>((k.data ^ k.generator) * 0x9E3779B97F4A7C15ULL >> 17);
        }
    };
    static Key KeyOf(const IPMISELEntry& rec) {
        Key key{};
        std::memcpy(&key.data, rec.bytes + 8, sizeof key.data);
        key.generator = rec.bytes[7];
        return key;
    }

    TCPluginCallbacks* cb_;
    fdriIOHandle* io_;
    const SDRCache& cache_;
    const SDRIndex& sdrs_;
    IPMIMapping& mapping_;
    StandardTexts texts_;
    std::unordered_map<Key, tape::Tape, KeyHash> tapes_;
};

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

// The first auxiliary-log record of each SEL record ID, found without going
// through the whole auxiliary log for every SEL record.
class AuxLogIndex {
  public:
    explicit AuxLogIndex(const std::vector<AuxLogRecord>& records) : records_(records) {
        if (records.empty()) {
            return;
        }
        first_.assign(65536, kNone);
        for (size_t i = records.size(); i-- > 0;) {
            first_[records[i].GetRecordID()] = static_cast<int32_t>(i);
        }
    }
    const AuxLogRecord* Find(uint16_t recordID) const {
        if (first_.empty() || first_[recordID] == kNone) {
            return nullptr;
        }
        return &records_[static_cast<size_t>(first_[recordID])];
    }

  private:
    static constexpr int32_t kNone = -1;
    const std::vector<AuxLogRecord>& records_;
    std::vector<int32_t> first_; // by record ID; empty when there are no records
};

void AuxLogText(const AuxLogIndex& auxLog, uint16_t recordID, std::string& out) {
    const AuxLogRecord* aux = auxLog.Find(recordID);
    if (aux == nullptr) {
        out.assign("No Extended Data");
        return;
    }
    out = "Type: " + aux->GetTypeName() + " Sev: " + aux->GetSeverityName() +
          " Class: " + aux->GetClassName() + " Sub-Class: " + aux->GetSubClassName() +
          " Instance: " + aux->GetInstanceText() + " GUID: " + aux->GetCallerIDText() +
          " Extended Data: " + aux->GetExtendedData();
    if (out.size() >= kTextSize) {
        out.resize(kTextSize - 1);
    }
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
            LogLine bytes;
            for (uint8_t byte : raw) {
                bytes.AddPiece(kHexByteText[byte], 3);
            }
            bytes.Write(SevTrace);
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
// A tape holds some forty calls, about 3 KiB: a few thousand distinct events
// are worth remembering; a SEL with more decodes the others each time.
size_t g_decodedEventLimit = 4096;

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
    // Every record looks texts up in the message file; the file is looked at
    // once for the whole log instead of at each of those lookups.
    const message::Pass messagePass;
    const AuxLogIndex auxLog(auxRecords);
    const SDRIndex sdrs(cache);
    StandardDecoder standard(cb, io, cache, sdrs, mapping);
    std::string auxText;
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
        char idText[16] = {};
        rec.GetRecordID(idText, sizeof idText);
        // The text is the record's ID in decimal; the number is at hand.
        const int recordID = rec.RecordID();
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
        TextBuilder(recordIDText, sizeof recordIDText).Add(Decimal(recordID + recordOffset));
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
            standard.Export(rec);
        } else {
            ExportSpecial(cb, io, kind, rec, mapping, timestamp);
        }

        AuxLogText(auxLog, rec.RecordID(), auxText);
        AddText(io, "AuxLog", auxText);
        AddText(io, "SourceNode", sourceNode, "Error adding OXASG_IPMILogRecord -- SourceNode.");
        ExportRawData(io, rec);
    }

    Log(SevTrace, "ExportSEL() function complete.");
    return 0;
}

} // namespace ipmisel
