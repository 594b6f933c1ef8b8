// What each firmware class writes for a BMC, and what it writes for a BMC that
// answers badly: never a crash, never an instance built from a bad answer,
// and the other classes unharmed.
#include <numeric>

#include "tests/firmware/FirmwareTestSupport.h"

namespace ipmisel::test {
namespace {

const std::string kRefused = "2:IPMI Error in obtaining BMC BuildInfo: Invalid Command.|",
                  kNotSent = "0:Failure in sending command to obtain BMC build information.|",
                  kShort = "1:Response length is too short in getting BMC build information.|",
                  kSimulated = "VersionString=1.00|MajorVersion=1|MinorVersion=0|"
                               "IPMIVersion=2.0|DeviceID=32|DeviceRevision=1|ManufacturerID=41921|"
                               "ProductID=0|AuxFirmwareRevision=00 00 00 00|";

// Device ID answers with the values `ipmitool mc info` prints for them, then
// the build information by the maker's request or the OEM-group one.
TEST_F(FirmwareTest, BMCElement) {
    const auto maker = [](const char* answer) {
        return R"([{"netfn": "0x3A", "cmd": "0x50", "response": ")" + std::string(answer) + "\"}]";
    };
    const auto fallback = [](const char* answer) {
        const std::string group = R"(, {"netfn": "0x2E", "cmd": "0x00", "data": "D0 51 00",
                                        "response": "D0 51 00 11 22 33 )";
        return R"([{"netfn": "0x3A", "cmd": "0x50", "fail": true})" +
               (answer ? group + answer + "\"}" : "") + "]";
    };
    // Device ID (nullptr: the simulated BMC's own), canned answers, the
    // properties and the notable log lines.
    const std::tuple<const char*, std::string, std::string, std::string> cases[] = {
        // Revision 81h (bit 7: provides SDRs); firmware 82h (bit 7: update in
        // progress) 15h; manufacturer 4D 4F F0 (20 bits: 4F4Dh); product 32 04.
        {"20 81 82 15 02 BF 4D 4F F0 32 04 01 02 0A FF", "[]",
         "VersionString=2.15|MajorVersion=2|MinorVersion=15|IPMIVersion=2.0|DeviceID=32|"
         "DeviceRevision=1|ManufacturerID=20301|ProductID=1074|AuxFirmwareRevision=01 02 0A FF|",
         kRefused},
        // 11 bytes; minor 05 keeps its zero in the version text; IPMI 1.5.
        {"7F 0C 01 05 51 00 C1 A3 00 00 01", "[]",
         "VersionString=1.05|MajorVersion=1|MinorVersion=5|IPMIVersion=1.5|DeviceID=127|"
         "DeviceRevision=12|ManufacturerID=41921|ProductID=256|",
         kRefused},
        {"01 00 0A 99 02 00 00 00 00 FF FF 01 02", "[]",
         "VersionString=10.99|MajorVersion=10|MinorVersion=99|IPMIVersion=2.0|DeviceID=1|"
         "DeviceRevision=0|ManufacturerID=0|ProductID=65535|",
         kRefused},
        {nullptr, "[]", kSimulated, kRefused},
        {nullptr, maker("01 02 03 04 05 06 07 08 09 54 45 53 54 42 4C 44 31 00"),
         kSimulated + "BuildID=TESTBLD1|"
                      "BuildInfoRawData=[01 02 03 04 05 06 07 08 09 54 45 53 54 42 4C 44 31 00]|",
         ""},
        {nullptr, maker("00 00 00 00 00 00 00 00 00 01 02 03 04 05 06 07 08 09"),
         kSimulated + "BuildInfoRawData=[00 00 00 00 00 00 00 00 00 01 02 03 04 05 06 07 08 09]|",
         ""},
        {nullptr, maker("01 02 03 04 05 06 07 08 09 54 45 53 54 42 4C 44 31"), kSimulated, kShort},
        // Firmware that cannot take the maker's request answers the OEM-group
        // one; only the exact enterprise number is answered here.
        {nullptr, fallback("42 4C 44 31 32 33 41 99"),
         kSimulated + "BuildID=BLD123A|BuildInfoRawData=[42 4C 44 31 32 33 41]|", kNotSent},
        {nullptr, fallback(nullptr), kSimulated, kNotSent + kRefused},
        {nullptr, fallback("42 4C 44 31 32 33"), kSimulated, kNotSent + kShort},
    };
    for (const auto& [deviceId, oem, expected, notable] : cases) {
        SCOPED_TRACE(expected);
        Load(std::string("[{") +
             (deviceId ? R"("deviceId": ")" + std::string(deviceId) + "\", " : "") + R"("oem": )" +
             oem + "}]");
        ASSERT_EQ(0, Collect(CollectBMCFirmware));
        EXPECT_EQ("OXASG_IPMIFirmwareElement:ElementName=BMC Firmware|" + expected +
                      "SourceNode=1|",
                  Written());
        EXPECT_EQ(notable, Notable());
    }
}

