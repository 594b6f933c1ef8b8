// A whole collection of every class against BMCs whose every answer comes
// from the input: a platform byte, a node count byte, then the answers in
// the form fuzz/FuzzBmc.h reads, shared by the nodes in the order they ask.
// PluginCollect has to return, and nothing may crash, hang or leak on the way.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/FuzzBmc.h"
#include "fuzz/FuzzHost.h"
#include "fuzz/FuzzSeeds.h"
#include "host/runtime.h"
#include "host/sim/SimBmc.h"
#include "plugin/Driver.h"
#include "plugin/PluginEntry.h"
#include "plugin/module.h"

using namespace ipmisel;

namespace {

const char* kClasses[] = {
    "OXASG_IPMILogRecord",
    "OXASG_VTXAuxDebugRecord",
    "OXASG_IPMIFRU",
    "OXASG_IPMIFirmwareElement",
    "OXASG_CPLDFirmwareElement",
    "OXASG_FPGAFirmwareElement",
    "OXASG_QsvVPD",
    "OXASG_AMIFirmwareElement",
};

// The machines a collection may find itself on: what the platform probes
// read decides which firmware collectors ask what.
const char* const kPlatforms[] = {
    R"({"smbios": [{"type": 38}]})",
    R"({"machineType": "QB11", "iBMC": true, "smbios": [{"type": 38},
        {"type": 1, "manufacturer": "Example Systems", "product": "RS2200 Rack Server"},
        {"type": 216, "formatted": "02 01 02"}, {"type": 217, "formatted": "01 00"}]})",
    R"({"machineType": "QB20", "smbios": [{"type": 38},
        {"type": 1, "manufacturer": "Example Systems", "product": "Blade Server"}]})",
    R"({"machineType": "QB30", "smbios": [{"type": 38},
        {"type": 216, "formatted": "01 03"}, {"type": 217, "formatted": "02 00 01"}]})",
};
constexpr size_t kPlatformCount = sizeof kPlatforms / sizeof kPlatforms[0];

time_t FixedClock() {
    return 1718096400;
}

void SetUpPlatform(size_t platform, size_t nodes) {
    fuzz::SetUpHost();
    std::string json = kPlatforms[platform];
    json.pop_back();
    json += R"(, "nodes": [{})";
    for (size_t i = 1; i < nodes; ++i) {
        json += ", {}";
    }
    json += "]}";
    sim::applyScenario(sim::parseScenario(json, "platform"), host::config());
}

void Collect() {
    ResetDriverState();
    g_clock = FixedClock;
    PluginInitialize(host::hostCallbacks());
    PluginCollect(host::hostCallbacks(), host::outputHandle(), kClasses,
                  static_cast<int32_t>(sizeof kClasses / sizeof kClasses[0]));
    PluginTerminate();
}

// Seeds: one node of each scenario behind a recorder that writes its answers
// in the input's form, collected on each platform.
void WriteSeeds() {
    fuzz::ForEachSeedNode(
        [](const std::string& tag, const sim::Scenario&, size_t node, NOXAQSV20::SPLibrary*) {
            auto bmc = host::config().nodes.at(node);
            for (size_t p = 0; p < kPlatformCount; ++p) {
                std::vector<uint8_t> seed = {static_cast<uint8_t>(p), 0};
                SetUpPlatform(p, 1);
                host::config().nodes = {std::make_shared<fuzz::SeedRecorder>(bmc, seed)};
                Collect();
                fuzz::WriteSeed(tag + "-p" + std::to_string(p), seed);
            }
        });
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::SetUpHost();
    fuzz::WriteSeedsAndExitWhenAsked(WriteSeeds);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    const size_t platform = data[0] % kPlatformCount;
    const size_t nodes = 1 + data[1] % 2;
    SetUpPlatform(platform, nodes);
    fuzz::AnswerStream stream{data + 2, size - 2, 0};
    std::vector<std::shared_ptr<host::Transport>> bmcs;
    for (size_t i = 0; i < nodes; ++i) {
        bmcs.push_back(std::make_shared<fuzz::FuzzedBmc>(stream));
    }
    host::config().nodes = bmcs;
    Collect();
    return 0;
}
