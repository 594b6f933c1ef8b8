#include "collector/Writers.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <cstring>
#include <nlohmann/json.hpp>
#include <rapidjson/writer.h>
#include <string_view>

namespace ipmisel::collector {

// One jsonl line as RapidJSON's writer fills it: an output stream with room
// reserved ahead (PutReserve) and written without checks (PutUnsafe).
class LineBuffer {
  public:
    using Ch = char;
    void Put(char c) {
        Reserve(1);
        *top_++ = c;
    }
    void PutUnsafe(char c) { *top_++ = c; }
    char* PushUnsafe(size_t n) {
        char* at = top_;
        top_ += n;
        return at;
    }
    void Reserve(size_t n) {
        if (static_cast<size_t>(end_ - top_) < n) {
            grow(n);
        }
    }
    void Flush() {}
    void Clear() { top_ = bytes_.data(); }
    const char* data() const { return bytes_.data(); }
    size_t size() const { return static_cast<size_t>(top_ - bytes_.data()); }
    void Truncate(size_t n) { top_ = bytes_.data() + n; }
    void Append(std::string_view text) {
        Reserve(text.size());
        std::memcpy(PushUnsafe(text.size()), text.data(), text.size());
    }

    // Set by the writer's scan when a text holds a byte that the JSON library
    // defining our output writes differently: a control character without a
    // short escape, or an 8-bit byte.
    bool odd = false;

  private:
    [[gnu::noinline]] void grow(size_t n) {
        const size_t used = size();
        bytes_.resize(std::max(bytes_.size() * 2, used + n + 1024));
        top_ = bytes_.data() + used;
        end_ = bytes_.data() + bytes_.size();
    }

    std::vector<char> bytes_;
    char* top_ = nullptr;
    char* end_ = nullptr;
};

// Found by the writer through the buffer's namespace.
inline void PutReserve(LineBuffer& line, size_t n) {
    line.Reserve(n);
}
inline void PutUnsafe(LineBuffer& line, char c) {
    line.PutUnsafe(c);
}

} // namespace ipmisel::collector

namespace rapidjson {

namespace {

// Where a run of bytes that need no escape ends: at the first quote,
// backslash, control character or 8-bit byte, or at `end`.
inline const char* plainRunEnd(const char* p, const char* const end) {
#if defined(__SSE2__)
    // Sixteen bytes at a time; the signed compare with 20h also catches the
    // 8-bit bytes, which read as negative.
    auto stops16 = [](const char* at) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
        const __m128i marks = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(x, _mm_set1_epi8('"')),
                                                        _mm_cmpeq_epi8(x, _mm_set1_epi8('\\'))),
                                           _mm_cmplt_epi8(x, _mm_set1_epi8(0x20)));
        return static_cast<uint32_t>(_mm_movemask_epi8(marks));
    };
    if (end - p >= 16) {
        for (; end - p >= 16; p += 16) {
            if (const uint32_t stop = stops16(p)) {
                return p + std::countr_zero(stop);
            }
        }
        if (p == end) {
            return end;
        }
        // The last bytes as the end of a block that overlaps checked ones.
        const uint32_t stop = stops16(end - 16) >> (16 - (end - p));
        return stop ? p + std::countr_zero(stop) : end;
    }
#endif
    constexpr uint64_t k01 = 0x0101010101010101ULL, k80 = 0x8080808080808080ULL;
    auto zeroByte = [](uint64_t v) { return (v - k01) & ~v & k80; };
    // A flag in the top bit of each byte of a word that stops the run; the
    // lowest flag is exact (borrows only run upwards).
    auto stops = [&](const char* at) {
        uint64_t w;
        std::memcpy(&w, at, 8);
        return zeroByte(w ^ (k01 * '"')) | zeroByte(w ^ (k01 * '\\')) |
               ((w - k01 * 0x20) & ~w & k80) | (w & k80);
    };
    if (end - p >= 8) {
        for (; end - p >= 8; p += 8) {
            if (const uint64_t stop = stops(p)) {
                return p + std::countr_zero(stop) / 8;
            }
        }
        if (p == end) {
            return end;
        }
        const uint64_t stop = stops(end - 8) >> (8 * (8 - (end - p)));
        return stop ? p + std::countr_zero(stop) / 8 : end;
    }
    for (; p < end; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (c < 0x20 || c == '"' || c == '\\' || c >= 0x80) {
            break;
        }
    }
    return p;
}

