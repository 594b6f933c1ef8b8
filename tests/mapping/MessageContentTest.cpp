// The shipped message file against the lookup that reads it: every id it holds
// must find its own line, and every id the decoders ask for must be there.
#include <gtest/gtest.h>
#include <map>
#include <sstream>

#include "mapping/OffsetIds.h"
#include "tests/mapping/MappingTestSupport.h"

namespace ipmisel::test {
namespace {

std::map<int32_t, std::string> entries(const std::string& file) {
    std::map<int32_t, std::string> out;
    std::istringstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        size_t eq = line.find('=');
        EXPECT_NE(eq, std::string::npos) << line;
        if (eq == std::string::npos) {
            continue;
        }
        out[std::stoi(line.substr(0, eq))] = line.substr(eq + 1);
    }
    return out;
}

TEST(ShippedMessages, EveryIdFindsItsOwnLine) {
    const std::string file = shippedMessageFile();
    ASSERT_FALSE(file.empty());
    ASSERT_EQ(file.back(), '\n'); // else the last text loses a letter
    ASSERT_EQ(file.find('\r'), std::string::npos);
    MappingHost h(file);
    auto all = entries(file);
    int32_t previous = -1;
    std::istringstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        int32_t id = std::stoi(line);
        EXPECT_GT(id, previous) << "ids are kept in ascending order";
        previous = id;
        EXPECT_LT(line.size(), 200u) << line;
        EXPECT_EQ(std::to_string(id) + "=" + all[id], line) << "id written without sign or zeros";
    }
    for (const auto& [id, text] : all) {
        int result = -1;
        EXPECT_EQ(h.lookup(std::to_string(id), &result), text) << id;
        EXPECT_EQ(result, 0) << id;
    }
}

TEST(ShippedMessages, EveryIdTheDecodersUseIsThere) {
    auto all = entries(shippedMessageFile());
    for (int32_t id : ids::UsedDataIds()) {
        EXPECT_TRUE(all.count(id)) << "missing data id " << id;
    }
}

TEST(ShippedMessages, NoSensorKeyCanMatchANumberedLine) {
    // OEM byte keys end in "-<type>-<number>-2-<value>": a numbered line must
    // never contain a dash followed by a digit, or it would answer for them.
    const std::string file = shippedMessageFile();
    for (size_t i = 0; i + 1 < file.size(); ++i) {
        if (file[i] == '-') {
            EXPECT_FALSE(file[i + 1] >= '0' && file[i + 1] <= '9') << file.substr(i, 20);
        }
    }
}

TEST(ShippedMessages, FormatsTakeOneNumber) {
    auto all = entries(shippedMessageFile());
    for (int32_t id : {286, 347, 543, 544}) {
        EXPECT_TRUE(message::IsOneNumberFormat(all[id].c_str())) << id;
    }
    // Every other text is appended as it stands; none should look like a format
    // to a reader who later turns it into one.
    for (const auto& [id, text] : all) {
        if (id != 286 && id != 347 && id != 543 && id != 544) {
            EXPECT_EQ(text.find('%'), std::string::npos) << id;
        }
    }
}

} // namespace
} // namespace ipmisel::test
