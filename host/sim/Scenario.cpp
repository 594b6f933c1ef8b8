// Reading a scenario file: the document and its nodes. Each section has its
// own file (ScenarioSections.h); all of them read through FieldReader.h.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

#include "host/sim/ScenarioSections.h"

namespace ipmisel::sim {

namespace scenario {

namespace {

std::string hex16(uint32_t v) {
    static const char digits[] = "0123456789ABCDEF";
    std::string s = "0000h";
    for (int i = 3; i >= 0; --i) {
        s[static_cast<size_t>(3 - i)] = digits[(v >> (4 * i)) & 0xF];
    }
    return s;
}

uint16_t recordId(const std::vector<uint8_t>& record) {
    return static_cast<uint16_t>(record[0] | record[1] << 8);
}

void checkRecordIds(const ValueReader& values, const std::vector<std::vector<uint8_t>>& records,
                    const std::string& place) {
    std::map<uint16_t, size_t> seen;
    for (size_t i = 0; i < records.size(); ++i) {
        uint16_t id = recordId(records[i]);
        if (id == 0x0000 || id == 0xFFFF) {
            values.fail(ValueReader::item(place, i),
                        "record ID " + hex16(id) +
                            " is reserved (0000h asks for the first record, FFFFh for the last)");
        }
        auto [it, fresh] = seen.emplace(id, i);
        if (!fresh) {
            values.fail(ValueReader::item(place, i), "record ID " + hex16(id) +
                                                         " is already used by [" +
                                                         std::to_string(it->second) + "]");
        }
    }
}

NodeSetup parseNode(const ValueReader& values, const json& v, const std::string& place) {
    FieldReader f(values, v, place);
    NodeSetup node;
    f.text("name", node.name);
    f.bytes("deviceId", node.deviceId);
    f.num("fruMaxReadCount", node.fruMaxReadCount, 1, 255);
    f.num("latencyMs", node.latencyMs, 0, 10000);
    static const std::pair<const char*, Section> sections[] = {
        {"sel", parseSel},       {"sdr", parseSdr},
        {"fru", parseFru},       {"auxlog", parseAuxLog},
        {"i2c", parseI2c},       {"oem", parseOem},
        {"faults", parseFaults}, {"transcript", parseTranscript}};
    for (const auto& [name, parse] : sections) {
        if (const json* s = f.get(name)) {
            parse(values, *s, f.at(name), node);
        }
    }
    f.finish();
    if (f.has("transcript")) {
        // A replay answers from the recording alone; simulated parts beside it
        // would never be asked and only mislead the reader.
        for (const char* k :
             {"deviceId", "sel", "sdr", "fru", "fruMaxReadCount", "auxlog", "i2c"}) {
            if (f.has(k)) {
                f.fail(k, "a node with a \"transcript\" answers from it alone; leave \"" +
                              std::string(k) + "\" out");
            }
        }
    }
    return node;
}

Scenario parseDocument(const ValueReader& values, const json& doc, const std::string& origin) {
    Scenario s;
    s.origin = origin;
    FieldReader f(values, doc, "", "a JSON object at the top");
    readPlatform(values, f, s);
    if (const json* nodes = f.get("nodes")) {
        values.eachItem(*nodes, "nodes", [&](const json& node, const std::string& here) {
            s.nodes.push_back(parseNode(values, node, here));
        });
    }
    f.finish();
    return s;
}

} // namespace

void readRecords(FieldReader& f, std::vector<std::vector<uint8_t>>& records,
                 const RecordEntry& entry) {
    const json* list = f.get("records");
    if (!list) {
        return;
    }
    const std::string at = f.at("records");
    uint16_t next = 1;
    f.values().eachItem(*list, at, [&](const json& v, const std::string& here) {
        records.push_back(entry(v, here, next));
        next = static_cast<uint16_t>(recordId(records.back()) + 1);
    });
    checkRecordIds(f.values(), records, at);
}

} // namespace scenario

Scenario parseScenario(const std::string& text, const std::string& origin) {
    scenario::ValueReader values(origin);
    scenario::json doc;
    try {
        doc = scenario::json::parse(text);
    } catch (const scenario::json::parse_error& e) {
        // "[json.exception.parse_error.101] parse error at line 3, column 7: ..."
        std::string what = e.what();
        auto cut = what.find("] ");
        values.fail("", cut == std::string::npos ? what : what.substr(cut + 2));
    }
    return scenario::parseDocument(values, doc, origin);
}

Scenario loadScenarioFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw ScenarioError(path + ": cannot open: " + std::strerror(errno));
    }
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad()) {
        throw ScenarioError(path + ": cannot read: " + std::strerror(errno));
    }
    return parseScenario(text.str(), path);
}

} // namespace ipmisel::sim
