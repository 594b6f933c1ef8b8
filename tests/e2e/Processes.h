// Child processes for the end-to-end tests: OpenIPMI's BMC simulator on a free
// loopback port, and programs run to completion with their output captured.
// Every process started here is stopped by its PID, whatever the test does.
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ipmisel::e2e {

// The first PATH entry holding an executable `name`, or "".
std::string findProgram(const std::string& name);

struct RunResult {
    int code = -1; // exit code; -1 when killed or not started
    std::string out;
    std::string err;
    bool timedOut = false;
};

// Runs `argv` (argv[0] is looked up in PATH unless it holds a '/') with the
// parent's environment plus `env`, waits at most `limit`, and kills the child
// by its PID when the limit passes.
RunResult runProgram(const std::vector<std::string>& argv,
                     const std::map<std::string, std::string>& env = {},
                     std::chrono::milliseconds limit = std::chrono::seconds(30));

// A 16-byte SEL record as it travels (record ID low byte first).
using SelBytes = std::array<uint8_t, 16>;

// One ipmi_sim process serving tests/e2e/bmc/bmc.emu with the given SEL on
// 127.0.0.1. The SEL is written into the simulator's state folder before it
// starts, so the records keep the time stamps given here (records added
// through the simulator's commands would get its clock instead).
class IpmiSim {
  public:
    static constexpr const char* kUser = "ipmiusr";
    static constexpr const char* kPassword = "e2e-Secret-42";

    // Starts it; throws std::runtime_error with the simulator's output when it
    // does not come up.
    explicit IpmiSim(const std::vector<SelBytes>& sel);
    ~IpmiSim();
    IpmiSim(const IpmiSim&) = delete;
    IpmiSim& operator=(const IpmiSim&) = delete;

    uint16_t port() const { return port_; }
    std::string hostArg() const { return "127.0.0.1:" + std::to_string(port_); }
    pid_t pid() const { return pid_; }
    bool running() const { return pid_ > 0; }
    // Stops it now (SIGTERM, then SIGKILL when it does not go); idempotent.
    void stop();

  private:
    bool start(const std::string& folder);
    std::string dir_;
    pid_t pid_ = -1;
    uint16_t port_ = 0;
};

// The simulator's SEL state file for these records: one line per record,
// "ID:d:" and the bytes, each as a backslash and two hex digits, newest first
// (the order in which ipmi_sim 2.0 keeps them).
std::string selStateFile(const std::vector<SelBytes>& sel);

// A UDP port on 127.0.0.1 that nothing was bound to a moment ago.
uint16_t freeUdpPort();

} // namespace ipmisel::e2e
