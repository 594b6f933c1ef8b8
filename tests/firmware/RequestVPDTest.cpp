// The request rules a collector test does not show on its own: a VPD block
// that comes back with a wrong count, the longest property path, the
// machine-type table and the build-ID text rule.
#include "tests/firmware/FirmwareTestSupport.h"

namespace ipmisel::test {
namespace {

using namespace std::string_literals;

TEST_F(FirmwareTest, VPDChunkWithWrongCountSpoilsTheBlock) {
    // Every chunk answers what was asked, except offset 100, which gives 24
    // bytes: the read goes on to the end and the block is refused.
    Load(R"([{"oem": [{"netfn": "0x3A", "cmd": "0x0B", "data": "64 00 03", "prefix": true,
                      "response": "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01"},
                     {"netfn": "0x3A", "cmd": "0x0B", "data": "FA 00 03 05", "response": "01 01 01 01 01"},
                     {"netfn": "0x3A", "cmd": "0x0B", "prefix": true,
                      "response": "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01"}]}])");
    IPMIRequestVPD request(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));
    uint8_t vpd[255] = {};
    EXPECT_EQ(1, request.IPMIGetVPDEntryData(0x03, vpd));
    EXPECT_EQ(11u * 12, Sent(0x3A, 0x0B).size()); // eleven requests of four bytes
    EXPECT_EQ("1:Incorrect count returned when sending command to obtain vital product data.\n"
              "Device 3, Offset 100, Counts returned: 24, Counts expected: 25|",
              Notable());
    EXPECT_FALSE(host.hasLog("IPMIRequestVPD::IPMIGetVPDEntryData() completed.\n"));
}

TEST_F(FirmwareTest, PropertyPathLengths) {
    // 127 characters is the longest length the request's length byte carries.
    Load(R"([{"oem": [{"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 FF", "prefix": true,
                      "response": "00 00 00 00 6F 6B"}]}])");
    IPMIRequestVPD request(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));
    char value[8] = "x";
    const std::string longest(127, 'p'), tooLong(128, 'p');
    EXPECT_EQ(0, request.IPMIPropertyCMD(longest.c_str(), value, sizeof value));
    EXPECT_STREQ("ok", value);
    EXPECT_EQ("00 00 00 FF " + Hex(Bytes(longest.begin(), longest.end())) + "|", Sent(0x3A, 0xC4));

    EXPECT_EQ(1, request.IPMIPropertyCMD(tooLong.c_str(), value, sizeof value));
    EXPECT_STREQ("", value);
    EXPECT_EQ(12u + 127 * 3, Sent(0x3A, 0xC4).size()); // nothing more sent
    EXPECT_TRUE(host.hasLog(2, "Can't get " + tooLong + " because of illegal parameters!"));
}

TEST(FirmwareConfig, MachineTypeRowsAndPlatform) {
    EXPECT_EQ(0, firmware::FindBMCMachineType("QB10"));
    EXPECT_EQ(3, firmware::FindBMCMachineType("QB30"));
    for (const char* other :
         {"qb10", "QB1", "QB100", "", "No machine type found.", (const char*)nullptr}) {
        EXPECT_EQ(-1, firmware::FindBMCMachineType(other));
    }
    EXPECT_EQ(nullptr, firmware::BMCMachineTypeRow(-1));
    EXPECT_EQ(nullptr, firmware::BMCMachineTypeRow(4));

    // The rows keep the VPD devices the driver has always used.
    std::string vpd;
    for (const auto& row : firmware::kBMCMachineTypes) {
        vpd += Hex(Bytes(row.vpdDevices.begin(), row.vpdDevices.end())) + "|";
    }
    EXPECT_EQ("00 01 02|00 01 02|00 03|00 01 04 05|", vpd);

    // SMBIOS selectors win over the row's; an empty SMBIOS list leaves the row's.
    const FirmwarePlatform p = DescribeFirmwarePlatform(firmware::BMCMachineTypeRow(1), true, false,
                                                        true, {0x07, 0x08}, {});
    EXPECT_TRUE(p.cpld && !p.fpga && p.ami);
    EXPECT_EQ("07 08|00|03 05|00 01 02", Hex(p.cpldSelectors) + "|" + Hex(p.fpgaSelectors) + "|" +
                                             Hex(p.backplaneBusIDs) + "|" + Hex(p.vpdDevices));
    const FirmwarePlatform none = DescribeFirmwarePlatform(nullptr, true, true, true, {}, {0x04});
    EXPECT_EQ("|04||", Hex(none.cpldSelectors) + "|" + Hex(none.fpgaSelectors) + "|" +
                           Hex(none.backplaneBusIDs) + "|" + Hex(none.vpdDevices));
}

TEST(FirmwareText, BuildIDIsTextOnlyWhenPrintable) {
    // Trailing blanks and zeros go; anything after the zero, or a control
    // character, makes it no text.
    std::string texts;
    for (const std::string& b : {"ABC\0\0"s, "AB  "s, " A\0"s, "AB\0C"s,
                                 "A\x01"
                                 "B"s,
                                 "A\x7F"s, "\0\0"s}) {
        texts += PrintableText(reinterpret_cast<const uint8_t*>(b.data()), b.size()) + "|";
    }
    EXPECT_EQ("ABC|AB| A|||||", texts);
}

} // namespace
} // namespace ipmisel::test