TEST_F(FirmwareTest, CPLDVersionsOfEverySelectorThatAnswered) {
    Load(R"([{}, {"oem": [
        {"netfn": "0x3A", "cmd": "0x6B", "data": "01", "response": "12"},
        {"netfn": "0x3A", "cmd": "0x6B", "data": "02", "cc": "0xCB"},
        {"netfn": "0x3A", "cmd": "0x6B", "data": "07", "response": "0A"}]}])");
    platform.cpld = true;
    platform.cpldSelectors = {0x01, 0x02, 0x07};
    ASSERT_EQ(0, Collect(CollectCPLDFirmware, 1));
    EXPECT_EQ("01|02|07|", Sent(0x3A, 0x6B, 1));
    EXPECT_EQ("OXASG_CPLDFirmwareElement:ElementName=CPLD Firmware|VersionString=0x12|"
              "CPLD1Version=0x12|CPLD3Version=0x0A|SourceNode=2|",
              Written());
    EXPECT_EQ("1:IPMI Error in obtaining CPLD Firmware: Requested Sensor, data, or record not "
              "present.|",
              Notable());
}

TEST_F(FirmwareTest, FPGAVersionsRevisionsAndBuildProperties) {
    // Selector 0 answers fully; selector 1 sends five bytes, which are no
    // version; selector 2 has no SPI revisions (FFh), selector 3 sends three
    // revision bytes. Of the build properties one answers, one carries a
    // non-zero status, one is too short to hold a value.
    Load(R"([{"oem": [
        {"netfn": "0x3A", "cmd": "0x6B", "data": "00", "response": "01 02 00 03"},
        {"netfn": "0x3A", "cmd": "0x90", "data": "00 00 04", "response": "05 06 07 08"},
        {"netfn": "0x3A", "cmd": "0x6B", "data": "01", "response": "01 02 03 04 05"},
        {"netfn": "0x3A", "cmd": "0x6B", "data": "02", "response": "0A 00 FF 10"},
        {"netfn": "0x3A", "cmd": "0x90", "data": "02 00 04", "response": "FF 00 00 00"},
        {"netfn": "0x3A", "cmd": "0x6B", "data": "03", "response": "00 00 00 01"},
        {"netfn": "0x3A", "cmd": "0x90", "data": "03 00 04", "response": "01 02 03"},
        {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 91", "prefix": true,
         "response": "00 11 22 33 46 42 31 32"},
        {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 93", "prefix": true,
         "response": "01 00 00 00 32 30 32 34"},
        {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 96", "prefix": true,
         "response": "00 00 00 00 39"}]}])");
    platform.fpga = true;
    platform.fpgaSelectors = {0x00, 0x01, 0x02, 0x03};
    ASSERT_EQ(0, Collect(CollectFPGAFirmware));
    // No revision request for the FPGA whose version was refused.
    EXPECT_EQ("00 00 04|02 00 04|03 00 04|", Sent(0x3A, 0x90));
    EXPECT_EQ("OXASG_FPGAFirmwareElement:ElementName=FPGA Firmware|VersionString=1.2.0.3|"
              "FPGA1Version=1.2.0.3|FPGA1SPIRevisionsRawData=[05 06 07 08]|"
              "FPGA3Version=10.0.255.16|FPGA4Version=0.0.0.1|BuildID=FB12|SourceNode=1|",
              Written());
    EXPECT_EQ("0:Response length isn't  4 in getting FPGA Version.|"
              "0:Response length isn't  4 in getting FPGA Revision.|"
              "2:Can't get /v2/fpga/build_date because of illegal parameters!|"
              "2:Can't get /v2/fpga/build_version because of illegal parameters!|",
              Notable());

    // No version answered: the build version alone makes the element.
    Load(R"([{"oem": [
        {"netfn": "0x3A", "cmd": "0x6B", "prefix": true, "cc": "0xCB"},
        {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 91", "prefix": true, "cc": "0xCC"},
        {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 93", "prefix": true, "cc": "0xCC"},
        {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 96", "prefix": true,
         "response": "00 00 00 00 32 2E 31 00"}]}])");
    platform.fpgaSelectors = {0x00};
    ASSERT_EQ(0, Collect(CollectFPGAFirmware));
    EXPECT_EQ("OXASG_FPGAFirmwareElement:ElementName=FPGA Firmware|VersionString=2.1|"
              "BuildVersion=2.1|SourceNode=1|",
              Written());
}

