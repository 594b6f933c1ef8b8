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
// one when `repeat` is set) answer a completion code, fail the send, or cut
// the response data to `truncateTo` bytes.
struct Fault {
    uint8_t netfn = 0;
    uint8_t cmd = 0;
    uint32_t nth = 1;
    bool repeat = false;
    enum class Action { CompletionCode, SendFailure, Truncate } action = Action::CompletionCode;
    uint8_t cc = 0xC0;
    size_t truncateTo = 0;
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

struct NodeSpec {
    std::vector<uint8_t> deviceId; // Get Device ID response data
    // SEL
    uint8_t selVersion = 0x51;
    std::optional<uint16_t> selReportedCount; // Get SEL Info count; default: records.size()
    std::vector<std::vector<uint8_t>> selRecords; // 16 bytes each, wire order
    uint32_t selTime = 0;
    // SDR repository
    uint8_t sdrVersion = 0x51;
    std::vector<std::vector<uint8_t>> sdrRecords; // whole records, header included
    uint32_t sdrMaxReadCount = 255; // a Get SDR count above this answers CAh
    uint32_t sdrReservationLifetime = 0; // cancel the reservation after n Get SDR; 0 never
    // FRU devices: id -> inventory bytes
    std::map<uint8_t, std::vector<uint8_t>> fru;
    uint32_t fruMaxReadCount = 255;
    // Auxiliary debug log
    std::vector<AuxEntry> auxLog;
    // Master Write-Read: (bus, slave address) -> register bytes
    std::map<std::pair<uint8_t, uint8_t>, std::vector<uint8_t>> i2c;
    std::vector<CannedAnswer> canned;
    std::vector<Fault> faults;
};

struct Scenario {
    std::string origin; // file name, for messages
    std::vector<NodeSpec> nodes;
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

Scenario loadScenarioFile(const std::string& path);                  // throws ScenarioError
Scenario parseScenario(const std::string& json, const std::string& origin); // throws ScenarioError

class SimBmc : public host::Transport {
  public:
    explicit SimBmc(NodeSpec spec, std::string name = "simulated BMC");
    host::IpmiResponse send(const host::IpmiRequest& request) override;
    std::string describe() const override { return name_; }
    // Every request received, in order (for tests that assert on traffic).
    const std::vector<host::IpmiRequest>& received() const { return received_; }
    NodeSpec& spec() { return spec_; }

  private:
    NodeSpec spec_;
    std::string name_;
    std::vector<host::IpmiRequest> received_;
    std::map<std::pair<uint8_t, uint8_t>, uint32_t> seen_; // (netfn, cmd) -> count
    uint16_t reservation_ = 0;
    uint32_t sdrReadsSinceReserve_ = 0;
};

// Puts a scenario into a host configuration: one SimBmc per node, SMBIOS,
// machine type, BIOS ID, driver, library, LAN and iBMC answers. Returns the
// simulated BMCs so callers can look at the traffic.
std::vector<std::shared_ptr<SimBmc>> applyScenario(const Scenario& scenario, host::Config& config);

} // namespace ipmisel::sim
