// The platform probes against SMBIOS tables given structure by structure.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "plugin/Driver.h"
#include "plugin/PluginEntry.h"
#include "plugin/Probes.h"
#include "tests/plugin/MiniBmc.h"

namespace ipmisel::test {
namespace {

using Structures = std::vector<std::vector<uint8_t>>;

class ProbeTest : public ::testing::Test {
  protected:
    void SetUp() override { PluginInitialize(host::hostCallbacks()); }
    void Use(Structures s) { host.config().smbios = host::smbiosFromStructures(std::move(s)); }
    bool CoreLogged(const std::string& text) const {
        for (const auto& [cls, t] : host.coreLogs) {
            if (cls == 3 && t == text) {
                return true;
            }
        }
        return false;
    }
    HostCapture host;
};

TEST_F(ProbeTest, AdapterScanOverOemStrings) {
    const struct {
        const char* name;
        Structures structures;
        int expected;
    } cases[] = {
        {"no type 11 at all", {Type38()}, 0},
        {"leading blanks and tabs", {OemStrings({" \t  OXA Torvik Adapter"})}, 1},
        {"a substring of a longer string", {OemStrings({"xOXA Torvik Adapter v2"})}, 1},
        {"third of three strings", {OemStrings({"a", "", "OXA Torvik Adapter"})}, 1},
        {"in the second structure", {OemStrings({"first"}), OemStrings({"OXA Torvik Adapter"})}, 1},
        {"different case", {OemStrings({"OXA TORVIK ADAPTER"})}, 0},
        {"beyond the string count", {OemStrings({"a", "OXA Torvik Adapter"}, 1)}, 0},
        {"count byte far above the strings", {OemStrings({"a"}, 255)}, 0},
        // Over 99 characters the scratch copy cuts the name off.
        {"name past the scratch", {OemStrings({std::string(95, 'x') + "OXA Torvik Adapter"})}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        host.clear();
        Use(c.structures);
        EXPECT_EQ(HasTVK2onBoard(), c.expected);
        EXPECT_TRUE(
            CoreLogged("BasicanalHasTVK2onBoardsmBios - Retrieving first SMBIOS structure"));
        EXPECT_TRUE(CoreLogged(
            "BasicanalHasTVK2onBoardsmBios - read all smbios structures available for type 0"));
        EXPECT_EQ(CoreLogged("BasicanalHasTVK2onBoardsmBios - found a TVK2"), c.expected == 1);
    }
}

TEST_F(ProbeTest, AdapterScanWithoutReadableTablesAnswersZero) {
    host.config().smbios = nullptr;
    EXPECT_EQ(HasTVK2onBoard(), 0);
    EXPECT_TRUE(host.coreLogs.empty());
}

TEST_F(ProbeTest, Type38LookupTexts) {
    const struct {
        const char* name;
        bool readable;
        Structures structures;
        int expected;
        const char* line;
    } cases[] = {
        {"present", true, {OemStrings({"a"}), Type38()}, 0, "Found a Type 38 SMBIOS BMC record"},
        {"absent", true, {OemStrings({"a"})}, 1, "Did NOT find a Type 38 SMBIOS BMC record"},
        {"unreadable",
         false,
         {},
         1,
         "Unable to read BMC type from SMBIOS. Invalid Handle was encountered."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        host.clear();
        if (c.readable) {
            Use(c.structures);
        } else {
            host.config().smbios = nullptr;
        }
        EXPECT_EQ(FindSMBIOSType38(host::hostCallbacks()), c.expected);
        EXPECT_TRUE(host.hasLog(3, c.line));
        EXPECT_EQ(host.logs.size(), 1u);
    }
}

TEST_F(ProbeTest, CpldAndFpgaDataWithSelectorsKeptInsideTheFormattedArea) {
    // Count byte 9 in a structure whose formatted area holds only two selectors.
    const std::vector<uint8_t> cpld = {0xD8, 0x07, 0x01, 0x00, 0x09, 0x21, 0x22, 'A', 'B', 0, 0};
    const std::vector<uint8_t> fpga = {0xD9, 0x08, 0x02, 0x00, 0x01, 0x05, 0x00, 0x00, 0, 0};
    Use({cpld, fpga});
    SMBIOSInfo info(host::hostCallbacks());
    std::vector<uint8_t> selectors = {0xEE};
    EXPECT_EQ(info.getSMBIOSInfo(platform::SMBIOSDataKind::CPLD, &selectors), 0);
    EXPECT_EQ(selectors, (std::vector<uint8_t>{0x21, 0x22}));
    EXPECT_EQ(info.getSMBIOSInfo(platform::SMBIOSDataKind::FPGA, &selectors), 0);
    EXPECT_EQ(selectors, (std::vector<uint8_t>{0x05}));

    Use({Type38()});
    EXPECT_EQ(info.getSMBIOSInfo(platform::SMBIOSDataKind::FPGA, &selectors), 1);
    EXPECT_TRUE(selectors.empty());
    host.config().smbios = nullptr;
    EXPECT_EQ(info.getSMBIOSInfo(platform::SMBIOSDataKind::CPLD), 1);
}

TEST_F(ProbeTest, MachineTypeIsTheCoreLibrarysAnswerCutToTheBuffer) {
    host.config().machineTypeFromID = "ABCDEFGH";
    char type[5] = "zzzz";
    int status = 7;
    getMachineType(&status, type, sizeof type);
    EXPECT_EQ(status, 0);
    EXPECT_STREQ(type, "ABCD");
    EXPECT_TRUE(g_machineTypeRead);
    EXPECT_TRUE(host.hasLog(3, "getMachineType() entered."));
    EXPECT_TRUE(host.hasLog(3, "getMachineType() completed."));
    ResetDriverState();
    EXPECT_FALSE(g_machineTypeRead);
}

} // namespace
} // namespace ipmisel::test