// Copies n bytes in blocks (the last one overlapping): a call to memcpy costs
// more than these short texts.
inline void copyShort(char* to, const char* from, size_t n) {
    if (n >= 16) {
        for (size_t i = 0; i + 16 <= n; i += 16) {
            std::memcpy(to + i, from + i, 16);
        }
        std::memcpy(to + n - 16, from + n - 16, 16);
    } else if (n >= 8) {
        std::memcpy(to, from, 8);
        std::memcpy(to + n - 8, from + n - 8, 8);
    } else {
        for (size_t i = 0; i < n; ++i) {
            to[i] = from[i];
        }
    }
}

// Bytes the writer escapes as the JSON library does: the quote, the
// backslash and the five control characters with a short escape.
inline bool shortEscape(unsigned char c) {
    return c == '"' || c == '\\' || c == '\b' || c == '\t' || c == '\n' || c == '\f' || c == '\r';
}

} // namespace

// The writer's hook for copying a run of characters that need no escape in
// one go (its own version is for its own string buffer only). The run ends
// before the first byte the writer must look at itself; the writer then
// escapes that one as it always does, unless it is one that the JSON library
// defining our output writes differently, which ends the text here and tells
// the line's owner.
template <>
inline bool Writer<ipmisel::collector::LineBuffer>::ScanWriteUnescapedString(StringStream& is,
                                                                             size_t length) {
    const char* const from = is.src_;
    const char* const end = is.head_ + length;
    const char* const p = plainRunEnd(from, end);
    if (const size_t n = static_cast<size_t>(p - from); n != 0) {
        copyShort(os_->PushUnsafe(n), from, n);
        is.src_ = p;
    }
    if (p < end && !shortEscape(static_cast<unsigned char>(*p))) {
        os_->odd = true;
        return false;
    }
    return p < end;
}

} // namespace rapidjson

namespace ipmisel::collector {

namespace {

const char kLogRecordClass[] = "OXASG_IPMILogRecord";

// Every property a log record can carry, in the order the plug-in adds them.
// Seeding the CSV header with it keeps one header for the whole SEL even when
// the first record is an OEM one that lacks the sensor columns.
const std::vector<std::string>& logRecordColumns() {
    static const std::vector<std::string> columns = {"CreationClassName",
                                                     "LogCreationClassName",
                                                     "LogName",
                                                     "RecordID",
                                                     "MessageTimestamp",
                                                     "CreationTimeStamp",
                                                     "Source",
                                                     "SensorType",
                                                     "EventType",
                                                     "Entity",
                                                     "EntityInstance",
                                                     "SensorInformation",
                                                     "Message",
                                                     "AuxLog",
                                                     "SourceNode",
                                                     "RawData"};
    return columns;
}

// Boilerplate every instance of a class repeats; shown to people it only
// pushes the useful values off the line.
bool isBoilerplate(const std::string& name) {
    return name == "CreationClassName" || name == "LogCreationClassName" || name == "LogName";
}

bool isContinuation(unsigned char c) {
    return (c & 0xC0) == 0x80;
}

// Bytes of the longest prefix of text that takes at most `columns` columns.
size_t prefixBytes(std::string_view text, size_t columns) {
    size_t used = 0;
    size_t i = 0;
    while (i < text.size()) {
        if (!isContinuation(static_cast<unsigned char>(text[i]))) {
            if (used == columns) {
                break;
            }
            ++used;
        }
        ++i;
    }
    return i;
}

// Table columns: width of each fixed column and its header.
struct Column {
    const char* header;
    size_t width;
    bool right;
};
constexpr Column kColumns[] = {
    {"Node", 4, true},          {"Record", 6, true},   {"Time stamp", 19, false},
    {"Sensor type", 18, false}, {"Sensor", 16, false},
};
constexpr const char kSeparator[] = " | ";
constexpr size_t kSeparatorWidth = 3;

// Classes shown as one block per part, with the label their blocks open
// with. Four columns at most, so the names after them line up.
struct BlockClass {
    const char* className;
    const char* label;
};
constexpr BlockClass kBlockClasses[] = {
    {"OXASG_IPMIFRU", "FRU"},
    {"OXASG_IPMIFirmwareElement", "BMC"},
    {"OXASG_CPLDFirmwareElement", "CPLD"},
    {"OXASG_FPGAFirmwareElement", "FPGA"},
    {"OXASG_AMIFirmwareElement", "AMI"},
    {"OXASG_QsvVPD", "VPD"},
};
constexpr size_t kLabelWidth = 4;
constexpr size_t kBlockIndent = 4;
// A narrow terminal still gets readable values; the line runs over instead.
constexpr size_t kMinBlockValueWidth = 16;

size_t fixedWidth() {
    size_t total = 0;
    for (const Column& c : kColumns) {
        total += c.width + kSeparatorWidth;
    }
    return total;
}

} // namespace

std::string tableMessage(const host::Instance& record) {
    std::string message = record.get("Message");
    // The entity part before it is not matched: its instance number may be
    // adjusted in the message after the property was written.
    std::string repeated =
        "(" + record.get("SensorType") + " - " + record.get("SensorInformation") + "): ";
    size_t at = message.find(repeated);
    if (at == std::string::npos) {
        return foldWhitespace(message);
    }
    std::string who = foldWhitespace(std::string_view(message).substr(0, at));
    std::string rest = foldWhitespace(std::string_view(message).substr(at + repeated.size()));
    return who.empty() ? rest : who + ": " + rest;
}

// ---- helpers ---------------------------------------------------------------------

std::string foldWhitespace(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    bool pendingSpace = false;
    for (char ch : text) {
        unsigned char c = static_cast<unsigned char>(ch);
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f') {
            pendingSpace = !out.empty();
            continue;
        }
        if (pendingSpace) {
            out += ' ';
            pendingSpace = false;
        }
        out += (c < 0x20 || c == 0x7F) ? '?' : ch;
    }
    return out;
}

