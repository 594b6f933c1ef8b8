// The simulated BMC's command handling. It answers the storage, application
// and OEM commands the collector sends with the semantics a real controller
// has (record walks by next-record ID, reservations, read-count limits), so
// the collector's code paths are exercised as they would be on a server.
#include "host/sim/SimBmc.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>
#include <thread>

#include "host/sim/Builders.h"

namespace ipmisel::sim {

namespace {

constexpr uint8_t kNetfnApp = 0x06;
constexpr uint8_t kNetfnStorage = 0x0A;
constexpr uint8_t kNetfnOemGroup = 0x2E;

constexpr uint8_t kCcInvalidCommand = 0xC1;
constexpr uint8_t kCcReservation = 0xC5;
constexpr uint8_t kCcLength = 0xC7;
constexpr uint8_t kCcOutOfRange = 0xC9;
constexpr uint8_t kCcCannotReturn = 0xCA;
constexpr uint8_t kCcNotPresent = 0xCB;
constexpr uint8_t kCcInvalidField = 0xCC;
constexpr uint8_t kCcNakOnWrite = 0x83; // Master Write-Read: nobody answered the address

// The SEL is reported as if it could hold this many records.
constexpr size_t kSelCapacity = 4095;

host::IpmiResponse ok(std::vector<uint8_t> data = {}) {
    host::IpmiResponse r;
    r.sent = true;
    r.data = std::move(data);
    return r;
}

host::IpmiResponse fail(uint8_t cc) {
    host::IpmiResponse r;
    r.sent = true;
    r.cc = cc;
    return r;
}

// A canned or recorded answer: a failed send, or the completion code and data.
host::IpmiResponse stored(bool sendFailure, uint8_t cc, const std::vector<uint8_t>& data) {
    if (sendFailure) {
        return host::IpmiResponse{};
    }
    host::IpmiResponse r = ok(data);
    r.cc = cc;
    return r;
}

void appendLe16(std::vector<uint8_t>& out, uint32_t v) {
    out.push_back(static_cast<uint8_t>(v & 0xFF));
    out.push_back(static_cast<uint8_t>((v >> 8) & 0xFF));
}

void appendLe32(std::vector<uint8_t>& out, uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
}

uint16_t le16(const std::vector<uint8_t>& d, size_t at) {
    return static_cast<uint16_t>(d[at] | d[at + 1] << 8);
}

uint16_t recordId(const std::vector<uint8_t>& record) {
    return record.size() >= 2 ? le16(record, 0) : 0;
}

// Get SEL Entry and Get SDR ask alike: reservation, record ID, offset into
// the record, count (FFh: the rest of the record).
struct RecordRead {
    uint16_t reservation;
    uint16_t id;
    uint8_t offset;
    uint8_t count;
};

std::optional<RecordRead> recordRead(const std::vector<uint8_t>& d) {
    if (d.size() != 6) {
        return std::nullopt;
    }
    return RecordRead{le16(d, 0), le16(d, 2), d[4], d[5]};
}

// The answer to a record read of the record at `pos` (-1: not there): the
// next record's ID (FFFFh after the last) and the bytes asked for. A read
// asking for more than `limit` bytes answers CAh; the limit is on what was
// asked for, "rest of record" included, as a controller with a fixed
// response buffer checks it.
host::IpmiResponse recordPart(const std::vector<std::vector<uint8_t>>& records, long pos,
                              const RecordRead& r, size_t limit) {
    if (pos < 0) {
        return fail(kCcNotPresent);
    }
    const auto& rec = records[static_cast<size_t>(pos)];
    if (r.offset > rec.size()) {
        return fail(kCcOutOfRange);
    }
    size_t rest = rec.size() - r.offset;
    size_t asked = r.count == 0xFF ? rest : r.count;
    if (asked > limit) {
        return fail(kCcCannotReturn);
    }
    size_t n = std::min(asked, rest);
    size_t next = static_cast<size_t>(pos) + 1;
    std::vector<uint8_t> out;
    out.reserve(2 + n); // one allocation: every SEL record is read this way
    appendLe16(out, next < records.size() ? recordId(records[next]) : 0xFFFF);
    out.insert(out.end(), rec.begin() + r.offset, rec.begin() + static_cast<long>(r.offset + n));
    return ok(std::move(out));
}

std::vector<uint8_t> defaultDeviceId() {
    // Device 20h rev 1, firmware 1.00, IPMI 2.0, the usual device support bits,
    // manufacturer 00A3C1h, product 0000h, no auxiliary revision.
    return {0x20, 0x01, 0x01, 0x00, 0x02, 0xBF, 0xC1, 0xA3,
            0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
}

uint16_t nextReservation(uint16_t current) {
    ++current;
    return current == 0 ? 1 : current; // 0000h means "no reservation" on the wire
}

void appendKey(std::string& key, uint8_t netfn, uint8_t lun, uint8_t cmd,
               const std::vector<uint8_t>& data) {
    key += static_cast<char>(netfn);
    key += static_cast<char>(lun);
    key += static_cast<char>(cmd);
    key.append(data.begin(), data.end());
}

} // namespace

SimBmc::SimBmc(NodeSetup setup, std::string name)
    : setup_(std::move(setup)), name_(std::move(name)) {}

uint32_t SimBmc::requestCount(uint8_t netfn, uint8_t cmd) const {
    return seen_[static_cast<size_t>(netfn) << 8 | cmd];
}

host::IpmiResponse SimBmc::send(const host::IpmiRequest& request) {
    if (setup_.latencyMs != 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(setup_.latencyMs));
    }
    if (keepTraffic_) {
        received_.push_back(request);
    }
    ++seen_[static_cast<size_t>(request.netfn) << 8 | request.cmd];

