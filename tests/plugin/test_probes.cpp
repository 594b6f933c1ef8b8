// The platform probes against SMBIOS tables given structure by structure.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "host/sim/Builders.h"
#include "plugin/PluginEntry.h"
#include "plugin/Probes.h"
#include "tests/support/HostFixture.h"

namespace ipmisel::test {
namespace {

using Structures = std::vector<std::vector<uint8_t>>;

// A type 11 structure; `count` overrides its string count byte.
std::vector<uint8_t> Oem(const std::vector<std::string>& strings, int count = -1) {
    auto s = sim::smbiosOemStrings(0, strings);
    if (count >= 0) {
        s[4] = static_cast<uint8_t>(count);
    }
    return s;
}

class ProbeTest : public ::testing::Test {
  protected:
    void SetUp() override { PluginInitialize(host::hostCallbacks()); }
    // No structures at all: the tables cannot be read.
    void Use(const std::optional<Structures>& s) {
        host.config().smbios = s ? host::smbiosFromStructures(*s) : nullptr;
    }
    bool CoreLogged(const std::string& text) const {
        const std::pair<uint32_t, std::string> line{3, text};
        return std::find(host.coreLogs.begin(), host.coreLogs.end(), line) != host.coreLogs.end();
    }
    HostCapture host;
    const std::vector<uint8_t> type38 = sim::smbiosIpmiDevice({});
};

TEST_F(ProbeTest, AdapterScanOverOemStrings) {
    const std::string name = "OXA Torvik Adapter";
    const struct {
        const char* what;
        std::optional<Structures> structures;
        int expected;
    } cases[] = {
        {"no type 11 at all", Structures{type38}, 0},
        {"leading blanks and tabs", Structures{Oem({" \t  " + name})}, 1},
        {"a substring of a longer string", Structures{Oem({"x" + name + " v2"})}, 1},
        {"third of three strings", Structures{Oem({"a", "", name})}, 1},
        {"in the second structure", Structures{Oem({"first"}), Oem({name})}, 1},
        {"different case", Structures{Oem({"OXA TORVIK ADAPTER"})}, 0},
        {"beyond the string count", Structures{Oem({"a", name}, 1)}, 0},
        {"count byte far above the strings", Structures{Oem({"a"}, 255)}, 0},
        // Over 99 characters the scratch copy cuts the name off.
        {"name past the scratch", Structures{Oem({std::string(95, 'x') + name})}, 0},
        {"tables unreadable", std::nullopt, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        host.clear();
        Use(c.structures);
        EXPECT_EQ(HasTVK2onBoard(), c.expected);
        EXPECT_EQ(CoreLogged("BasicanalHasTVK2onBoardsmBios - found a TVK2"), c.expected == 1);
        // The end of the scan names type 0; log readers know it so.
        EXPECT_EQ(CoreLogged("BasicanalHasTVK2onBoardsmBios - read all smbios structures "
                             "available for type 0"),
                  c.structures.has_value());
    }
}

TEST_F(ProbeTest, CpldAndFpgaSelectorsStayInsideTheFormattedArea) {
    // Count byte 9 in a structure whose formatted area holds only two selectors.
    Use(Structures{{0xD8, 0x07, 0x01, 0x00, 0x09, 0x21, 0x22, 'A', 'B', 0, 0},
                   {0xD9, 0x08, 0x02, 0x00, 0x01, 0x05, 0x00, 0x00, 0, 0}});
    SMBIOSInfo info(host::hostCallbacks());
    std::vector<uint8_t> selectors = {0xEE};
    EXPECT_EQ(info.getSMBIOSInfo(platform::SMBIOSDataKind::CPLD, &selectors), 0);
    EXPECT_EQ(selectors, (std::vector<uint8_t>{0x21, 0x22}));
    EXPECT_EQ(info.getSMBIOSInfo(platform::SMBIOSDataKind::FPGA, &selectors), 0);
    EXPECT_EQ(selectors, (std::vector<uint8_t>{0x05}));
    Use(Structures{type38});
    EXPECT_EQ(info.getSMBIOSInfo(platform::SMBIOSDataKind::FPGA, &selectors), 1);
    EXPECT_TRUE(selectors.empty());
    Use(std::nullopt);
    EXPECT_EQ(info.getSMBIOSInfo(platform::SMBIOSDataKind::CPLD), 1);
}

TEST_F(ProbeTest, MachineTypeIsCutToTheBuffer) {
    host.config().machineTypeFromID = "ABCDEFGH";
    char type[5] = "zzzz";
    int status = 7;
    getMachineType(&status, type, sizeof type);
    EXPECT_EQ(status, 0);
    EXPECT_STREQ(type, "ABCD");
}

} // namespace
} // namespace ipmisel::test
