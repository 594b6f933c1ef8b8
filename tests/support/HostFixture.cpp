#include "tests/support/HostFixture.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <unistd.h>

namespace ipmisel::test {

host::IpmiResponse FakeTransport::send(const host::IpmiRequest& request) {
    received.push_back(request);
    return handler_(request);
}

host::IpmiResponse ok(std::vector<uint8_t> data) {
    host::IpmiResponse r;
    r.sent = true;
    r.cc = 0;
    r.data = std::move(data);
    return r;
}

host::IpmiResponse cc(uint8_t code) {
    host::IpmiResponse r;
    r.sent = true;
    r.cc = code;
    return r;
}

host::IpmiResponse notSent() {
    return host::IpmiResponse{};
}

HostCapture::HostCapture(host::Config config) {
    config.logSink = [this](int severity, const std::string& text) {
        logs.push_back({severity, text});
    };
    config.coreLogSink = [this](uint32_t cls, const std::string& text) {
        coreLogs.emplace_back(cls, text);
    };
    config.instanceSink = [this](const host::Instance& instance) { instances.push_back(instance); };
    if (config.pluginPath.empty()) {
        config.pluginPath = binDir() + "/ipmisel.so";
    }
    if (!config.utcOffsetMinutes) {
        config.utcOffsetMinutes = 0;
    }
    host::configure(std::move(config));
}

HostCapture::~HostCapture() {
    host::configure(host::Config{});
}

void HostCapture::setNodes(std::vector<std::shared_ptr<host::Transport>> nodes) {
    host::config().nodes = std::move(nodes);
}

std::vector<std::shared_ptr<sim::SimBmc>> HostCapture::useScenario(const std::string& json) {
    auto scenario = sim::parseScenario(json, "<test scenario>");
    return sim::applyScenario(scenario, host::config());
}

std::vector<std::shared_ptr<sim::SimBmc>> HostCapture::useScenarioFile(const std::string& path) {
    auto scenario = sim::loadScenarioFile(path);
    return sim::applyScenario(scenario, host::config());
}

bool HostCapture::hasLog(const std::string& text) const {
    return findLog(text) != std::string::npos;
}

bool HostCapture::hasLog(int severity, const std::string& text) const {
    return std::any_of(logs.begin(), logs.end(),
                       [&](const LogLine& l) { return l.severity == severity && l.text == text; });
}

bool HostCapture::logContains(const std::string& fragment) const {
    return std::any_of(logs.begin(), logs.end(), [&](const LogLine& l) {
        return l.text.find(fragment) != std::string::npos;
    });
}

size_t HostCapture::countLog(const std::string& text) const {
    return static_cast<size_t>(
        std::count_if(logs.begin(), logs.end(), [&](const LogLine& l) { return l.text == text; }));
}

size_t HostCapture::findLog(const std::string& text, size_t from) const {
    for (size_t i = from; i < logs.size(); ++i) {
        if (logs[i].text == text) {
            return i;
        }
    }
    return std::string::npos;
}

std::vector<host::Instance> HostCapture::instancesOf(const std::string& className) const {
    std::vector<host::Instance> out;
    for (const auto& i : instances) {
        if (i.className == className) {
            out.push_back(i);
        }
    }
    return out;
}

void HostCapture::clear() {
    logs.clear();
    coreLogs.clear();
    instances.clear();
}

namespace {

// The folders made so far, removed when the test program ends (kept when
// IPMISEL_KEEP_TEMP is set, to look at what a failing test left): a suite
// run makes some forty, and a developer's machine runs it many times a day.
std::vector<std::string>& madeFolders() {
    static std::vector<std::string> folders;
    return folders;
}

void removeMadeFolders() {
    const char* keep = std::getenv("IPMISEL_KEEP_TEMP");
    if (keep != nullptr && *keep != '\0') {
        return;
    }
    for (const std::string& folder : madeFolders()) {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
}

} // namespace

std::string makeTempDir(const std::string& hint) {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/" + hint + "-XXXXXX";
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    if (!mkdtemp(buf.data())) {
        throw std::runtime_error("cannot make a temporary folder");
    }
    if (madeFolders().empty()) {
        std::atexit(removeMadeFolders);
    }
    madeFolders().emplace_back(buf.data());
    return std::string(buf.data());
}

std::string writeTempFile(const std::string& name, const std::string& content) {
    std::string path = makeTempDir() + "/" + name;
    std::ofstream out(path, std::ios::binary);
    out << content;
    return path;
}

std::string binDir() {
    const char* env = std::getenv("IPMISEL_BIN_DIR");
    return env && *env ? env : IPMISEL_BIN_DIR;
}

std::string sourceDir() {
    return IPMISEL_SOURCE_DIR;
}

} // namespace ipmisel::test
