// The FRU collector of one node: which locators are read, which layout gives
// each instance its properties, and how the instances are written.
#include <gtest/gtest.h>

#include <memory>

#include "fru/FRUCollector.h"
#include "host/sim/SimBmc.h"
#include "tests/fru/FRUTestSupport.h"

namespace ipmisel::test {
namespace {

// A board area in the layout our boards use, so that the fixed places and
// the type/length fields find the same texts: maker at 7 (30 characters),
// product name at 38 (32), serial at 71 (30), part at 102 (31), FRU file ID
// (the FRU number) at 134.
const std::string kMaker = "OXA" + std::string(27, ' '), kName = "Board " + std::string(26, 'X'),
                  kSerial = "SN" + std::string(28, '7'), kPart(31, 'P');

Bytes MainboardImage() {
    const Bytes board = Area(Cat(B(0x00, 0x01, 0x00, 0x00), Text8(kMaker), Text8(kName),
                                 Text8(kSerial), Text8(kPart), Text8("FRU-0042"), B(0xC1)));
    return Image(Area(Cat(B(0x17), Text8("CP"), B(0xC1))), board, {});
}

class Collector : public ::testing::Test {
  protected:
    void SetUp() override {
        const Bytes board = MainboardImage(), dimm = Filled(256, {{2, "\x0B"},
                                                                  {117, "\x80\xCE"},
                                                                  {122, "\x01\x02\x03\x04"},
                                                                  {128, "M393B1K70DH0-CK0"}});
        // Fixed-offset VPD with different texts at the rack places (14..) and
        // the blade places (60..).
        const Bytes vpd = Filled(128, {{14, "RACK+PART-1 FRU-RACK    RSER01      RVND"},
                                       {60, "BLADE-PART  FRU-BLADE   BSER02      BVND"}});
        nodes = {
            std::make_shared<sim::SimBmc>(sim::NodeSetup{
                .sdrRecords = {Locator(1, 0, "Mainboard"), Locator(2, 1, "CPU"),
                               Locator(3, 2, "DIMM"), Locator(4, 3, "CMOS"),
                               Locator(5, 0, "PSU", false), Locator(6, 4, "Backplane"),
                               Locator(7, 5, "Empty"), Locator(8, 6, "WHEA"), Locator(9, 7, "QSV")},
                .fru = {{0, board},
                        {1, Bytes(64, 0x11)},
                        {2, dimm},
                        {3, board},
                        {4, vpd},
                        {6, board},
                        {7, board}}}),
            std::make_shared<sim::SimBmc>(
                sim::NodeSetup{.sdrRecords = {Locator(1, 0, "Mainboard")}, .fru = {{0, board}}})};
        host.setNodes({nodes[0], nodes[1]});
    }

    void Collect(int node) {
        CollectFRUInventory(host::hostCallbacks(), host::outputHandle(),
                            NOXAQSV20::SPLibrary::GetSplibraryInstance(node), node, entry);
    }

