// What each firmware class writes for a BMC, and what it writes for a BMC that
// answers badly: never a crash, never an instance built from a bad answer,
// and the other classes unharmed.
#include "tests/firmware/FirmwareTestSupport.h"

namespace ipmisel::test {
namespace {

// ---- the BMC element ------------------------------------------------------------------

struct DeviceIDCase {
    const char* name;
    const char* deviceId;
    Props expected; // between "ElementName" and "SourceNode"
};

// Expected values as `ipmitool mc info` prints the same answer.
const DeviceIDCase kDeviceIDs[] = {
    {"AllFields",
     // device 20h; revision byte 81h (bit 7: provides SDRs); firmware 82h (bit 7:
     // update in progress) 15h; IPMI 02h; manufacturer 4D 4F F0 (20 bits:
     // 4F4Dh); product 32 04; auxiliary 01 02 0A FF
     "20 81 82 15 02 BF 4D 4F F0 32 04 01 02 0A FF",
     {{"VersionString", "2.15"},
      {"MajorVersion", "2"},
      {"MinorVersion", "15"},
      {"IPMIVersion", "2.0"},
      {"DeviceID", "32"},
      {"DeviceRevision", "1"},
      {"ManufacturerID", "20301"},
      {"ProductID", "1074"},
      {"AuxFirmwareRevision", "01 02 0A FF"}}},
    {"NoAuxiliaryRevision",
     // 11 bytes; minor 05 keeps its zero in the version text; IPMI 1.5
     "7F 0C 01 05 51 00 C1 A3 00 00 01",
     {{"VersionString", "1.05"},
      {"MajorVersion", "1"},
      {"MinorVersion", "5"},
      {"IPMIVersion", "1.5"},
      {"DeviceID", "127"},
      {"DeviceRevision", "12"},
      {"ManufacturerID", "41921"},
      {"ProductID", "256"}}},
    {"PartialAuxiliaryRevision",
     "01 00 0A 99 02 00 00 00 00 FF FF 01 02",
     {{"VersionString", "10.99"},
      {"MajorVersion", "10"},
      {"MinorVersion", "99"},
      {"IPMIVersion", "2.0"},
      {"DeviceID", "1"},
      {"DeviceRevision", "0"},
      {"ManufacturerID", "0"},
      {"ProductID", "65535"}}},
};

class DeviceIDTest : public FirmwareTest, public ::testing::WithParamInterface<DeviceIDCase> {};

TEST_P(DeviceIDTest, PropertiesInOrder) {
    Load(std::string(R"([{"deviceId": ")") + GetParam().deviceId + R"("}])");
    ASSERT_EQ(0, Collect(CollectBMCFirmware));
    ASSERT_EQ(1u, host.instances.size());
    EXPECT_EQ(kBMCFirmwareClass, host.instances[0].className);
    Props expected = {{"ElementName", "BMC Firmware"}};
    expected.insert(expected.end(), GetParam().expected.begin(), GetParam().expected.end());
    expected.emplace_back("SourceNode", "1");
    EXPECT_EQ(expected, PropsOf(host.instances[0]));
}

INSTANTIATE_TEST_SUITE_P(Firmware, DeviceIDTest, ::testing::ValuesIn(kDeviceIDs),
                         [](const auto& info) { return info.param.name; });

// The simulated BMC knows none of the maker's commands, like most BMCs that
// are not the maker's: the element still comes from Get Device ID, and the
// refused build information is one notice.
TEST_F(FirmwareTest, BMCElementWithoutBuildInformation) {
    Load("[{}, {}]");
    ASSERT_EQ(0, Collect(CollectBMCFirmware, 1));
    ASSERT_EQ(1u, host.instances.size());
    EXPECT_EQ((Props{{"ElementName", "BMC Firmware"},
                     {"VersionString", "1.00"},
                     {"MajorVersion", "1"},
                     {"MinorVersion", "0"},
                     {"IPMIVersion", "2.0"},
                     {"DeviceID", "32"},
                     {"DeviceRevision", "1"},
                     {"ManufacturerID", "41921"},
                     {"ProductID", "0"},
                     {"AuxFirmwareRevision", "00 00 00 00"},
                     {"SourceNode", "2"}}),
              PropsOf(host.instances[0]));
    EXPECT_EQ(
        (std::vector<LogLine>{{2, "IPMI Error in obtaining BMC BuildInfo: Invalid Command."}}),
        Notable());
}

struct BuildCase {
    const char* name;
    const char* oem; // canned answers
    Props expected;  // the build properties
    std::vector<LogLine> notable;
};

const BuildCase kBuilds[] = {
    {"MakersRequest",
     R"([{"netfn": "0x3A", "cmd": "0x50",
          "response": "01 02 03 04 05 06 07 08 09 54 45 53 54 42 4C 44 31 00"}])",
     {{"BuildID", "TESTBLD1"},
      {"BuildInfoRawData", "[01 02 03 04 05 06 07 08 09 54 45 53 54 42 4C 44 31 00]"}},
     {}},
    {"BuildIDNotText",
     R"([{"netfn": "0x3A", "cmd": "0x50",
          "response": "00 00 00 00 00 00 00 00 00 01 02 03 04 05 06 07 08 09"}])",
     {{"BuildInfoRawData", "[00 00 00 00 00 00 00 00 00 01 02 03 04 05 06 07 08 09]"}},
     {}},
    {"ShortAnswer",
     R"([{"netfn": "0x3A", "cmd": "0x50",
          "response": "01 02 03 04 05 06 07 08 09 54 45 53 54 42 4C 44 31"}])",
     {},
     {{1, "Response length is too short in getting BMC build information."}}},
    // Firmware that cannot take the maker's request answers the OEM-group
    // one; only the exact enterprise number is answered here.
    {"OEMGroupFallback",
     R"([{"netfn": "0x3A", "cmd": "0x50", "fail": true},
         {"netfn": "0x2E", "cmd": "0x00", "data": "D0 51 00",
          "response": "D0 51 00 11 22 33 42 4C 44 31 32 33 41 99"}])",
     {{"BuildID", "BLD123A"}, {"BuildInfoRawData", "[42 4C 44 31 32 33 41]"}},
     {{0, "Failure in sending command to obtain BMC build information."}}},
    {"FallbackRefused",
     R"([{"netfn": "0x3A", "cmd": "0x50", "fail": true}])",
     {},
     {{0, "Failure in sending command to obtain BMC build information."},
      {2, "IPMI Error in obtaining BMC BuildInfo: Invalid Command."}}},
    {"FallbackShort",
     R"([{"netfn": "0x3A", "cmd": "0x50", "fail": true},
         {"netfn": "0x2E", "cmd": "0x00", "data": "D0 51 00",
          "response": "D0 51 00 11 22 33 42 4C 44 31 32 33"}])",
     {},
     {{0, "Failure in sending command to obtain BMC build information."},
      {1, "Response length is too short in getting BMC build information."}}},
};