TEST_F(FirmwareTest, DiagnosticsBuildAndVPD) {
    std::string oem = R"([
        {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 90", "prefix": true,
         "response": "00 00 00 00 44 49 41 47 31"},
        {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 92", "prefix": true,
         "response": "00 00 00 00 32 30 32 34 2D 30 36 2D 31 31"},
        {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 95", "prefix": true,
         "response": "00 00 00 00 34 2E 32"},
        {"netfn": "0x3A", "cmd": "0x0B", "data": "00 00 05", "prefix": true, "cc": "0xCB"})";
    // Device 2: every byte holds its own offset, so a chunk put at the wrong
    // place shows in the block.
    Bytes block(255);
    std::iota(block.begin(), block.end(), 0);
    for (int offset = 0; offset < 255; offset += 25) {
        const int count = std::min(25, 255 - offset);
        oem += R"(, {"netfn": "0x3A", "cmd": "0x0B", "data": ")" +
               Hex({uint8_t(offset), 0, 2, uint8_t(count)}) + R"(", "response": ")" +
               Hex(Bytes(block.begin() + offset, block.begin() + offset + count)) + R"("})";
    }
    Load(R"([{"oem": )" + oem + "]}]");
    platform.vpdDevices = {0x05, 0x02};
    ASSERT_EQ(0, Collect(CollectQsvVPD));
    // Offset (low, high), device, count: device 5 refuses its first chunk;
    // device 2 is read in chunks of 25 and a last one of 5 at 250.
    EXPECT_EQ("00 00 05 19|00 00 02 19|19 00 02 19|32 00 02 19|4B 00 02 19|64 00 02 19|"
              "7D 00 02 19|96 00 02 19|AF 00 02 19|C8 00 02 19|E1 00 02 19|FA 00 02 05|",
              Sent(0x3A, 0x0B));
    // The property request: three zeros, the path length with bit 7 set, the path.
    EXPECT_EQ("00 00 00 90 2F 76 32 2F 71 73 76 2F 62 75 69 6C 64 5F 69 64|",
              Sent(0x3A, 0xC4).substr(0, 60));
    EXPECT_EQ("OXASG_QsvVPD:ElementName=Diagnostics VPD|VersionString=4.2|BuildID=DIAG1|"
              "BuildDate=2024-06-11|BuildVersion=4.2|VPDDevice2RawData=[" +
                  Hex(block) + "]|SourceNode=1|",
              Written());
}