size_t displayWidth(std::string_view text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return !isContinuation(static_cast<unsigned char>(c));
    }));
}

std::string fitWidth(std::string_view text, size_t width) {
    if (displayWidth(text) <= width) {
        return std::string(text);
    }
    if (width < 3) {
        return std::string(text.substr(0, prefixBytes(text, width)));
    }
    return std::string(text.substr(0, prefixBytes(text, width - 3))) + "...";
}

std::string column(std::string_view text, size_t width, bool rightAlign) {
    std::string fitted = fitWidth(text, width);
    std::string pad(width - displayWidth(fitted), ' ');
    return rightAlign ? pad + fitted : fitted + pad;
}

std::vector<std::string> wrapText(std::string_view text, size_t width, size_t indent) {
    std::vector<std::string> lines;
    if (width <= indent + 1) {
        indent = 0; // no room to indent: better flush left than an endless loop
    }
    width = std::max<size_t>(width, 1);
    std::string line;
    auto room = [&] { return lines.empty() ? width : width - indent; };
    auto flush = [&] {
        lines.push_back(lines.empty() ? line : std::string(indent, ' ') + line);
        line.clear();
    };
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find(' ', pos);
        std::string_view word =
            text.substr(pos, end == std::string_view::npos ? std::string_view::npos : end - pos);
        pos = end == std::string_view::npos ? text.size() : end + 1;
        if (word.empty()) {
            continue;
        }
        if (!line.empty()) {
            if (displayWidth(line) + 1 + displayWidth(word) <= room()) {
                line += ' ';
                line += word;
                continue;
            }
            flush();
        }
        // A word longer than a whole line is cut into line-sized pieces.
        while (displayWidth(word) > room()) {
            size_t cut = prefixBytes(word, room());
            line = std::string(word.substr(0, cut));
            flush();
            word.remove_prefix(cut);
        }
        line = std::string(word);
    }
    if (!line.empty() || lines.empty()) {
        flush();
    }
    return lines;
}

