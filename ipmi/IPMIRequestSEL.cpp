#include "ipmi/IPMIRequestSEL.h"

#include <cstdint>
#include <cstdio>
#include <string>

#include "base/format.h"
#include "base/log.h"
#include "base/text.h"
#include "ipmi/SeenRecordIDs.h"

namespace ipmisel {

namespace {

constexpr uint8_t kNetFnStorage = 0x0A;
constexpr uint8_t kCmdGetSELInfo = 0x40;
constexpr uint8_t kCmdGetSELEntry = 0x43;
constexpr unsigned kIPMIVersion = 0x51;
constexpr uint8_t kEndMarkHigh = 0xFF;

constexpr const char* kSELInfoSubject = "system event log info";
constexpr const char* kSELEntrySubject = "system event log entry";

// cc, next record ID low and high from a Get SEL Entry text. A text too
// short to hold the next record ID reads as the end mark, so a truncated
// answer ends the walk instead of sending it back to the first record.
// With `seen` the record's own ID is marked as read: the first answer comes
// for ID 0000h, and a BMC pointing back at that record is caught before it
// is read twice. Only the first answer's own ID is trusted that way, so a
// BMC with odd ID bytes in its records cannot cut a good walk short.
void ScanNextRecordID(const char* text, uint8_t next[2], SeenRecordIDs* seen = nullptr) {
    // cc, next record ID low and high, the record's own ID low and high.
    unsigned f[5] = {0, kEndMarkHigh, kEndMarkHigh, 0, 0};
    int scanned = ScanHexFields(text, f, 5);
    next[0] = static_cast<uint8_t>(f[2]);
    next[1] = static_cast<uint8_t>(f[1]);
    if (seen != nullptr && scanned == 5) {
        seen->Mark(SeenRecordIDs::Join(static_cast<uint8_t>(f[4]), static_cast<uint8_t>(f[3])));
    }
}

} // namespace

size_t SELSlotBytes(uint64_t count) {
    const uint64_t most = SIZE_MAX / sizeof(SELEntryText);
    if (count > most) {
        return SIZE_MAX;
    }
    return static_cast<size_t>(count) * sizeof(SELEntryText);
}

int IPMIRequestSEL::IPMIGetSELInfo(uint32_t& count) {
    Log(SevTrace, "IPMIRequestSEL::IPMIGetSELInfo() entered.");
    count = 0;

    Prepare(kNetFnStorage, kCmdGetSELInfo, nullptr, 0);
    LogRequest();

    if (!Send()) {
        Log(SevError, "Failure in sending command to obtain SEL info.");
        return 1;
    }
    // Held for the whole call, as every request keeps its message.
    std::string message;
    if (CompletionCode() != 0) {
        message = ComposeIPMIError(kSELInfoSubject, SELCompletionCodeText(CompletionCode()));
        Log(SevFailure, message);
        return 1;
    }

    const std::string text = ResponseText();
    Log(SevTrace, "IPMIGetSELInfo::tempbuf = " + text);

    // cc, version, entries low, entries high, then free space, time stamps
    // and operation support, which nothing here needs.
    unsigned f[15] = {};
    int scanned = ScanHexFields(text.c_str(), f, 15);
    const unsigned version = f[1], low = f[2], high = f[3];
    if (scanned == EOF) {
        Log(SevError, "Error in reading data for SEL information.");
        return 1;
    }
    if (version != kIPMIVersion) {
        Log(SevError, "The SEL Version does not match the Current IPMI Version\n");
        return 1;
    }

    count = (high & 0xFF) * 256 + (low & 0xFF);
    LogF(SevTrace, "IPMIGetSELInfo::num_SELentries = %u", static_cast<unsigned>(count));
    Log(SevTrace, "IPMIRequestSEL::IPMIGetSELInfo() completed.");
    return 0;
}

int IPMIRequestSEL::IPMIGetSELEntry(SELEntryText* slots, uint32_t maxSlots) {
    Log(SevTrace, "IPMIRequestSEL::IPMIGetSELEntry() entered.");
    if (slots == nullptr) {
        maxSlots = 0;
    }

    SeenRecordIDs seen;
    // Record ID 0000h means "the first record": a BMC pointing back at it is
    // going round in a circle too.
    seen.Mark(0x0000);

    // No reservation (whole records only), record ID low/high, offset 0,
    // FFh bytes: the entire record.
    auto request = [this]() {
        const uint8_t data[6] = {0x00, 0x00, nextRecordID[1], nextRecordID[0], 0x00, 0xFF};
        Prepare(kNetFnStorage, kCmdGetSELEntry, data, sizeof data);
    };
    // The rendered answer, and the same cut to a slot: 57 characters, the
    // "\n" falls off.
    char text[kResponseTextSize];
    auto toSlot = [this, &text](SELEntryText& slot) {
        ResponseText(text);
        TextCopy(slot.text, sizeof slot.text, text);
    };

    std::string message;
    seen.Mark(SeenRecordIDs::Join(nextRecordID[0], nextRecordID[1]));
    request();
    if (!Send()) {
        Log(SevError, "Failure in sending command to obtain SEL Entry.");
        return 1;
    }
    if (CompletionCode() != 0) {
        message = ComposeIPMIError(kSELEntrySubject, SELCompletionCodeText(CompletionCode()));
        Log(SevFailure, message);
        return 1;
    }

    SELEntryText entry;
    toSlot(entry);
    // Slot 0 only when the caller has one: Get SEL Info may have said the log
    // is empty while the BMC still answers with a record.
    if (maxSlots > 0) {
        slots[0] = entry;
    }
    Log(SevTrace, std::string("buffer[0].data = ") + entry.text);
    ScanNextRecordID(text, nextRecordID, &seen);

    // Only the high byte marks the end: FF00h..FFFFh all end the log.
    uint32_t counter = 0;
    while (nextRecordID[0] != kEndMarkHigh) {
        const uint16_t id = SeenRecordIDs::Join(nextRecordID[0], nextRecordID[1]);
        if (seen.Mark(id)) {
            LogF(SevFailure, "SEL walk stopped: record ID %04Xh was already read.", id);
            break;
        }
        ++counter;
        request();
        if (!Send()) {
            // Kept as a quiet end of the walk: what was read stays good.
            Log(SevTrace, "Failure in sending command to obtain SEL entry.\n");
            break;
        }
        if (CompletionCode() != 0) {
            message = ComposeIPMIError(kSELEntrySubject, SELCompletionCodeText(CompletionCode()));
            Log(SevFailure, message);
            return 1;
        }
        toSlot(entry);
        // Entries past the slots Get SEL Info asked for are read and logged
        // but not kept; the walk still goes on to the end of the log.
        if (counter < maxSlots) {
            slots[counter] = entry;
        }
        LogLine()
            .Add("buffer[")
            .Add(Decimal(counter))
            .Add("].data = ")
            .Add(entry.text)
            .Write(SevTrace);
        ScanNextRecordID(text, nextRecordID);
    }

    Log(SevTrace, "IPMIRequestSEL::IPMIGetSELEntry() completed.");
    return 0;
}

} // namespace ipmisel
