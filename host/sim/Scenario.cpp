// Reading a scenario file. Everything a person can get wrong is refused with
// one line naming the file, the place in the document and the problem; keys
// nobody knows are refused too, so a misspelt field never passes silently as
// its default.
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "host/sim/Builders.h"
#include "host/sim/SimBmc.h"

namespace ipmisel::sim {

namespace {

using json = nlohmann::json;

std::string oneLine(std::string text) {
    for (char& c : text) {
        if (c == '\n' || c == '\r') {
            c = ' ';
        }
    }
    return text;
}

std::string typeName(const json& v) {
    if (v.is_number_integer()) {
        return "an integer";
    }
    if (v.is_number_float()) {
        return "a fraction";
    }
    if (v.is_string()) {
        return "a string";
    }
    if (v.is_boolean()) {
        return "a boolean";
    }
    if (v.is_array()) {
        return "a list";
    }
    if (v.is_object()) {
        return "an object";
    }
    return "null";
}

std::string hex16(uint32_t v) {
    static const char digits[] = "0123456789ABCDEF";
    std::string s = "0000h";
    for (int i = 3; i >= 0; --i) {
        s[static_cast<size_t>(3 - i)] = digits[(v >> (4 * i)) & 0xF];
    }
    return s;
}

class Parser {
  public:
    explicit Parser(std::string origin) : origin_(std::move(origin)) {}

    [[noreturn]] void fail(const std::string& place, const std::string& problem) const {
        throw ScenarioError(
            oneLine(origin_ + ": " + (place.empty() ? "" : place + ": ") + problem));
    }

    static std::string key(const std::string& place, const std::string& k) {
        return place.empty() ? k : place + "." + k;
    }
    static std::string item(const std::string& place, size_t i) {
        return place + "[" + std::to_string(i) + "]";
    }

    int64_t number(const json& v, const std::string& place, int64_t min, int64_t max) const {
        int64_t value = 0;
        std::string shown;
        if (v.is_number_unsigned()) {
            uint64_t u = v.get<uint64_t>();
            if (u > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
                fail(place, std::to_string(u) + " is out of range " + range(min, max));
            }
            value = static_cast<int64_t>(u);
            shown = std::to_string(u);
        } else if (v.is_number_integer()) {
            value = v.get<int64_t>();
            shown = std::to_string(value);
        } else if (v.is_string()) {
            shown = v.get<std::string>();
            if (!parseNumberText(shown, value)) {
                fail(place, "\"" + shown + "\" is not a number (write 31, \"31\" or \"0x1F\")");
            }
        } else {
            fail(place, "expected a number, got " + typeName(v));
        }
        if (value < min || value > max) {
            fail(place, shown + " is out of range " + range(min, max));
        }
        return value;
    }

    std::vector<uint8_t> bytes(const json& v, const std::string& place) const {
        if (v.is_string()) {
            try {
                return parseHex(v.get<std::string>());
            } catch (const std::invalid_argument& e) {
                fail(place, std::string("not hex bytes: ") + e.what());
            }
        }
        if (v.is_array()) {
            std::vector<uint8_t> out;
            for (size_t i = 0; i < v.size(); ++i) {
                out.push_back(static_cast<uint8_t>(number(v[i], item(place, i), 0, 255)));
            }
            return out;
        }
        fail(place, "expected hex bytes (\"01 0A FF\") or a list of numbers, got " + typeName(v));
    }

    bool flag(const json& v, const std::string& place) const {
        if (!v.is_boolean()) {
            fail(place, "expected true or false, got " + typeName(v));
        }
        return v.get<bool>();
    }

    std::string text(const json& v, const std::string& place) const {
        if (!v.is_string()) {
            fail(place, "expected a string, got " + typeName(v));
        }
        return v.get<std::string>();
    }

    const json& list(const json& v, const std::string& place) const {
        if (!v.is_array()) {
            fail(place, "expected a list, got " + typeName(v));
        }
        return v;
    }

    // A time stamp: seconds since 1970 as a number, or a UTC date and time
    // "2024-03-01T12:00:00Z" (the "T", the seconds and the "Z" are optional).
    uint32_t timestamp(const json& v, const std::string& place) const {
        if (v.is_string()) {
            const std::string s = v.get<std::string>();
            if (s.size() >= 10 && s[4] == '-') {
                return dateTime(s, place);
            }
        }
        return static_cast<uint32_t>(number(v, place, 0, 0xFFFFFFFFLL));
    }

  private:
    static std::string range(int64_t min, int64_t max) {
        return std::to_string(min) + ".." + std::to_string(max);
    }

