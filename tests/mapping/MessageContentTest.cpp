// The shipped message file against the lookup that reads it: every id it holds
// must find its own line, and every id the decoders ask for must be there.
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
        all[std::stoi(line)] = line.substr(eq + 1);
    }
    ASSERT_FALSE(all.empty());
    for (const auto& [id, text] : all) {
        int result = -1;
        EXPECT_EQ(h.lookup(std::to_string(id), &result), text) << id;
        EXPECT_EQ(result, 0) << id;
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

} // namespace
} // namespace ipmisel::test
