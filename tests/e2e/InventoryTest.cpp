// The FRU inventory and the BMC's firmware element as ipmisel-collect reads
// them from OpenIPMI's ipmi_sim (tests/e2e/bmc/inventory.emu) over lanplus,
// cross-checked with FreeIPMI's ipmi-fru on the same FRU images and with
// ipmitool's mc info on the same simulator.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <sstream>

#include <nlohmann/json.hpp>

#include "tests/e2e/Processes.h"

namespace ipmisel::e2e {
namespace {

using json = nlohmann::ordered_json;
using Bytes = std::vector<uint8_t>;

const std::string kEmu = "inventory.emu";

// The FRU data the simulator serves, device ID -> bytes, read from the
// command file itself so that ipmi-fru sees exactly what the BMC holds.
std::map<int, Bytes> fruImages() {
    std::string text = readFile(test::sourceDir() + "/tests/e2e/bmc/" + kEmu);
    for (size_t at; (at = text.find("\\\n")) != std::string::npos;) {
        text.replace(at, 2, " ");
    }
    std::map<int, Bytes> images;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string command, mc, id, length, data;
        if (!(words >> command >> mc >> id >> length >> data) || command != "mc_add_fru_data") {
            continue;
        }
        Bytes& bytes = images[std::stoi(id, nullptr, 0)];
        for (std::string b; words >> b;) {
            bytes.push_back(static_cast<uint8_t>(std::stoul(b, nullptr, 16)));
        }
    }
    return images;
}

std::vector<json> instancesOf(const std::string& jsonl, const std::string& className) {
    std::vector<json> out;
    std::istringstream lines(jsonl);
    for (std::string line; std::getline(lines, line);) {
        if (json i = json::parse(line); i["class"] == className) {
            out.push_back(i["properties"]);
        }
    }
    return out;
}

std::string trimmed(const std::string& s) {
    const size_t a = s.find_first_not_of(' '), b = s.find_last_not_of(' ');
    return a == std::string::npos ? "" : s.substr(a, b - a + 1);
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
        {"Product Asset Tag", "ProductAssetTag"},
    };
    const std::string file = test::writeTempFile(
        "fru.bin", std::string(reinterpret_cast<const char*>(image.data()), image.size()));
    RunResult r = runProgram({"ipmi-fru", "--fru-file=" + file});
    std::map<std::string, std::string> fields;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);) {
        const size_t colon = line.find(": ");
        if (!line.starts_with("  FRU ") || colon == std::string::npos) {
            continue;
        }
        auto name = names.find(line.substr(6, colon - 6));
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

// Log records at or below a severity ("<digit> <text>" per record).
std::vector<std::string> logRecordsUpTo(const std::string& log, char severity) {
    std::vector<std::string> out;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        if (line.size() > 2 && line[0] >= '0' && line[0] <= severity && line[1] == ' ') {
            out.push_back(line);
        }
    }
    return out;
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

    // One FRU collection serves every FRU test.
    static const RunResult& fruRun() {
        static const RunResult run =
            collect({sim.get()}, {"--class", "OXASG_IPMIFRU", "--format", "jsonl"});
        return run;
    }

    static std::unique_ptr<IpmiSim> sim;
};
std::unique_ptr<IpmiSim> Inventory::sim;

TEST_F(Inventory, OneInstancePerLogicalFRUWithDataInRepositoryOrder) {
    const RunResult& run = fruRun();
    ASSERT_EQ(run.code, 0) << run.err;
    const auto frus = instancesOf(run.out, "OXASG_IPMIFRU");
    // The physical "Backplane" locator is not read, although the device its
    // byte 6 names holds a board area; "Fan Board" has no data.
    struct Expected {
        const char* name;
        const char *identifying, *vendor, *fruNumber, *partNumber, *serialNumber;
    } expected[] = {
        // Board-area bytes 7, 134, 102 and 71 of an image laid out for them.
        {"Mainboard", " ", "Example Systems", "01KP112", "01PN220", "MB24F0012345"},
        // The same places of a packed image: byte 7 is a 6-bit packed byte
        // (25h, '%', ends the field at once); 71 and 102 lie past the board
        // area, in the product area's "Example Systems" ("tems") and
        // "RC0099" ("9"); 134 past the image, a zero.
        {"Riser Card", " ", "", "", "9", "tems"},
        // Fixed offsets: 12+34-56 loses its first '+', then its first '-'.
        {"Power Supply", "K10345", "EXPW", "00FK933", "123456", "K10345"},
    };
    ASSERT_EQ(frus.size(), std::size(expected)) << run.out;
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
        for (const auto& item : p.items()) {
            names.push_back(item.key());
        }
        EXPECT_TRUE(std::is_sorted(names.begin(), names.end())) << p.dump();
    }
}

