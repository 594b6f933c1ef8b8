// Test support: a host configured for one test, with the log, the core log and
// the instances captured, and small transports written inline.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/runtime.h"
#include "host/sim/SimBmc.h"

namespace ipmisel::test {

struct LogLine {
    int severity;
    std::string text;
};

// A transport answering through a function; records what it received.
class FakeTransport : public host::Transport {
  public:
    using Handler = std::function<host::IpmiResponse(const host::IpmiRequest&)>;
    explicit FakeTransport(Handler handler) : handler_(std::move(handler)) {}
    host::IpmiResponse send(const host::IpmiRequest& request) override;
    std::string describe() const override { return "fake BMC"; }
    std::vector<host::IpmiRequest> received;

  private:
    Handler handler_;
};

host::IpmiResponse ok(std::vector<uint8_t> data); // cc 00 and data
host::IpmiResponse cc(uint8_t code);              // a completion code alone
host::IpmiResponse notSent();                     // the send failed

// Configures the host on construction (sinks installed over whatever `config`
// holds) and resets it on destruction.
class HostCapture {
  public:
    explicit HostCapture(host::Config config = {});
    ~HostCapture();
    host::Config& config() { return host::config(); }

    // Installs transports for nodes 0..n-1.
    void setNodes(std::vector<std::shared_ptr<host::Transport>> nodes);
    // Loads a scenario (JSON text) into the host; returns its simulated BMCs.
    std::vector<std::shared_ptr<sim::SimBmc>> useScenario(const std::string& json);
    std::vector<std::shared_ptr<sim::SimBmc>> useScenarioFile(const std::string& path);

    std::vector<LogLine> logs;
    std::vector<std::pair<uint32_t, std::string>> coreLogs;
    std::vector<host::Instance> instances;

    bool hasLog(const std::string& text) const; // a line equal to text
    bool hasLog(int severity, const std::string& text) const;
    bool logContains(const std::string& fragment) const; // any line containing it
    size_t countLog(const std::string& text) const;
    // Index of the first line equal to text at or after `from`, or npos.
    size_t findLog(const std::string& text, size_t from = 0) const;
    std::vector<host::Instance> instancesOf(const std::string& className) const;
    void clear();
};

// Writes `content` to a fresh file under a temporary folder and returns its path.
std::string writeTempFile(const std::string& name, const std::string& content);
// A fresh temporary folder, removed with what it holds when the test program
// ends (unless IPMISEL_KEEP_TEMP is set).
std::string makeTempDir(const std::string& hint = "ipmisel");

// Where the built products and the sources are.
std::string binDir();
std::string sourceDir();

} // namespace ipmisel::test