TEST_F(FirmwareTest, BackplaneVersionsOfInstalledBackplanes) {
    Load(R"([{"i2c": [
        {"bus": 3, "address": "0xC0", "registers": {"0x63": "4D"}},
        {"bus": 3, "address": "0x40", "registers": "21 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D"},
        {"bus": 3, "address": "0xA0", "registers": "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE"},
        {"bus": 5, "address": "0xC0", "registers": {"0x63": "4E"}},
        {"bus": 5, "address": "0x40", "registers": "99 99 99 99 99 99 99 99 99 99 99 99 99 99"}]}])");
    platform.ami = true;
    platform.backplaneBusIDs = {0x05, 0x03};
    ASSERT_EQ(0, Collect(CollectAMIFirmware));
    // Bus 5 reads 4Eh where the controller says 4Dh: nothing more is asked there.
    EXPECT_EQ("05 C0 00 63|05 C0 01|03 C0 00 63|03 C0 01|03 40 0E|03 A0 0F 00|", Sent(0x06, 0x52));
    EXPECT_TRUE(host.hasLog("IPMIGetAMIVersion: AMI backplane isn't installed in BusID[5]"));
    EXPECT_EQ("OXASG_AMIFirmwareElement:ElementName=Backplane Firmware|VersionString=0x21|"
              "Backplane2Version=0x21|"
              "Backplane2VersionRawData=[21 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D]|"
              "Backplane2VPDRawData=[A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE]|SourceNode=1|",
              Written());
    EXPECT_EQ("", Notable());
}

// A BMC that knows none of the maker's commands: one notice, one request, no
// instance.
TEST_F(FirmwareTest, MakersCommandRefused) {
    const std::pair<Collector, std::string> cases[] = {{CollectCPLDFirmware, "CPLD Firmware"},
                                                       {CollectFPGAFirmware, "FPGA Firmware"},
                                                       {CollectQsvVPD, "/v2/qsv/build_id"}};
    for (const auto& [collector, what] : cases) {
        Load("[{}]");
        platform =
            DescribeFirmwarePlatform(&firmware::kBMCMachineTypes[3], true, true, true, {}, {});
        EXPECT_EQ(1, Collect(collector));
        EXPECT_EQ("none", Written());
        EXPECT_EQ("2:IPMI Error in obtaining " + what + ": Invalid Command.|", Notable());
        EXPECT_EQ(1u, bmcs[0]->received().size());
    }
}