class BuildInfoTest : public FirmwareTest, public ::testing::WithParamInterface<BuildCase> {};

TEST_P(BuildInfoTest, BuildProperties) {
    Load(std::string(R"([{"deviceId": "20 01 03 10 02 00 00 00 00 00 00", "oem": )") +
         GetParam().oem + "}]");
    ASSERT_EQ(0, Collect(CollectBMCFirmware));
    ASSERT_EQ(1u, host.instances.size());
    Props props = PropsOf(host.instances[0]);
    ASSERT_GE(props.size(), 10u);
    EXPECT_EQ(Props({{"VersionString", "3.10"}}), Props(props.begin() + 1, props.begin() + 2));
    EXPECT_EQ(Props({{"SourceNode", "1"}}), Props(props.end() - 1, props.end()));
    EXPECT_EQ(GetParam().expected, Props(props.begin() + 9, props.end() - 1));
    EXPECT_EQ(GetParam().notable, Notable());
}

INSTANTIATE_TEST_SUITE_P(Firmware, BuildInfoTest, ::testing::ValuesIn(kBuilds),
                         [](const auto& info) { return info.param.name; });

// ---- CPLD, FPGA, diagnostics and backplane elements -------------------------------------

TEST_F(FirmwareTest, CPLDVersionsOfEverySelectorThatAnswered) {
    Load(R"([{}, {"oem": [
        {"netfn": "0x3A", "cmd": "0x6B", "data": "01", "response": "12"},
        {"netfn": "0x3A", "cmd": "0x6B", "data": "02", "cc": "0xCB"},
        {"netfn": "0x3A", "cmd": "0x6B", "data": "07", "response": "0A"}]}])");
    platform.cpld = true;
    platform.cpldSelectors = {0x01, 0x02, 0x07};
    ASSERT_EQ(0, Collect(CollectCPLDFirmware, 1));
    EXPECT_EQ((std::vector<Bytes>{{0x01}, {0x02}, {0x07}}), Sent(0x3A, 0x6B, 1));
    ASSERT_EQ(1u, host.instances.size());
    EXPECT_EQ(kCPLDFirmwareClass, host.instances[0].className);
    EXPECT_EQ((Props{{"ElementName", "CPLD Firmware"},
                     {"VersionString", "0x12"},
                     {"CPLD1Version", "0x12"},
                     {"CPLD3Version", "0x0A"},
                     {"SourceNode", "2"}}),
              PropsOf(host.instances[0]));
    EXPECT_EQ((std::vector<LogLine>{
                  {1, "IPMI Error in obtaining CPLD Firmware: Requested Sensor, data, or record "
                      "not present."}}),
              Notable());
}

