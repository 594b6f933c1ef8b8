// The FRU inventory and the BMC's firmware element as ipmisel-collect reads
// them from OpenIPMI's ipmi_sim (tests/e2e/bmc/inventory.emu) over lanplus,
// cross-checked with FreeIPMI's ipmi-fru on the same FRU images and with
// ipmitool's mc info on the same simulator.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "tests/e2e/Processes.h"

namespace ipmisel::e2e {
namespace {

const std::string kEmu = "inventory.emu";

// The FRU data the simulator serves, device ID -> bytes, read from the
// command file itself so that ipmi-fru sees exactly what the BMC holds.
std::map<int, Bytes> fruImages() {
    std::string text = readFile(test::sourceDir() + "/tests/e2e/bmc/" + kEmu);
    for (size_t at; (at = text.find("\\\n")) != npos;) {
        text.replace(at, 2, " ");
    }
    std::map<int, Bytes> images;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string command, mc, id, length, data;
        if ((words >> command >> mc >> id >> length >> data) && command == "mc_add_fru_data") {
            for (std::string b; words >> b;) {
                images[std::stoi(id, nullptr, 0)].push_back(uint8_t(std::stoul(b, nullptr, 16)));
            }
        }
    }
    return images;
}

// What `ipmi-fru --fru-file` prints for an image, under our property names,
// blanks trimmed. Its language and FRU file ID lines have no property.
std::map<std::string, std::string> ipmiFruFields(const Bytes& image) {
    static const std::map<std::string, std::string> names = {
        {"Chassis Type", "ChassisType"},
        {"Chassis Part Number", "ChassisPartNumber"},
        {"Chassis Serial Number", "ChassisSerialNumber"},
        {"Board Manufacturing Date/Time", "BoardMfgDateTime"},
        {"Board Manufacturer", "BoardManufacturer"},
        {"Board Product Name", "BoardProductName"},
        {"Board Serial Number", "BoardSerialNumber"},
        {"Board Part Number", "BoardPartNumber"},
        {"Product Manufacturer Name", "ProductManufacturer"},
        {"Product Name", "ProductName"},
        {"Product Part/Model Number", "ProductPartNumber"},
        {"Product Version", "ProductVersion"},
        {"Product Serial Number", "ProductSerialNumber"},
        {"Product Asset Tag", "ProductAssetTag"}};
    const std::string file =
        test::writeTempFile("fru.bin", std::string(image.begin(), image.end()));
    std::map<std::string, std::string> fields;
    std::istringstream lines(runProgram({"ipmi-fru", "--fru-file=" + file}).out);
    for (std::string line; std::getline(lines, line);) {
        const size_t colon = line.find(": ");
        auto name = line.starts_with("  FRU ") && colon != npos
                        ? names.find(line.substr(6, colon - 6))
                        : names.end();
        if (name == names.end()) {
            continue;
        }
        std::string value = trimmed(line.substr(colon + 2));
        // "12/31/23 - 23:59:00" (UTC: every run is in UTC) as CIM text.
        unsigned mo, d, y, h, mi, sec;
        char cim[32];
        if (std::sscanf(value.c_str(), "%2u/%2u/%2u - %2u:%2u:%2u", &mo, &d, &y, &h, &mi, &sec) ==
            6) {
            std::snprintf(cim, sizeof cim, "20%02u%02u%02u%02u%02u%02u.000000+000", y, mo, d, h, mi,
                          sec);
            value = cim;
        }
        fields[name->second] = value;
    }
    return fields;
}

class Inventory : public ::testing::Test {
  protected:
    void SetUp() override {
        if (std::string why = missingTool({"ipmi_sim", "ipmitool", "ipmi-fru"}); !why.empty()) {
            GTEST_SKIP() << why;
        }
        if (!sim) {
            sim = std::make_unique<IpmiSim>(std::vector<Bytes>{}, kEmu);
        }
    }
    static void TearDownTestSuite() { sim.reset(); }
    static std::unique_ptr<IpmiSim> sim;
};
std::unique_ptr<IpmiSim> Inventory::sim;

TEST_F(Inventory, OneFRUPerLogicalLocatorWithDataAndStandardFieldsAsIpmiFruReadsThem) {
    RunResult run = collect({sim.get()}, {"--class", "OXASG_IPMIFRU", "--format", "jsonl"});
    ASSERT_EQ(run.code, 0) << run.err;
    const auto frus = instancesOf(run.out, "OXASG_IPMIFRU");
    // The physical "Backplane" locator is not read, although the device its
    // byte 6 names holds a board area; "Fan Board" has no data. Then the FRU
    // device and how many standard fields ipmi-fru shows for it.
    struct Expected {
        const char *name, *identifying, *vendor, *fruNumber, *partNumber, *serialNumber;
        int device;
        size_t fields;
    } expected[] = {
        // Board-area bytes 7, 134, 102 and 71 of an image laid out for them.
        {"Mainboard", " ", "Example Systems", "01KP112", "01PN220", "MB24F0012345", 1, 14},
        // The same places of a packed image: byte 7 is a 6-bit packed byte
        // (25h, '%', ends the field at once); 71 and 102 lie past the board
        // area, in the product area's "Example Systems" ("tems") and
        // "RC0099" ("9"); 134 past the image, a zero.
        {"Riser Card", " ", "", "", "9", "tems", 2, 13},
        // Fixed offsets: 12+34-56 loses its first '+', then its first '-'.
        {"Power Supply", "K10345", "EXPW", "00FK933", "123456", "K10345", 3, 0},
    };
    ASSERT_EQ(frus.size(), std::size(expected)) << run.out;
    const auto images = fruImages();
    for (size_t i = 0; i < frus.size(); ++i) {
        const json& p = frus[i];
        const Expected& e = expected[i];
        SCOPED_TRACE(e.name);
        EXPECT_EQ(p["ElementName"], e.name);
        EXPECT_EQ(p["SourceNode"], "1");
        EXPECT_EQ(p["IdentifyingNumber"], e.identifying);
        EXPECT_EQ(p["Vendor"], e.vendor);
        EXPECT_EQ(p["FRUNumber"], e.fruNumber);
        EXPECT_EQ(p["PartNumber"], e.partNumber);
        EXPECT_EQ(p["SerialNumber"], e.serialNumber);
        // The properties reach the framework in ascending name order.
        std::vector<std::string> names;
        std::map<std::string, std::string> ours;
        for (const auto& item : p.items()) {
            names.push_back(item.key());
            if (item.key().starts_with("Chassis") || item.key().starts_with("Board") ||
                item.key().starts_with("Product")) {
                ours[item.key()] = trimmed(item.value().get<std::string>());
            }
        }
        EXPECT_TRUE(std::is_sorted(names.begin(), names.end())) << p.dump();
        ASSERT_TRUE(images.count(e.device));
        const auto theirs = ipmiFruFields(images.at(e.device));
        EXPECT_EQ(theirs.size(), e.fields);
        EXPECT_EQ(ours, theirs);
    }
    // The encodings themselves, in case both readers went wrong together:
    // 6-bit packed (padded with a blank), BCD plus one digit a byte, the
    // board's minutes since 1996 and a chassis type name.
    const json& riser = frus[1];
    EXPECT_EQ(riser["BoardManufacturer"], "EXAMPLE SYSTEMS");
    EXPECT_EQ(riser["BoardSerialNumber"], "24-0611.07");
    EXPECT_EQ(riser["ProductVersion"], "1.2");
    EXPECT_EQ(riser["BoardMfgDateTime"], "20231231235900.000000+000");
    EXPECT_EQ(riser["ChassisType"], "Main Server Chassis");
}

TEST_F(Inventory, BMCFirmwareAgreesWithIpmitoolMcInfo) {
    RunResult run =
        collect({sim.get()}, {"--class", "OXASG_IPMIFirmwareElement", "--format", "jsonl"});
    ASSERT_EQ(run.code, 0) << run.err;
    const auto elements = instancesOf(run.out, "OXASG_IPMIFirmwareElement");
    ASSERT_EQ(elements.size(), 1u) << run.out;
    EXPECT_EQ(elements[0]["SourceNode"], "1");
    RunResult info = sim->ipmitool({"mc", "info"});
    ASSERT_EQ(info.code, 0) << info.err;
    std::map<std::string, std::string> theirs;
    std::istringstream lines(info.out);
    for (std::string line; std::getline(lines, line);) {
        if (const size_t colon = line.find(" : "); colon != npos) {
            // "Product ID : 1296 (0x0510)": the decimal number.
            std::string value = trimmed(line.substr(colon + 3));
            theirs[trimmed(line.substr(0, colon))] = value.substr(0, value.find(' '));
        }
    }
    // What inventory.emu's mc_add sets up, as both tools must show it.
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"Firmware Revision", "VersionString", "2.15"},
        {"IPMI Version", "IPMIVersion", "2.0"},
        {"Manufacturer ID", "ManufacturerID", "41921"},
        {"Product ID", "ProductID", "1296"},
        {"Device ID", "DeviceID", "33"},
        {"Device Revision", "DeviceRevision", "5"}};
    for (const auto& [label, property, value] : rows) {
        EXPECT_EQ(theirs[label], value) << label;
        EXPECT_EQ(elements[0].value(property, ""), value) << property;
    }
}

