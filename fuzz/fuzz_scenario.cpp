// Scenario files, which users write by hand and send us as recordings. The
// parser may refuse a file with a ScenarioError; any other exception, crash
// or hang is a fault. A scenario that parses is put into a host, each of its
// BMCs answers a round of standard requests (and every request its faults,
// canned answers and transcript name) through a recorder, and the recording
// must parse again and answer the same requests with the same bytes.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "fuzz/FuzzSeeds.h"
#include "host/runtime.h"
#include "host/sim/Recording.h"
#include "host/sim/SimBmc.h"

using namespace ipmisel;

namespace {

using Request = host::IpmiRequest;

Request Make(uint8_t netfn, uint8_t cmd, std::vector<uint8_t> data = {}) {
    Request r;
    r.netfn = netfn;
    r.cmd = cmd;
    r.data = std::move(data);
    return r;
}

// What a collection asks of a BMC, plus what the scenario itself names.
std::vector<Request> RequestsFor(const sim::NodeSetup& node) {
    std::vector<Request> out = {
        Make(0x06, 0x01),
        Make(0x0A, 0x40),
        Make(0x0A, 0x42),
        Make(0x0A, 0x48),
        Make(0x0A, 0x43, {0, 0, 0x00, 0x00, 0, 0xFF}),
        Make(0x0A, 0x43, {0, 0, 0x01, 0x00, 0, 0xFF}),
        Make(0x0A, 0x43, {0, 0, 0xFF, 0xFF, 0, 0xFF}),
        Make(0x0A, 0x20),
        Make(0x0A, 0x22),
        Make(0x0A, 0x23, {0, 0, 0x00, 0x00, 0, 5}),
        Make(0x0A, 0x23, {0, 0, 0x00, 0x00, 5, 0xFF}),
        Make(0x0A, 0x23, {0, 0, 0xFF, 0xFF, 0, 0x10}),
        Make(0x0A, 0x5A),
        Make(0x2E, 0x93, {0xC1, 0xA3, 0x00, 1, 0, 0, 0, 25, 0}),
        Make(0x2E, 0x93, {0xC1, 0xA3, 0x00, 1, 0, 25, 0, 25, 0}),
    };
    for (const auto& [id, bytes] : node.fru) {
        out.push_back(Make(0x0A, 0x10, {id}));
        out.push_back(Make(0x0A, 0x11, {id, 0, 0, 16}));
        out.push_back(Make(0x0A, 0x11, {id, 0xF0, 0x01, 0xFF}));
    }
    for (const auto& [device, registers] : node.i2c) {
        out.push_back(Make(0x06, 0x52, {device.first, device.second, 4, 0x00}));
    }
    for (const auto& f : node.faults) {
        out.push_back(Make(f.netfn, f.cmd, f.data));
    }
    for (const auto& c : node.canned) {
        out.push_back(Make(c.netfn, c.cmd, c.data));
    }
    size_t n = 0;
    for (const auto& t : node.transcript) {
        if (++n > 64) {
            break;
        }
        Request r = Make(t.netfn, t.cmd, t.data);
        r.lun = t.lun;
        out.push_back(r);
    }
    return out;
}

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "%s\n", what.c_str());
    std::abort();
}

// Seeds: each scenario whole, each node alone on its machine, and each
// section of each node alone.
void WriteSeeds() {
    for (const std::string& file : fuzz::SeedScenarioFiles()) {
        std::ifstream in(file);
        const nlohmann::json whole = nlohmann::json::parse(in);
        const std::string stem = std::filesystem::path(file).stem().string();
        auto write = [](const std::string& name, const nlohmann::json& j) {
            const std::string text = j.dump(1);
            fuzz::WriteSeed(name, std::vector<uint8_t>(text.begin(), text.end()));
        };
        write(stem, whole);
        nlohmann::json machine = whole;
        machine.erase("nodes");
        const auto& nodes = whole.value("nodes", nlohmann::json::array());
        for (size_t i = 0; i < nodes.size(); ++i) {
            nlohmann::json one = machine;
            one["nodes"] = nlohmann::json::array({nodes[i]});
            write(stem + "-" + std::to_string(i), one);
            for (const auto& [key, value] : nodes[i].items()) {
                nlohmann::json part = machine;
                part["nodes"] = nlohmann::json::array({nlohmann::json{{key, value}}});
                write(stem + "-" + std::to_string(i) + "-" + key, part);
            }
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return fuzz::StartTarget(WriteSeeds);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string json(reinterpret_cast<const char*>(data), size);
    sim::Scenario scenario;
    try {
        scenario = sim::parseScenario(json, "fuzz.json");
    } catch (const sim::ScenarioError& e) {
        if (std::string(e.what()).empty()) {
            Fail("a ScenarioError without a message");
        }
        return 0;
    }

    host::Config config;
    std::vector<std::shared_ptr<sim::SimBmc>> bmcs = sim::applyScenario(scenario, config);
    auto recorders = sim::recordNodes(config);
    std::vector<std::vector<Request>> asked;
    std::vector<std::vector<host::IpmiResponse>> answered;
    for (size_t i = 0; i < recorders.size() && i < scenario.nodes.size(); ++i) {
        asked.push_back(RequestsFor(scenario.nodes[i]));
        answered.emplace_back();
        for (const Request& r : asked.back()) {
            answered.back().push_back(recorders[i]->send(r));
        }
    }

    const std::string recording = sim::recordingToScenario(recorders, &config);
    sim::Scenario replay;
    try {
        replay = sim::parseScenario(recording, "recording.json");
    } catch (const sim::ScenarioError& e) {
        Fail(std::string("our own recording does not load: ") + e.what() + "\n" + recording);
    }
    host::Config again;
    sim::applyScenario(replay, again);
    for (size_t i = 0; i < asked.size(); ++i) {
        if (i >= again.nodes.size()) {
            Fail("the recording lost node " + std::to_string(i));
        }
        for (size_t k = 0; k < asked[i].size(); ++k) {
            const host::IpmiResponse want = answered[i][k];
            const host::IpmiResponse got = again.nodes[i]->send(asked[i][k]);
            if (got.sent != want.sent ||
                (want.sent && (got.cc != want.cc || got.data != want.data))) {
                Fail("node " + std::to_string(i) + " request " + std::to_string(k) +
                     " answers differently from its recording\n" + recording);
            }
        }
    }
    return 0;
}
