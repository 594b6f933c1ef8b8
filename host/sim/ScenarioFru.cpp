// The FRU devices of a node: a device ID ("0", "0x01") to its inventory bytes.
#include "host/sim/ScenarioSections.h"

namespace ipmisel::sim::scenario {

void parseFru(const ValueReader& values, const json& v, const std::string& place, NodeSetup& node) {
    if (!v.IsObject()) {
        values.fail(place, "expected an object of FRU device ID -> hex bytes, got " + typeName(v));
    }
    values.eachNumberedKey(
        v, place, true, [&](uint8_t id, const json& bytes, const std::string& here) {
            if (node.fru.count(id)) {
                values.fail(here, "FRU device " + std::to_string(id) + " is given twice");
            }
            node.fru[id] = values.bytes(bytes, here);
        });
}

} // namespace ipmisel::sim::scenario
