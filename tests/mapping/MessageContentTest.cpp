// The shipped message file against the lookup that reads it: every id it holds
// must find its own line, every id the decoders ask for must be there, and each
// id block must hold the kind of text its decoder reads it as.
#include <algorithm>
#include <cctype>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

#include "mapping/OffsetIds.h"
#include "tests/mapping/MappingTestSupport.h"

namespace ipmisel::test {
namespace {

TEST(ShippedMessages, EveryIdFindsItsOwnLineAndEveryUsedIdIsThere) {
    const std::string file = shippedMessageFile();
    MappingHost h(file);
    std::map<int32_t, std::string> all;
    std::istringstream in(file);
    for (std::string line; std::getline(in, line);) {
        size_t eq = line.find('=');
        ASSERT_NE(eq, std::string::npos) << line;
        EXPECT_LT(line.size(), 200u) << line;
        all[std::stoi(line)] = line.substr(eq + 1);
    }
    ASSERT_FALSE(all.empty());
    for (const auto& [id, text] : all) {
        int result = -1;
        EXPECT_EQ(h.lookup(std::to_string(id), &result), text) << id;
        EXPECT_EQ(result, 0) << id;
        // A run of digits in a text would answer for an id or key holding it.
        for (size_t i = 0; i + 1 < text.size(); ++i) {
            EXPECT_FALSE(std::isdigit(static_cast<unsigned char>(text[i])) &&
                         std::isdigit(static_cast<unsigned char>(text[i + 1])))
                << id << " " << text;
        }
        // Only these are formats; every other text is appended as it stands.
        if (id == 286 || id == 347 || id == 543 || id == 544) {
            EXPECT_TRUE(message::IsOneNumberFormat(text.c_str())) << id;
        } else {
            EXPECT_EQ(text.find('%'), std::string::npos) << id;
        }
    }
    for (int32_t id : ids::UsedDataIds()) {
        EXPECT_TRUE(all.count(id)) << "missing data id " << id;
    }
    // OEM byte keys end in "-<type>-<number>-2-<value>": a numbered line
    // holding a dash followed by a digit would answer for them.
    for (size_t dash = file.find('-'); dash != std::string::npos; dash = file.find('-', dash + 1)) {
        EXPECT_FALSE(std::isdigit(static_cast<unsigned char>(file[dash + 1])))
            << file.substr(dash, 20);
    }
}

std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

// The decoders pick a text by base + a field of the record, so a block written
// in the wrong place or order reads fluently and means something else. Each
// row says which words every text first, first + step, ... last must (or must
// not) contain, as IPMI and our own layouts define the fields.
TEST(ShippedMessages, EachBlockHoldsWhatItsDecoderMeans) {
    MappingHost h(shippedMessageFile());
    const struct {
        int32_t first, last, step;
        const char* word;
        bool present;
    } rows[] = {
        // Threshold offsets: lower before upper, going low/high alternating.
        {100, 110, 2, "falling", true},
        {101, 111, 2, "rising", true},
        {100, 105, 1, "lower", true},
        {106, 111, 1, "upper", true},
        {100, 101, 1, "non-critical", true},
        {102, 103, 1, "lower critical", true},
        {104, 105, 1, "non-recoverable", true},
        {108, 109, 1, "upper critical", true},
        // C0h/E0h and C1h/E1h types, in the order the detail layouts take them.
        {113, 113, 1, "pci", true},
        {114, 114, 1, "processor", true},
        {115, 115, 1, "memory", true},
        {133, 133, 1, "memory", true},
        {134, 134, 1, "processor", true},
        {135, 135, 1, "pci express", true},
        {136, 136, 1, "scalability", true},
        // System event "entry added to the auxiliary log": event data 2 bits
        // 3:0 the log type (385 +), bits 7:4 what happened to it (412 +).
        {385, 387, 1, "log", true},
        {385, 385, 1, "mca", true},
        {386, 386, 1, "oem 1", true},
        {387, 387, 1, "oem 2", true},
        {385, 387, 1, "added", false},
        {412, 414, 1, "entry added", true},
        {413, 413, 1, "no standard", true},
        {414, 414, 1, "sel", true},
        {415, 415, 1, "cleared", true},
        {416, 416, 1, "disabled", true},
        {417, 417, 1, "enabled", true},
        {412, 417, 1, "mca", false},
        {412, 417, 1, "oem", false},
        {412, 417, 1, "type", false},
        // Watchdog 2 detail: interrupt types, then timer uses.
        {510, 513, 1, "interrupt type", true},
        {515, 520, 1, "timer use", true},
        // Event/reading type names, rate and unit names, E0h/E1h error kinds.
        {651, 651, 1, "threshold", true},
        {657, 657, 1, "severity", true},
        {662, 662, 1, "acpi", true},
        {721, 727, 1, "per ", true},
        {731, 731, 1, "degrees c", true},
        {734, 734, 1, "volts", true},
        {748, 748, 1, "rpm", true},
        {822, 822, 1, "grams", true},
        {881, 881, 1, "serr", true},
        {882, 882, 1, "perr", true},
        {883, 883, 1, "uncorrectable", true},
        {884, 884, 1, "single-bit", true},
        {885, 885, 1, "multi-bit", true},
    };
    for (const auto& r : rows) {
        for (int32_t id = r.first; id <= r.last; id += r.step) {
            const std::string text = lower(h.text(id));
            EXPECT_EQ(text.find(r.word) != std::string::npos, r.present)
                << id << " \"" << text << "\" " << (r.present ? "lacks " : "has ") << r.word;
        }
    }
}

} // namespace
} // namespace ipmisel::test
