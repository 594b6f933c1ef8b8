// The collection driver against simulated BMCs: discovery gates, the class
// dispatch, the SEL collection across nodes, the FRU gate and the abandon paths.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "plugin/Driver.h"
#include "plugin/PlatformConfig.h"
#include "plugin/PluginEntry.h"
#include "plugin/module.h"
#include "tests/support/HostFixture.h"

namespace ipmisel::test {
namespace {

time_t g_now = 100000;
std::string g_failing; // the one allocation made to fail

using Bmcs = std::vector<std::shared_ptr<sim::SimBmc>>;

// A node whose SEL holds records 1..n; `more` adds keys to the node.
std::string Node(int records, const std::string& more = "") {
    std::string list;
    for (int i = 0; i < records; ++i) {
        list += i == 0 ? "{}" : ", {}";
    }
    return R"({"sel": {"records": [)" + list + "]}" + (more.empty() ? "" : ", " + more) + "}";
}

const char* kLogRecord = "OXASG_IPMILogRecord";

class DriverTest : public ::testing::Test {
  protected:
    void SetUp() override {
        Reset();
        g_clock = [] { return g_now; };
        PluginInitialize(host::hostCallbacks());
    }
    void TearDown() override { Reset(); }
    void Reset() {
        ResetDriverState();
        host.clear();
        g_now = 100000;
        g_allocationFails = nullptr;
        unsetenv("QSV_ISBOOTABLE");
    }
    // `top` holds top-level keys; unless it gives "smbios", there is a type 38 record.
    Bmcs Use(const std::vector<std::string>& nodes, std::string top = "") {
        if (top.find("\"smbios\"") == std::string::npos) {
            top += std::string(top.empty() ? "" : ", ") + R"("smbios": [{"type": 38}])";
        }
        std::string list;
        for (const auto& n : nodes) {
            list += (list.empty() ? "" : ", ") + n;
        }
        return host.useScenario("{" + top + R"(, "nodes": [)" + list + "]}");
    }
    int Collect(std::vector<const char*> classes) {
        return PluginCollect(host::hostCallbacks(), host::outputHandle(), classes.data(),
                             static_cast<int32_t>(classes.size()))
            .GetCode();
    }
    std::vector<std::string> RecordIDs() {
        std::vector<std::string> ids;
        for (const auto& i : host.instancesOf(kLogRecord)) {
            ids.push_back(i.get("RecordID"));
        }
        return ids;
    }
    HostCapture host;
};

TEST_F(DriverTest, DiscoveryGatesEndWithSuccessAndNothingCollected) {
    const std::string noDriver = R"("driverPresent": false)";
    const std::string adapter = noDriver + R"(, "smbios": [{"type": 38}, {"type": 11, "strings": )"
                                           R"(["Board rev 2", "   OXA Torvik Adapter II"]}])";
    const std::string found = "IPMISel:Discover BMC nodes number: 1";
    const std::string type = R"(, "machineTypeFromID": ")";
    const struct {
        std::string top;
        const char* bootable; // QSV_ISBOOTABLE; null: unset
        std::string line;
        bool notice;
    } cases[] = {
        {R"("smbios": [])", nullptr, "Did NOT find a Type 38 SMBIOS BMC record", false},
        {R"("smbiosReadable": false)", nullptr,
         "Unable to read BMC type from SMBIOS. Invalid Handle was encountered.", false},
        {R"("libraryAvailable": false)", nullptr, "Could not load SPLibrary.", false},
        {noDriver, nullptr, found, true},
        // Only the exact value "yes" suppresses the notice.
        {noDriver, "yes", found, false},
        {noDriver, "Yes", found, true},
        {noDriver, "yes ", found, true},
        // So does the on-board adapter, on the listed machine types only.
        {adapter + type + platform::kAdapterMachineTypes[0] + "\"", nullptr, found, false},
        {adapter + type + "ZZ99\"", nullptr, found, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.top + " " + (c.bootable ? c.bootable : "(unset)"));
        Reset();
        if (c.bootable) {
            setenv("QSV_ISBOOTABLE", c.bootable, 1);
        }
        auto bmcs = Use({Node(1)}, c.top);
        EXPECT_EQ(Collect({kLogRecord}), 0);
        EXPECT_TRUE(host.hasLog(c.line));
        EXPECT_TRUE(bmcs[0]->received().empty());
        EXPECT_FALSE(host.hasLog("Finished getting IPMI SEL data."));
        auto notice = host.coreLogs;
        std::erase_if(notice, [](const auto& l) { return l.first == platform::kScanMessageClass; });
        ASSERT_EQ(notice.size(), c.notice ? 2u : 0u);
        if (!c.notice) {
            continue;
        }
        // Markup first, then plain text, both sending people to our pages.
        const std::string start = "A BMC/vTX was detected, but the IPMI driver is not installed.";
        EXPECT_EQ(notice[0].first, 100u);
        EXPECT_EQ(notice[0].second.rfind(start, 0), 0u);
        EXPECT_NE(notice[0].second.find(platform::kDriverPageBlade), std::string::npos);
        EXPECT_EQ(notice[1].first, 101u);
        EXPECT_EQ(notice[1].second.rfind("\n" + start + " \n", 0), 0u);
        for (const char* part : {platform::kDriverPageRack, platform::kDriverPageBlade,
                                 platform::kDriverTipPage, "Or OXA Stackfield Matrix page: \n"}) {
            EXPECT_NE(notice[1].second.find(part), std::string::npos) << part;
        }
    }
}

TEST_F(DriverTest, OverTheLanNeitherSmbiosNorDriverIsAsked) {
    Use({Node(1)}, R"("lan": true, "smbiosReadable": false, "driverPresent": false)");
    EXPECT_EQ(Collect({kLogRecord}), 0);
    EXPECT_TRUE(host.hasLog("Successfully found type 38 for BMC. or support ipmi lan"));
    EXPECT_EQ(RecordIDs(), std::vector<std::string>{"1"});
}

TEST_F(DriverTest, DiscoveryAndMachineTypeOncePerProcessProbesEveryTime) {
    Use({Node(1)}, R"("machineTypeFromID": "QB20", "iBMC": true, "smbios": [{"type": 38},)"
                   R"( {"type": "0xD8", "formatted": "02 11 12"}])");
    EXPECT_EQ(Collect({kLogRecord}), 0);
    for (const char* line : {"QB20", "Found a Type 38 SMBIOS BMC record",
                             "IPMISel:Discover BMC nodes number: 1", "This machine has CPLD.",
                             "This machine doesn't have FPGA.", "This machine has AMI backplane.",
                             "Found matching BMC machine type", "BMC machine type index=2"}) {
        EXPECT_TRUE(host.hasLog(line)) << line;
    }

    // The node count and machine type of the first collection stay.
    host.clear();
    auto bmcs = Use({Node(1), Node(1)}, R"("machineTypeFromID": "ZZ00")");
    EXPECT_EQ(Collect({kLogRecord}), 0);
    EXPECT_FALSE(host.logContains("Discover BMC nodes number"));
    EXPECT_EQ(host.findLog("QB20"), host.findLog("Machine Type is:") + 1);
    EXPECT_TRUE(bmcs[1]->received().empty());
    EXPECT_EQ(RecordIDs(), std::vector<std::string>{"1"});
    EXPECT_FALSE(CurrentPlatform().cpld);
}

TEST_F(DriverTest, TwoNodesTwoCollectionsAndTheFruGate) {
    // Each node has one FRU: a power supply's fixed-offset part number.
    const std::string fru = R"("fru": {"1": "00 00 00 00 00 00 00 00 00 00 00 00 00 00 50 53"})";
    auto bmcs = Use({R"({"sel": {"records": [{"sensorNumber": "0x30"}, {}]},
                         "sdr": {"records": [{"full": {"number": "0x30", "name": "CPU 1 Temp"}},
                                             {"fruLocator": {"fruId": 1, "name": "PSU 1"}}]},
                         "auxlog": [{"recordId": 1, "extendedData": "DE AD"}], )" +
                         fru + "}",
                     R"({"sel": {"records": [{"id": 5}]}, "auxlog": [],
                         "sdr": {"records": [{"fruLocator": {"fruId": 1, "name": "PSU 2"}}]},
                         "faults": [{"netfn": "0x0A", "cmd": "0x40", "cc": "0xC0"}], )" +
                         fru + "}"});
    const std::vector<const char*> classes = {"OXASG_IPMIFRU", kLogRecord,
                                              "OXASG_VTXAuxDebugRecord"};
    EXPECT_EQ(Collect(classes), 0);
    // Node 1's record 5 follows node 0's two; its Get SEL Info failed once and was asked again.
    EXPECT_EQ(RecordIDs(), (std::vector<std::string>{"1", "2", "7"}));
    EXPECT_EQ(bmcs[1]->requestCount(0x0A, 0x40), 2u);
    EXPECT_EQ(bmcs[0]->requestCount(0x0A, 0x40), 1u); // not again for the debug records
    EXPECT_EQ(host.instancesOf(kLogRecord)[0].get("SensorInformation"), "CPU 1 Temp");
    EXPECT_EQ(host.instancesOf("OXASG_VTXAuxDebugRecord").size(), 1u);
    // The classes run in the order asked, node after node.
    std::string order;
    for (const auto& line : host.logs) {
        if (line.text.starts_with("Getting ") && line.text.ends_with(" records.")) {
            order += line.text.substr(8, 4);
        }
    }
    EXPECT_EQ(order, "FRU log FRU log ");
    const auto frus = host.instancesOf("OXASG_IPMIFRU");
    ASSERT_EQ(frus.size(), 2u);
    EXPECT_EQ(frus[0].get("ElementName") + frus[1].get("ElementName"), "PSU 1PSU 2");
    EXPECT_EQ(frus[1].get("PartNumber") + frus[1].get("SourceNode"), "PS2");
    EXPECT_TRUE(host.hasLog("Finished getting IPMI SEL data."));

    // FRU again for every node only once more than 600 seconds have passed;
    // the records, numbered from zero again, every time.
    const struct {
        time_t at;
        size_t fruNodes;
    } later[] = {{100010, 0}, {100600, 0}, {100601, 2}, {100601, 0}};
    for (const auto& s : later) {
        SCOPED_TRACE(s.at);
        host.clear();
        g_now = s.at;
        EXPECT_EQ(Collect(classes), 0);
        EXPECT_EQ(RecordIDs(), (std::vector<std::string>{"1", "2", "7"}));
        EXPECT_EQ(host.countLog("Getting FRU records."), s.fruNodes);
        EXPECT_EQ(host.instancesOf("OXASG_IPMIFRU").size(), s.fruNodes);
        EXPECT_EQ(host.countLog("Resetting ipmifruonce."), s.fruNodes ? 1u : 0u);
    }
}

