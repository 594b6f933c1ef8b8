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

// The header: the platform, then one node or two.
size_t SetUpPlatform(const uint8_t* header) {
    const size_t nodes = 1 + header[1] % 2;
    fuzz::SetUpHost();
    std::string json = kPlatforms[header[0] % kPlatformCount];
    json.pop_back();
    json += R"(, "nodes": [{})";
    for (size_t i = 1; i < nodes; ++i) {
        json += ", {}";
    }
    json += "]}";
    sim::applyScenario(sim::parseScenario(json, "platform"), host::config());
    return nodes;
}

void Collect(const uint8_t*) {
    ResetDriverState();
    g_clock = FixedClock;
    PluginInitialize(host::hostCallbacks());
    PluginCollect(host::hostCallbacks(), host::outputHandle(), kClasses,
                  static_cast<int32_t>(sizeof kClasses / sizeof kClasses[0]));
    PluginTerminate();
}

} // namespace

// Seeds: one node of each scenario collected on each platform.
const fuzz::AnswerTarget fuzz::kAnswerTarget{SetUpPlatform, Collect, "p", kPlatformCount, 0};