// Bad answers to one class leave the others whole.
TEST_F(FirmwareTest, ABadAnswerCostsOnlyItsOwnClass) {
    // Answers for every class: build information, CPLD 01, FPGA 00, the
    // diagnostics build ID and a backplane on bus 3.
    const std::string answering = R"(
    {"netfn": "0x3A", "cmd": "0x50", "response": "01 02 03 04 05 06 07 08 09 41 42 43 44 45 46 47 48 00"},
    {"netfn": "0x3A", "cmd": "0x6B", "data": "01", "response": "12"},
    {"netfn": "0x3A", "cmd": "0x6B", "data": "00", "response": "01 02 00 03"},
    {"netfn": "0x3A", "cmd": "0x90", "data": "00 00 04", "response": "05 06 07 08"},
    {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 90", "prefix": true,
     "response": "00 00 00 00 51 31 32"}], "i2c": [
    {"bus": 3, "address": "0xC0", "registers": {"0x63": "4D"}},
    {"bus": 3, "address": "0x40", "registers": "21 00 00 00 00 00 00 00 00 00 00 00 00 00"},
    {"bus": 3, "address": "0xA0", "registers": "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"}]}])";
    // A fault or "", canned answers put ahead of the answering ones or "", and
    // the class left without an instance.
    const auto f = [](const char* what) {
        return R"({"repeat": true, )" + std::string(what) + "}";
    };
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {f(R"("netfn": "0x06", "cmd": "0x01", "cc": "0xD5")"), "", "BMC"},
        {f(R"("netfn": "0x06", "cmd": "0x01", "fail": true)"), "", "BMC"},
        {f(R"("netfn": "0x06", "cmd": "0x01", "truncate": 10)"), "", "BMC"},
        {"", R"({"netfn": "0x06", "cmd": "0x01",
                 "response": "20 01 01 00 02 BF C1 A3 00 00 00 00 00 00 00 00"},)",
         "BMC"},
        {f(R"("netfn": "0x3A", "cmd": "0x6B", "data": "01", "cc": "0xC0")"), "", "CPLD"},
        {f(R"("netfn": "0x3A", "cmd": "0x6B", "data": "01", "truncate": 0)"), "", "CPLD"},
        {"", R"({"netfn": "0x3A", "cmd": "0x6B", "data": "01", "response": "12 34"},)", "CPLD"},
        {f(R"("netfn": "0x3A", "cmd": "0x6B", "data": "00", "cc": "0xCC")"), "", "FPGA"},
        {f(R"("netfn": "0x3A", "cmd": "0x6B", "data": "00", "truncate": 3)"), "", "FPGA"},
        {f(R"("netfn": "0x3A", "cmd": "0xC4", "cc": "0xD4")"), "", "Diagnostics"},
        {f(R"("netfn": "0x3A", "cmd": "0xC4", "truncate": 5)"), "", "Diagnostics"},
        {f(R"("netfn": "0x06", "cmd": "0x52", "cc": "0xC3")"), "", "Backplane"},
        {f(R"("netfn": "0x06", "cmd": "0x52", "data": "03 40", "truncate": 13)"), "", "Backplane"},
        {"", R"({"netfn": "0x06", "cmd": "0x52", "data": "03 40 0E",
                 "response": "21 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},)",
         "Backplane"},
    };
    const std::tuple<std::string, Collector, std::string> all[] = {
        {"BMC", CollectBMCFirmware, "OXASG_IPMIFirmwareElement"},
        {"CPLD", CollectCPLDFirmware, "OXASG_CPLDFirmwareElement"},
        {"FPGA", CollectFPGAFirmware, "OXASG_FPGAFirmwareElement"},
        {"Diagnostics", CollectQsvVPD, "OXASG_QsvVPD"},
        {"Backplane", CollectAMIFirmware, "OXASG_AMIFirmwareElement"},
    };
    for (const auto& [fault, oem, lost] : cases) {
        SCOPED_TRACE(fault + oem);
        Load(R"([{"faults": [)" + fault + R"(], "oem": [)" + oem + answering);
        platform.cpld = platform.fpga = platform.ami = true;
        platform.cpldSelectors = {0x01};
        platform.fpgaSelectors = {0x00};
        platform.backplaneBusIDs = {0x03};
        std::string expected, written;
        for (const auto& [name, collector, className] : all) {
            EXPECT_EQ(name == lost ? 1 : 0, Collect(collector)) << name;
            expected += name == lost ? "" : className + " ";
        }
        for (const auto& i : host.instances) {
            written += i.className + " ";
        }
        EXPECT_EQ(expected, written);
    }
}

// A framework that refuses a property drops the whole instance.
TEST_F(FirmwareTest, RefusedPropertyDropsTheInstance) {
    Load("[{}]");
    host.config().failProperty = [](uint64_t, const std::string& name) {
        return name == "ProductID";
    };
    EXPECT_EQ(1, Collect(CollectBMCFirmware));
    EXPECT_EQ("none", Written());
    EXPECT_TRUE(host.hasLog(1, "Error adding ProductID."));
}

} // namespace
} // namespace ipmisel::test