TEST_F(FirmwareTest, FPGAVersionsRevisionsAndBuildProperties) {
    // Selector 0 answers fully; selector 1 sends five bytes, which are no
    // version; selector 2 has no SPI revisions (FFh), selector 3 sends three
    // revision bytes. Of the build
    // properties one answers, one carries a non-zero status, one is too
    // short to hold a value.
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
    EXPECT_EQ((std::vector<Bytes>{{0x00, 0x00, 0x04}, {0x02, 0x00, 0x04}, {0x03, 0x00, 0x04}}),
              Sent(0x3A, 0x90));
    ASSERT_EQ(1u, host.instances.size());
    EXPECT_EQ((Props{{"ElementName", "FPGA Firmware"},
                     {"VersionString", "1.2.0.3"},
                     {"FPGA1Version", "1.2.0.3"},
                     {"FPGA1SPIRevisionsRawData", "[05 06 07 08]"},
                     {"FPGA3Version", "10.0.255.16"},
                     {"FPGA4Version", "0.0.0.1"},
                     {"BuildID", "FB12"},
                     {"SourceNode", "1"}}),
              PropsOf(host.instances[0]));
    EXPECT_EQ((std::vector<LogLine>{
                  {0, "Response length isn't  4 in getting FPGA Version."},
                  {0, "Response length isn't  4 in getting FPGA Revision."},
                  {2, "Can't get /v2/fpga/build_date because of illegal parameters!"},
                  {2, "Can't get /v2/fpga/build_version because of illegal parameters!"}}),
              Notable());
}