std::string displayTimestamp(std::string_view cim) {
    if (cim.size() < 14 ||
        !std::all_of(cim.begin(), cim.begin() + 14, [](char c) { return c >= '0' && c <= '9'; })) {
        return std::string(cim);
    }
    std::string s(cim.substr(0, 14));
    return s.substr(0, 4) + "-" + s.substr(4, 2) + "-" + s.substr(6, 2) + " " + s.substr(8, 2) +
           ":" + s.substr(10, 2) + ":" + s.substr(12, 2);
}

std::string hexBytes(const std::vector<uint8_t>& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(bytes.size() * 3);
    for (uint8_t b : bytes) {
        if (!out.empty()) {
            out += ' ';
        }
        out += digits[b >> 4];
        out += digits[b & 0x0F];
    }
    return out;
}

std::string propertyText(const host::Property& property) {
    return property.kind == host::PropertyKind::Bytes ? hexBytes(property.bytes) : property.text;
}

std::string csvField(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
        return std::string(text);
    }
    std::string out = "\"";
    for (char c : text) {
        if (c == '"') {
            out += '"';
        }
        out += c;
    }
    out += '"';
    return out;
}

const char* blockLabel(std::string_view className) {
    for (const BlockClass& c : kBlockClasses) {
        if (className == c.className) {
            return c.label;
        }
    }
    return nullptr;
}

bool isCimDateTime(std::string_view text) {
    if (text.size() != 25 || text[14] != '.' || (text[21] != '+' && text[21] != '-')) {
        return false;
    }
    for (size_t i = 0; i < text.size(); ++i) {
        if (i != 14 && i != 21 && (text[i] < '0' || text[i] > '9')) {
            return false;
        }
    }
    return true;
}

std::vector<std::string> partBlock(const host::Instance& instance, std::string_view label,
                                   size_t width) {
    std::string name = foldWhitespace(instance.get("ElementName"));
    std::string title = std::string(label);
    title.append(kLabelWidth > label.size() ? kLabelWidth - label.size() : 0, ' ');
    title += ' ' + (name.empty() ? instance.className : name);
    if (std::string node = foldWhitespace(instance.get("SourceNode")); !node.empty()) {
        title += " (node " + node + ")";
    }
    std::vector<std::string> lines = {title};

    std::vector<std::pair<std::string, std::string>> shown;
    size_t nameWidth = 0;
    for (const host::Property& p : instance.properties) {
        std::string value = foldWhitespace(propertyText(p));
        // A blank FRU field is one space: folded, it is empty and left out.
        if (isBoilerplate(p.name) || p.name == "ElementName" || p.name == "SourceNode" ||
            value.empty()) {
            continue;
        }
        if (p.kind == host::PropertyKind::DateTime || isCimDateTime(value)) {
            value = displayTimestamp(value);
        }
        nameWidth = std::max(nameWidth, displayWidth(p.name));
        shown.emplace_back(p.name, std::move(value));
    }
    // "    Name:  value": every value starts in the same column.
    const size_t valueColumn = kBlockIndent + nameWidth + 2;
    const size_t valueWidth =
        width > valueColumn + kMinBlockValueWidth ? width - valueColumn : kMinBlockValueWidth;
    for (const auto& [property, value] : shown) {
        std::vector<std::string> pieces = wrapText(value, valueWidth, 0);
        std::string head = std::string(kBlockIndent, ' ') + property + ":";
        head.append(valueColumn - displayWidth(head), ' ');
        lines.push_back(head + pieces[0]);
        for (size_t i = 1; i < pieces.size(); ++i) {
            lines.push_back(std::string(valueColumn, ' ') + pieces[i]);
        }
    }
    return lines;
}

// ---- jsonl -----------------------------------------------------------------------

