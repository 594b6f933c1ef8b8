// The auxiliary log of a node: a list of entries, or an object that also sets
// the count and time its status reports. Entries are raw bytes (header and
// body) or fields.
#include <optional>

#include "host/sim/Builders.h"
#include "host/sim/ScenarioSections.h"

namespace ipmisel::sim::scenario {

namespace {

// An entry before its successor is known: built from fields, or raw bytes.
struct PendingEntry {
    std::optional<AuxEntryFields> fields;
    std::vector<uint8_t> raw;

    uint16_t recordId() const {
        return fields ? fields->recordId : static_cast<uint16_t>(raw[5] | raw[6] << 8);
    }
};

std::vector<uint8_t> rawEntry(const ValueReader& values, const json& v, const std::string& place) {
    auto raw = values.bytes(v, place);
    if (raw.size() < 10) {
        values.fail(place,
                    std::to_string(raw.size()) + " bytes, an entry starts with a 10-byte header");
    }
    if (raw.size() > 10 + 255) {
        values.fail(place,
                    std::to_string(raw.size() - 10) + " body bytes, an entry holds at most 255");
    }
    return raw;
}

AuxEntryFields entryFields(const ValueReader& values, const json& v, const std::string& place,
                           uint16_t defaultId) {
    FieldReader f(values, v, place, "hex bytes or an object");
    AuxEntryFields a;
    a.recordId = defaultId;
    f.num("recordId", a.recordId);
    f.each<uint8_t>({{"type", &a.type},
                     {"severity", &a.severity},
                     {"class", &a.cls},
                     {"subClass", &a.subClass}});
    f.num("operation", a.operation);
    f.num("instance", a.instance);
    f.bytes("callerId", a.callerId, "a caller ID");
    if (f.bytes("extendedData", a.extendedData) && a.extendedData.size() > 233) {
        f.fail("extendedData", std::to_string(a.extendedData.size()) +
                                   " bytes, at most 233 fit beside the 22-byte status code");
    }
    f.num("manufacturer", a.manufacturer, 0, 0xFFFFFF);
    f.finish();
    return a;
}

} // namespace

void parseAuxLog(const ValueReader& values, const json& v, const std::string& place,
                 NodeSetup& node) {
    node.auxLogSupported = true;
    const json* entries = &v;
    std::string at = place;
    if (v.IsObject()) {
        FieldReader f(values, v, place);
        f.optNum("reportedCount", node.auxLogReportedCount);
        f.timestamp("time", node.auxLogTime);
        entries = f.get("entries");
        at = f.at("entries");
        f.finish();
        if (!entries) {
            return;
        }
    } else if (!v.IsArray()) {
        values.fail(place, "expected a list of entries or an object, got " + typeName(v));
    }

    // Entries given by fields learn their successor (header bytes 7..8) from
    // the entry after them, so they are finished in a second pass.
    std::vector<PendingEntry> pending;
    uint16_t nextId = 1;
    values.eachItem(*entries, at, [&](const json& e, const std::string& here) {
        PendingEntry item;
        if (e.IsString() || e.IsArray()) {
            item.raw = rawEntry(values, e, here);
        } else {
            item.fields = entryFields(values, e, here, nextId);
        }
        nextId = static_cast<uint16_t>(item.recordId() + 1);
        pending.push_back(std::move(item));
    });
    for (size_t i = 0; i < pending.size(); ++i) {
        if (!pending[i].fields) {
            node.auxLog.push_back({pending[i].raw});
            continue;
        }
        uint16_t successor = i + 1 < pending.size() ? pending[i + 1].recordId() : 0xFFFF;
        node.auxLog.push_back({buildAuxEntry(*pending[i].fields, successor)});
    }
}

} // namespace ipmisel::sim::scenario