TEST_F(FirmwareTest, FPGAElementFromBuildPropertiesAlone) {
    Load(R"([{"oem": [
        {"netfn": "0x3A", "cmd": "0x6B", "prefix": true, "cc": "0xCB"},
        {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 91", "prefix": true, "cc": "0xCC"},
        {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 93", "prefix": true, "cc": "0xCC"},
        {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 96", "prefix": true,
         "response": "00 00 00 00 32 2E 31 00"}]}])");
    platform.fpga = true;
    platform.fpgaSelectors = {0x00};
    ASSERT_EQ(0, Collect(CollectFPGAFirmware));
    ASSERT_EQ(1u, host.instances.size());
    EXPECT_EQ((Props{{"ElementName", "FPGA Firmware"},
                     {"VersionString", "2.1"},
                     {"BuildVersion", "2.1"},
                     {"SourceNode", "1"}}),
              PropsOf(host.instances[0]));
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
    // Device 2: every byte holds its own offset.
    for (int offset = 0; offset < 255; offset += 25) {
        const int count = std::min(25, 255 - offset);
        char key[40];
        std::snprintf(key, sizeof key, "%02X 00 02 %02X", offset, count);
        std::string bytes;
        for (int i = 0; i < count; ++i) {
            char b[16];
            std::snprintf(b, sizeof b, "%02X ", offset + i);
            bytes += b;
        }
        oem += std::string(R"(, {"netfn": "0x3A", "cmd": "0x0B", "data": ")") + key +
               R"(", "response": ")" + bytes + R"("})";
    }
    Load(R"([{"oem": )" + oem + "]}]");
    platform.vpdDevices = {0x05, 0x02};
    ASSERT_EQ(0, Collect(CollectQsvVPD));
    // Offset (low, high), device, count: device 5 refuses its first chunk;
    // device 2 is read in chunks of 25 and a last one of 5 at 250.
    EXPECT_EQ((std::vector<Bytes>{{0x00, 0x00, 0x05, 0x19},
                                  {0x00, 0x00, 0x02, 0x19},
                                  {0x19, 0x00, 0x02, 0x19},
                                  {0x32, 0x00, 0x02, 0x19},
                                  {0x4B, 0x00, 0x02, 0x19},
                                  {0x64, 0x00, 0x02, 0x19},
                                  {0x7D, 0x00, 0x02, 0x19},
                                  {0x96, 0x00, 0x02, 0x19},
                                  {0xAF, 0x00, 0x02, 0x19},
                                  {0xC8, 0x00, 0x02, 0x19},
                                  {0xE1, 0x00, 0x02, 0x19},
                                  {0xFA, 0x00, 0x02, 0x05}}),
              Sent(0x3A, 0x0B));
    // The property request: three zeros, the path length with bit 7 set, the path.
    const std::string path = "/v2/qsv/build_id";
    Bytes request = {0x00, 0x00, 0x00, 0x90};
    request.insert(request.end(), path.begin(), path.end());
    EXPECT_EQ(request, Sent(0x3A, 0xC4).at(0));

    ASSERT_EQ(1u, host.instances.size());
    EXPECT_EQ(kQsvVPDClass, host.instances[0].className);
    Props props = PropsOf(host.instances[0]);
    ASSERT_EQ(7u, props.size());
    EXPECT_EQ((Props{{"ElementName", "Diagnostics VPD"},
                     {"VersionString", "4.2"},
                     {"BuildID", "DIAG1"},
                     {"BuildDate", "2024-06-11"},
                     {"BuildVersion", "4.2"}}),
              Props(props.begin(), props.begin() + 5));
    // Byte k of the block holds k: each chunk landed at its own offset.
    std::string block;
    for (int k = 0; k < 255; ++k) {
        char b[16];
        std::snprintf(b, sizeof b, "%02X", k);
        block += (k == 0 ? "[" : " ") + std::string(b);
    }
    EXPECT_EQ(std::make_pair(std::string("VPDDevice2RawData"), block + "]"), props[5]);
    EXPECT_EQ((Props{{"SourceNode", "1"}}), Props(props.begin() + 6, props.end()));
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
    EXPECT_EQ((std::vector<Bytes>{{0x05, 0xC0, 0x00, 0x63},
                                  {0x05, 0xC0, 0x01},
                                  {0x03, 0xC0, 0x00, 0x63},
                                  {0x03, 0xC0, 0x01},
                                  {0x03, 0x40, 0x0E},
                                  {0x03, 0xA0, 0x0F, 0x00}}),
              Sent(0x06, 0x52));
    EXPECT_TRUE(host.hasLog("IPMIGetAMIVersion: AMI backplane isn't installed in BusID[5]"));
    ASSERT_EQ(1u, host.instances.size());
    EXPECT_EQ(kAMIFirmwareClass, host.instances[0].className);
    EXPECT_EQ((Props{{"ElementName", "Backplane Firmware"},
                     {"VersionString", "0x21"},
                     {"Backplane2Version", "0x21"},
                     {"Backplane2VersionRawData", "[21 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D]"},
                     {"Backplane2VPDRawData", "[A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE]"},
                     {"SourceNode", "1"}}),
              PropsOf(host.instances[0]));
    EXPECT_TRUE(Notable().empty());
}

