#include "host/sim/Recording.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "host/sim/Builders.h"

namespace ipmisel::sim {

namespace {

using json = nlohmann::ordered_json;

std::string hexByte(uint8_t v) {
    static const char digits[] = "0123456789ABCDEF";
    return std::string("\"0x") + digits[v >> 4] + digits[v & 0x0F] + "\"";
}

// One transcript entry on one line: {"netfn": "0x0A", "cmd": "0x43", ...}.
std::string entryLine(const TranscriptEntry& t) {
    std::string s = "{\"netfn\": " + hexByte(t.netfn);
    if (t.lun != 0) {
        s += ", \"lun\": " + std::to_string(t.lun);
    }
    s += ", \"cmd\": " + hexByte(t.cmd) + ", \"data\": \"" + toHex(t.data) + "\"";
    if (t.sendFailure) {
        s += ", \"fail\": true}";
    } else {
        s += ", \"cc\": " + hexByte(t.cc) + ", \"response\": \"" + toHex(t.response) + "\"}";
    }
    return s;
}

} // namespace

RecordingTransport::RecordingTransport(std::shared_ptr<host::Transport> inner)
    : inner_(std::move(inner)) {}

std::string RecordingTransport::describe() const {
    return inner_ ? inner_->describe() : std::string("recording without a BMC");
}

host::IpmiResponse RecordingTransport::send(const host::IpmiRequest& request) {
    host::IpmiResponse r;
    if (inner_) {
        r = inner_->send(request);
    }
    TranscriptEntry t;
    t.netfn = request.netfn;
    t.lun = request.lun;
    t.cmd = request.cmd;
    t.data = request.data;
    t.sendFailure = !r.sent;
    if (r.sent) {
        t.cc = r.cc;
        t.response = r.data;
    }
    transcript_.push_back(std::move(t));
    return r;
}

std::string recordingToScenario(const std::vector<std::shared_ptr<RecordingTransport>>& nodes,
                                const host::Config* platform) {
    // The platform part is small: nlohmann writes it. The transcripts can run
    // to many thousands of entries and are written one per line by hand.
    json head = json::object();
    head["comment"] = "recorded from a BMC; replay with --sim";
    if (platform) {
        head["machineType"] = platform->machineType;
        head["machineTypeFromID"] = platform->machineTypeFromID;
        head["biosID"] = platform->biosID;
        head["driverPresent"] = platform->driverPresent;
        head["libraryAvailable"] = platform->libraryAvailable;
        head["iBMC"] = platform->iBMC;
        if (platform->lan) {
            head["lan"] = *platform->lan;
        }
        std::optional<std::vector<std::vector<uint8_t>>> structures;
        if (platform->smbios) {
            structures = platform->smbios->structures();
        }
        head["smbiosReadable"] = structures.has_value();
        if (structures) {
            json list = json::array();
            for (const auto& s : *structures) {
                list.push_back(toHex(s));
            }
            head["smbios"] = list;
        }
    }
    std::string out = head.dump(2);
    out.erase(out.size() - 1); // reopen the object for "nodes"
    while (!out.empty() && (out.back() == '\n' || out.back() == ' ')) {
        out.pop_back();
    }
    out += ",\n  \"nodes\": [";
    for (size_t n = 0; n < nodes.size(); ++n) {
        out += n ? ",\n    {" : "\n    {";
        json name = "recorded from " + (nodes[n] ? nodes[n]->describe() : std::string("a BMC"));
        out += "\n      \"name\": " + name.dump() + ",\n      \"transcript\": [";
        const auto empty = std::vector<TranscriptEntry>{};
        const auto& entries = nodes[n] ? nodes[n]->transcript() : empty;
        for (size_t i = 0; i < entries.size(); ++i) {
            out += i ? ",\n        " : "\n        ";
            out += entryLine(entries[i]);
        }
        out += entries.empty() ? "]" : "\n      ]";
        out += "\n    }";
    }
    out += nodes.empty() ? "]\n}\n" : "\n  ]\n}\n";
    return out;
}

void writeRecording(const std::string& path,
                    const std::vector<std::shared_ptr<RecordingTransport>>& nodes,
                    const host::Config* platform) {
    std::string text = recordingToScenario(nodes, platform);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        throw std::runtime_error(path + ": cannot write: " + std::strerror(errno));
    }
    out << text;
    out.flush();
    if (!out) {
        throw std::runtime_error(path + ": cannot write: " + std::strerror(errno));
    }
}

std::vector<std::shared_ptr<RecordingTransport>> recordNodes(host::Config& config) {
    std::vector<std::shared_ptr<RecordingTransport>> recorders;
    for (auto& node : config.nodes) {
        auto r = std::make_shared<RecordingTransport>(node);
        recorders.push_back(r);
        node = r;
    }
    return recorders;
}

} // namespace ipmisel::sim