namespace {

// The first property of this name holds its place, the last one its value:
// what an ordered JSON object does with a name given twice.
const host::Property* lastNamed(const std::vector<host::Property>& props, size_t i) {
    const host::Property* last = &props[i];
    for (size_t j = i + 1; j < props.size(); ++j) {
        if (props[j].name == props[i].name) {
            last = &props[j];
        }
    }
    return last;
}

bool namedBefore(const std::vector<host::Property>& props, size_t i) {
    for (size_t j = 0; j < i; ++j) {
        if (props[j].name == props[i].name) {
            return true;
        }
    }
    return false;
}

// The numbers 0 to 255 as JSON writes them, for the byte arrays.
struct ByteNumber {
    char text[3];
    uint8_t length;
};
constexpr auto kByteNumbers = [] {
    std::array<ByteNumber, 256> numbers{};
    for (int b = 0; b < 256; ++b) {
        ByteNumber& n = numbers[b];
        if (b >= 100) {
            n.text[n.length++] = static_cast<char>('0' + b / 100);
        }
        if (b >= 10) {
            n.text[n.length++] = static_cast<char>('0' + b / 10 % 10);
        }
        n.text[n.length++] = static_cast<char>('0' + b % 10);
    }
    return numbers;
}();

} // namespace

// One line is put together from the object's punctuation and its texts; each
// text is quoted and escaped by RapidJSON's streaming writer, reset for every
// text. A text the writer would write differently from the JSON library that
// defines our output (8-bit BMC text that need not be UTF-8, control
// characters without a short escape) is rare and goes through that library,
// which replaces invalid UTF-8 by U+FFFD and escapes control characters its
// own way.
struct JsonlWriter::Line {
    LineBuffer buffer;
    rapidjson::Writer<LineBuffer> json{buffer};
    std::string odd; // a text the JSON library writes
    // The property names of the last instance, each as its JSON text with the
    // colon after it, and whether one of them came twice: a SEL's records
    // bring the same names in the same order, so these are settled once
    // instead of once per record.
    std::vector<std::string> names;
    std::vector<std::string> keys;
    bool repeatedName = false;
    uint64_t namesLayout = 0; // the host's layout of those names (0: unknown)

    // The texts each property had lately, with their JSON. A full SEL is the
    // same few events over and over, so most of a record's texts (source,
    // sensor, entity, message) were written before, in the same place; a
    // text found here costs a compare and a copy instead of being escaped
    // again. A place whose texts keep changing (record IDs, time stamps)
    // stops being looked up for a while.
    struct Remembered {
        std::string raw;
        std::string json; // the key and the text's JSON, as the line has them
    };
    struct Place {
        static constexpr size_t kRemembered = 8;
        // Misses in a row after which the place rests, and for how many texts.
        static constexpr uint32_t kMissesToRest = 32;
        static constexpr uint32_t kRest = 4096;
        std::array<Remembered, kRemembered> seen;
        size_t used = 0; // entries of seen filled
        size_t next = 0; // the entry replaced next
        uint32_t misses = 0;
        uint32_t resting = 0;
    };
    std::vector<Place> places;

    // Appends the property at place i, its key and the JSON of text s.
    void remembered(size_t i, std::string_view s) {
        Place& place = places[i];
        if (place.resting > 0) {
            --place.resting;
            buffer.Append(keys[i]);
            text(s);
            return;
        }
        for (size_t k = 0; k < place.used; ++k) {
            const Remembered& r = place.seen[k];
            if (r.raw.size() == s.size() && std::memcmp(r.raw.data(), s.data(), s.size()) == 0) {
                place.misses = 0;
                buffer.Append(r.json);
                return;
            }
        }
        const size_t start = buffer.size();
        buffer.Append(keys[i]);
        text(s);
        Remembered& r = place.seen[place.next];
        place.next = (place.next + 1) % Place::kRemembered;
        place.used = std::max(place.used, place.next == 0 ? Place::kRemembered : place.next);
        r.raw.assign(s);
        r.json.assign(buffer.data() + start, buffer.size() - start);
        if (++place.misses == Place::kMissesToRest) {
            place.misses = 0;
            place.resting = Place::kRest;
        }
    }

    // Appends `s` as a JSON string.
    void text(std::string_view s) {
        const size_t start = buffer.size();
        buffer.odd = false;
        json.Reset(buffer);
        json.String(s.data(), static_cast<rapidjson::SizeType>(s.size()));
        if (buffer.odd) {
            buffer.Truncate(start);
            odd = nlohmann::json(std::string(s))
                      .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
            buffer.Append(odd);
        }
    }