// ---- BMCs that are not the maker's ---------------------------------------------------------

struct RefusalCase {
    const char* name;
    Collector collector;
    uint8_t cmd; // the one maker's command the class sends
    const char* notice;
};

const RefusalCase kRefusals[] = {
    {"CPLD", CollectCPLDFirmware, 0x6B, "IPMI Error in obtaining CPLD Firmware: Invalid Command."},
    {"FPGA", CollectFPGAFirmware, 0x6B, "IPMI Error in obtaining FPGA Firmware: Invalid Command."},
    {"Diagnostics", CollectQsvVPD, 0xC4,
     "IPMI Error in obtaining /v2/qsv/build_id: Invalid Command."},
};

class RefusalTest : public FirmwareTest, public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(RefusalTest, OneNoticeOneRequestNoInstance) {
    Load("[{}]");
    platform = DescribeFirmwarePlatform(&firmware::kBMCMachineTypes[3], true, true, true, {}, {});
    EXPECT_EQ(1, Collect(GetParam().collector));
    EXPECT_TRUE(host.instances.empty());
    EXPECT_EQ((std::vector<LogLine>{{2, GetParam().notice}}), Notable());
    EXPECT_EQ(1u, bmcs[0]->received().size());
    EXPECT_EQ(1u, Sent(0x3A, GetParam().cmd).size());
}

INSTANTIATE_TEST_SUITE_P(Firmware, RefusalTest, ::testing::ValuesIn(kRefusals),
                         [](const auto& info) { return info.param.name; });

// ---- bad answers to one class leave the others whole ---------------------------------------

// A BMC that answers every class: Device ID, build information, CPLD 01,
// FPGA 00, the diagnostics build ID and a backplane on bus 3.
const char* kAnsweringOEM = R"(
    {"netfn": "0x3A", "cmd": "0x50", "response": "01 02 03 04 05 06 07 08 09 41 42 43 44 45 46 47 48 00"},
    {"netfn": "0x3A", "cmd": "0x6B", "data": "01", "response": "12"},
    {"netfn": "0x3A", "cmd": "0x6B", "data": "00", "response": "01 02 00 03"},
    {"netfn": "0x3A", "cmd": "0x90", "data": "00 00 04", "response": "05 06 07 08"},
    {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00 90", "prefix": true,
     "response": "00 00 00 00 51 31 32"}])";
const char* kAnsweringI2C = R"(
    {"bus": 3, "address": "0xC0", "registers": {"0x63": "4D"}},
    {"bus": 3, "address": "0x40", "registers": "21 00 00 00 00 00 00 00 00 00 00 00 00 00"},
    {"bus": 3, "address": "0xA0", "registers": "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"}])";

struct BadAnswer {
    const char* name;
    const char* fault; // a fault, or "" for none
    const char* oem;   // canned answers put ahead of the answering ones, or ""
    const char* lost;  // the class without an instance
};