    HostCapture host;
    std::vector<std::shared_ptr<sim::SimBmc>> nodes;
    IPMIVPDEntry entry;
};

TEST_F(Collector, OneInstancePerReadableLogicalFRUInRepositoryOrder) {
    Collect(0);
    Collect(1);
    // Not read: CMOS, WHEA, QSV and the physical PSU locator; Empty answers
    // CBh. A device is read 16 bytes at a time up to 528 or its end.
    std::string reads;
    for (const auto& [netfn, lun, cmd, d] : nodes[0]->received()) {
        reads += cmd == 0x11 ? std::to_string(d[0]) : "";
    }
    EXPECT_EQ(std::string(33, '0') + std::string(5, '1') + std::string(17, '2') +
                  std::string(9, '4') + "5",
              reads);

    const auto instances = host.instancesOf("OXASG_IPMIFRU");
    ASSERT_EQ(5u, instances.size());
    std::string names;
    for (const auto& i : instances) {
        names += i.get("ElementName") + "@" + i.get("SourceNode") + " ";
    }
    EXPECT_EQ("Mainboard@1 CPU@1 DIMM@1 Backplane@1 Mainboard@2 ", names);

    // Ascending names; the five keep what the fixed places hold (the maker
    // with its blanks), the standard fields are decoded and trimmed.
    std::string mainboard;
    for (const auto& p : instances[0].properties) {
        mainboard += p.name + "=" + p.text + "|";
    }
    EXPECT_EQ("BoardManufacturer=OXA|BoardMfgDateTime=19960101000100.000000+000|BoardPartNumber=" +
                  kPart + "|BoardProductName=" + kName + "|BoardSerialNumber=" + kSerial +
                  "|ChassisPartNumber=CP|ChassisType=Rack Mount Chassis|ElementName=Mainboard|"
                  "FRUNumber=FRU-0042|IdentifyingNumber= |PartNumber=" +
                  kPart + "|SerialNumber=" + kSerial + "|SourceNode=1|Vendor=" + kMaker + "|",
              mainboard);
    // The CPU's fixed places are blank; the DIMM's SPD has no standard areas.
    EXPECT_EQ(" |04030201|Samsung|M393B1K70DH0-CK0||RACKPART1",
              instances[1].get("Vendor") + "|" + instances[2].get("SerialNumber") + "|" +
                  instances[2].get("Vendor") + "|" + instances[2].get("PartNumber") + "|" +
                  instances[2].get("BoardManufacturer") + "|" +
                  instances[3].get("PartNumber").substr(0, 9));
    EXPECT_TRUE(host.hasLog(3, "Added 4 instance of OXASG_IPMIFru"));
    EXPECT_TRUE(host.hasLog(3, "Added 1 instance of OXASG_IPMIFru"));
}

TEST_F(Collector, TheBladeTestPicksTheVPDLayout) {
    auto system = [](const char* product) {
        return host::smbiosFromStructures({sim::smbiosSystem({.product = product})});
    };
    const std::tuple<std::shared_ptr<host::SmbiosSource>, std::string, std::string> cases[] = {
        {nullptr, "RSER01", "Unable to open SMBIOS lib error = 3"},
        {host::smbiosFromStructures({sim::smbiosIpmiDevice({})}), "RSER01",
         "SMBIOSGetFirst rc = 5"},
        {system("System x3650 M3 -[7945AC1]-"), "RSER01", ""},
        {system("OXA Stackfield HS22 -[7870AC1]-"), "BSER02", "this is a blade"},
        {system("Server -[QB20XYZ]-"), "BSER02", "this is a blade"},
    };
    for (const auto& [smbios, serial, line] : cases) {
        host.config().smbios = smbios;
        host.clear();
        entry = IPMIVPDEntry();
        Collect(0);
        const auto instances = host.instancesOf("OXASG_IPMIFRU");
        ASSERT_EQ(4u, instances.size());
        EXPECT_EQ(serial, instances[3].get("SerialNumber")) << line;
        EXPECT_TRUE(line.empty() || host.logContains(line)) << line;
    }
}

TEST_F(Collector, AnInstanceThatCannotBeWrittenIsReportedAndTheOthersFollow) {
    host.config().failProperty = [](uint64_t instance, const std::string& name) {
        return instance == 0 && name == "PartNumber";
    };
    Collect(0);
    EXPECT_TRUE(host.hasLog(2, "IPMIFru encountered an error generating CIM instances for "
                               "Mainboard Error Code: The operation failed."));
    EXPECT_EQ(3u, host.instancesOf("OXASG_IPMIFRU").size());
    EXPECT_TRUE(host.hasLog("Added 3 instance of OXASG_IPMIFru"));

    // Sets are written once; the count is hexadecimal and the line names the
    // class the same way whatever class was written.
    host.config().failProperty = nullptr;
    for (int i = 0; i < 11; ++i) {
        entry.NewPropertySet()["ElementName"] = "F" + std::to_string(i);
    }
    EXPECT_EQ(11u, entry.GenerateCIMInstance(host::outputHandle(), "Other"));
    EXPECT_EQ(11u, host.instancesOf("Other").size());
    EXPECT_TRUE(host.hasLog("Added b instance of OXASG_IPMIFru"));
    EXPECT_EQ(nullptr, entry.CurrentPropertySet());
    EXPECT_EQ(0u, entry.GenerateCIMInstance(host::outputHandle(), "Other"));
}

} // namespace
} // namespace ipmisel::test