    void bytes(const std::vector<uint8_t>& values) {
        buffer.Reserve(2 + 4 * values.size());
        buffer.PutUnsafe('[');
        for (size_t i = 0; i < values.size(); ++i) {
            if (i != 0) {
                buffer.PutUnsafe(',');
            }
            // All three characters are copied, the number's length kept: the
            // room reserved above holds four per byte.
            const ByteNumber& n = kByteNumbers[values[i]];
            std::memcpy(buffer.PushUnsafe(0), n.text, sizeof n.text);
            buffer.PushUnsafe(n.length);
        }
        buffer.PutUnsafe(']');
    }

    bool anyNameTwice(const std::vector<host::Property>& props, uint64_t layout) {
        bool same = layout != 0 && layout == namesLayout;
        if (!same) {
            same = names.size() == props.size();
            for (size_t i = 0; same && i < props.size(); ++i) {
                same = names[i] == props[i].name;
            }
        }
        namesLayout = layout;
        if (!same) {
            // The texts remembered for a place belong to its name.
            places.resize(props.size());
            for (size_t i = 0; i < props.size(); ++i) {
                if (i >= names.size() || names[i] != props[i].name) {
                    places[i] = Place{};
                }
            }
            names.clear();
            keys.clear();
            repeatedName = false;
            for (size_t i = 0; i < props.size(); ++i) {
                repeatedName = repeatedName || namedBefore(props, i);
                names.push_back(props[i].name);
                const size_t start = buffer.size();
                text(props[i].name);
                buffer.Put(':');
                keys.emplace_back(buffer.data() + start, buffer.size() - start);
                buffer.Truncate(start);
            }
        }
        return repeatedName;
    }
};

JsonlWriter::JsonlWriter(std::ostream& out) : out_(out), line_(std::make_unique<Line>()) {}

JsonlWriter::~JsonlWriter() = default;

void JsonlWriter::write(const host::Instance& instance) {
    Line& l = *line_;
    l.buffer.Clear();
    l.buffer.Append(R"({"class":)");
    l.text(instance.className);
    l.buffer.Append(R"(,"properties":{)");
    const auto& props = instance.properties;
    const bool repeated = l.anyNameTwice(props, instance.layout);
    bool first = true;
    for (size_t i = 0; i < props.size(); ++i) {
        if (repeated && namedBefore(props, i)) {
            continue;
        }
        if (!first) {
            l.buffer.Put(',');
        }
        first = false;
        const host::Property& p = repeated ? *lastNamed(props, i) : props[i];
        if (p.kind == host::PropertyKind::Bytes) {
            l.buffer.Append(l.keys[i]);
            l.bytes(p.bytes); // numbers, not a string
        } else {
            l.remembered(i, p.text);
        }
    }
    l.buffer.Append("}}\n");
    out_.write(l.buffer.data(), static_cast<std::streamsize>(l.buffer.size()));
}

// ---- table -----------------------------------------------------------------------

TableWriter::TableWriter(std::ostream& out, size_t width) : out_(out), width_(width) {}

void TableWriter::write(const host::Instance& instance) {
    if (instance.className == kLogRecordClass) {
        writeLogRecord(instance);
    } else if (const char* label = blockLabel(instance.className)) {
        // Printed after the log: one SEL table an admin reads from top to
        // bottom, then what the machine is made of.
        (std::string_view(label) == "FRU" ? fruBlocks_ : firmwareBlocks_).push_back(instance);
    } else {
        writeOther(instance);
    }
}

void TableWriter::finish() {
    for (const auto* held : {&fruBlocks_, &firmwareBlocks_}) {
        for (const host::Instance& instance : *held) {
            if (wroteAnything_) {
                out_ << '\n';
            }
            for (const std::string& line :
                 partBlock(instance, blockLabel(instance.className), width_)) {
                out_ << line << '\n';
            }
            wroteAnything_ = true;
        }
    }
    fruBlocks_.clear();
    firmwareBlocks_.clear();
    inLogTable_ = false;
}

