// Building auxiliary-log entries: 10 header bytes and a status-code body.
#pragma once

#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

#include "auxlog/AuxLog.h"
#include "tests/support/HostFixture.h"

namespace ipmisel::test {

using Bytes = std::vector<uint8_t>;

// Maker ID, body length, record ID, FFh FFh on the last entry, one unused byte.
inline Bytes AuxHeader(uint32_t length, uint16_t recordID, bool last = false) {
    const uint8_t n = last ? 0xFF : 0x00, lo = uint8_t(length), id = uint8_t(recordID);
    return {0xC1, 0xA3, 0, lo, uint8_t(length >> 8), id, uint8_t(recordID >> 8), n, n, 0};
}

// n bytes counting up from `start`, so that each tells its position.
inline Bytes Counting(size_t n, uint8_t start = 1) {
    Bytes b(n);
    std::iota(b.begin(), b.end(), start);
    return b;
}

// Type, two unused bytes, severity, operation 01 10, sub-class, class,
// instance 01 02 03 04, caller ID 0A..13, then the extended data.
inline Bytes StatusCode(uint8_t type = 3, uint8_t severity = 0x40, uint8_t cls = 3,
                        uint8_t subClass = 1, const Bytes& extended = {}) {
    Bytes b = {type, 0, 0, severity, 0x01, 0x10, subClass, cls, 1, 2, 3, 4};
    const Bytes caller = Counting(10, 0x0A);
    b.insert(b.end(), caller.begin(), caller.end());
    b.insert(b.end(), extended.begin(), extended.end());
    return b;
}

// A slot as the read pass leaves it: header then body, cut at 256 bytes.
inline s_AuxLog_entry AuxSlot(Bytes header, const Bytes& body) {
    s_AuxLog_entry slot{};
    header.insert(header.end(), body.begin(), body.end());
    std::memcpy(slot.data, header.data(), std::min<size_t>(header.size(), sizeof slot.data));
    return slot;
}
inline s_AuxLog_entry AuxSlot(uint16_t recordID, const Bytes& body) {
    return AuxSlot(AuxHeader(uint32_t(body.size()), recordID), body);
}

inline Bytes Of(const s_AuxLog_entry& slot) {
    return Bytes(slot.data, slot.data + sizeof slot.data);
}

} // namespace ipmisel::test
