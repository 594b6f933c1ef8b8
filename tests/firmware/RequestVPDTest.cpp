// The request rules a collector test does not show on its own: a VPD block
// that comes back with a wrong count, the longest property path, the
// machine-type table and the build-ID text rule.
#include "tests/firmware/FirmwareTestSupport.h"

namespace ipmisel::test {
namespace {

TEST_F(FirmwareTest, VPDChunkWithWrongCountSpoilsTheBlock) {
    // Every chunk answers what was asked, except offset 100, which gives 24
    // bytes: the read goes on to the end and the block is not handed on.
    Load(R"([{"oem": [{"netfn": "0x3A", "cmd": "0x0B", "data": "64 00 03", "prefix": true,
                      "response": "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01"},
                     {"netfn": "0x3A", "cmd": "0x0B", "data": "FA 00 03 05",
                      "response": "01 01 01 01 01"},
                     {"netfn": "0x3A", "cmd": "0x0B", "prefix": true,
                      "response": "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01"}]}])");
    IPMIRequestVPD request(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));
    uint8_t vpd[255] = {};
    EXPECT_EQ(1, request.IPMIGetVPDEntryData(0x03, vpd));
    EXPECT_EQ(11u, Sent(0x3A, 0x0B).size());
    EXPECT_EQ((std::vector<LogLine>{
                  {1, "Incorrect count returned when sending command to obtain vital product "
                      "data.\nDevice 3, Offset 100, Counts returned: 24, Counts expected: 25"}}),
              Notable());
    EXPECT_FALSE(host.hasLog("IPMIRequestVPD::IPMIGetVPDEntryData() completed.\n"));

    platform.vpdDevices = {0x03};
    host.clear();
    EXPECT_EQ(1, Collect(CollectQsvVPD));
    EXPECT_TRUE(host.instances.empty());
}

TEST_F(FirmwareTest, PropertyPathLengths) {
    // 127 characters is the longest length the request's length byte carries.
    Load(R"([{"oem": [{"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 FF", "prefix": true,
                      "response": "00 00 00 00 6F 6B"}]}])");
    IPMIRequestVPD request(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));
    char value[8] = "x";
    const std::string longest(127, 'p');
    EXPECT_EQ(0, request.IPMIPropertyCMD(longest.c_str(), value, sizeof value));
    EXPECT_STREQ("ok", value);
    const std::vector<Bytes> sent = Sent(0x3A, 0xC4);
    ASSERT_EQ(1u, sent.size());
    Bytes expected = {0x00, 0x00, 0x00, 0xFF};
    expected.insert(expected.end(), longest.begin(), longest.end());
    EXPECT_EQ(expected, sent[0]);

    const std::string tooLong(128, 'p');
    EXPECT_EQ(1, request.IPMIPropertyCMD(tooLong.c_str(), value, sizeof value));
    EXPECT_STREQ("", value);
    EXPECT_EQ(1u, Sent(0x3A, 0xC4).size()); // nothing sent
    EXPECT_TRUE(host.hasLog(2, "Can't get " + tooLong + " because of illegal parameters!"));
}

TEST(FirmwareConfig, MachineTypeRowsAndPlatform) {
    EXPECT_EQ(0, firmware::FindBMCMachineType("QB10"));
    EXPECT_EQ(3, firmware::FindBMCMachineType("QB30"));
    for (const char* other : {"qb10", "QB1", "QB100", "", "No machine type found."}) {
        EXPECT_EQ(-1, firmware::FindBMCMachineType(other)) << other;
    }
    EXPECT_EQ(-1, firmware::FindBMCMachineType(nullptr));
    EXPECT_EQ(nullptr, firmware::BMCMachineTypeRow(-1));
    EXPECT_EQ(nullptr, firmware::BMCMachineTypeRow(4));

    // The rows keep the VPD devices the driver has always used.
    const auto vpd = [](int row) {
        const auto& d = firmware::kBMCMachineTypes[row].vpdDevices;
        return Bytes(d.begin(), d.end());
    };
    EXPECT_EQ(Bytes({0x00, 0x01, 0x02}), vpd(0));
    EXPECT_EQ(Bytes({0x00, 0x01, 0x02}), vpd(1));
    EXPECT_EQ(Bytes({0x00, 0x03}), vpd(2));
    EXPECT_EQ(Bytes({0x00, 0x01, 0x04, 0x05}), vpd(3));

    // SMBIOS selectors win over the row's; an empty SMBIOS list leaves the row's.
    const FirmwarePlatform p = DescribeFirmwarePlatform(firmware::BMCMachineTypeRow(1), true, false,
                                                        true, {0x07, 0x08}, {});
    EXPECT_TRUE(p.cpld);
    EXPECT_FALSE(p.fpga);
    EXPECT_TRUE(p.ami);
    EXPECT_EQ(Bytes({0x07, 0x08}), p.cpldSelectors);
    EXPECT_EQ(Bytes({0x00}), p.fpgaSelectors);
    EXPECT_EQ(Bytes({0x03, 0x05}), p.backplaneBusIDs);
    EXPECT_EQ(Bytes({0x00, 0x01, 0x02}), p.vpdDevices);

    const FirmwarePlatform none = DescribeFirmwarePlatform(nullptr, true, true, true, {}, {0x04});
    EXPECT_TRUE(none.cpldSelectors.empty());
    EXPECT_EQ(Bytes({0x04}), none.fpgaSelectors);
    EXPECT_TRUE(none.backplaneBusIDs.empty());
    EXPECT_TRUE(none.vpdDevices.empty());
}

TEST(FirmwareText, BuildIDIsTextOnlyWhenPrintable) {
    const std::vector<std::pair<Bytes, std::string>> cases = {
        {{'A', 'B', 'C', 0, 0}, "ABC"},
        {{'A', 'B', ' ', ' '}, "AB"},
        {{' ', 'A', 0}, " A"},
        {{'A', 'B', 0, 'C'}, ""}, // something after the terminating zero
        {{'A', 0x01, 'B'}, ""},
        {{'A', 0x7F}, ""},
        {{0, 0}, ""},
    };
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(text, PrintableText(bytes.data(), bytes.size()));
    }
}

} // namespace
} // namespace ipmisel::test
