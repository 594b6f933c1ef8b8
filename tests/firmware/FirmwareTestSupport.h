// Running the firmware collectors against a simulated BMC and reading back
// what they wrote.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "firmware/FirmwareCollectors.h"
#include "tests/support/HostFixture.h"

namespace ipmisel::test {

using Bytes = std::vector<uint8_t>;
using Collector = int (*)(IPMIRequestVPD&, NOXAQSV20::fdriIOHandle*, int32_t,
                          const FirmwarePlatform&);

inline std::string Hex(const Bytes& bytes) {
    std::string out;
    for (uint8_t b : bytes) {
        char piece[4];
        std::snprintf(piece, sizeof piece, "%02X", b);
        out += (out.empty() ? "" : " ") + std::string(piece);
    }
    return out;
}

// Every property in order as "Name=value|", byte arrays as "Name=[01 02]|".
inline std::string PropsOf(const host::Instance& instance) {
    std::string out;
    for (const auto& p : instance.properties) {
        out += p.name + "=" +
               (p.kind == host::PropertyKind::Bytes ? "[" + Hex(p.bytes) + "]" : p.text) + "|";
    }
    return out;
}

class FirmwareTest : public ::testing::Test {
  protected:
    // Loads `nodes` (the JSON list of node objects) as the machine, forgetting
    // what earlier runs wrote.
    void Load(const std::string& nodes) {
        host.clear();
        bmcs = host.useScenario(R"({"nodes": )" + nodes + "}");
    }
    int Collect(Collector collector, int32_t node = 0) {
        IPMIRequestVPD request(NOXAQSV20::SPLibrary::GetSplibraryInstance(node));
        return collector(request, host::outputHandle(), node, platform);
    }
    // Lines at severity 2 or lower (what a user's log shows by default) as
    // "severity:text|".
    std::string Notable() const {
        std::string out;
        for (const auto& l : host.logs) {
            out += l.severity <= 2 ? std::to_string(l.severity) + ":" + l.text + "|" : "";
        }
        return out;
    }
    // Data of the requests a node received with this netfn and command, "|"-joined.
    std::string Sent(uint8_t netfn, uint8_t cmd, size_t node = 0) const {
        std::string out;
        for (const auto& r : bmcs.at(node)->received()) {
            out += r.netfn == netfn && r.cmd == cmd ? Hex(r.data) + "|" : "";
        }
        return out;
    }
    // The one instance written, or "none"/"several".
    std::string Written() const {
        return host.instances.size() == 1
                   ? host.instances[0].className + ":" + PropsOf(host.instances[0])
               : host.instances.empty() ? "none"
                                        : "several";
    }

    HostCapture host;
    std::vector<std::shared_ptr<sim::SimBmc>> bmcs;
    FirmwarePlatform platform;
};

} // namespace ipmisel::test
