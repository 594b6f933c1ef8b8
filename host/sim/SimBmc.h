// The simulated BMC: a complete in-process BMC driven by a JSON scenario, used
// by the tests, the benchmarks and as the collector's default when no real BMC
// is at hand. The scenario format is described in docs/scenarios.md.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/runtime.h"

namespace ipmisel::sim {

// A scenario that cannot be used. what() is one line naming the file, the
// place in it and the problem ("demo.json: nodes[0].sel.records[3]: 15 bytes,
// a SEL record has 16").
class ScenarioError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A fault: at the nth (1-based) request matching netfn/cmd (and every later
// one when `repeat` is set) answer a completion code, fail the send, cut the
// response data to `truncateTo` bytes, or add `oversizeBy` bytes to it (00h,
// 01h, ... counting on and wrapping after FFh), an answer longer than any
// buffer a caller keeps for it.
struct Fault {
    uint8_t netfn = 0;
    uint8_t cmd = 0;
    uint32_t nth = 1;
    bool repeat = false;
    enum class Action {
        CompletionCode,
        SendFailure,
        Truncate,
        Oversize
    } action = Action::CompletionCode;
    uint8_t cc = 0xC0;
    size_t truncateTo = 0;
    size_t oversizeBy = 0;
    // Only requests whose data starts with these bytes count; empty: all.
    std::vector<uint8_t> data;
};

// One exchange with a BMC as `RecordingTransport` saw it (host/sim/Recording.h):
// the request and either the answer or a failed send.
struct TranscriptEntry {
    uint8_t netfn = 0;
    uint8_t lun = 0;
    uint8_t cmd = 0;
    std::vector<uint8_t> data;
    bool sendFailure = false;
    uint8_t cc = 0;
    std::vector<uint8_t> response;
};

// A fixed answer to an OEM (or any) request: matched on netfn, cmd and the
// request data (a prefix match when `prefix` is set).
struct CannedAnswer {
    uint8_t netfn = 0;
    uint8_t cmd = 0;
    std::vector<uint8_t> data;
    bool prefix = false;
    bool sendFailure = false;
    uint8_t cc = 0;
    std::vector<uint8_t> response;
};

struct AuxEntry {
    std::vector<uint8_t> bytes; // 10 header bytes + body, as Read Extended Data returns them
};

struct NodeSetup {
    std::string name;              // describe(); empty: "simulated BMC node <n>"
    std::vector<uint8_t> deviceId; // Get Device ID response data; empty: a default
    // SEL
    uint8_t selVersion = 0x51;
    std::optional<uint16_t> selReportedCount;     // Get SEL Info count; default: records.size()
    std::vector<std::vector<uint8_t>> selRecords; // 16 bytes each, wire order
    uint32_t selTime = 0;
    bool selTimeNow = false; // Get SEL Time answers the host's clock instead
    // SDR repository
    uint8_t sdrVersion = 0x51;
    std::vector<std::vector<uint8_t>> sdrRecords; // whole records, header included
    uint32_t sdrMaxReadCount = 255;               // a Get SDR count above this answers CAh
    uint32_t sdrReservationLifetime = 0;          // cancel the reservation after n Get SDR; 0 never
    // FRU devices: id -> inventory bytes
    std::map<uint8_t, std::vector<uint8_t>> fru;
    uint32_t fruMaxReadCount = 255;
    // Every answer comes this many milliseconds after its request, as from a
    // BMC on a LAN; 0 answers at once.
    uint32_t latencyMs = 0;
    // Auxiliary debug log
    std::vector<AuxEntry> auxLog;
    // Whether the controller keeps an auxiliary log at all; without one the
    // aux-log commands answer C1h. A non-empty auxLog implies it.
    bool auxLogSupported = false;
    std::optional<uint16_t> auxLogReportedCount; // status count; default auxLog.size()
    uint32_t auxLogTime = 0;                     // status: time of the last addition
    // Master Write-Read: (bus, slave address) -> register bytes
    std::map<std::pair<uint8_t, uint8_t>, std::vector<uint8_t>> i2c;
    std::vector<CannedAnswer> canned;
    std::vector<Fault> faults;
    // A recorded BMC: when not empty, requests are answered from here (the
    // k-th identical request gets the k-th recorded answer, later ones the
    // last; a request never recorded C1h) and the simulated parts above are
    // not consulted. Faults and canned answers still come first.
    std::vector<TranscriptEntry> transcript;
};

struct Scenario {
    std::string origin; // file name, for messages
    std::vector<NodeSetup> nodes;
    std::vector<std::vector<uint8_t>> smbios; // whole structures
    bool smbiosReadable = true;
    std::string machineType = "0000";
    std::string machineTypeFromID; // default: machineType
    std::string biosID;
    bool driverPresent = true;
    bool libraryAvailable = true;
    bool iBMC = false;
    std::optional<bool> lan;
};

Scenario loadScenarioFile(const std::string& path);                         // throws ScenarioError
Scenario parseScenario(const std::string& json, const std::string& origin); // throws ScenarioError

class SimBmc : public host::Transport {
  public:
    explicit SimBmc(NodeSetup setup, std::string name = "simulated BMC");
    host::IpmiResponse send(const host::IpmiRequest& request) override;
    std::string describe() const override { return name_; }
    // Every request received, in order (for tests that assert on traffic).
    const std::vector<host::IpmiRequest>& received() const { return received_; }
    // Whether received() keeps the requests (it does unless told otherwise);
    // a long replay has no use for them.
    void keepTraffic(bool keep) { keepTraffic_ = keep; }
    NodeSetup& setup() { return setup_; }
    // How many requests of this netfn/cmd arrived so far.
    uint32_t requestCount(uint8_t netfn, uint8_t cmd) const;

  private:
    // Canned answers, then the transcript or the simulated commands.
    host::IpmiResponse respond(const host::IpmiRequest& request);
    host::IpmiResponse answer(const host::IpmiRequest& request);
    host::IpmiResponse fromTranscript(const host::IpmiRequest& request);
    host::IpmiResponse getSelEntry(const host::IpmiRequest& request);
    host::IpmiResponse getSdr(const host::IpmiRequest& request);
    host::IpmiResponse readFru(const host::IpmiRequest& request);
    host::IpmiResponse masterWriteRead(const host::IpmiRequest& request);
    host::IpmiResponse auxLogStatus(const host::IpmiRequest& request);
    host::IpmiResponse auxLogRead(const host::IpmiRequest& request);
    // Position of the record with this ID, or -1. ID 0000h is the first and
    // FFFFh the last record.
    // Position of every record ID (none: UINT32_MAX), and how many IDs it held
    // when made: a flat table, as a walk of 65,535 records looks one up per
    // request.
    struct RecordIndex {
        std::vector<uint32_t> at;
        size_t ids = 0;
    };
    long findRecord(const std::vector<std::vector<uint8_t>>& records, RecordIndex& index,
                    uint16_t id);

    NodeSetup setup_;
    std::string name_;
    std::vector<host::IpmiRequest> received_;
    bool keepTraffic_ = true;
    // Requests seen per (netfn, cmd), at netfn * 256 + cmd: a full SEL's walk
    // counts sixty-five thousand.
    std::vector<uint32_t> seen_ = std::vector<uint32_t>(256 * 256, 0);
    uint16_t reservation_ = 0; // current SDR reservation; 0: none
    uint32_t sdrReadsSinceReserve_ = 0;
    uint16_t selReservation_ = 0;
    std::vector<uint32_t> faultHits_; // matching requests per fault
    RecordIndex selIndex_, sdrIndex_;
    std::map<std::pair<uint8_t, uint8_t>, uint8_t> i2cPointer_; // register pointer per device
    // A replay asked in the recorded order (the usual case) answers entry
    // after entry: while every request so far matched the next entry, that
    // entry is also the next unused answer to its request. The first request
    // out of order builds the index by request bytes (netfn, LUN, cmd, data):
    // the entry answering a request next, and per entry the one recorded
    // next for the same request.
    bool replayInOrder_ = true;
    size_t replayAt_ = 0;
    std::unordered_map<std::string, uint32_t> transcriptNext_;
    std::vector<uint32_t> transcriptLater_;
    size_t transcriptIndexed_ = 0;
    std::string requestKey_; // the request being looked up
};

// Puts a scenario into a host configuration: one SimBmc per node, SMBIOS,
// machine type, BIOS ID, driver, library, LAN and iBMC answers. Returns the
// simulated BMCs so callers can look at the traffic.
std::vector<std::shared_ptr<SimBmc>> applyScenario(const Scenario& scenario, host::Config& config);
// The same, moving the nodes' contents into the simulated BMCs.
std::vector<std::shared_ptr<SimBmc>> applyScenario(Scenario&& scenario, host::Config& config);

} // namespace ipmisel::sim
