// Reading a scenario file: the document, its nodes and their sections, all
// read through FieldReader.h.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

#include "host/sim/ScenarioSections.h"

// How a node answers requests beyond its logs and inventory: canned answers
// (OEM commands above all), I2C devices behind Master Write-Read, injected
// faults, and the transcript of a recorded BMC.
namespace ipmisel::sim::scenario {

namespace {

// Each object of a list as an entry for one request: "netfn" and "cmd"
// (both needed) first, then read(fields, entry) for the rest; keys nobody
// read are refused before the entry is taken.
template <class Entry, class Read>
void readRequests(const ValueReader& values, const json& v, const std::string& place,
                  std::vector<Entry>& out, Read&& read) {
    values.eachItem(v, place, [&](const json& item, const std::string& here) {
        FieldReader f(values, item, here);
        Entry entry;
        if (!f.num("netfn", entry.netfn, 0, 0x3F) || !f.num("cmd", entry.cmd)) {
            f.fail("needs \"netfn\" and \"cmd\"");
        }
        read(f, entry);
        f.finish();
        out.push_back(std::move(entry));
    });
}

// "fail": true; false says nothing and is refused rather than ignored.
bool readFailFlag(FieldReader& f) {
    bool failSend = false;
    if (f.flag("fail", failSend) && !failSend) {
        f.fail("fail", "can only be true (leave it out otherwise)");
    }
    return failSend;
}

// Registers from 0 on as hex, or register -> hex with gaps reading FFh.
std::vector<uint8_t> readRegisters(const ValueReader& values, const json& v,
                                   const std::string& place) {
    if (!v.is_object()) {
        return values.bytes(v, place);
    }
    std::vector<uint8_t> regs;
    values.eachNumberedKey(v, place, false,
                           [&](uint8_t first, const json& bytes, const std::string& here) {
                               auto b = values.bytes(bytes, here);
                               if (first + b.size() > 256) {
                                   values.fail(here, "runs past register FFh");
                               }
                               if (regs.size() < first + b.size()) {
                                   regs.resize(first + b.size(), 0xFF);
                               }
                               std::copy(b.begin(), b.end(), regs.begin() + first);
                           });
    return regs;
}

} // namespace

void parseI2c(const ValueReader& values, const json& v, const std::string& place, NodeSetup& node) {
    values.eachItem(v, place, [&](const json& item, const std::string& here) {
        FieldReader f(values, item, here);
        uint8_t bus = 0, address = 0;
        if (!f.num("bus", bus) || !f.num("address", address)) {
            f.fail("needs \"bus\" and \"address\"");
        }
        std::vector<uint8_t> regs;
        if (const json* r = f.get("registers")) {
            regs = readRegisters(values, *r, f.at("registers"));
        }
        f.finish();
        if (!node.i2c.emplace(std::make_pair(bus, address), std::move(regs)).second) {
            f.fail("the device on this bus and address is given twice");
        }
    });
}

void parseOem(const ValueReader& values, const json& v, const std::string& place, NodeSetup& node) {
    readRequests(values, v, place, node.canned, [](FieldReader& f, CannedAnswer& c) {
        f.bytes("data", c.data);
        f.each<bool>({{"prefix", &c.prefix}, {"fail", &c.sendFailure}});
        f.num("cc", c.cc);
        f.bytes("response", c.response);
    });
}

void parseFaults(const ValueReader& values, const json& v, const std::string& place,
                 NodeSetup& node) {
    readRequests(values, v, place, node.faults, [](FieldReader& f, Fault& x) {
        f.bytes("data", x.data);
        f.num("nth", x.nth, 1, std::numeric_limits<uint32_t>::max());
        f.flag("repeat", x.repeat);
        int actions = 0;
        if (f.num("cc", x.cc)) {
            x.action = Fault::Action::CompletionCode;
            ++actions;
        }
        if (readFailFlag(f)) {
            x.action = Fault::Action::SendFailure;
            ++actions;
        }
        if (f.num("truncate", x.truncateTo, 0, 255)) {
            x.action = Fault::Action::Truncate;
            ++actions;
        }
        if (actions != 1) {
            f.fail("give exactly one of \"cc\", \"fail\" or \"truncate\"");
        }
    });
}

void parseTranscript(const ValueReader& values, const json& v, const std::string& place,
                     NodeSetup& node) {
    readRequests(values, v, place, node.transcript, [](FieldReader& f, TranscriptEntry& t) {
        f.num("lun", t.lun, 0, 3);
        f.bytes("data", t.data);
        t.sendFailure = readFailFlag(f);
        bool hasCc = f.num("cc", t.cc);
        bool hasResponse = f.bytes("response", t.response);
        if (t.sendFailure && (hasCc || hasResponse)) {
            f.fail("a failed send has no \"cc\" or \"response\"");
        }
    });
}

} // namespace ipmisel::sim::scenario

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
