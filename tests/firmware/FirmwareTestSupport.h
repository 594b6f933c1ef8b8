// Running the firmware collectors against a simulated BMC and reading back
// what they wrote.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "firmware/FirmwareCollectors.h"
#include "tests/support/HostFixture.h"

namespace ipmisel::test {

using Bytes = std::vector<uint8_t>;
using Props = std::vector<std::pair<std::string, std::string>>;
using Collector = int (*)(IPMIRequestVPD&, NOXAQSV20::fdriIOHandle*, int32_t,
                          const FirmwarePlatform&);

// Every property in order; byte arrays as "[01 02 ...]".
inline Props PropsOf(const host::Instance& instance) {
    Props out;
    for (const auto& p : instance.properties) {
        if (p.kind != host::PropertyKind::Bytes) {
            out.emplace_back(p.name, p.text);
            continue;
        }
        std::string hex;
        for (uint8_t b : p.bytes) {
            char piece[16];
            std::snprintf(piece, sizeof piece, "%02X", b);
            hex += (hex.empty() ? "" : " ") + std::string(piece);
        }
        out.emplace_back(p.name, "[" + hex + "]");
    }
    return out;
}

class FirmwareTest : public ::testing::Test {
  protected:
    // Loads `nodes` (the JSON list of node objects) as the machine.
    void Load(const std::string& nodes) { bmcs = host.useScenario(R"({"nodes": )" + nodes + "}"); }
    int Collect(Collector collector, int32_t node = 0) {
        IPMIRequestVPD request(NOXAQSV20::SPLibrary::GetSplibraryInstance(node));
        return collector(request, host::outputHandle(), node, platform);
    }
    // Lines at severity 2 or lower (what a user's log shows by default).
    std::vector<LogLine> Notable() const {
        std::vector<LogLine> out;
        for (const auto& l : host.logs) {
            if (l.severity <= 2) {
                out.push_back(l);
            }
        }
        return out;
    }
    // Data of the requests node 0 received with this netfn and command.
    std::vector<Bytes> Sent(uint8_t netfn, uint8_t cmd, size_t node = 0) const {
        std::vector<Bytes> out;
        for (const auto& r : bmcs.at(node)->received()) {
            if (r.netfn == netfn && r.cmd == cmd) {
                out.push_back(r.data);
            }
        }
        return out;
    }

    HostCapture host;
    std::vector<std::shared_ptr<sim::SimBmc>> bmcs;
    FirmwarePlatform platform;
};

inline bool operator==(const LogLine& a, const LogLine& b) {
    return a.severity == b.severity && a.text == b.text;
}
inline std::ostream& operator<<(std::ostream& os, const LogLine& l) {
    return os << l.severity << ": " << l.text;
}

} // namespace ipmisel::test
