// Exporting the debug-code entries of the auxiliary log: one
// "OXASG_VTXAuxDebugRecord" per entry that belongs to a SEL record of the node.
#include <algorithm>
#include <cstdlib>

#include "auxlog/AuxLog.h"
#include "base/log.h"
#include "base/text.h"

using namespace NOXAQSV20;

namespace ipmisel {

namespace {

constexpr const char* kClassName = "OXASG_VTXAuxDebugRecord";
constexpr size_t kTextSize = 512;

// The record-ID text of a SEL entry as a number; -1 when the entry cannot give it.
long SELRecordNumber(IPMISELEntry& entry) {
    char text[kTextSize] = {};
    if (entry.GetRecordID(text, sizeof text) != 0) {
        Log(SevFailure, "CopyRecordID() failed.");
        return -1;
    }
    text[sizeof text - 1] = '\0';
    long number = std::strtol(text, nullptr, 10);
    LogF(SevDetail, "selid is %ld", number);
    return number;
}

// The first SEL entry whose record ID equals `recordID`, or null. A plain walk
// from the start: the first of two entries with the same ID wins.
IPMISELEntry* FindSELRecord(IPMISELEntry* sel, uint32_t selCount, uint16_t recordID) {
    for (uint32_t s = 0; sel != nullptr && s < selCount; ++s) {
        if (SELRecordNumber(sel[s]) == static_cast<long>(recordID)) {
            return &sel[s];
        }
    }
    return nullptr;
}

enum class Outcome { Written, Dropped, EndExport };

// Adds the text properties; false (logged) drops the instance.
bool AddText(fdriIOHandle* io, const char* name, const char* value, const char* failure) {
    if (fdrAddProperty(io, name, value) != QSV_SUCCESS) {
        Log(SevFailure, failure);
        return false;
    }
    return true;
}

Outcome WriteInstance(fdriIOHandle* io, const s_AuxLog_entry& slot, uint32_t index,
                      const char* timestamp) {
    if (fdrGetInstance(io, kClassName) != QSV_SUCCESS) {
        Log(SevFailure, "Error adding OXASG_VTXAuxDebugRecord.");
        return Outcome::Dropped;
    }
    char recordID[16];
    TextFormat(recordID, sizeof recordID, "%d", static_cast<int>(index));
    if (!AddText(io, "MessageTimestamp", timestamp, "Error adding MessageTimestamp.") ||
        !AddText(io, "CreationClassName", kClassName, "Error adding CreationClassName.") ||
        !AddText(io, "LogCreationClassName", kClassName, "Error adding LogCreationClassName.") ||
        !AddText(io, "LogName", kClassName, "Error adding LogName.") ||
        !AddText(io, "RecordID", recordID, "Error adding RecordID.")) {
        return Outcome::Dropped;
    }

    TCIMValueArray* array = nullptr;
    if (fdrNewCIMValueArray(&array) != QSV_SUCCESS || array == nullptr) {
        Log(SevFailure, "Could not create Array for Raw Hex Data.");
        return Outcome::EndExport;
    }
    const uint32_t length = AuxBodyLength(slot);
    LogF(SevDetail, "RecordSize= %u", length);
    // The body as the slot keeps it: a longer stated length cannot be read
    // past the slot's end.
    const uint32_t kept = std::min<uint32_t>(length, kAuxBodyRoom);
    for (uint32_t k = 0; k < kept; ++k) {
        if (fdrArrayAddUint8(array, slot.data[kAuxHeaderSize + k]) != QSV_SUCCESS) {
            Log(SevFailure, "Failed to add uint8 to array.");
            break; // what was added is still written
        }
        Log(SevTrace, "Exporting array element.");
    }
    const bool arrayWritten = fdrAddArrayProperty(io, "RawData", array) == QSV_SUCCESS;
    if (!arrayWritten) {
        Log(SevFailure, "Failed to add array property.");
    }
    Log(SevTrace, "Deleting valArray.");
    fdrDeleteCIMValueArray(array);
    if (!arrayWritten) {
        return Outcome::Dropped;
    }
    if (fdrAddInstance(io) != QSV_SUCCESS) {
        Log(SevFailure, "Error adding OXASG_VTXAuxDebugRecord.");
        return Outcome::Dropped;
    }
    return Outcome::Written;
}

} // namespace

void ExportAuxDebugLog(SPLibrary* library, fdriIOHandle* io, const s_AuxLog_entry* slots,
                       uint32_t count, IPMISELEntry* sel, uint32_t selCount) {
    Log(SevTrace, "ExportAuxDebugLog() function entered.");
    TCIMDateTime diffTime;
    bool bmcNotBehind = true;
    bool synchronize = true;
    if (GetDiffTime(diffTime, bmcNotBehind, library) != 0) {
        Log(SevNotice, "Not synchronizing BMC time with OS time.");
        synchronize = false;
    }
    if (slots == nullptr) {
        count = 0;
    }
    for (uint32_t j = 0; j < count; ++j) {
        const s_AuxLog_entry& slot = slots[j];
        if (!IsOwnAuxEntry(slot) || slot.data[10] != kAuxTypeDebugCode) {
            continue;
        }
        IPMISELEntry* match = FindSELRecord(sel, selCount, AuxRecordID(slot));
        if (match == nullptr) {
            Log(SevFailure, "No corresponding SEL Record found.");
            continue;
        }
        Log(SevFailure, "Found corresponding SEL Record Entry.");
        char timestamp[kTextSize] = {};
        if (match->GetTimestamp(timestamp, sizeof timestamp, diffTime, synchronize, bmcNotBehind) !=
            0) {
            Log(SevFailure, "CopyTimestamp() failed.");
            return;
        }
        timestamp[sizeof timestamp - 1] = '\0';
        if (WriteInstance(io, slot, j, timestamp) == Outcome::EndExport) {
            return;
        }
    }
    Log(SevTrace, "ExportAuxDebugLog() function exited.");
}

} // namespace ipmisel
