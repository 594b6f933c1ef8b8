// Small in-test BMCs for the storage commands: a SEL chained by next-record
// IDs and an SDR repository answering Get SDR with offset and count. They
// answer through FakeTransport so every test states exactly what the BMC does.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/HostFixture.h"

namespace ipmisel::test {

// ---- SEL -----------------------------------------------------------------------

struct SelRecord {
    uint16_t id;
    uint16_t next;
    std::array<uint8_t, 16> bytes;
};

inline SelRecord selRecord(uint16_t id, uint16_t next, uint8_t sensor = 0x30) {
    // Record ID (LSB first), type 02h, time stamp, generator 20h, EvM 04h,
    // sensor type 01h, the sensor number, threshold event, data.
    return {id,
            next,
            {static_cast<uint8_t>(id & 0xFF), static_cast<uint8_t>(id >> 8), 0x02, 0x10, 0x20, 0x30,
             0x40, 0x20, 0x00, 0x04, 0x01, sensor, 0x01, 0x57, 0x50, 0x60}};
}

// Answers Get SEL Info with version/count and Get SEL Entry by record ID
// (0000h: the first). `hook` may answer a request first (n counts Get SEL
// Entry requests from 1).
class FakeSel {
  public:
    std::vector<SelRecord> records;
    uint8_t version = 0x51;
    uint16_t reportedCount = 0;
    std::function<std::optional<host::IpmiResponse>(const host::IpmiRequest&, int n)> hook;
    int entryRequests = 0;

    host::IpmiResponse answer(const host::IpmiRequest& r) {
        if (r.netfn != 0x0A) {
            return cc(0xC1);
        }
        if (r.cmd == 0x40) {
            return ok({version, static_cast<uint8_t>(reportedCount & 0xFF),
                       static_cast<uint8_t>(reportedCount >> 8), 0x00, 0x10, 0x11, 0x12, 0x13, 0x14,
                       0x21, 0x22, 0x23, 0x24, 0x0F});
        }
        if (r.cmd != 0x43 || r.data.size() != 6) {
            return cc(0xC1);
        }
        ++entryRequests;
        if (hook) {
            if (auto h = hook(r, entryRequests)) {
                return *h;
            }
        }
        const uint16_t id = static_cast<uint16_t>(r.data[3] << 8 | r.data[2]);
        for (const auto& rec : records) {
            if (id == 0 ? &rec == &records.front() : rec.id == id) {
                std::vector<uint8_t> data{static_cast<uint8_t>(rec.next & 0xFF),
                                          static_cast<uint8_t>(rec.next >> 8)};
                data.insert(data.end(), rec.bytes.begin(), rec.bytes.end());
                return ok(data);
            }
        }
        return cc(0xCB);
    }
};

// ---- SDR -----------------------------------------------------------------------

struct SdrRecord {
    uint16_t id;
    std::vector<uint8_t> bytes;
};

struct SensorFields {
    uint8_t sensor = 0x30;
    uint8_t entity = 0x03;
    uint8_t instance = 0x01;
    std::string name = "CPU 1 Temp";
    // Record bytes 20..29 of a full record.
    std::array<uint8_t, 10> units{0x80, 0x01, 0x00, 0x00, 0x10, 0xC0, 0x05, 0x40, 0x00, 0xF1};
    uint8_t version = 0x51;
};

inline std::vector<uint8_t> sdrHeader(uint16_t id, uint8_t version, uint8_t type,
                                      uint8_t bodyLength) {
    return {static_cast<uint8_t>(id & 0xFF), static_cast<uint8_t>(id >> 8), version, type,
            bodyLength};
}

// Full sensor record (type 01h): ID string type/length at 47, characters from 48.
inline SdrRecord fullSensor(uint16_t id, const SensorFields& f = {}) {
    std::vector<uint8_t> b(48, 0);
    b[0] = static_cast<uint8_t>(id & 0xFF);
    b[1] = static_cast<uint8_t>(id >> 8);
    b[2] = f.version;
    b[3] = 0x01;
    b[5] = 0x20;
    b[7] = f.sensor;
    b[8] = f.entity;
    b[9] = f.instance;
    std::copy(f.units.begin(), f.units.end(), b.begin() + 20);
    b[47] = static_cast<uint8_t>(0xC0 | f.name.size());
    b.insert(b.end(), f.name.begin(), f.name.end());
    b[4] = static_cast<uint8_t>(b.size() - 5);
    return {id, b};
}

// Compact sensor record (type 02h): ID string type/length at 31.
inline SdrRecord compactSensor(uint16_t id, const SensorFields& f = {}) {
    std::vector<uint8_t> b(32, 0);
    b[0] = static_cast<uint8_t>(id & 0xFF);
    b[1] = static_cast<uint8_t>(id >> 8);
    b[2] = f.version;
    b[3] = 0x02;
    b[5] = 0x20;
    b[7] = f.sensor;
    b[8] = f.entity;
    b[9] = f.instance;
    std::copy(f.units.begin(), f.units.begin() + 4, b.begin() + 20);
    b[31] = static_cast<uint8_t>(0xC0 | f.name.size());
    b.insert(b.end(), f.name.begin(), f.name.end());
    b[4] = static_cast<uint8_t>(b.size() - 5);
    return {id, b};
}

// Any other record type (FRU locator 11h, management controller 12h, OEM C0h).
inline SdrRecord otherRecord(uint16_t id, uint8_t type) {
    std::vector<uint8_t> b(20, 0x5A);
    auto h = sdrHeader(id, 0x51, type, 15);
    std::copy(h.begin(), h.end(), b.begin());
    return {id, b};
}

// Answers Repository Info, Reserve and Get SDR (offset/count, FFh = rest of
// the record). Next-record IDs follow the list, FFFFh after the last, unless
// `nextOverride` names one. `hook` may answer any request first (n counts all
// requests from 1).
class FakeRepository {
  public:
    std::vector<SdrRecord> records;
    std::vector<std::pair<uint16_t, uint16_t>> nextOverride; // record id -> next id
    uint8_t version = 0x51;
    uint16_t reservation = 0x1234;
    std::function<std::optional<host::IpmiResponse>(const host::IpmiRequest&, int n)> hook;
    int requests = 0;