TEST_F(DriverTest, NamesThatAreNotExactlyTheLogRecordClassSendNoSelOrSdrCommand) {
    auto bmcs = Use({Node(1)});
    // (The FRU inventory walks the repository for its locators on its own,
    // so it is not in this list.)
    EXPECT_EQ(Collect({"oxasg_ipmilogrecord", "OXASG_IPMILogRecord ", "OXASG_IPMILogRecor",
                       "OXASG_IPMIFirmwareElement", "OXASG_QsvVPD"}),
              0);
    for (uint8_t cmd : {0x40, 0x43, 0x20, 0x22, 0x23}) {
        EXPECT_EQ(bmcs[0]->requestCount(0x0A, cmd), 0u) << int(cmd);
    }
    // The firmware element comes from Get Device ID; nothing of the SEL.
    EXPECT_TRUE(host.instancesOf("OXASG_IPMILogRecord").empty());
    EXPECT_EQ(host.instancesOf("OXASG_IPMIFirmwareElement").size(), 1u);
    EXPECT_TRUE(host.hasLog("Finished getting IPMI SEL data."));
}

TEST_F(DriverTest, TheSelWalkKeepsOnlyReportedSlotsAndEachNodeMovesTheOffsetByItsCount) {
    const struct {
        std::vector<std::string> nodes;
        uint32_t entryRequests; // of the first node
        std::vector<std::string> ids;
    } cases[] = {
        // More entries than reported: walked to the end, only the reported kept.
        {{R"({"sel": {"reportedCount": 2, "records": [{}, {}, {}, {}, {}, {}]}})"}, 6, {"1", "2"}},
        // A log said to be empty is still asked for its first entry.
        {{R"({"sel": {"reportedCount": 0, "records": [{}]}})"}, 1, {}},
        // Node 0 reports three entries but its walk ends after two: the next
        // node's records still start at 4.
        {{R"({"sel": {"reportedCount": 3, "records": [{}, {}]}})", Node(1), Node(1)},
         2,
         {"1", "2", "4", "5"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.nodes[0]);
        Reset();
        auto bmcs = Use(c.nodes);
        EXPECT_EQ(Collect({kLogRecord}), 0);
        EXPECT_EQ(bmcs[0]->requestCount(0x0A, 0x43), c.entryRequests);
        EXPECT_EQ(RecordIDs(), c.ids);
        EXPECT_TRUE(host.hasLog(4, "No SDR data obtained.\n"));
        EXPECT_TRUE(host.hasLog("Finished getting IPMI SEL data."));
    }
}

TEST_F(DriverTest, OneNodesSelCollectionRunsItsStepsInOrder) {
    Use({R"({"sel": {"records": [{"sensorNumber": "0x30"}, {}]},
              "sdr": {"records": [{"full": {"number": "0x30", "name": "CPU 1 Temp"}}]},
              "auxlog": [{"recordId": 1}]})"});
    EXPECT_EQ(Collect({kLogRecord}), 0);
    // The entries are fetched, then the repository is walked and traced, and
    // only then are the slots parsed, the aux log read and the records exported.
    const char* steps[] = {"Getting log records.",
                           "IPMIRequestSEL::IPMIGetSELInfo() entered.",
                           "IPMIRequestSEL::IPMIGetSELEntry() entered.",
                           "IPMIRequestSEL::IPMIGetSELEntry() completed.",
                           "IPMIRequestSDR::IPMIGetSDREntry() completed.",
                           "Printing out the SDR buffer...",
                           "SDR String =",
                           "FillSELArray() function entered.",
                           "FillSELArray() function completed.",
                           "num_SELentries = 2",
                           "IPMIRequestAuxLog::IPMIGetAuxLogStatus() entered.\n",
                           "num_AuxLogEntries = 1",
                           "Entering ParseExtendedSELData.",
                           "ExportSEL() function entered.",
                           "ExportSEL() function complete.",
                           "Completed all collecting and exporting of SEL/SDR.",
                           "Finished getting IPMI SEL data."};
    size_t at = 0;
    for (const char* step : steps) {
        at = host.findLog(step, at);
        ASSERT_NE(at, std::string::npos) << "missing or out of order: " << step;
        ++at;
    }
    EXPECT_EQ(host.countLog("FillSELArray() function entered."), 1u);
}

TEST_F(DriverTest, GetSelInfoFailingTwiceAbandonsTheCollectionKeepingEarlierNodes) {
    auto bmcs = Use(
        {Node(2),
         Node(1, R"("faults": [{"netfn": "0x0A", "cmd": "0x40", "cc": "0xC0", "repeat": true}])"),
         Node(1)});
    EXPECT_EQ(Collect({kLogRecord, "OXASG_IPMIFRU"}), 0);
    EXPECT_TRUE(host.hasLog(1, "Failed to communicate with BMC. This machine could be non-BMC."));
    EXPECT_EQ(bmcs[1]->requestCount(0x0A, 0x40), 2u);
    EXPECT_EQ(bmcs[1]->requestCount(0x0A, 0x43), 0u);
    EXPECT_TRUE(bmcs[2]->received().empty());
    EXPECT_EQ(RecordIDs(), (std::vector<std::string>{"1", "2"}));
    EXPECT_FALSE(host.hasLog("Finished getting IPMI SEL data."));
}

TEST_F(DriverTest, AuxLogReadAndItsFailures) {
    // Asked without the log records, the debug records send no SEL or SDR
    // command: with no SEL record to date them by, each debug entry is
    // reported and none is written. Asked after them, they use the SEL
    // records already read; asked before, not yet read.
    const std::string aux = R"("auxlog": [{"recordId": 1}, {"recordId": 2}])";
    const struct {
        std::vector<const char*> classes;
        size_t debugInstances;
        uint32_t selInfo;
    } cases[] = {
        {{"OXASG_VTXAuxDebugRecord"}, 0, 0},
        {{"OXASG_VTXAuxDebugRecord", kLogRecord}, 0, 1},
        {{kLogRecord, "OXASG_VTXAuxDebugRecord"}, 2, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.classes[0]);
        Reset();
        auto bmcs = Use({Node(2, aux)});
        EXPECT_EQ(Collect(c.classes), 0);
        EXPECT_EQ(bmcs[0]->requestCount(0x0A, 0x40), c.selInfo);
        EXPECT_EQ(bmcs[0]->requestCount(0x0A, 0x43), c.selInfo * 2);
        for (uint8_t cmd : {0x20, 0x22, 0x23}) {
            EXPECT_EQ(bmcs[0]->requestCount(0x0A, cmd), c.selInfo) << int(cmd);
        }
        EXPECT_EQ(host.instancesOf("OXASG_VTXAuxDebugRecord").size(), c.debugInstances);
        EXPECT_EQ(host.countLog("No corresponding SEL Record found."), 2 - c.debugInstances);
    }

    // A failing aux log costs only the extended data.
    const std::pair<std::string, const char*> failures[] = {
        {"", "IPMIGetAuxLogStatus() returned Error."}, // no aux log: C1h
        {aux + R"(, "faults": [{"netfn": "0x2E", "cmd": "0x93", "cc": "0xC0"}])",
         "IPMIReadExtendedData() returned Error."},
    };
    for (const auto& [more, line] : failures) {
        Reset();
        Use({Node(1, more)});
        EXPECT_EQ(Collect({kLogRecord}), 0);
        EXPECT_TRUE(host.hasLog(1, line));
        EXPECT_EQ(RecordIDs(), std::vector<std::string>{"1"});
    }
}

TEST_F(DriverTest, AnAllocationFailureAbandonsTheCollectionWithItsLine) {
    std::vector<std::pair<std::string, std::string>> cases = {
        {"ipmi_selp", "Could not allocate memory for ipmi_sdrp."}, // kept as log readers know it
        {"sel_slots", "Could not allocate memory for SEL entries."},
    };
    for (const char* object :
         {"fIpmiVpdentryFru", "ipmi_sdrp", "ipmi_vpdp", "ipmi_sdr_headp", "ipmi_mappingp",
          "ipmi_selentryp", "ipmi_vpdentryp", "sdr_listp", "ipmi_auxlogp"}) {
        cases.emplace_back(object, "Could not allocate memory for " + std::string(object) + ".");
    }
    for (const auto& [object, line] : cases) {
        SCOPED_TRACE(object);
        Reset();
        Use({Node(1)});
        g_failing = object;
        g_allocationFails = [](const char* what) { return what == g_failing; };
        EXPECT_EQ(Collect({kLogRecord}), 0);
        g_allocationFails = nullptr;
        EXPECT_EQ(host.countLog(line), 1u);
        EXPECT_TRUE(host.hasLog(0, line));
        EXPECT_TRUE(host.instances.empty());
        EXPECT_FALSE(host.hasLog("Finished getting IPMI SEL data."));
    }
}

} // namespace
} // namespace ipmisel::test
