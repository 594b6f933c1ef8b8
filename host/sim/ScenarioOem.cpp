// How a node answers requests beyond its logs and inventory: canned answers
// (OEM commands above all), I2C devices behind Master Write-Read, injected
// faults, and the transcript of a recorded BMC.
#include "host/sim/ScenarioSections.h"

namespace ipmisel::sim::scenario {

namespace {

// An oversize answer may run to four times the largest transfer buffer (312
// bytes) a caller keeps: far enough past it to show an overrun.
constexpr int64_t kMaxOversize = 1024;

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
    if (!v.IsObject()) {
        return values.bytes(v, place);
    }
    std::vector<uint8_t> regs;
    values.eachNumberedKey(v, place, true,
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
        if (f.num("oversize", x.oversizeBy, 1, kMaxOversize)) {
            x.action = Fault::Action::Oversize;
            ++actions;
        }
        if (actions != 1) {
            f.fail("give exactly one of \"cc\", \"fail\", \"truncate\" or \"oversize\"");
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
