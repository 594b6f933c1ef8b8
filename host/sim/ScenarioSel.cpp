// The System Event Log of a node: records as 16 raw bytes, as event fields or
// as an OEM record's type, time stamp and OEM bytes.
#include "host/sim/Builders.h"
#include "host/sim/ScenarioSections.h"

namespace ipmisel::sim::scenario {

namespace {

std::vector<uint8_t> oemRecord(FieldReader& f, uint16_t id, uint8_t type) {
    if (type < 0xC0) {
        f.fail("type", "\"oem\" needs an OEM record type (C0h-FFh)");
    }
    if (f.has("timestamp") && type >= 0xE0) {
        f.fail("timestamp", "a record of type E0h-FFh has no time stamp");
    }
    uint32_t timestamp = 0;
    f.timestamp("timestamp", timestamp);
    std::vector<uint8_t> oem;
    f.bytes("oem", oem);
    f.finish();
    try {
        return selOemRecord(id, type, timestamp, oem);
    } catch (const std::invalid_argument& e) {
        f.fail("oem", e.what());
    }
}

std::vector<uint8_t> eventRecord(FieldReader& f, uint16_t id, uint8_t type) {
    if (type >= 0xC0) {
        f.fail("type", "an OEM record type: give the record's OEM bytes in \"oem\"");
    }
    SelEventFields e;
    e.id = id;
    e.type = type;
    f.timestamp("timestamp", e.timestamp);
    f.each<uint8_t>({{"generator", &e.generator},
                     {"generator2", &e.generator2},
                     {"evmRev", &e.evmRev},
                     {"sensorType", &e.sensorType},
                     {"sensorNumber", &e.sensorNumber}});
    f.num("eventType", e.eventType, 0, 0x7F);
    f.flag("deassertion", e.deassertion);
    std::vector<uint8_t> data;
    if (f.bytes("data", data)) {
        if (data.empty() || data.size() > 3) {
            f.fail("data", std::to_string(data.size()) + " bytes, event data is 1 to 3 bytes");
        }
        for (size_t i = 0; i < 3; ++i) {
            e.data[i] = i < data.size() ? data[i] : 0xFF;
        }
    }
    f.finish();
    return selRecord(e);
}

std::vector<uint8_t> selEntry(const ValueReader& values, const json& v, const std::string& place,
                              uint16_t defaultId) {
    if (v.IsString() || v.IsArray()) {
        return values.fixedBytes(v, place, 16, "a SEL record");
    }
    FieldReader f(values, v, place, "16 hex bytes or an object");
    uint16_t id = defaultId;
    f.num("id", id);
    uint8_t type = 0x02;
    f.num("type", type);
    return f.has("oem") ? oemRecord(f, id, type) : eventRecord(f, id, type);
}

} // namespace

void parseSel(const ValueReader& values, const json& v, const std::string& place, NodeSetup& node) {
    FieldReader f(values, v, place);
    f.num("version", node.selVersion);
    f.optNum("reportedCount", node.selReportedCount);
    if (const json* t = f.get("time")) {
        if (t->IsString() && textOf(*t) == "now") {
            node.selTimeNow = true;
        } else {
            node.selTime = values.timestamp(*t, f.at("time"));
        }
    }
    readRecords(f, node.selRecords, [&](const json& r, const std::string& here, uint16_t id) {
        return selEntry(values, r, here, id);
    });
    f.finish();
}

} // namespace ipmisel::sim::scenario
