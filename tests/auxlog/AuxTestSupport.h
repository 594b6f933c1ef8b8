// Building auxiliary-log entries and a BMC that serves them the way real
// firmware lays out the Read Extended Data answers.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "auxlog/AuxLog.h"
#include "tests/support/HostFixture.h"

namespace ipmisel::test {

// 10 header bytes: maker ID, body length, record ID, FFh FFh on the last
// entry, one unused byte.
inline std::vector<uint8_t> AuxHeader(uint32_t bodyLength, uint16_t recordID, bool last,
                                      const uint8_t maker[3] = kAuxManufacturerID) {
    return {maker[0],
            maker[1],
            maker[2],
            static_cast<uint8_t>(bodyLength & 0xFF),
            static_cast<uint8_t>(bodyLength >> 8),
            static_cast<uint8_t>(recordID & 0xFF),
            static_cast<uint8_t>(recordID >> 8),
            static_cast<uint8_t>(last ? 0xFF : 0x00),
            static_cast<uint8_t>(last ? 0xFF : 0x01),
            0x00};
}

// A body of `n` bytes whose values tell their position (1, 2, 3, ...).
inline std::vector<uint8_t> CountingBody(size_t n, uint8_t start = 1) {
    std::vector<uint8_t> body(n);
    for (size_t i = 0; i < n; ++i) {
        body[i] = static_cast<uint8_t>(start + i);
    }
    return body;
}

// A status-code body: type, severity, operation, sub-class, class, instance,
// caller ID (the 22 fixed bytes) and the extended data.
struct StatusCode {
    uint8_t type = 3;
    uint8_t severity = 0x40;
    uint8_t operation[2] = {0x01, 0x10};
    uint8_t subClass = 1;
    uint8_t cls = 3;
    uint8_t instance[4] = {1, 2, 3, 4};
    uint8_t caller[10] = {0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x12, 0x13};
    std::vector<uint8_t> extended;

    std::vector<uint8_t> Body() const {
        std::vector<uint8_t> b(22, 0);
        b[0] = type;
        b[3] = severity;
        b[4] = operation[0];
        b[5] = operation[1];
        b[6] = subClass;
        b[7] = cls;
        std::memcpy(&b[8], instance, 4);
        std::memcpy(&b[12], caller, 10);
        b.insert(b.end(), extended.begin(), extended.end());
        return b;
    }
};

// A slot as the read pass leaves it: header then body, cut at 256 bytes.
inline s_AuxLog_entry AuxSlot(const std::vector<uint8_t>& header,
                              const std::vector<uint8_t>& body) {
    s_AuxLog_entry slot{};
    std::vector<uint8_t> all = header;
    all.insert(all.end(), body.begin(), body.end());
    std::memcpy(slot.data, all.data(), std::min<size_t>(all.size(), sizeof slot.data));
    return slot;
}

inline s_AuxLog_entry AuxSlot(uint16_t recordID, const StatusCode& code) {
    auto body = code.Body();
    return AuxSlot(AuxHeader(static_cast<uint32_t>(body.size()), recordID, false), body);
}

// The BMC side of the auxiliary log. Each entry is its header and its whole
// body (the body may be longer than a slot keeps).
struct AuxBmc {
    struct Entry {
        std::vector<uint8_t> header;
        std::vector<uint8_t> body;
    };
    std::vector<Entry> entries;
    std::vector<uint8_t> statusData; // default: 9 bytes with the count in 7, 8
    // Extra bytes appended to every read answer, to play a BMC that answers
    // more than it was asked for.
    size_t padding = 0;

    host::IpmiResponse Answer(const host::IpmiRequest& r) const {
        if (r.netfn == 0x0A && r.cmd == 0x5A) {
            if (!statusData.empty()) {
                return ok(statusData);
            }
            std::vector<uint8_t> d(9, 0);
            d[7] = static_cast<uint8_t>(entries.size() & 0xFF);
            d[8] = static_cast<uint8_t>(entries.size() >> 8);
            return ok(d);
        }
        if (r.netfn == 0x2E && r.cmd == 0x93 && r.data.size() == 9) {
            if (r.data[0] != 0xC1 || r.data[1] != 0xA3 || r.data[2] != 0x00) {
                return cc(0xCC);
            }
            size_t n = r.data[3] | (r.data[4] << 8);
            if (n == 0 || n > entries.size()) {
                return cc(0xCB);
            }
            const Entry& e = entries[n - 1];
            size_t offset = r.data[5];
            size_t length = r.data[7];
            std::vector<uint8_t> d;
            if (length == 0 || offset == 0) {
                d = e.header; // the header comes with the first chunk
            } else {
                d.assign(e.header.begin(), e.header.begin() + 3); // the maker's ID only
            }
            for (size_t i = offset; i < offset + length && i < e.body.size(); ++i) {
                d.push_back(e.body[i]);
            }
            d.insert(d.end(), padding, 0xEE);
            return ok(d);
        }
        return cc(0xC1);
    }
};

} // namespace ipmisel::test