TEST_F(Inventory, StandardFieldsAsIpmiFruReadsTheSameImages) {
    const RunResult& run = fruRun();
    ASSERT_EQ(run.code, 0) << run.err;
    const auto frus = instancesOf(run.out, "OXASG_IPMIFRU");
    ASSERT_EQ(frus.size(), 3u) << run.out;
    const auto images = fruImages();
    // Device per instance, and how many standard fields ipmi-fru shows.
    const std::pair<int, size_t> devices[] = {{1, 14}, {2, 13}, {3, 0}};
    for (size_t i = 0; i < frus.size(); ++i) {
        SCOPED_TRACE(frus[i]["ElementName"].get<std::string>());
        ASSERT_TRUE(images.count(devices[i].first));
        const auto theirs = ipmiFruFields(images.at(devices[i].first));
        ASSERT_EQ(theirs.size(), devices[i].second);
        std::map<std::string, std::string> ours;
        for (const auto& item : frus[i].items()) {
            const std::string& name = item.key();
            if (name.starts_with("Chassis") || name.starts_with("Board") ||
                name.starts_with("Product")) {
                ours[name] = trimmed(item.value().get<std::string>());
            }
        }
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
    RunResult info =
        runProgram({"ipmitool", "-I", "lanplus", "-C", "3", "-H", "127.0.0.1", "-p",
                    std::to_string(sim->port()), "-U", IpmiSim::kUser, "-E", "mc", "info"},
                   {{"IPMI_PASSWORD", IpmiSim::kPassword}});
    ASSERT_EQ(info.code, 0) << info.err;
    std::map<std::string, std::string> theirs;
    std::istringstream lines(info.out);
    for (std::string line; std::getline(lines, line);) {
        if (const size_t colon = line.find(" : "); colon != std::string::npos) {
            // "Product ID : 1296 (0x0510)": the decimal number.
            std::string value = trimmed(line.substr(colon + 3));
            theirs[trimmed(line.substr(0, colon))] = value.substr(0, value.find(' '));
        }
    }
    // What inventory.emu's mc_add sets up, as both tools must show it.
    const struct {
        const char *label, *property, *value;
    } rows[] = {
        {"Firmware Revision", "VersionString", "2.15"},
        {"IPMI Version", "IPMIVersion", "2.0"},
        {"Manufacturer ID", "ManufacturerID", "41921"},
        {"Product ID", "ProductID", "1296"},
        {"Device ID", "DeviceID", "33"},
        {"Device Revision", "DeviceRevision", "5"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(theirs[row.label], row.value) << row.label;
        EXPECT_EQ(elements[0].value(row.property, ""), row.value) << row.property;
    }
    EXPECT_EQ(elements[0]["SourceNode"], "1");
}

TEST_F(Inventory, MakerOnlyFirmwareClassesGiveNothingAndSayWhyOnce) {
    // ipmi_sim knows none of the maker's OEM commands (C1h), and over the LAN
    // no SMBIOS tells of CPLDs, FPGAs or a backplane: no instance, no failed
    // collection, and one line saying why. The lines every run writes (the
    // driver's) are those the four runs share; what is left is the class's.
    const struct {
        const char* className;
        std::vector<std::string> lines;
    } cases[] = {
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
    const std::string dir = test::makeTempDir("ipmisel-oem");
    std::vector<std::vector<std::string>> logs;
    for (const auto& c : cases) {
        RunResult run = collect({sim.get()}, {"--class", c.className, "--format", "jsonl", "--log",
                                              dir + "/run.log", "--log-level", "3"});
        EXPECT_EQ(run.code, 0) << c.className << run.err;
        EXPECT_EQ(run.out, "") << c.className;
        logs.push_back(logRecordsUpTo(readFile(dir + "/run.log"), '3'));
    }
    for (size_t i = 0; i < logs.size(); ++i) {
        std::vector<std::string> own;
        for (const std::string& line : logs[i]) {
            if (!std::all_of(logs.begin(), logs.end(), [&](const auto& other) {
                    return std::find(other.begin(), other.end(), line) != other.end();
                })) {
                own.push_back(line);
            }
        }
        EXPECT_EQ(own, cases[i].lines) << cases[i].className;
    }
}

} // namespace
} // namespace ipmisel::e2e