const BadAnswer kBadAnswers[] = {
    {"DeviceIDCode", R"({"netfn": "0x06", "cmd": "0x01", "cc": "0xD5", "repeat": true})", "",
     kBMCFirmwareClass},
    {"DeviceIDNotSent", R"({"netfn": "0x06", "cmd": "0x01", "fail": true, "repeat": true})", "",
     kBMCFirmwareClass},
    {"DeviceIDShort", R"({"netfn": "0x06", "cmd": "0x01", "truncate": 10, "repeat": true})", "",
     kBMCFirmwareClass},
    {"DeviceIDOversize", "",
     R"({"netfn": "0x06", "cmd": "0x01",
         "response": "20 01 01 00 02 BF C1 A3 00 00 00 00 00 00 00 00"},)",
     kBMCFirmwareClass},
    {"CPLDCode", R"({"netfn": "0x3A", "cmd": "0x6B", "data": "01", "cc": "0xC0", "repeat": true})",
     "", kCPLDFirmwareClass},
    {"CPLDEmpty",
     R"({"netfn": "0x3A", "cmd": "0x6B", "data": "01", "truncate": 0, "repeat": true})", "",
     kCPLDFirmwareClass},
    {"CPLDOversize", "", R"({"netfn": "0x3A", "cmd": "0x6B", "data": "01", "response": "12 34"},)",
     kCPLDFirmwareClass},
    {"FPGACode", R"({"netfn": "0x3A", "cmd": "0x6B", "data": "00", "cc": "0xCC", "repeat": true})",
     "", kFPGAFirmwareClass},
    {"FPGAShort",
     R"({"netfn": "0x3A", "cmd": "0x6B", "data": "00", "truncate": 3, "repeat": true})", "",
     kFPGAFirmwareClass},
    {"DiagnosticsCode", R"({"netfn": "0x3A", "cmd": "0xC4", "cc": "0xD4", "repeat": true})", "",
     kQsvVPDClass},
    {"DiagnosticsShort", R"({"netfn": "0x3A", "cmd": "0xC4", "truncate": 5, "repeat": true})", "",
     kQsvVPDClass},
    {"BackplaneCode", R"({"netfn": "0x06", "cmd": "0x52", "cc": "0xC3", "repeat": true})", "",
     kAMIFirmwareClass},
    {"BackplaneShort",
     R"({"netfn": "0x06", "cmd": "0x52", "data": "03 40", "truncate": 13, "repeat": true})", "",
     kAMIFirmwareClass},
    {"BackplaneOversize", "",
     R"({"netfn": "0x06", "cmd": "0x52", "data": "03 40 0E",
         "response": "21 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},)",
     kAMIFirmwareClass},
};

class BadAnswerTest : public FirmwareTest, public ::testing::WithParamInterface<BadAnswer> {};

TEST_P(BadAnswerTest, OnlyThatClassIsLost) {
    const BadAnswer& bad = GetParam();
    Load(std::string(R"([{"faults": [)") + bad.fault + R"(], "i2c": [)" + kAnsweringI2C +
         R"(, "oem": [)" + bad.oem + kAnsweringOEM + "}]");
    platform.cpld = platform.fpga = platform.ami = true;
    platform.cpldSelectors = {0x01};
    platform.fpgaSelectors = {0x00};
    platform.backplaneBusIDs = {0x03};
    const std::vector<std::pair<const char*, Collector>> all = {
        {kBMCFirmwareClass, CollectBMCFirmware},   {kCPLDFirmwareClass, CollectCPLDFirmware},
        {kFPGAFirmwareClass, CollectFPGAFirmware}, {kQsvVPDClass, CollectQsvVPD},
        {kAMIFirmwareClass, CollectAMIFirmware},
    };
    std::vector<std::string> expected;
    for (const auto& [name, collector] : all) {
        const bool lost = std::string(name) == bad.lost;
        EXPECT_EQ(lost ? 1 : 0, Collect(collector)) << name;
        if (!lost) {
            expected.push_back(name);
        }
    }
    std::vector<std::string> written;
    for (const auto& i : host.instances) {
        written.push_back(i.className);
    }
    EXPECT_EQ(expected, written);
}

INSTANTIATE_TEST_SUITE_P(Firmware, BadAnswerTest, ::testing::ValuesIn(kBadAnswers),
                         [](const auto& info) { return info.param.name; });

// A framework that refuses a property drops the whole instance.
TEST_F(FirmwareTest, RefusedPropertyDropsTheInstance) {
    Load("[{}]");
    host.config().failProperty = [](uint64_t, const std::string& name) {
        return name == "ProductID";
    };
    EXPECT_EQ(1, Collect(CollectBMCFirmware));
    EXPECT_TRUE(host.instances.empty());
    EXPECT_TRUE(host.hasLog(1, "Error adding ProductID."));
}

} // namespace
} // namespace ipmisel::test