    static bool parseNumberText(const std::string& s, int64_t& out) {
        size_t i = 0;
        bool negative = false;
        if (i < s.size() && s[i] == '-') {
            negative = true;
            ++i;
        }
        int base = 10;
        if (i + 1 < s.size() && s[i] == '0' && (s[i + 1] == 'x' || s[i + 1] == 'X')) {
            base = 16;
            i += 2;
        }
        if (i >= s.size()) {
            return false;
        }
        uint64_t v = 0;
        for (; i < s.size(); ++i) {
            int d = -1;
            char c = s[i];
            if (c >= '0' && c <= '9') {
                d = c - '0';
            } else if (base == 16 && c >= 'a' && c <= 'f') {
                d = c - 'a' + 10;
            } else if (base == 16 && c >= 'A' && c <= 'F') {
                d = c - 'A' + 10;
            }
            if (d < 0) {
                return false;
            }
            v = v * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
            if (v > (1ULL << 62)) {
                return false;
            }
        }
        out = negative ? -static_cast<int64_t>(v) : static_cast<int64_t>(v);
        return true;
    }

    uint32_t dateTime(const std::string& s, const std::string& place) const {
        int y = 0, mo = 0, d = 0, h = 0, mi = 0, sec = 0;
        char sep = 'T';
        char tail[8] = {0};
        int n = std::sscanf(s.c_str(), "%4d-%2d-%2d%c%2d:%2d:%2d%7s", &y, &mo, &d, &sep, &h, &mi,
                            &sec, tail);
        bool good = n >= 3 && mo >= 1 && mo <= 12 && d >= 1 && d <= 31 && h >= 0 && h <= 23 &&
                    mi >= 0 && mi <= 59 && sec >= 0 && sec <= 60;
        if (n >= 4) {
            good = good && (sep == 'T' || sep == ' ') && n >= 6;
        }
        if (n == 8) {
            good = good && std::strcmp(tail, "Z") == 0;
        }
        if (!good) {
            fail(place, "\"" + s + "\" is not a UTC date and time like \"2024-03-01T12:00:00Z\"");
        }
        std::tm tm{};
        tm.tm_year = y - 1900;
        tm.tm_mon = mo - 1;
        tm.tm_mday = d;
        tm.tm_hour = h;
        tm.tm_min = mi;
        tm.tm_sec = sec;
        time_t t = timegm(&tm);
        if (t < 0 || static_cast<int64_t>(t) > 0xFFFFFFFFLL) {
            fail(place, "\"" + s + "\" does not fit a 32-bit time stamp");
        }
        return static_cast<uint32_t>(t);
    }

    std::string origin_;
};

// The keys of one JSON object, read one by one; whatever was not asked for
// is refused by finish(). "comment" is allowed everywhere and ignored.
class Fields {
  public:
    Fields(const Parser& p, const json& obj, std::string place, const char* what = "an object")
        : p_(p), obj_(obj), place_(std::move(place)) {
        if (!obj.is_object()) {
            p_.fail(place_, std::string("expected ") + what + ", got " + typeName(obj));
        }
    }

    bool has(const char* k) const { return obj_.contains(k); }
    std::string at(const char* k) const { return Parser::key(place_, k); }
    const std::string& place() const { return place_; }

    const json* get(const char* k) {
        known_.insert(k);
        auto it = obj_.find(k);
        return it == obj_.end() ? nullptr : &*it;
    }

    template <class T>
    bool num(const char* k, T& out, int64_t min = std::numeric_limits<T>::min(),
             int64_t max = std::numeric_limits<T>::max()) {
        const json* v = get(k);
        if (!v) {
            return false;
        }
        out = static_cast<T>(p_.number(*v, at(k), min, max));
        return true;
    }
    template <class T> void optNum(const char* k, std::optional<T>& out) {
        T v{};
        if (num(k, v)) {
            out = v;
        }
    }
    bool flag(const char* k, bool& out) {
        const json* v = get(k);
        if (v) {
            out = p_.flag(*v, at(k));
        }
        return v != nullptr;
    }
    bool text(const char* k, std::string& out) {
        const json* v = get(k);
        if (v) {
            out = p_.text(*v, at(k));
        }
        return v != nullptr;
    }
    bool bytes(const char* k, std::vector<uint8_t>& out) {
        const json* v = get(k);
        if (v) {
            out = p_.bytes(*v, at(k));
        }
        return v != nullptr;
    }

    void finish() const {
        for (auto it = obj_.begin(); it != obj_.end(); ++it) {
            if (it.key() != "comment" && !known_.count(it.key())) {
                p_.fail(place_, "unknown key \"" + it.key() + "\"");
            }
        }
    }

