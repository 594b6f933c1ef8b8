// The SDR repository of a node: records as raw bytes, or as the fields of a
// full sensor, compact sensor or FRU device locator record.
#include "host/sim/Builders.h"
#include "host/sim/ScenarioSections.h"

namespace ipmisel::sim::scenario {

namespace {

void readName(FieldReader& f, SdrName& name) {
    std::string text;
    bool byText = f.text("name", text);
    std::vector<uint8_t> raw;
    bool byBytes = f.bytes("nameBytes", raw);
    if (byText && byBytes) {
        f.fail("give either \"name\" or \"nameBytes\", not both");
    }
    if (byText) {
        name = SdrName(text);
    } else if (byBytes) {
        name = SdrName(std::move(raw));
    }
    if (name.bytes.size() > 16) {
        f.fail(byText ? "name" : "nameBytes",
               std::to_string(name.bytes.size()) + " bytes, an ID string holds at most 16");
    }
}

uint8_t analogFormat(const ValueReader& values, const json& v, const std::string& place) {
    static const char* const names[] = {"unsigned", "onesComplement", "twosComplement", "none"};
    if (v.IsString()) {
        for (uint8_t i = 0; i < 4; ++i) {
            if (textOf(v) == names[i]) {
                return i;
            }
        }
    }
    return static_cast<uint8_t>(values.number(v, place, 0, 3));
}

uint8_t readUnits1(const ValueReader& values, const json& v, const std::string& place) {
    if (!v.IsObject()) {
        return static_cast<uint8_t>(values.number(v, place, 0, 255));
    }
    FieldReader f(values, v, place);
    Units1 u;
    if (const json* a = f.get("analogFormat")) {
        u.analogFormat = analogFormat(values, *a, f.at("analogFormat"));
    }
    f.num("rate", u.rate, 0, 7);
    f.num("modifier", u.modifier, 0, 3);
    f.flag("percentage", u.percentage);
    f.finish();
    return u.pack();
}

// The fields full and compact sensor records share.
template <class T> void sensorCommon(FieldReader& f, T& s) {
    f.num("id", s.id);
    f.num("version", s.version);
    f.num("owner", s.owner);
    f.num("ownerLun", s.ownerLun, 0, 3);
    f.each<uint8_t>({{"number", &s.number},
                     {"entityId", &s.entityId},
                     {"entityInstance", &s.entityInstance},
                     {"initialization", &s.initialization},
                     {"capabilities", &s.capabilities},
                     {"sensorType", &s.sensorType},
                     {"eventType", &s.eventType}});
    f.each<uint16_t>({{"assertionMask", &s.assertionMask},
                      {"deassertionMask", &s.deassertionMask},
                      {"readingMask", &s.readingMask}});
    if (const json* u = f.get("units1")) {
        s.units1 = readUnits1(f.values(), *u, f.at("units1"));
    }
    f.each<uint8_t>({{"baseUnit", &s.baseUnit},
                     {"modifierUnit", &s.modifierUnit},
                     {"hysteresisPos", &s.hysteresisPos},
                     {"hysteresisNeg", &s.hysteresisNeg},
                     {"oem", &s.oem}});
    readName(f, s.name);
}

void fullRecord(FieldReader& f, FullSensorFields& s) {
    sensorCommon(f, s);
    f.num("linearization", s.linearization);
    f.num("m", s.m, -512, 1023);
    f.num("b", s.b, -512, 1023);
    f.num("tolerance", s.tolerance, 0, 63);
    f.num("accuracy", s.accuracy, 0, 1023);
    f.num("accuracyExp", s.accuracyExp, 0, 3);
    f.num("direction", s.direction, 0, 3);
    f.num("rExp", s.rExp, -8, 15);
    f.num("bExp", s.bExp, -8, 15);
    f.each<uint8_t>({{"analogFlags", &s.analogFlags},
                     {"nominal", &s.nominal},
                     {"normalMax", &s.normalMax},
                     {"normalMin", &s.normalMin},
                     {"sensorMax", &s.sensorMax},
                     {"sensorMin", &s.sensorMin},
                     {"unr", &s.unr},
                     {"uc", &s.uc},
                     {"unc", &s.unc},
                     {"lnr", &s.lnr},
                     {"lc", &s.lc},
                     {"lnc", &s.lnc}});
}

void compactRecord(FieldReader& f, CompactSensorFields& s) {
    sensorCommon(f, s);
    f.num("sharing", s.sharing);
}

void fruLocatorRecord(FieldReader& f, FruLocatorFields& s) {
    f.num("id", s.id);
    f.each<uint8_t>(
        {{"version", &s.version}, {"deviceAddress", &s.deviceAddress}, {"fruId", &s.fruId}});
    f.flag("logical", s.logical);
    f.num("accessLun", s.accessLun, 0, 3);
    f.num("bus", s.bus, 0, 7);
    f.num("channel", s.channel, 0, 15);
    f.each<uint8_t>({{"deviceType", &s.deviceType},
                     {"deviceTypeModifier", &s.deviceTypeModifier},
                     {"entityId", &s.entityId},
                     {"entityInstance", &s.entityInstance},
                     {"oem", &s.oem}});
    readName(f, s.name);
}

// A record of one kind: its fields, read over the defaults of their struct
// (the ID the record takes when it gives none), built into bytes.
template <class Fields>
std::vector<uint8_t> buildRecord(const ValueReader& values, const json& v, const std::string& place,
                                 uint16_t id, void (*read)(FieldReader&, Fields&),
                                 std::vector<uint8_t> (*build)(const Fields&)) {
    FieldReader f(values, v, place);
    Fields s;
    s.id = id;
    read(f, s);
    f.finish();
    return build(s);
}

std::vector<uint8_t> sdrEntry(const ValueReader& values, const json& v, const std::string& place,
                              uint16_t defaultId) {
    if (v.IsString() || v.IsArray()) {
        auto raw = values.bytes(v, place);
        if (raw.size() < 5) {
            values.fail(place, std::to_string(raw.size()) +
                                   " bytes, an SDR record has a 5-byte header at least");
        }
        return raw;
    }
    FieldReader f(values, v, place, "hex bytes or an object");
    std::vector<uint8_t> out;
    int given = 0;
    auto kind = [&](const char* k, auto read, auto build) {
        if (const json* body = f.get(k)) {
            ++given;
            out = buildRecord(values, *body, f.at(k), defaultId, read, build);
        }
    };
    try {
        kind("full", fullRecord, buildFullSensorRecord);
        kind("compact", compactRecord, buildCompactSensorRecord);
        kind("fruLocator", fruLocatorRecord, buildFruLocatorRecord);
    } catch (const std::invalid_argument& e) {
        values.fail(place, e.what()); // a builder's range check
    }
    if (given != 1) {
        f.fail("give exactly one of \"full\", \"compact\" or \"fruLocator\"");
    }
    f.finish();
    return out;
}

} // namespace

void parseSdr(const ValueReader& values, const json& v, const std::string& place, NodeSetup& node) {
    FieldReader f(values, v, place);
    f.num("version", node.sdrVersion);
    f.num("maxReadCount", node.sdrMaxReadCount, 1, 255);
    f.num("reservationLifetime", node.sdrReservationLifetime);
    readRecords(f, node.sdrRecords, [&](const json& r, const std::string& here, uint16_t id) {
        return sdrEntry(values, r, here, id);
    });
    f.finish();
}

} // namespace ipmisel::sim::scenario