    // Every fault counts its own matching requests; the first one due fires.
    faultHits_.resize(setup_.faults.size(), 0);
    const Fault* due = nullptr;
    for (size_t i = 0; i < setup_.faults.size(); ++i) {
        const Fault& f = setup_.faults[i];
        if (f.netfn != request.netfn || f.cmd != request.cmd ||
            request.data.size() < f.data.size() ||
            !std::equal(f.data.begin(), f.data.end(), request.data.begin())) {
            continue;
        }
        uint32_t hits = ++faultHits_[i];
        if (!due && (hits == f.nth || (f.repeat && hits > f.nth))) {
            due = &f;
        }
    }
    if (due) {
        switch (due->action) {
        case Fault::Action::SendFailure:
            return host::IpmiResponse{};
        case Fault::Action::CompletionCode:
            return fail(due->cc);
        case Fault::Action::Truncate: {
            // The BMC did the work; only the answer is cut on the way back.
            host::IpmiResponse r = respond(request);
            if (r.data.size() > due->truncateTo) {
                r.data.resize(due->truncateTo);
            }
            return r;
        }
        case Fault::Action::Oversize: {
            // Whatever the BMC answered, with a tail no caller asked for.
            host::IpmiResponse r = respond(request);
            if (r.sent) {
                for (size_t k = 0; k < due->oversizeBy; ++k) {
                    r.data.push_back(static_cast<uint8_t>(k & 0xFF));
                }
            }
            return r;
        }
        }
    }
    return respond(request);
}

host::IpmiResponse SimBmc::respond(const host::IpmiRequest& request) {
    for (const CannedAnswer& c : setup_.canned) {
        if (c.netfn != request.netfn || c.cmd != request.cmd) {
            continue;
        }
        bool match = c.prefix ? request.data.size() >= c.data.size() &&
                                    std::equal(c.data.begin(), c.data.end(), request.data.begin())
                              : request.data == c.data;
        if (!match) {
            continue;
        }
        return stored(c.sendFailure, c.cc, c.response);
    }

    if (!setup_.transcript.empty()) {
        return fromTranscript(request);
    }
    return answer(request);
}

host::IpmiResponse SimBmc::fromTranscript(const host::IpmiRequest& request) {
    const auto& transcript = setup_.transcript;
    constexpr uint32_t kLast = UINT32_MAX;
    if (transcriptIndexed_ != transcript.size()) {
        // A changed transcript is replayed from its start.
        replayInOrder_ = true;
        replayAt_ = 0;
        transcriptNext_.clear();
        transcriptIndexed_ = transcript.size();
    }
    if (replayInOrder_) {
        if (replayAt_ < transcript.size()) {
            const TranscriptEntry& t = transcript[replayAt_];
            if (t.netfn == request.netfn && t.lun == request.lun && t.cmd == request.cmd &&
                t.data == request.data) {
                ++replayAt_;
                return stored(t.sendFailure, t.cc, t.response);
            }
        }
        replayInOrder_ = false;
        // Backwards, so that each request ends up with its first entry and
        // every entry knows the one recorded after it.
        transcriptNext_.reserve(transcript.size());
        transcriptLater_.assign(transcript.size(), kLast);
        std::string key;
        for (size_t i = transcript.size(); i-- > 0;) {
            const TranscriptEntry& t = transcript[i];
            key.clear();
            appendKey(key, t.netfn, t.lun, t.cmd, t.data);
            auto [it, fresh] = transcriptNext_.try_emplace(key, static_cast<uint32_t>(i));
            if (!fresh) {
                transcriptLater_[i] = it->second;
                it->second = static_cast<uint32_t>(i);
            }
        }
        // The entries answered in order so far are used up.
        for (size_t i = 0; i < replayAt_; ++i) {
            const TranscriptEntry& t = transcript[i];
            key.clear();
            appendKey(key, t.netfn, t.lun, t.cmd, t.data);
            uint32_t& next = transcriptNext_.find(key)->second;
            if (transcriptLater_[next] != kLast) {
                next = transcriptLater_[next];
            }
        }
    }
    requestKey_.clear();
    appendKey(requestKey_, request.netfn, request.lun, request.cmd, request.data);
    auto it = transcriptNext_.find(requestKey_);
    if (it == transcriptNext_.end()) {
        return fail(kCcInvalidCommand);
    }
    // The k-th identical request gets the k-th recorded answer; once they
    // run out the last one stands, as a BMC would answer it again.
    const TranscriptEntry& t = transcript[it->second];
    if (transcriptLater_[it->second] != kLast) {
        it->second = transcriptLater_[it->second];
    }
    return stored(t.sendFailure, t.cc, t.response);
}

long SimBmc::findRecord(const std::vector<std::vector<uint8_t>>& records, RecordIndex& index,
                        uint16_t id) {
    if (records.empty()) {
        return -1;
    }
    if (id == 0x0000) {
        return 0;
    }
    if (id == 0xFFFF) {
        return static_cast<long>(records.size() - 1);
    }
    // The index is rebuilt whenever it no longer matches the records (a test
    // may change setup() between requests); the first record with an ID wins.
    constexpr uint32_t kNone = UINT32_MAX;
    auto lookup = [&]() -> long {
        const uint32_t at = index.at.empty() ? kNone : index.at[id];
        if (at != kNone && at < records.size() && recordId(records[at]) == id) {
            return static_cast<long>(at);
        }
        return -1;
    };
    long pos = lookup();
    if (pos >= 0 && index.ids <= records.size()) {
        return pos;
    }
    index.at.assign(0x10000, kNone);
    index.ids = 0;
    for (size_t i = records.size(); i-- > 0;) {
        uint32_t& at = index.at[recordId(records[i])];
        index.ids += at == kNone;
        at = static_cast<uint32_t>(i);
    }
    return lookup();
}

host::IpmiResponse SimBmc::answer(const host::IpmiRequest& request) {
    using Handler = host::IpmiResponse (SimBmc::*)(const host::IpmiRequest&);
    struct Command {
        uint8_t netfn;
        uint8_t cmd;
        Handler handler;
    };
    static const Command commands[] = {
        {kNetfnApp, 0x52, &SimBmc::masterWriteRead},  {kNetfnStorage, 0x11, &SimBmc::readFru},
        {kNetfnStorage, 0x23, &SimBmc::getSdr},       {kNetfnStorage, 0x43, &SimBmc::getSelEntry},
        {kNetfnStorage, 0x5A, &SimBmc::auxLogStatus}, {kNetfnOemGroup, 0x93, &SimBmc::auxLogRead},
    };
    for (const Command& c : commands) {
        if (c.netfn == request.netfn && c.cmd == request.cmd) {
            return (this->*c.handler)(request);
        }
    }

    const auto& d = request.data;
    if (request.netfn == kNetfnApp && request.cmd == 0x01) { // Get Device ID
        return ok(setup_.deviceId.empty() ? defaultDeviceId() : setup_.deviceId);
    }
    if (request.netfn != kNetfnStorage) {
        return fail(kCcInvalidCommand);
    }
    switch (request.cmd) {
    case 0x40: { // Get SEL Info
        size_t n = setup_.selRecords.size();
        uint32_t count =
            setup_.selReportedCount.value_or(static_cast<uint16_t>(std::min<size_t>(n, 0xFFFF)));
        uint32_t lastAdd = 0;
        for (const auto& r : setup_.selRecords) {
            if (r.size() >= 7 && r[2] < 0xE0) {
                lastAdd = std::max<uint32_t>(lastAdd,
                                             static_cast<uint32_t>(r[3] | r[4] << 8 | r[5] << 16) |
                                                 static_cast<uint32_t>(r[6]) << 24);
            }
        }
        std::vector<uint8_t> out{setup_.selVersion};
        appendLe16(out, count);
        appendLe16(out, n < kSelCapacity ? static_cast<uint32_t>((kSelCapacity - n) * 16) : 0);
        appendLe32(out, lastAdd);
        appendLe32(out, 0);
        out.push_back(0x02); // Reserve SEL supported
        return ok(std::move(out));
    }
    case 0x42: { // Reserve SEL
        selReservation_ = nextReservation(selReservation_);
        std::vector<uint8_t> out;
        appendLe16(out, selReservation_);
        return ok(std::move(out));
    }
    case 0x48: { // Get SEL Time
        uint32_t t = setup_.selTimeNow ? static_cast<uint32_t>(std::time(nullptr)) : setup_.selTime;
        std::vector<uint8_t> out;
        appendLe32(out, t);
        return ok(std::move(out));
    }
    case 0x20: { // Get SDR Repository Info
        size_t bytes = 0;
        for (const auto& r : setup_.sdrRecords) {
            bytes += r.size();
        }
        std::vector<uint8_t> out{setup_.sdrVersion};
        appendLe16(out, static_cast<uint32_t>(std::min<size_t>(setup_.sdrRecords.size(), 0xFFFF)));
        appendLe16(out, bytes < 0xFFFE ? static_cast<uint32_t>(0xFFFE - bytes) : 0);
        appendLe32(out, 0);
        appendLe32(out, 0);
        out.push_back(0x22); // non-modal update, Reserve SDR Repository supported
        return ok(std::move(out));
    }
    case 0x22: // Reserve SDR Repository
        reservation_ = nextReservation(reservation_);
        sdrReadsSinceReserve_ = 0;
        return ok(
            {static_cast<uint8_t>(reservation_ & 0xFF), static_cast<uint8_t>(reservation_ >> 8)});
    case 0x10: { // Get FRU Inventory Area Info
        if (d.size() != 1) {
            return fail(kCcLength);
        }
        auto it = setup_.fru.find(d[0]);
        if (it == setup_.fru.end()) {
            return fail(kCcNotPresent);
        }
        std::vector<uint8_t> out;
        appendLe16(out, static_cast<uint32_t>(std::min<size_t>(it->second.size(), 0xFFFF)));
        out.push_back(0x00); // accessed by bytes
        return ok(std::move(out));
    }
    default:
        return fail(kCcInvalidCommand);
    }
}

host::IpmiResponse SimBmc::getSelEntry(const host::IpmiRequest& request) {
    auto r = recordRead(request.data);
    if (!r) {
        return fail(kCcLength);
    }
    // Whole-record reads need no reservation; partial ones need the current one.
    if (r->offset != 0 && (r->reservation == 0 || r->reservation != selReservation_)) {
        return fail(kCcReservation);
    }
    // A SEL read asking for more than the record holds gets what is left.
    return recordPart(setup_.selRecords, findRecord(setup_.selRecords, selIndex_, r->id), *r,
                      SIZE_MAX);
}

host::IpmiResponse SimBmc::getSdr(const host::IpmiRequest& request) {
    auto r = recordRead(request.data);
    if (!r) {
        return fail(kCcLength);
    }
    ++sdrReadsSinceReserve_;
    if (r->offset != 0) {
        bool expired = setup_.sdrReservationLifetime != 0 &&
                       sdrReadsSinceReserve_ > setup_.sdrReservationLifetime;
        if (expired) {
            reservation_ = 0; // cancelled: only a new Reserve SDR Repository helps
        }
        if (reservation_ == 0 || r->reservation != reservation_) {
            return fail(kCcReservation);
        }
    }
    return recordPart(setup_.sdrRecords, findRecord(setup_.sdrRecords, sdrIndex_, r->id), *r,
                      setup_.sdrMaxReadCount);
}

host::IpmiResponse SimBmc::readFru(const host::IpmiRequest& request) {
    const auto& d = request.data;
    if (d.size() != 4) {
        return fail(kCcLength);
    }
    auto it = setup_.fru.find(d[0]);
    if (it == setup_.fru.end()) {
        return fail(kCcNotPresent);
    }
    size_t offset = le16(d, 1);
    uint8_t count = d[3];
    if (count > setup_.fruMaxReadCount) {
        return fail(kCcCannotReturn);
    }
    const auto& bytes = it->second;
    if (count != 0 && offset >= bytes.size()) {
        return fail(kCcOutOfRange);
    }
    size_t n = std::min<size_t>(count, bytes.size() - std::min(offset, bytes.size()));
    std::vector<uint8_t> out{static_cast<uint8_t>(n)};
    out.insert(out.end(), bytes.begin() + static_cast<long>(offset),
               bytes.begin() + static_cast<long>(offset + n));
    return ok(std::move(out));
}

host::IpmiResponse SimBmc::masterWriteRead(const host::IpmiRequest& request) {
    const auto& d = request.data;
    if (d.size() < 3) {
        return fail(kCcLength);
    }
    std::pair<uint8_t, uint8_t> device{d[0], d[1]};
    auto it = setup_.i2c.find(device);
    if (it == setup_.i2c.end()) {
        return fail(kCcNakOnWrite);
    }
    // A register device: the first byte written selects the register, further
    // bytes are stored from there on; reads continue from the selected one.
    auto& regs = it->second;
    uint8_t& pointer = i2cPointer_[device];
    for (size_t i = 3; i < d.size(); ++i) {
        if (i == 3) {
            pointer = d[i];
            continue;
        }
        if (pointer >= regs.size()) {
            regs.resize(static_cast<size_t>(pointer) + 1, 0xFF);
        }
        regs[pointer++] = d[i];
    }
    std::vector<uint8_t> out;
    for (uint8_t i = 0; i < d[2]; ++i) {
        out.push_back(pointer < regs.size() ? regs[pointer] : 0xFF);
        ++pointer;
    }
    return ok(std::move(out));
}

host::IpmiResponse SimBmc::auxLogStatus(const host::IpmiRequest& request) {
    if (!setup_.auxLogSupported && setup_.auxLog.empty()) {
        return fail(kCcInvalidCommand);
    }
    if (request.data.size() != 1) {
        return fail(kCcLength);
    }
    if (request.data[0] != 0x01) {
        return fail(kCcInvalidField);
    }
    uint32_t count = setup_.auxLogReportedCount.value_or(
        static_cast<uint16_t>(std::min<size_t>(setup_.auxLog.size(), 0xFFFF)));
    std::vector<uint8_t> out{0xC1, 0xA3, 0x00};
    appendLe32(out, setup_.auxLogTime);
    appendLe16(out, count);
    return ok(std::move(out));
}

host::IpmiResponse SimBmc::auxLogRead(const host::IpmiRequest& request) {
    if (!setup_.auxLogSupported && setup_.auxLog.empty()) {
        return fail(kCcInvalidCommand);
    }
    const auto& d = request.data;
    if (d.size() != 9) {
        return fail(kCcLength);
    }
    if (d[0] != 0xC1 || d[1] != 0xA3 || d[2] != 0x00) {
        return fail(kCcInvalidField);
    }
    uint16_t number = le16(d, 3);
    if (number == 0 || number > setup_.auxLog.size()) {
        return fail(kCcNotPresent);
    }
    const auto& entry = setup_.auxLog[number - 1u].bytes;
    size_t headerLen = std::min<size_t>(entry.size(), 10);
    size_t bodyLen = entry.size() - headerLen;
    size_t offset = d[5];
    size_t length = d[7];
    if (offset > bodyLen) {
        return fail(kCcOutOfRange);
    }
    // A read at offset 0 answers with the entry's 10-byte header in front of
    // the body bytes; later reads echo only the 3-byte manufacturer ID. The
    // header begins with the manufacturer ID, so every answer starts with it.
    std::vector<uint8_t> out;
    if (offset == 0) {
        out.assign(entry.begin(), entry.begin() + static_cast<long>(headerLen));
    } else {
        out.assign(d.begin(), d.begin() + 3);
    }
    size_t n = std::min(length, bodyLen - offset);
    auto from = entry.begin() + static_cast<long>(headerLen + offset);
    out.insert(out.end(), from, from + static_cast<long>(n));
    return ok(std::move(out));
}

namespace {

// One SimBmc per node, taking the node's contents from `node(i)`, and the
// platform's answers.
template <class Node>
std::vector<std::shared_ptr<SimBmc>> apply(const Scenario& scenario, host::Config& config,
                                           Node&& node) {
    std::vector<std::shared_ptr<SimBmc>> bmcs;
    config.nodes.clear();
    for (size_t i = 0; i < scenario.nodes.size(); ++i) {
        std::string name = scenario.nodes[i].name.empty()
                               ? "simulated BMC node " + std::to_string(i + 1)
                               : scenario.nodes[i].name;
        auto bmc = std::make_shared<SimBmc>(node(i), name);
        bmcs.push_back(bmc);
        config.nodes.push_back(bmc);
    }
    config.smbios = scenario.smbiosReadable ? host::smbiosFromStructures(scenario.smbios) : nullptr;
    config.machineType = scenario.machineType;
    config.machineTypeFromID =
        scenario.machineTypeFromID.empty() ? scenario.machineType : scenario.machineTypeFromID;
    config.biosID = scenario.biosID;
    config.driverPresent = scenario.driverPresent;
    config.libraryAvailable = scenario.libraryAvailable;
    config.iBMC = scenario.iBMC;
    config.lan = scenario.lan;
    return bmcs;
}

} // namespace

std::vector<std::shared_ptr<SimBmc>> applyScenario(const Scenario& scenario, host::Config& config) {
    return apply(scenario, config, [&](size_t i) { return scenario.nodes[i]; });
}

std::vector<std::shared_ptr<SimBmc>> applyScenario(Scenario&& scenario, host::Config& config) {
    return apply(scenario, config, [&](size_t i) { return std::move(scenario.nodes[i]); });
}

} // namespace ipmisel::sim
