// A small BMC for the driver tests: a SEL walked by next-record ID, an SDR
// repository with one record that is not a sensor, an empty auxiliary log and
// a SEL clock. Faults are set per test.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "tests/support/HostFixture.h"

namespace ipmisel::test {

struct MiniBmc {
    std::vector<std::array<uint8_t, 16>> sel; // record ID in bytes 0..1, low first
    std::optional<uint16_t> reportedCount;    // Get SEL Info count; default: sel.size()
    int selInfoFailures = 0;                  // the first n Get SEL Info answer C0h
    // next-record ID answered after the record at this index (default: the
    // following record's ID, FFFFh after the last)
    std::map<size_t, uint16_t> nextOverride;

    std::shared_ptr<FakeTransport> transport() {
        return std::make_shared<FakeTransport>(
            [this](const host::IpmiRequest& r) { return answer(r); });
    }

    static std::array<uint8_t, 16> Record(uint16_t id, uint8_t generator = 0x20) {
        return {static_cast<uint8_t>(id & 0xFF),
                static_cast<uint8_t>(id >> 8),
                0x02,
                0x00,
                0x10,
                0x00,
                0x50, // time stamp
                generator,
                0x00,
                0x04,
                0x01, // temperature
                0x30,
                0x01,
                0x07,
                0x40,
                0x50};
    }

    host::IpmiResponse answer(const host::IpmiRequest& r) {
        if (r.netfn == 0x0A && r.cmd == 0x40) { // Get SEL Info
            if (selInfoFailures > 0) {
                --selInfoFailures;
                return cc(0xC0);
            }
            const uint16_t n = reportedCount.value_or(static_cast<uint16_t>(sel.size()));
            return ok({0x51, static_cast<uint8_t>(n & 0xFF), static_cast<uint8_t>(n >> 8), 0x00,
                       0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0x02});
        }
        if (r.netfn == 0x0A && r.cmd == 0x43 && r.data.size() >= 4) { // Get SEL Entry
            const uint16_t want = static_cast<uint16_t>(r.data[2] | r.data[3] << 8);
            size_t i = 0;
            if (want != 0) {
                while (i < sel.size() && (sel[i][0] | sel[i][1] << 8) != want) {
                    ++i;
                }
            }
            if (i >= sel.size()) {
                return cc(0xCB);
            }
            uint16_t next = 0xFFFF;
            if (nextOverride.count(i)) {
                next = nextOverride[i];
            } else if (i + 1 < sel.size()) {
                next = static_cast<uint16_t>(sel[i + 1][0] | sel[i + 1][1] << 8);
            }
            std::vector<uint8_t> d = {static_cast<uint8_t>(next & 0xFF),
                                      static_cast<uint8_t>(next >> 8)};
            d.insert(d.end(), sel[i].begin(), sel[i].end());
            return ok(d);
        }
        if (r.netfn == 0x0A && r.cmd == 0x48) { // Get SEL Time
            return ok({0x00, 0x10, 0x00, 0x50});
        }
        if (r.netfn == 0x0A && r.cmd == 0x20) { // SDR Repository Info
            return ok({0x51, 0x01, 0x00, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0x02});
        }
        if (r.netfn == 0x0A && r.cmd == 0x22) { // Reserve SDR Repository
            return ok({0x01, 0x00});
        }
        if (r.netfn == 0x0A && r.cmd == 0x23) { // Get SDR: one MC locator, the last
            return ok({0xFF, 0xFF, 0x01, 0x00, 0x51, 0x12, 0x0B, 0x20, 0x00, 0x00, 0x00, 0x00});
        }
        if (r.netfn == 0x0A && r.cmd == 0x5A) { // auxiliary log status: empty
            return ok({0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00});
        }
        return cc(0xC1);
    }
};

// Whole SMBIOS structures (formatted area, strings, double NUL).
inline std::vector<uint8_t> Type38() {
    return {38,   0x12, 0x26, 0x00, 0x01, 0x20, 0xFF, 0x20, 0xA2, 0x0C,
            0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
}

inline std::vector<uint8_t> OemStrings(const std::vector<std::string>& strings,
                                       std::optional<uint8_t> countByte = std::nullopt) {
    std::vector<uint8_t> s = {11, 0x05, 0x0B, 0x00,
                              countByte.value_or(static_cast<uint8_t>(strings.size()))};
    for (const auto& text : strings) {
        s.insert(s.end(), text.begin(), text.end());
        s.push_back(0);
    }
    if (strings.empty()) {
        s.push_back(0);
    }
    s.push_back(0);
    return s;
}

} // namespace ipmisel::test
