#include "host/sim/FieldReader.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "host/sim/Builders.h"
#include "host/sim/SimBmc.h"

namespace ipmisel::sim::scenario {

namespace {

std::string oneLine(std::string text) {
    for (char& c : text) {
        if (c == '\n' || c == '\r') {
            c = ' ';
        }
    }
    return text;
}

std::string range(int64_t min, int64_t max) {
    return std::to_string(min) + ".." + std::to_string(max);
}

// "31", "0x1F", "-5": decimal or hexadecimal, at most 2^62 so that the range
// check that follows never sees an overflow.
bool parseNumberText(const std::string& s, int64_t& out) {
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

} // namespace

std::string typeName(const json& v) {
    if (v.IsNumber()) {
        return v.IsDouble() ? "a fraction" : "an integer";
    }
    if (v.IsString()) {
        return "a string";
    }
    if (v.IsBool()) {
        return "a boolean";
    }
    if (v.IsArray()) {
        return "a list";
    }
    return v.IsObject() ? "an object" : "null";
}

// ---- ValueReader -------------------------------------------------------------------

void ValueReader::appendIndex(std::string& place, size_t i) {
    char digits[24];
    auto [end, ec] = std::to_chars(digits, digits + sizeof digits, i);
    place += '[';
    place.append(digits, end);
    place += ']';
}

std::vector<const json::Member*> ValueReader::sortedMembers(const json& obj) {
    std::vector<const json::Member*> members;
    for (auto m = obj.MemberBegin(); m != obj.MemberEnd(); ++m) {
        members.push_back(&*m);
    }
    // By key, and a repeated key's members in the order written, so that
    // the last of them is the one kept.
    std::stable_sort(members.begin(), members.end(), [](const auto* a, const auto* b) {
        return textOf(a->name) < textOf(b->name);
    });
    std::vector<const json::Member*> once;
    for (size_t i = 0; i < members.size(); ++i) {
        if (i + 1 < members.size() && textOf(members[i]->name) == textOf(members[i + 1]->name)) {
            continue;
        }
        once.push_back(members[i]);
    }
    return once;
}

void ValueReader::fail(const std::string& place, const std::string& problem) const {
    throw ScenarioError(oneLine(origin_ + ": " + (place.empty() ? "" : place + ": ") + problem));
}

int64_t ValueReader::number(const json& v, const std::string& place, int64_t min,
                            int64_t max) const {
    int64_t value = 0;
    std::string shown;
    if (v.IsUint64()) {
        uint64_t u = v.GetUint64();
        if (u > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
            fail(place, std::to_string(u) + " is out of range " + range(min, max));
        }
        value = static_cast<int64_t>(u);
        shown = std::to_string(u);
    } else if (v.IsInt64()) {
        value = v.GetInt64();
        shown = std::to_string(value);
    } else if (v.IsString()) {
        shown = textOf(v);
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

std::vector<uint8_t> ValueReader::bytes(const json& v, const std::string& place) const {
    if (v.IsString()) {
        try {
            return parseHex(textOf(v));
        } catch (const std::invalid_argument& e) {
            fail(place, std::string("not hex bytes: ") + e.what());
        }
    }
    if (v.IsArray()) {
        std::vector<uint8_t> out;
        for (rapidjson::SizeType i = 0; i < v.Size(); ++i) {
            out.push_back(static_cast<uint8_t>(number(v[i], item(place, i), 0, 255)));
        }
        return out;
    }
    fail(place, "expected hex bytes (\"01 0A FF\") or a list of numbers, got " + typeName(v));
}

std::vector<uint8_t> ValueReader::fixedBytes(const json& v, const std::string& place, size_t count,
                                             const char* what) const {
    auto out = bytes(v, place);
    if (out.size() != count) {
        fail(place,
             std::to_string(out.size()) + " bytes, " + what + " has " + std::to_string(count));
    }
    return out;
}

bool ValueReader::flag(const json& v, const std::string& place) const {
    if (!v.IsBool()) {
        fail(place, "expected true or false, got " + typeName(v));
    }
    return v.GetBool();
}

std::string ValueReader::text(const json& v, const std::string& place) const {
    if (!v.IsString()) {
        fail(place, "expected a string, got " + typeName(v));
    }
    return std::string(textOf(v));
}

const json& ValueReader::list(const json& v, const std::string& place) const {
    if (!v.IsArray()) {
        fail(place, "expected a list, got " + typeName(v));
    }
    return v;
}

uint32_t ValueReader::timestamp(const json& v, const std::string& place) const {
    if (v.IsString()) {
        const std::string s(textOf(v));
        if (s.size() >= 10 && s[4] == '-') {
            return dateTime(s, place);
        }
    }
    return static_cast<uint32_t>(number(v, place, 0, 0xFFFFFFFFLL));
}

uint32_t ValueReader::dateTime(const std::string& s, const std::string& place) const {
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, sec = 0;
    char sep = 'T';
    char tail[8] = {0};
    int n = std::sscanf(s.c_str(), "%4d-%2d-%2d%c%2d:%2d:%2d%7s", &y, &mo, &d, &sep, &h, &mi, &sec,
                        tail);
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

// ---- FieldReader -------------------------------------------------------------------

FieldReader::FieldReader(const ValueReader& values, const json& obj, const std::string& place,
                         const char* what)
    : values_(values), obj_(obj), place_(place) {
    if (!obj.IsObject()) {
        values_.fail(place_, std::string("expected ") + what + ", got " + typeName(obj));
    }
}

const json* FieldReader::find(const char* k, bool mark) const {
    const std::string_view key(k);
    const json* found = nullptr;
    size_t i = 0;
    for (auto m = obj_.MemberBegin(); m != obj_.MemberEnd(); ++m, ++i) {
        if (keyOf(m) != key) {
            continue;
        }
        found = &m->value;
        if (!mark) {
            continue;
        }
        if (i < 64) {
            knownFirst_ |= uint64_t{1} << i;
        } else {
            knownRest_.resize(std::max(knownRest_.size(), i - 63));
            knownRest_[i - 64] = true;
        }
    }
    return found;
}

bool FieldReader::known(size_t i) const {
    return i < 64 ? (knownFirst_ >> i) & 1 : i - 64 < knownRest_.size() && knownRest_[i - 64];
}

const json* FieldReader::get(const char* k) {
    return find(k, true);
}

void FieldReader::finish() const {
    // Of several unknown keys the first in sorted order is named.
    const json::Member* first = nullptr;
    size_t i = 0;
    for (auto m = obj_.MemberBegin(); m != obj_.MemberEnd(); ++m, ++i) {
        if (known(i) || keyOf(m) == "comment") {
            continue;
        }
        if (!first || keyOf(m) < textOf(first->name)) {
            first = &*m;
        }
    }
    if (first) {
        values_.fail(place_, "unknown key \"" + std::string(textOf(first->name)) + "\"");
    }
}

} // namespace ipmisel::sim::scenario
