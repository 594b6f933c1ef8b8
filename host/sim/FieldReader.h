// Reading the values of a scenario document. Every mistake a person can make
// in one is refused with one line naming the file, the place in the document
// ("nodes[0].sel.records[3]") and the problem; keys nobody asked for are
// refused too, so a misspelt field never passes silently as its default.
// The scenario parser's sections (platform, SEL, SDR, FRU, auxiliary log,
// OEM answers) all read through these two classes, so a value is checked and
// described the same way wherever it stands.
#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <rapidjson/document.h>

namespace ipmisel::sim::scenario {

// A value of the scenario document. Objects keep their keys as written; where
// the order or a repeated key matters, they are read as a map of sorted keys
// in which the last of a repeated key counts (FieldReader, eachNumberedKey).
using json = rapidjson::Value;

// "an integer", "a string", "a list", ... for "expected X, got Y".
std::string typeName(const json& v);

inline std::string_view textOf(const json& v) {
    return {v.GetString(), v.GetStringLength()};
}
inline std::string_view keyOf(const json::ConstMemberIterator& m) {
    return textOf(m->name);
}

// Reads bare values and knows which file they came from.
class ValueReader {
  public:
    explicit ValueReader(std::string origin) : origin_(std::move(origin)) {}

    // Throws ScenarioError "<file>: <place>: <problem>" (no place: "<file>: <problem>").
    [[noreturn]] void fail(const std::string& place, const std::string& problem) const;

    // The place of a key in an object and of an item in a list.
    static std::string key(const std::string& place, const std::string& k) {
        return place.empty() ? k : place + "." + k;
    }
    static std::string item(const std::string& place, size_t i) {
        return place + "[" + std::to_string(i) + "]";
    }

    // A JSON integer or text ("31", "0x1F", "-5") within min..max.
    int64_t number(const json& v, const std::string& place, int64_t min, int64_t max) const;
    // Hex text ("01 0A FF") or a list of numbers 0..255.
    std::vector<uint8_t> bytes(const json& v, const std::string& place) const;
    // The same, of exactly `count` bytes: "<n> bytes, <what> has <count>".
    std::vector<uint8_t> fixedBytes(const json& v, const std::string& place, size_t count,
                                    const char* what) const;
    bool flag(const json& v, const std::string& place) const;
    std::string text(const json& v, const std::string& place) const;
    const json& list(const json& v, const std::string& place) const;
    // Seconds since 1970, or a UTC date and time "2024-03-01T12:00:00Z" (the
    // "T" may be a blank; the seconds and the "Z" may be left out).
    uint32_t timestamp(const json& v, const std::string& place) const;

    // Calls read(item, place) for each item of a list. The place is one
    // buffer rewritten for each item: a recording holds many thousands.
    template <class Read>
    void eachItem(const json& v, const std::string& place, Read&& read) const {
        list(v, place);
        std::string here;
        for (rapidjson::SizeType i = 0; i < v.Size(); ++i) {
            here.assign(place);
            appendIndex(here, i);
            read(v[i], here);
        }
    }

    // Calls read(number, value, place) for each key of an object that is a
    // number 0..255 ("0", "0x01"), in sorted order; a key that is not one is
    // refused.
    template <class Read>
    void eachNumberedKey(const json& obj, const std::string& place, bool skipComment,
                         Read&& read) const {
        for (const json::Member* m : sortedMembers(obj)) {
            const std::string_view k = textOf(m->name);
            if (skipComment && k == "comment") {
                continue;
            }
            std::string here = place + "[\"" + std::string(k) + "\"]";
            read(static_cast<uint8_t>(number(m->name, here, 0, 255)), m->value, here);
        }
    }

    // A place buffer for one value at a time (FieldReader's leaf reads), so
    // that naming a key costs no allocation.
    std::string& scratch() const { return scratch_; }

  private:
    static void appendIndex(std::string& place, size_t i);
    // The members of an object ordered by key, each key once (its last value).
    static std::vector<const json::Member*> sortedMembers(const json& obj);
    uint32_t dateTime(const std::string& s, const std::string& place) const;

