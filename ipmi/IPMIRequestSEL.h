// Reading one BMC node's System Event Log: Get SEL Info for the version and the
// count, then Get SEL Entry walked by next-record ID into 58-character slots.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ipmi/IPMIRequestFrame.h"

namespace ipmisel {

// One Get SEL Entry response as text: completion code, next record ID and the
// 16 record bytes, "%02X " each (57 characters), cut to the slot.
struct SELEntryText {
    char text[58];
};

// Bytes for `count` slots, without overflowing: the largest size_t when the
// product does not fit.
size_t SELSlotBytes(uint64_t count);

class IPMIRequestSEL : public IPMIRequestFrame {
  public:
    // Next record ID to ask for, high byte then low byte; 0000h asks for the first.
    uint8_t nextRecordID[2] = {0, 0};

    explicit IPMIRequestSEL(NOXAQSV20::SPLibrary* library) : IPMIRequestFrame(library) {}

    // 0 success, 1 failure. count receives the number of entries.
    int IPMIGetSELInfo(uint32_t& count);
    // Walks the whole log; slots 0 .. maxSlots-1 are filled, later entries are
    // fetched and logged but not stored. 0 success, 1 failure.
    int IPMIGetSELEntry(SELEntryText* slots, uint32_t maxSlots);
};

} // namespace ipmisel
