// How a node answers requests beyond its logs and inventory: canned answers
// (OEM commands above all), I2C devices behind Master Write-Read, injected
// faults, and the transcript of a recorded BMC.
#include "host/sim/ScenarioSections.h"

namespace ipmisel::sim::scenario {

namespace {

// An oversize answer may run to four times the largest transfer buffer (312
// bytes) a caller keeps: far enough past it to show an overrun.
constexpr int64_t kMaxOversize = 1024;

// An object as an entry for one request: "netfn" and "cmd" (both needed)
// first, then read(fields, entry) for the rest; keys nobody read are refused
// before the entry is taken.
template <class Entry, class Read>
Entry readRequest(const ValueReader& values, const json& item, const std::string& here,
                  Read&& read) {
    FieldReader f(values, item, here);
    Entry entry;
    if (!f.num("netfn", entry.netfn, 0, 0x3F) || !f.num("cmd", entry.cmd)) {
        f.fail("needs \"netfn\" and \"cmd\"");
    }
    read(f, entry);
    f.finish();
    return entry;
}

// Each object of a list as such an entry.
template <class Entry, class Read>
void readRequests(const ValueReader& values, const json& v, const std::string& place,
                  std::vector<Entry>& out, Read&& read) {
    values.eachItem(v, place, [&](const json& item, const std::string& here) {
        out.push_back(readRequest<Entry>(values, item, here, read));
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

namespace {

// A recording's usual entry, read without the bookkeeping that names places
// and refuses unknown keys: every key one of the entry's own and given once,
// every value well formed. False for anything else, a mistake included, which
// the general reading then reports with its place.
bool quickEntry(const ValueReader& values, const json& item, TranscriptEntry& t) {
    if (!item.IsObject()) {
        return false;
    }
    enum Key : unsigned { kNetfn, kCmd, kLun, kData, kFail, kCc, kResponse, kKeys };
    static constexpr std::string_view kNames[kKeys] = {"netfn", "cmd", "lun",     "data",
                                                       "fail",  "cc",  "response"};
    static const std::string nowhere; // never shown: a failure falls back
    unsigned seen = 0;
    try {
        for (auto m = item.MemberBegin(); m != item.MemberEnd(); ++m) {
            const std::string_view name = keyOf(m);
            if (name == "comment") {
                continue;
            }
            unsigned k = 0;
            while (k < kKeys && kNames[k] != name) {
                ++k;
            }
            if (k == kKeys || (seen >> k & 1u) != 0) {
                return false;
            }
            seen |= 1u << k;
            const json& v = m->value;
            switch (k) {
            case kNetfn:
                t.netfn = static_cast<uint8_t>(values.number(v, nowhere, 0, 0x3F));
                break;
            case kCmd:
                t.cmd = static_cast<uint8_t>(values.number(v, nowhere, 0, 0xFF));
                break;
            case kLun:
                t.lun = static_cast<uint8_t>(values.number(v, nowhere, 0, 3));
                break;
            case kData:
                t.data = values.bytes(v, nowhere);
                break;
            case kFail:
                if (!v.IsBool() || !v.GetBool()) {
                    return false;
                }
                t.sendFailure = true;
                break;
            case kCc:
                t.cc = static_cast<uint8_t>(values.number(v, nowhere, 0, 0xFF));
                break;
            default:
                t.response = values.bytes(v, nowhere);
                break;
            }
        }
    } catch (const ScenarioError&) {
        return false;
    }
    const bool both = (seen & (1u << kNetfn | 1u << kCmd)) == (1u << kNetfn | 1u << kCmd);
    const bool answered = (seen & (1u << kCc | 1u << kResponse)) != 0;
    return both && !(t.sendFailure && answered);
}

} // namespace

void parseTranscript(const ValueReader& values, const json& v, const std::string& place,
                     NodeSetup& node) {
    auto read = [](FieldReader& f, TranscriptEntry& t) {
        f.num("lun", t.lun, 0, 3);
        f.bytes("data", t.data);
        t.sendFailure = readFailFlag(f);
        bool hasCc = f.num("cc", t.cc);
        bool hasResponse = f.bytes("response", t.response);
        if (t.sendFailure && (hasCc || hasResponse)) {
            f.fail("a failed send has no \"cc\" or \"response\"");
        }
    };
    // A recording of a full SEL holds tens of thousands of entries.
    values.eachItem(v, place, [&](const json& item, const std::string& here) {
        TranscriptEntry t;
        if (!quickEntry(values, item, t)) {
            t = readRequest<TranscriptEntry>(values, item, here, read);
        }
        node.transcript.push_back(std::move(t));
    });
}

} // namespace ipmisel::sim::scenario