void TableWriter::writeLogRecord(const host::Instance& instance) {
    size_t messageWidth =
        width_ > fixedWidth() + kMinMessageWidth ? width_ - fixedWidth() : kMinMessageWidth;
    if (!inLogTable_) {
        if (wroteAnything_) {
            out_ << '\n';
        }
        std::string header;
        for (const Column& c : kColumns) {
            header += column(c.header, c.width, false) + kSeparator;
        }
        out_ << header << "Message\n";
        inLogTable_ = true;
    }
    const std::string cells[] = {
        instance.get("SourceNode"),
        instance.get("RecordID"),
        displayTimestamp(instance.get("MessageTimestamp")),
        instance.get("SensorType"),
        instance.get("SensorInformation"),
    };
    // Each cell is wrapped inside its column rather than cut: a message an
    // admin cannot read whole is a message lost. Numbers are never wrapped; a
    // wider one shifts its line, a cut one would lie.
    std::vector<std::string> wrapped[std::size(kColumns) + 1];
    size_t rows = 1;
    for (size_t i = 0; i < std::size(kColumns); ++i) {
        std::string text = foldWhitespace(cells[i]);
        if (kColumns[i].right) {
            wrapped[i] = {text};
        } else {
            wrapped[i] = wrapText(text, kColumns[i].width, 0);
        }
        rows = std::max(rows, wrapped[i].size());
    }
    wrapped[std::size(kColumns)] = wrapText(tableMessage(instance), messageWidth, 0);
    rows = std::max(rows, wrapped[std::size(kColumns)].size());
    for (size_t r = 0; r < rows; ++r) {
        std::string line;
        for (size_t i = 0; i < std::size(kColumns); ++i) {
            const std::string piece = r < wrapped[i].size() ? wrapped[i][r] : std::string();
            line += kColumns[i].right && displayWidth(piece) > kColumns[i].width
                        ? piece
                        : column(piece, kColumns[i].width, kColumns[i].right);
            line += kSeparator;
        }
        const auto& message = wrapped[std::size(kColumns)];
        line += r < message.size() ? message[r] : std::string();
        while (!line.empty() && line.back() == ' ') {
            line.pop_back();
        }
        out_ << line << '\n';
    }
    wroteAnything_ = true;
}

void TableWriter::writeOther(const host::Instance& instance) {
    if (inLogTable_) {
        out_ << '\n';
        inLogTable_ = false;
    }
    std::string text = instance.className + ":";
    bool first = true;
    for (const host::Property& p : instance.properties) {
        std::string value = foldWhitespace(propertyText(p));
        if (isBoilerplate(p.name) || value.empty()) {
            continue;
        }
        text += first ? " " : ", ";
        text += p.name + "=" + value;
        first = false;
    }
    for (const std::string& line : wrapText(text, width_, 4)) {
        out_ << line << '\n';
    }
    wroteAnything_ = true;
}

// ---- csv -------------------------------------------------------------------------

void CsvWriter::write(const host::Instance& instance) {
    auto [it, fresh] = columns_.try_emplace(instance.className);
    std::vector<std::string>& header = it->second;
    bool grew = false;
    if (fresh) {
        if (instance.className == kLogRecordClass) {
            header = logRecordColumns();
        }
    }
    // A property the header does not have yet widens it and starts a new
    // section, so nothing an instance carries is ever left out.
    for (const host::Property& p : instance.properties) {
        if (std::find(header.begin(), header.end(), p.name) == header.end()) {
            header.push_back(p.name);
            grew = true;
        }
    }
    if (fresh || grew || instance.className != currentClass_) {
        if (wroteAnything_) {
            out_ << "\r\n";
        }
        for (size_t i = 0; i < header.size(); ++i) {
            out_ << (i ? "," : "") << csvField(header[i]);
        }
        out_ << "\r\n";
        currentClass_ = instance.className;
    }
    for (size_t i = 0; i < header.size(); ++i) {
        const host::Property* p = instance.find(header[i]);
        out_ << (i ? "," : "") << (p ? csvField(propertyText(*p)) : std::string());
    }
    out_ << "\r\n";
    wroteAnything_ = true;
}

std::unique_ptr<InstanceWriter> makeWriter(Format format, std::ostream& out, size_t width) {
    switch (format) {
    case Format::Table:
        return std::make_unique<TableWriter>(out, width);
    case Format::Csv:
        return std::make_unique<CsvWriter>(out);
    case Format::Jsonl:
        break;
    }
    return std::make_unique<JsonlWriter>(out);
}

} // namespace ipmisel::collector