    std::vector<uint8_t> infoData() const {
        return {version, static_cast<uint8_t>(records.size()),
                0x00,    0x00,
                0x40,    0x11,
                0x22,    0x33,
                0x44,    0x55,
                0x66,    0x77,
                0x88,    0x0F};
    }

    uint16_t nextOf(size_t index) const {
        for (const auto& [id, next] : nextOverride) {
            if (id == records[index].id) {
                return next;
            }
        }
        return index + 1 < records.size() ? records[index + 1].id : 0xFFFF;
    }

    host::IpmiResponse answer(const host::IpmiRequest& r) {
        ++requests;
        if (hook) {
            if (auto h = hook(r, requests)) {
                return *h;
            }
        }
        if (r.netfn != 0x0A) {
            return cc(0xC1);
        }
        switch (r.cmd) {
        case 0x20:
            return ok(infoData());
        case 0x22:
            return ok(
                {static_cast<uint8_t>(reservation & 0xFF), static_cast<uint8_t>(reservation >> 8)});
        case 0x23:
            break;
        default:
            return cc(0xC1);
        }
        if (r.data.size() != 6) {
            return cc(0xC7);
        }
        const uint16_t resv = static_cast<uint16_t>(r.data[1] << 8 | r.data[0]);
        if (resv != reservation) {
            return cc(0xC5);
        }
        const uint16_t id = static_cast<uint16_t>(r.data[3] << 8 | r.data[2]);
        for (size_t i = 0; i < records.size(); ++i) {
            if (id == 0 ? i == 0 : records[i].id == id) {
                const auto& bytes = records[i].bytes;
                const size_t offset = r.data[4];
                if (offset > bytes.size()) {
                    return cc(0xC9);
                }
                size_t count = r.data[5] == 0xFF ? bytes.size() - offset : r.data[5];
                count = std::min(count, bytes.size() - offset);
                const uint16_t next = nextOf(i);
                std::vector<uint8_t> data{static_cast<uint8_t>(next & 0xFF),
                                          static_cast<uint8_t>(next >> 8)};
                data.insert(data.end(), bytes.begin() + static_cast<long>(offset),
                            bytes.begin() + static_cast<long>(offset + count));
                return ok(data);
            }
        }
        return cc(0xCB);
    }
};

// A FakeTransport answering through `bmc` (which must outlive it).
template <class Bmc> std::shared_ptr<FakeTransport> transportFor(Bmc& bmc) {
    return std::make_shared<FakeTransport>(
        [&bmc](const host::IpmiRequest& r) { return bmc.answer(r); });
}

} // namespace ipmisel::test
