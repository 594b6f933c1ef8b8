// Placeholder so the tree links while the simulated BMC is being written.
#include "host/sim/SimBmc.h"

namespace ipmisel::sim {

Scenario loadScenarioFile(const std::string& path) {
    throw ScenarioError(path + ": the simulated BMC is not built yet");
}
Scenario parseScenario(const std::string&, const std::string& origin) {
    throw ScenarioError(origin + ": the simulated BMC is not built yet");
}
SimBmc::SimBmc(NodeSpec spec, std::string name) : spec_(std::move(spec)), name_(std::move(name)) {}
host::IpmiResponse SimBmc::send(const host::IpmiRequest& request) {
    received_.push_back(request);
    host::IpmiResponse r;
    r.sent = true;
    r.cc = 0xC1;
    return r;
}
std::vector<std::shared_ptr<SimBmc>> applyScenario(const Scenario&, host::Config&) { return {}; }

} // namespace ipmisel::sim