TEST_F(Inventory, MakerOnlyFirmwareClassesGiveNothingAndSayWhyOnce) {
    // ipmi_sim knows none of the maker's OEM commands (C1h), and over the LAN
    // no SMBIOS tells of CPLDs, FPGAs or a backplane: no instance, no failed
    // collection, and one line saying why. The log records up to severity 3
    // ("<digit> <text>") every run writes (the driver's) are those the four
    // runs share; what is left is the class's.
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"OXASG_CPLDFirmwareElement",
         {"3 No CPLD known on this machine; no CPLD firmware collected."}},
        {"OXASG_FPGAFirmwareElement",
         {"3 No FPGA known on this machine; no FPGA firmware collected."}},
        // Refused at its first request: nothing more is asked.
        {"OXASG_QsvVPD",
         {"3 Getting diagnostics VPD.",
          "2 IPMI Error in obtaining /v2/qsv/build_id: Invalid Command."}},
        {"OXASG_AMIFirmwareElement",
         {"3 No AMI backplane known on this machine; no backplane firmware collected."}},
    };
    const std::string log = test::makeTempDir("ipmisel-oem") + "/run.log";
    std::vector<std::vector<std::string>> logs;
    for (const auto& [className, lines] : cases) {
        RunResult run = collect({sim.get()}, {"--class", className, "--format", "jsonl", "--log",
                                              log, "--log-level", "3"});
        EXPECT_EQ(run.code, 0) << className << run.err;
        EXPECT_EQ(run.out, "") << className;
        std::istringstream text(readFile(log));
        auto& records = logs.emplace_back();
        for (std::string line; std::getline(text, line);) {
            if (line.size() > 2 && line[0] >= '0' && line[0] <= '3' && line[1] == ' ') {
                records.push_back(line);
            }
        }
    }
    for (size_t i = 0; i < logs.size(); ++i) {
        std::vector<std::string> own;
        std::copy_if(logs[i].begin(), logs[i].end(), std::back_inserter(own), [&](auto& line) {
            return !std::all_of(logs.begin(), logs.end(), [&](const auto& other) {
                return std::find(other.begin(), other.end(), line) != other.end();
            });
        });
        EXPECT_EQ(own, cases[i].second) << cases[i].first;
    }
}

} // namespace
} // namespace ipmisel::e2e