    std::string origin_;
    mutable std::string scratch_;
};

// The keys of one JSON object, read one by one with their checks; whatever
// was not asked for is refused by finish(). "comment" is allowed everywhere
// and ignored. Each getter leaves `out` alone and returns false when the key
// is not there, so the caller's default stays.
class FieldReader {
  public:
    // `what` names the object in "expected <what>, got ..." when it is none.
    // `place` must outlive the reader.
    FieldReader(const ValueReader& values, const json& obj, const std::string& place,
                const char* what = "an object");

    const ValueReader& values() const { return values_; }
    bool has(const char* k) const { return find(k, false) != nullptr; }
    std::string at(const char* k) const { return ValueReader::key(place_, k); }
    const std::string& place() const { return place_; }

    [[noreturn]] void fail(const std::string& problem) const { values_.fail(place_, problem); }
    [[noreturn]] void fail(const char* k, const std::string& problem) const {
        values_.fail(at(k), problem);
    }

    // The raw value, marked as known; null when the key is not there.
    const json* get(const char* k);

    template <std::integral T>
    bool num(const char* k, T& out, int64_t min = std::numeric_limits<T>::min(),
             int64_t max = std::numeric_limits<T>::max()) {
        return read(k, out, [&](const json& v, const std::string& place) {
            return static_cast<T>(values_.number(v, place, min, max));
        });
    }
    template <std::integral T> void optNum(const char* k, std::optional<T>& out) {
        T v{};
        if (num(k, v)) {
            out = v;
        }
    }
    bool flag(const char* k, bool& out) { return read(k, out, &ValueReader::flag); }
    bool text(const char* k, std::string& out) { return read(k, out, &ValueReader::text); }
    bool bytes(const char* k, std::vector<uint8_t>& out) {
        return read(k, out, &ValueReader::bytes);
    }
    template <size_t N> bool bytes(const char* k, std::array<uint8_t, N>& out, const char* what) {
        return read(k, out, [&](const json& v, const std::string& place) {
            std::array<uint8_t, N> a{};
            auto b = values_.fixedBytes(v, place, N, what);
            std::copy(b.begin(), b.end(), a.begin());
            return a;
        });
    }
    bool timestamp(const char* k, uint32_t& out) { return read(k, out, &ValueReader::timestamp); }

    // Several fields of one type, read in the order given (so the first
    // mistake in that order is the one reported); numbers take their type's
    // whole range.
    template <class T> void each(std::initializer_list<std::pair<const char*, T*>> fields) {
        for (const auto& [k, out] : fields) {
            if constexpr (std::is_same_v<T, bool>) {
                flag(k, *out);
            } else if constexpr (std::is_same_v<T, std::string>) {
                text(k, *out);
            } else {
                num(k, *out);
            }
        }
    }

    // Refuses the first key that no getter asked for.
    void finish() const;

  private:
    // Reads key k, when it is there, with convert(value, place): a member of
    // ValueReader or a callable. Conversions read bare values and never come
    // back here, so the place can live in the reader's scratch buffer.
    template <class T, class Convert> bool read(const char* k, T& out, Convert convert) {
        const json* v = get(k);
        if (v) {
            std::string& here = values_.scratch();
            here.assign(place_);
            if (!here.empty()) {
                here += '.';
            }
            here += k;
            if constexpr (std::is_member_function_pointer_v<Convert>) {
                out = (values_.*convert)(*v, here);
            } else {
                out = convert(*v, here);
            }
        }
        return v != nullptr;
    }

    // The value of the last key k (a repeated key's last value counts);
    // `mark` records every key of that name as asked for.
    const json* find(const char* k, bool mark) const;

    const ValueReader& values_;
    const json& obj_;
    const std::string& place_;
    // Which members a getter asked for, by position: a bit each for the first
    // 64, the rest (a rare object that large) in a list.
    bool known(size_t i) const;
    mutable uint64_t knownFirst_ = 0;
    mutable std::vector<bool> knownRest_;
};

} // namespace ipmisel::sim::scenario