  private:
    const Parser& p_;
    const json& obj_;
    std::string place_;
    std::set<std::string> known_;
};

// Checks the record IDs of a SEL or SDR: no reserved IDs, no duplicates (a
// duplicate would send a walk by next-record ID round in circles).
void checkRecordIds(const Parser& p, const std::vector<std::vector<uint8_t>>& records,
                    const std::string& place) {
    std::map<uint16_t, size_t> seen;
    for (size_t i = 0; i < records.size(); ++i) {
        uint16_t id = static_cast<uint16_t>(records[i][0] | records[i][1] << 8);
        if (id == 0x0000 || id == 0xFFFF) {
            p.fail(Parser::item(place, i), "record ID " + hex16(id) +
                                               " is reserved (0000h asks for the first record, "
                                               "FFFFh for the last)");
        }
        auto [it, fresh] = seen.emplace(id, i);
        if (!fresh) {
            p.fail(Parser::item(place, i), "record ID " + hex16(id) + " is already used by [" +
                                               std::to_string(it->second) + "]");
        }
    }
}

// ---- SEL -------------------------------------------------------------------------

std::vector<uint8_t> selEntry(const Parser& p, const json& v, const std::string& place,
                              uint16_t defaultId) {
    if (v.is_string() || v.is_array()) {
        auto raw = p.bytes(v, place);
        if (raw.size() != 16) {
            p.fail(place, std::to_string(raw.size()) + " bytes, a SEL record has 16");
        }
        return raw;
    }
    Fields f(p, v, place, "16 hex bytes or an object");
    uint16_t id = defaultId;
    f.num("id", id);
    uint8_t type = 0x02;
    f.num("type", type);
    if (f.has("oem")) {
        if (type < 0xC0) {
            p.fail(f.at("type"), "\"oem\" needs an OEM record type (C0h-FFh)");
        }
        uint32_t ts = 0;
        if (const json* t = f.get("timestamp")) {
            if (type >= 0xE0) {
                p.fail(f.at("timestamp"), "a record of type E0h-FFh has no time stamp");
            }
            ts = p.timestamp(*t, f.at("timestamp"));
        }
        std::vector<uint8_t> oem;
        f.bytes("oem", oem);
        f.finish();
        try {
            return selOemRecord(id, type, ts, oem);
        } catch (const std::invalid_argument& e) {
            p.fail(f.at("oem"), e.what());
        }
    }
    if (type >= 0xC0) {
        p.fail(f.at("type"), "an OEM record type: give the record's OEM bytes in \"oem\"");
    }
    SelEventFields e;
    e.id = id;
    e.type = type;
    if (const json* t = f.get("timestamp")) {
        e.timestamp = p.timestamp(*t, f.at("timestamp"));
    }
    f.num("generator", e.generator);
    f.num("generator2", e.generator2);
    f.num("evmRev", e.evmRev);
    f.num("sensorType", e.sensorType);
    f.num("sensorNumber", e.sensorNumber);
    f.num("eventType", e.eventType, 0, 0x7F);
    f.flag("deassertion", e.deassertion);
    std::vector<uint8_t> data;
    if (f.bytes("data", data)) {
        if (data.empty() || data.size() > 3) {
            p.fail(f.at("data"),
                   std::to_string(data.size()) + " bytes, event data is 1 to 3 bytes");
        }
        for (size_t i = 0; i < 3; ++i) {
            e.data[i] = i < data.size() ? data[i] : 0xFF;
        }
    }
    f.finish();
    return selRecord(e);
}

void parseSel(const Parser& p, const json& v, const std::string& place, NodeSetup& node) {
    Fields f(p, v, place);
    f.num("version", node.selVersion);
    f.optNum("reportedCount", node.selReportedCount);
    if (const json* t = f.get("time")) {
        if (t->is_string() && t->get<std::string>() == "now") {
            node.selTimeNow = true;
        } else {
            node.selTime = p.timestamp(*t, f.at("time"));
        }
    }
    if (const json* r = f.get("records")) {
        std::string at = f.at("records");
        p.list(*r, at);
        uint16_t next = 1;
        for (size_t i = 0; i < r->size(); ++i) {
            auto rec = selEntry(p, (*r)[i], Parser::item(at, i), next);
            next = static_cast<uint16_t>((rec[0] | rec[1] << 8) + 1);
            node.selRecords.push_back(std::move(rec));
        }
        checkRecordIds(p, node.selRecords, at);
    }
    f.finish();
}

// ---- SDR -------------------------------------------------------------------------

void readName(const Parser& p, Fields& f, SdrName& name) {
    std::string text;
    bool byText = f.text("name", text);
    std::vector<uint8_t> raw;
    bool byBytes = f.bytes("nameBytes", raw);
    if (byText && byBytes) {
        p.fail(f.place(), "give either \"name\" or \"nameBytes\", not both");
    }
    if (byText) {
        name = SdrName(text);
    } else if (byBytes) {
        name = SdrName(std::move(raw));
    }
    if (name.bytes.size() > 16) {
        p.fail(f.at(byText ? "name" : "nameBytes"),
               std::to_string(name.bytes.size()) + " bytes, an ID string holds at most 16");
    }
}

uint8_t readUnits1(const Parser& p, const json& v, const std::string& place) {
    if (!v.is_object()) {
        return static_cast<uint8_t>(p.number(v, place, 0, 255));
    }
    Fields f(p, v, place);
    Units1 u;
    if (const json* a = f.get("analogFormat")) {
        static const char* const names[] = {"unsigned", "onesComplement", "twosComplement", "none"};
        bool found = false;
        if (a->is_string()) {
            for (uint8_t i = 0; i < 4; ++i) {
                if (a->get<std::string>() == names[i]) {
                    u.analogFormat = i;
                    found = true;
                }
            }
        }
        if (!found) {
            u.analogFormat = static_cast<uint8_t>(p.number(*a, f.at("analogFormat"), 0, 3));
        }
    }
    f.num("rate", u.rate, 0, 7);
    f.num("modifier", u.modifier, 0, 3);
    f.flag("percentage", u.percentage);
    f.finish();
    return u.pack();
}

template <class T> void sensorCommon(const Parser& p, Fields& f, T& s) {
    f.num("id", s.id);
    f.num("version", s.version);
    f.num("owner", s.owner);
    f.num("ownerLun", s.ownerLun, 0, 3);
    f.num("number", s.number);
    f.num("entityId", s.entityId);
    f.num("entityInstance", s.entityInstance);
    f.num("initialization", s.initialization);
    f.num("capabilities", s.capabilities);
    f.num("sensorType", s.sensorType);
    f.num("eventType", s.eventType);
    f.num("assertionMask", s.assertionMask);
    f.num("deassertionMask", s.deassertionMask);
    f.num("readingMask", s.readingMask);
    if (const json* u = f.get("units1")) {
        s.units1 = readUnits1(p, *u, f.at("units1"));
    }
    f.num("baseUnit", s.baseUnit);
    f.num("modifierUnit", s.modifierUnit);
    f.num("hysteresisPos", s.hysteresisPos);
    f.num("hysteresisNeg", s.hysteresisNeg);
    f.num("oem", s.oem);
    readName(p, f, s.name);
}

std::vector<uint8_t> fullRecord(const Parser& p, const json& v, const std::string& place,
                                uint16_t id) {
    Fields f(p, v, place);
    FullSensorFields s;
    s.id = id;
    sensorCommon(p, f, s);
    f.num("linearization", s.linearization);
    f.num("m", s.m, -512, 1023);
    f.num("b", s.b, -512, 1023);
    f.num("tolerance", s.tolerance, 0, 63);
    f.num("accuracy", s.accuracy, 0, 1023);
    f.num("accuracyExp", s.accuracyExp, 0, 3);
    f.num("direction", s.direction, 0, 3);
    f.num("rExp", s.rExp, -8, 15);
    f.num("bExp", s.bExp, -8, 15);
    f.num("analogFlags", s.analogFlags);
    f.num("nominal", s.nominal);
    f.num("normalMax", s.normalMax);
    f.num("normalMin", s.normalMin);
    f.num("sensorMax", s.sensorMax);
    f.num("sensorMin", s.sensorMin);
    f.num("unr", s.unr);
    f.num("uc", s.uc);
    f.num("unc", s.unc);
    f.num("lnr", s.lnr);
    f.num("lc", s.lc);
    f.num("lnc", s.lnc);
    f.finish();
    return buildFullSensorRecord(s);
}

std::vector<uint8_t> compactRecord(const Parser& p, const json& v, const std::string& place,
                                   uint16_t id) {
    Fields f(p, v, place);
    CompactSensorFields s;
    s.id = id;
    sensorCommon(p, f, s);
    f.num("sharing", s.sharing);
    f.finish();
    return buildCompactSensorRecord(s);
}

std::vector<uint8_t> fruLocatorRecord(const Parser& p, const json& v, const std::string& place,
                                      uint16_t id) {
    Fields f(p, v, place);
    FruLocatorFields s;
    s.id = id;
    f.num("id", s.id);
    f.num("version", s.version);
    f.num("deviceAddress", s.deviceAddress);
    f.num("fruId", s.fruId);
    f.flag("logical", s.logical);
    f.num("accessLun", s.accessLun, 0, 3);
    f.num("bus", s.bus, 0, 7);
    f.num("channel", s.channel, 0, 15);
    f.num("deviceType", s.deviceType);
    f.num("deviceTypeModifier", s.deviceTypeModifier);
    f.num("entityId", s.entityId);
    f.num("entityInstance", s.entityInstance);
    f.num("oem", s.oem);
    readName(p, f, s.name);
    f.finish();
    return buildFruLocatorRecord(s);
}

std::vector<uint8_t> sdrEntry(const Parser& p, const json& v, const std::string& place,
                              uint16_t defaultId) {
    if (v.is_string() || v.is_array()) {
        auto raw = p.bytes(v, place);
        if (raw.size() < 5) {
            p.fail(place, std::to_string(raw.size()) +
                              " bytes, an SDR record has a 5-byte header at least");
        }
        return raw;
    }
    Fields f(p, v, place, "hex bytes or an object");
    using Builder =
        std::vector<uint8_t> (*)(const Parser&, const json&, const std::string&, uint16_t);
    static const std::pair<const char*, Builder> kinds[] = {
        {"full", fullRecord}, {"compact", compactRecord}, {"fruLocator", fruLocatorRecord}};
    std::vector<uint8_t> out;
    int given = 0;
    for (const auto& [name, build] : kinds) {
        if (const json* body = f.get(name)) {
            ++given;
            out = build(p, *body, f.at(name), defaultId);
        }
    }
    if (given != 1) {
        p.fail(place, "give exactly one of \"full\", \"compact\" or \"fruLocator\"");
    }
    f.finish();
    return out;
}

void parseSdr(const Parser& p, const json& v, const std::string& place, NodeSetup& node) {
    Fields f(p, v, place);
    f.num("version", node.sdrVersion);
    f.num("maxReadCount", node.sdrMaxReadCount, 1, 255);
    f.num("reservationLifetime", node.sdrReservationLifetime);
    if (const json* r = f.get("records")) {
        std::string at = f.at("records");
        p.list(*r, at);
        uint16_t next = 1;
        for (size_t i = 0; i < r->size(); ++i) {
            std::string here = Parser::item(at, i);
            std::vector<uint8_t> rec;
            try {
                rec = sdrEntry(p, (*r)[i], here, next);
            } catch (const std::invalid_argument& e) {
                p.fail(here, e.what()); // a builder's range check
            }
            next = static_cast<uint16_t>((rec[0] | rec[1] << 8) + 1);
            node.sdrRecords.push_back(std::move(rec));
        }
        checkRecordIds(p, node.sdrRecords, at);
    }
    f.finish();
}

// ---- auxiliary log ---------------------------------------------------------------------

void parseAuxLog(const Parser& p, const json& v, const std::string& place, NodeSetup& node) {
    node.auxLogSupported = true;
    const json* entries = &v;
    std::string at = place;
    std::optional<Fields> f;
    if (v.is_object()) {
        f.emplace(p, v, place);
        f->optNum("reportedCount", node.auxLogReportedCount);
        if (const json* t = f->get("time")) {
            node.auxLogTime = p.timestamp(*t, f->at("time"));
        }
        entries = f->get("entries");
        at = f->at("entries");
        f->finish();
        if (!entries) {
            return;
        }
    } else if (!v.is_array()) {
        p.fail(place, "expected a list of entries or an object, got " + typeName(v));
    }
    p.list(*entries, at);

    // Entries given by fields learn their successor (header bytes 7..8) from
    // the entry after them, so they are finished in a second pass.
    struct Pending {
        std::optional<AuxEntryFields> fields;
        std::vector<uint8_t> raw;
    };
    std::vector<Pending> pending;
    uint16_t nextId = 1;
    for (size_t i = 0; i < entries->size(); ++i) {
        const json& e = (*entries)[i];
        std::string here = Parser::item(at, i);
        Pending item;
        if (e.is_string() || e.is_array()) {
            item.raw = p.bytes(e, here);
            if (item.raw.size() < 10) {
                p.fail(here, std::to_string(item.raw.size()) +
                                 " bytes, an entry starts with a 10-byte header");
            }
            if (item.raw.size() > 10 + 255) {
                p.fail(here, std::to_string(item.raw.size() - 10) +
                                 " body bytes, an entry holds at most 255");
            }
            nextId = static_cast<uint16_t>((item.raw[5] | item.raw[6] << 8) + 1);
        } else {
            Fields ef(p, e, here, "hex bytes or an object");
            AuxEntryFields a;
            a.recordId = nextId;
            ef.num("recordId", a.recordId);
            ef.num("type", a.type);
            ef.num("severity", a.severity);
            ef.num("class", a.cls);
            ef.num("subClass", a.subClass);
            ef.num("operation", a.operation);
            ef.num("instance", a.instance);
            std::vector<uint8_t> caller;
            if (ef.bytes("callerId", caller)) {
                if (caller.size() != 10) {
                    p.fail(ef.at("callerId"),
                           std::to_string(caller.size()) + " bytes, a caller ID has 10");
                }
                std::copy(caller.begin(), caller.end(), a.callerId.begin());
            }
            if (ef.bytes("extendedData", a.extendedData) && a.extendedData.size() > 233) {
                p.fail(ef.at("extendedData"), std::to_string(a.extendedData.size()) +
                                                  " bytes, at most 233 fit beside the 22-byte "
                                                  "status code");
            }
            ef.num("manufacturer", a.manufacturer, 0, 0xFFFFFF);
            ef.finish();
            nextId = static_cast<uint16_t>(a.recordId + 1);
            item.fields = a;
        }
        pending.push_back(std::move(item));
    }
    for (size_t i = 0; i < pending.size(); ++i) {
        if (!pending[i].fields) {
            node.auxLog.push_back({pending[i].raw});
            continue;
        }
        uint16_t successor = 0xFFFF;
        if (i + 1 < pending.size()) {
            const Pending& n = pending[i + 1];
            successor =
                n.fields ? n.fields->recordId : static_cast<uint16_t>(n.raw[5] | n.raw[6] << 8);
        }
        node.auxLog.push_back({buildAuxEntry(*pending[i].fields, successor)});
    }
}

// ---- the rest of a node ----------------------------------------------------------

void parseFru(const Parser& p, const json& v, const std::string& place, NodeSetup& node) {
    if (!v.is_object()) {
        p.fail(place, "expected an object of FRU device ID -> hex bytes, got " + typeName(v));
    }
    for (auto it = v.begin(); it != v.end(); ++it) {
        if (it.key() == "comment") {
            continue;
        }
        std::string here = place + "[\"" + it.key() + "\"]";
        auto id = static_cast<uint8_t>(p.number(json(it.key()), here, 0, 255));
        if (node.fru.count(id)) {
            p.fail(here, "FRU device " + std::to_string(id) + " is given twice");
        }
        node.fru[id] = p.bytes(it.value(), here);
    }
}

void parseI2c(const Parser& p, const json& v, const std::string& place, NodeSetup& node) {
    p.list(v, place);
    for (size_t i = 0; i < v.size(); ++i) {
        Fields f(p, v[i], Parser::item(place, i));
        uint8_t bus = 0, address = 0;
        if (!f.num("bus", bus) || !f.num("address", address)) {
            p.fail(f.place(), "needs \"bus\" and \"address\"");
        }
        std::vector<uint8_t> regs;
        if (const json* r = f.get("registers")) {
            if (r->is_object()) {
                for (auto it = r->begin(); it != r->end(); ++it) {
                    std::string here = f.at("registers") + "[\"" + it.key() + "\"]";
                    auto at = static_cast<size_t>(p.number(json(it.key()), here, 0, 255));
                    auto b = p.bytes(it.value(), here);
                    if (at + b.size() > 256) {
                        p.fail(here, "runs past register FFh");
                    }
                    if (regs.size() < at + b.size()) {
                        regs.resize(at + b.size(), 0xFF);
                    }
                    std::copy(b.begin(), b.end(), regs.begin() + static_cast<long>(at));
                }
            } else {
                regs = p.bytes(*r, f.at("registers"));
            }
        }
        f.finish();
        if (!node.i2c.emplace(std::make_pair(bus, address), std::move(regs)).second) {
            p.fail(f.place(), "the device on this bus and address is given twice");
        }
    }
}

void parseOem(const Parser& p, const json& v, const std::string& place, NodeSetup& node) {
    p.list(v, place);
    for (size_t i = 0; i < v.size(); ++i) {
        Fields f(p, v[i], Parser::item(place, i));
        CannedAnswer c;
        if (!f.num("netfn", c.netfn, 0, 0x3F) || !f.num("cmd", c.cmd)) {
            p.fail(f.place(), "needs \"netfn\" and \"cmd\"");
        }
        f.bytes("data", c.data);
        f.flag("prefix", c.prefix);
        f.flag("fail", c.sendFailure);
        f.num("cc", c.cc);
        f.bytes("response", c.response);
        f.finish();
        node.canned.push_back(std::move(c));
    }
}

void parseFaults(const Parser& p, const json& v, const std::string& place, NodeSetup& node) {
    p.list(v, place);
    for (size_t i = 0; i < v.size(); ++i) {
        Fields f(p, v[i], Parser::item(place, i));
        Fault x;
        if (!f.num("netfn", x.netfn, 0, 0x3F) || !f.num("cmd", x.cmd)) {
            p.fail(f.place(), "needs \"netfn\" and \"cmd\"");
        }
        f.bytes("data", x.data);
        f.num("nth", x.nth, 1, std::numeric_limits<uint32_t>::max());
        f.flag("repeat", x.repeat);
        int actions = 0;
        if (f.num("cc", x.cc)) {
            x.action = Fault::Action::CompletionCode;
            ++actions;
        }
        bool failSend = false;
        if (f.flag("fail", failSend)) {
            if (!failSend) {
                p.fail(f.at("fail"), "can only be true (leave it out otherwise)");
            }
            x.action = Fault::Action::SendFailure;
            ++actions;
        }
        if (f.num("truncate", x.truncateTo, 0, 255)) {
            x.action = Fault::Action::Truncate;
            ++actions;
        }
        if (actions != 1) {
            p.fail(f.place(), "give exactly one of \"cc\", \"fail\" or \"truncate\"");
        }
        f.finish();
        node.faults.push_back(std::move(x));
    }
}

void parseTranscript(const Parser& p, const json& v, const std::string& place, NodeSetup& node) {
    p.list(v, place);
    for (size_t i = 0; i < v.size(); ++i) {
        Fields f(p, v[i], Parser::item(place, i));
        TranscriptEntry t;
        if (!f.num("netfn", t.netfn, 0, 0x3F) || !f.num("cmd", t.cmd)) {
            p.fail(f.place(), "needs \"netfn\" and \"cmd\"");
        }
        f.num("lun", t.lun, 0, 3);
        f.bytes("data", t.data);
        if (f.flag("fail", t.sendFailure) && !t.sendFailure) {
            p.fail(f.at("fail"), "can only be true (leave it out otherwise)");
        }
        bool hasCc = f.num("cc", t.cc);
        bool hasResponse = f.bytes("response", t.response);
        if (t.sendFailure && (hasCc || hasResponse)) {
            p.fail(f.place(), "a failed send has no \"cc\" or \"response\"");
        }
        f.finish();
        node.transcript.push_back(std::move(t));
    }
}

NodeSetup parseNode(const Parser& p, const json& v, const std::string& place) {
    Fields f(p, v, place);
    NodeSetup node;
    f.text("name", node.name);
    f.bytes("deviceId", node.deviceId);
    f.num("fruMaxReadCount", node.fruMaxReadCount, 1, 255);
    using Section = void (*)(const Parser&, const json&, const std::string&, NodeSetup&);
    static const std::pair<const char*, Section> sections[] = {
        {"sel", parseSel},       {"sdr", parseSdr},
        {"fru", parseFru},       {"auxlog", parseAuxLog},
        {"i2c", parseI2c},       {"oem", parseOem},
        {"faults", parseFaults}, {"transcript", parseTranscript}};
    for (const auto& [name, parse] : sections) {
        if (const json* s = f.get(name)) {
            parse(p, *s, f.at(name), node);
        }
    }
    f.finish();
    if (f.has("transcript")) {
        // A replay answers from the recording alone; simulated parts beside it
        // would never be asked and only mislead the reader.
        for (const char* k :
             {"deviceId", "sel", "sdr", "fru", "fruMaxReadCount", "auxlog", "i2c"}) {
            if (f.has(k)) {
                p.fail(f.at(k), "a node with a \"transcript\" answers from it alone; leave \"" +
                                    std::string(k) + "\" out");
            }
        }
    }
    return node;
}

// ---- SMBIOS ------------------------------------------------------------------------

std::vector<std::string> readStrings(const Parser& p, Fields& f) {
    std::vector<std::string> out;
    if (const json* s = f.get("strings")) {
        std::string at = f.at("strings");
        p.list(*s, at);
        for (size_t i = 0; i < s->size(); ++i) {
            std::string t = p.text((*s)[i], Parser::item(at, i));
            if (t.empty() || t.find('\0') != std::string::npos) {
                p.fail(Parser::item(at, i), "an SMBIOS string is neither empty nor holds a NUL");
            }
            out.push_back(std::move(t));
        }
    }
    return out;
}

std::vector<uint8_t> smbiosEntry(const Parser& p, const json& v, const std::string& place,
                                 uint16_t defaultHandle) {
    if (v.is_string() || v.is_array()) {
        auto raw = p.bytes(v, place);
        if (raw.size() < 6 || raw[1] < 4 || raw.size() < raw[1] + 2u) {
            p.fail(place, "not a whole SMBIOS structure (header, formatted area, string set)");
        }
        if (raw[raw.size() - 1] != 0 || raw[raw.size() - 2] != 0) {
            p.fail(place, "the structure does not end in the string set's double NUL");
        }
        return raw;
    }
    Fields f(p, v, place, "hex bytes or an object");
    uint8_t type = 0;
    if (!f.num("type", type)) {
        p.fail(place, "needs \"type\"");
    }
    uint16_t handle = defaultHandle;
    f.num("handle", handle);
    std::vector<uint8_t> out;
    if (f.has("formatted") || (type != 1 && type != 11 && type != 38)) {
        std::vector<uint8_t> formatted;
        f.bytes("formatted", formatted);
        if (formatted.size() > 251) {
            p.fail(f.at("formatted"), "a formatted area holds at most 251 bytes after the header");
        }
        out = smbiosStructure(type, handle, formatted, readStrings(p, f));
    } else if (type == 38) {
        SmbiosIpmiDevice d;
        d.handle = handle;
        f.num("interfaceType", d.interfaceType);
        f.num("specRevision", d.specRevision);
        f.num("i2cAddress", d.i2cAddress);
        f.num("nvStorage", d.nvStorage);
        int64_t base = static_cast<int64_t>(d.baseAddress);
        f.num("baseAddress", base, 0, std::numeric_limits<int64_t>::max());
        d.baseAddress = static_cast<uint64_t>(base);
        f.num("baseModifier", d.baseModifier);
        f.num("interrupt", d.interrupt);
        out = smbiosIpmiDevice(d);
    } else if (type == 11) {
        auto strings = readStrings(p, f);
        if (strings.size() > 255) {
            p.fail(f.at("strings"), "more than 255 OEM strings");
        }
        out = smbiosOemStrings(handle, strings);
    } else {
        SmbiosSystem s;
        s.handle = handle;
        for (auto [k, field] :
             {std::pair{"manufacturer", &s.manufacturer}, std::pair{"product", &s.product},
              std::pair{"version", &s.version}, std::pair{"serial", &s.serial},
              std::pair{"sku", &s.sku}, std::pair{"family", &s.family}}) {
            f.text(k, *field);
            if (field->find('\0') != std::string::npos) {
                p.fail(f.at(k), "an SMBIOS string cannot hold a NUL");
            }
        }
        std::vector<uint8_t> uuid;
        if (f.bytes("uuid", uuid)) {
            if (uuid.size() != 16) {
                p.fail(f.at("uuid"), std::to_string(uuid.size()) + " bytes, a UUID has 16");
            }
            std::copy(uuid.begin(), uuid.end(), s.uuid.begin());
        }
        f.num("wakeUp", s.wakeUp);
        out = smbiosSystem(s);
    }
    f.finish();
    return out;
}

Scenario parseDocument(const Parser& p, const json& doc, const std::string& origin) {
    Scenario s;
    s.origin = origin;
    Fields f(p, doc, "", "a JSON object at the top");
    f.text("machineType", s.machineType);
    f.text("machineTypeFromID", s.machineTypeFromID);
    f.text("biosID", s.biosID);
    f.flag("driverPresent", s.driverPresent);
    f.flag("libraryAvailable", s.libraryAvailable);
    f.flag("iBMC", s.iBMC);
    if (const json* lan = f.get("lan"); lan && !lan->is_null()) {
        s.lan = p.flag(*lan, "lan");
    }
    f.flag("smbiosReadable", s.smbiosReadable);
    if (const json* list = f.get("smbios")) {
        p.list(*list, "smbios");
        for (size_t i = 0; i < list->size(); ++i) {
            s.smbios.push_back(
                smbiosEntry(p, (*list)[i], Parser::item("smbios", i), static_cast<uint16_t>(i)));
        }
    }
    if (const json* nodes = f.get("nodes")) {
        p.list(*nodes, "nodes");
        for (size_t i = 0; i < nodes->size(); ++i) {
            s.nodes.push_back(parseNode(p, (*nodes)[i], Parser::item("nodes", i)));
        }
    }
    f.finish();
    return s;
}

} // namespace

Scenario parseScenario(const std::string& text, const std::string& origin) {
    Parser p(origin);
    json doc;
    try {
        doc = json::parse(text);
    } catch (const json::parse_error& e) {
        // "[json.exception.parse_error.101] parse error at line 3, column 7: ..."
        std::string what = e.what();
        auto cut = what.find("] ");
        p.fail("", cut == std::string::npos ? what : what.substr(cut + 2));
    }
    return parseDocument(p, doc, origin);
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
