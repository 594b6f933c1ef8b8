// Reading a scenario file: the document and its nodes. Each section has its
// own file (ScenarioSections.h); all of them read through FieldReader.h.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <nlohmann/json.hpp>

#include "host/sim/ScenarioSections.h"

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
    if (records.empty()) {
        return;
    }
    // Where each ID was first seen; a table of all 65,536 is cheaper than a
    // map once a SEL is large, and small enough when it is not.
    constexpr uint32_t kUnseen = UINT32_MAX;
    std::vector<uint32_t> seen(0x10000, kUnseen);
    for (size_t i = 0; i < records.size(); ++i) {
        uint16_t id = recordId(records[i]);
        if (id == 0x0000 || id == 0xFFFF) {
            values.fail(ValueReader::item(place, i),
                        "record ID " + hex16(id) +
                            " is reserved (0000h asks for the first record, FFFFh for the last)");
        }
        if (seen[id] != kUnseen) {
            values.fail(ValueReader::item(place, i), "record ID " + hex16(id) +
                                                         " is already used by [" +
                                                         std::to_string(seen[id]) + "]");
        }
        seen[id] = static_cast<uint32_t>(i);
    }
}

NodeSetup parseNode(const ValueReader& values, const json& v, const std::string& place) {
    FieldReader f(values, v, place);
    NodeSetup node;
    f.text("name", node.name);
    f.bytes("deviceId", node.deviceId);
    f.num("fruMaxReadCount", node.fruMaxReadCount, 1, 255);
    f.num("latencyMs", node.latencyMs, 0, 10000);
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
    static const std::string top;
    FieldReader f(values, doc, top, "a JSON object at the top");
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

namespace scenario {

namespace {

// Text that both JSON parsers read alike: printable ASCII and the blanks JSON
// allows, no \u escape. 8-bit bytes, escaped code points (a lone surrogate,
// say) and control characters are where their checks differ.
bool plainAscii(const std::string& text) {
    // Eight bytes at a time while all are 20h..7Fh, byte by byte where not.
    constexpr uint64_t kHigh = 0x8080808080808080ULL, kSpace = 0x2020202020202020ULL;
    size_t i = 0;
    while (i < text.size()) {
        if (i + 8 <= text.size()) {
            uint64_t w;
            std::memcpy(&w, text.data() + i, 8);
            if (((w | (w - kSpace)) & kHigh) == 0) {
                i += 8;
                continue;
            }
        }
        for (const size_t end = std::min(i + 8, text.size()); i < end; ++i) {
            const auto c = static_cast<unsigned char>(text[i]);
            if ((c < 0x20 && c != '\t' && c != '\n' && c != '\r') || c >= 0x80) {
                return false;
            }
        }
    }
    return text.find("\\u") == std::string::npos;
}

// Deeper than any scenario value the parser looks at: below this a list or
// object is only ever asked what it is, so its contents need not be copied.
constexpr int kDeepestRead = 64;

void copyValue(const nlohmann::json& from, json& to, rapidjson::Document::AllocatorType& alloc,
               int depth) {
    using T = nlohmann::json::value_t;
    switch (from.type()) {
    case T::object:
        to.SetObject();
        if (depth < kDeepestRead) {
            for (auto it = from.begin(); it != from.end(); ++it) {
                json key(it.key().data(), static_cast<rapidjson::SizeType>(it.key().size()), alloc);
                json value;
                copyValue(it.value(), value, alloc, depth + 1);
                to.AddMember(key, value, alloc);
            }
        }
        break;
    case T::array:
        to.SetArray();
        if (depth < kDeepestRead) {
            for (const auto& item : from) {
                json value;
                copyValue(item, value, alloc, depth + 1);
                to.PushBack(value, alloc);
            }
        }
        break;
    case T::string: {
        const auto& text = from.get_ref<const std::string&>();
        to.SetString(text.data(), static_cast<rapidjson::SizeType>(text.size()), alloc);
        break;
    }
    case T::boolean:
        to.SetBool(from.get<bool>());
        break;
    case T::number_unsigned:
        to.SetUint64(from.get<uint64_t>());
        break;
    case T::number_integer:
        to.SetInt64(from.get<int64_t>());
        break;
    case T::number_float:
        to.SetDouble(from.get<double>());
        break;
    default:
        to.SetNull();
        break;
    }
}

// The scenario text as a document. nlohmann's parser defines what a scenario
// may be and what a broken one is told; RapidJSON reads the plain texts that
// nearly every scenario and recording is, many times faster and in a
// fraction of the memory, and anything it refuses goes to nlohmann for the
// verdict. The text is released once read.
void readJson(const ValueReader& values, std::string text, rapidjson::Document& doc) {
    if (plainAscii(text)) {
        // The text holds no NUL, so it reads as a terminated string, the
        // form whose string scans RapidJSON does 16 bytes at a time.
        doc.Parse<rapidjson::kParseIterativeFlag>(text.c_str());
        if (!doc.HasParseError()) {
            return;
        }
    }
    nlohmann::json parsed;
    try {
        parsed = nlohmann::json::parse(text);
    } catch (const nlohmann::json::exception& e) {
        // "[json.exception.parse_error.101] parse error at line 3, column 7: ...";
        // a number beyond a double's range is not a parse error to nlohmann
        // but its own kind: "[json.exception.out_of_range.406] number overflow
        // parsing '1e400'". Either way the user gets one line about the file.
        std::string what = e.what();
        auto cut = what.find("] ");
        values.fail("", cut == std::string::npos ? what : what.substr(cut + 2));
    }
    std::string().swap(text);
    json root;
    copyValue(parsed, root, doc.GetAllocator(), 0);
    static_cast<json&>(doc).Swap(root);
}

Scenario parseText(std::string text, const std::string& origin) {
    ValueReader values(origin);
    rapidjson::Document doc;
    readJson(values, std::move(text), doc);
    return parseDocument(values, doc, origin);
}

} // namespace

} // namespace scenario

Scenario parseScenario(const std::string& text, const std::string& origin) {
    return scenario::parseText(text, origin);
}

Scenario loadScenarioFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw ScenarioError(path + ": cannot open: " + std::strerror(errno));
    }
    // Read straight into one string of the file's size. A read that fails
    // ends the text where it stopped (a folder reads as empty), and the
    // parser says what is missing.
    std::error_code ec;
    const auto size = std::filesystem::file_size(path, ec);
    std::string text(ec ? size_t{1} << 16 : static_cast<size_t>(size) + 1, '\0');
    size_t have = 0;
    try {
        for (;;) {
            if (have == text.size()) {
                text.resize(text.size() * 2);
            }
            const auto n = in.rdbuf()->sgetn(text.data() + have,
                                             static_cast<std::streamsize>(text.size() - have));
            if (n <= 0) {
                break;
            }
            have += static_cast<size_t>(n);
        }
    } catch (const std::exception&) {
    }
    text.resize(have);
    return scenario::parseText(std::move(text), path);
}

} // namespace ipmisel::sim
