// The collection driver end to end: discovery gates, the missing-driver
// notice, the class dispatch, the SEL collector's retry and abandon paths,
// the record offset across nodes, the FRU gate and allocation failures.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "plugin/Driver.h"
#include "plugin/PlatformConfig.h"
#include "plugin/PluginEntry.h"
#include "plugin/module.h"
#include "tests/plugin/MiniBmc.h"

namespace ipmisel::test {
namespace {

time_t g_now = 100000;
time_t FakeClock() {
    return g_now;
}

const std::string kNoticeStart = "A BMC/vTX was detected, but the IPMI driver is not installed.";

class DriverTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetDriverState();
        g_clock = FakeClock;
        g_now = 100000;
        g_allocationFails = nullptr;
        unsetenv("QSV_ISBOOTABLE");
        PluginInitialize(host::hostCallbacks());
        host.config().smbios = host::smbiosFromStructures({Type38()});
    }
    void TearDown() override {
        g_allocationFails = nullptr;
        unsetenv("QSV_ISBOOTABLE");
        ResetDriverState();
    }

    // Nodes answered by the given models.
    std::vector<std::shared_ptr<FakeTransport>> UseNodes(std::vector<MiniBmc*> models) {
        std::vector<std::shared_ptr<host::Transport>> nodes;
        std::vector<std::shared_ptr<FakeTransport>> fakes;
        for (MiniBmc* m : models) {
            fakes.push_back(m->transport());
            nodes.push_back(fakes.back());
        }
        host.setNodes(nodes);
        return fakes;
    }

    int Collect(std::vector<const char*> classes) {
        return PluginCollect(host::hostCallbacks(), host::outputHandle(), classes.data(),
                             static_cast<int32_t>(classes.size()))
            .GetCode();
    }

    std::vector<std::string> RecordIDs() {
        std::vector<std::string> ids;
        for (const auto& i : host.instancesOf("OXASG_IPMILogRecord")) {
            ids.push_back(i.get("RecordID"));
        }
        return ids;
    }

    HostCapture host;
};

size_t CountCmd(const FakeTransport& t, uint8_t netfn, uint8_t cmd) {
    size_t n = 0;
    for (const auto& r : t.received) {
        n += r.netfn == netfn && r.cmd == cmd;
    }
    return n;
}

// ---- discovery gates ---------------------------------------------------------

struct GateCase {
    const char* name;
    void (*setup)(host::Config&);
    const char* line;
    bool notice;
};

TEST_F(DriverTest, EveryDiscoveryGateReturnsSuccessWithNothingCollected) {
    const GateCase cases[] = {
        {"no type 38", [](host::Config& c) { c.smbios = host::smbiosFromStructures({}); },
         "Did NOT find a Type 38 SMBIOS BMC record", false},
        {"SMBIOS unreadable", [](host::Config& c) { c.smbios = nullptr; },
         "Unable to read BMC type from SMBIOS. Invalid Handle was encountered.", false},
        {"no library", [](host::Config& c) { c.libraryAvailable = false; },
         "Could not load SPLibrary.", false},
        {"no driver", [](host::Config& c) { c.driverPresent = false; },
         "IPMISel:Discover BMC nodes number: 1", true},
    };
    for (const GateCase& gc : cases) {
        SCOPED_TRACE(gc.name);
        ResetDriverState();
        host.clear();
        MiniBmc bmc;
        bmc.sel = {MiniBmc::Record(1)};
        auto nodes = UseNodes({&bmc});
        host.config().smbios = host::smbiosFromStructures({Type38()});
        host.config().libraryAvailable = true;
        host.config().driverPresent = true;
        gc.setup(host.config());

        EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
        EXPECT_TRUE(host.hasLog(gc.line));
        EXPECT_TRUE(host.instances.empty());
        EXPECT_TRUE(nodes[0]->received.empty());
        EXPECT_FALSE(host.hasLog("Finished getting IPMI SEL data."));
        EXPECT_EQ(host.coreLogs.size(), gc.notice ? 2u : 0u);
    }
}

TEST_F(DriverTest, MissingDriverNoticeIsMarkupThenPlainWithOurAddresses) {
    MiniBmc bmc;
    UseNodes({&bmc});
    host.config().driverPresent = false;
    EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
    ASSERT_EQ(host.coreLogs.size(), 2u);
    EXPECT_EQ(host.coreLogs[0].first, 100u);
    EXPECT_EQ(host.coreLogs[0].second.rfind(kNoticeStart, 0), 0u);
    EXPECT_NE(host.coreLogs[0].second.find(platform::kDriverPageBlade), std::string::npos);
    EXPECT_EQ(host.coreLogs[1].first, 101u);
    const std::string& plain = host.coreLogs[1].second;
    EXPECT_EQ(plain.rfind("\n" + kNoticeStart + " \n", 0), 0u);
    for (const char* part : {platform::kDriverPageRack, platform::kDriverPageBlade,
                             platform::kDriverTipPage, "Or OXA Stackfield Matrix page: \n",
                             "this information may compromise the ability of OXA to perform "
                             "complete problem determination. \n"}) {
        EXPECT_NE(plain.find(part), std::string::npos) << part;
    }
}

TEST_F(DriverTest, OnlyTheExactValueYesSuppressesTheNotice) {
    const struct {
        const char* value; // null: unset
        bool notice;
    } cases[] = {{nullptr, true}, {"yes", false}, {"Yes", true}, {"YES", true},
                 {"yes ", true},  {"no", true},   {"", true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value ? c.value : "(unset)");
        ResetDriverState();
        host.clear();
        MiniBmc bmc;
        auto nodes = UseNodes({&bmc});
        host.config().driverPresent = false;
        if (c.value) {
            setenv("QSV_ISBOOTABLE", c.value, 1);
        } else {
            unsetenv("QSV_ISBOOTABLE");
        }
        EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
        EXPECT_EQ(host.coreLogs.size(), c.notice ? 2u : 0u);
        EXPECT_TRUE(host.instances.empty());
        EXPECT_TRUE(nodes[0]->received.empty());
    }
}

TEST_F(DriverTest, OnBoardAdapterSuppressesTheNoticeOnlyOnListedMachineTypes) {
    const auto adapter = OemStrings({"Board rev 2", "   OXA Torvik Adapter II"});
    const auto other = OemStrings({"oxa torvik adapter"});
    const struct {
        const char* machineType;
        std::vector<uint8_t> oem;
        bool notice;
    } cases[] = {
        {platform::kAdapterMachineTypes[0], adapter, false},
        {platform::kAdapterMachineTypes[4], adapter, false},
        {platform::kAdapterMachineTypes[0], other, true}, // the match is case-sensitive
        {"ZZ99", adapter, true},                          // not a listed type
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.machineType);
        ResetDriverState();
        host.clear();
        MiniBmc bmc;
        UseNodes({&bmc});
        host.config().driverPresent = false;
        host.config().machineTypeFromID = c.machineType;
        host.config().smbios = host::smbiosFromStructures({Type38(), c.oem});
        EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
        size_t notices = 0;
        for (const auto& [cls, text] : host.coreLogs) {
            notices += cls == 100 || cls == 101;
        }
        EXPECT_EQ(notices, c.notice ? 2u : 0u);
        EXPECT_TRUE(host.instances.empty());
    }
}

TEST_F(DriverTest, OverTheLanNeitherSmbiosNorDriverIsAsked) {
    MiniBmc bmc;
    bmc.sel = {MiniBmc::Record(1)};
    UseNodes({&bmc});
    host.config().lan = true;
    host.config().smbios = nullptr;
    host.config().driverPresent = false;
    EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
    EXPECT_FALSE(host.logContains("Type 38 SMBIOS"));
    EXPECT_TRUE(host.hasLog("Successfully found type 38 for BMC. or support ipmi lan"));
    EXPECT_TRUE(host.coreLogs.empty());
    EXPECT_EQ(host.instancesOf("OXASG_IPMILogRecord").size(), 1u);
}

// Discovery runs once per process: the node count of the first collection
// stays, and the machine type is not read again.
TEST_F(DriverTest, DiscoveryAndMachineTypeAreReadOncePerProcess) {
    MiniBmc a, b;
    a.sel = {MiniBmc::Record(1)};
    b.sel = {MiniBmc::Record(1)};
    UseNodes({&a});
    host.config().machineTypeFromID = "QB20";
    EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
    EXPECT_TRUE(host.hasLog("IPMISel:Discover BMC nodes number: 1"));
    size_t at = host.findLog("Machine Type is:");
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(host.logs[at + 1].text, "QB20");
    EXPECT_TRUE(host.hasLog("Found matching BMC machine type"));
    EXPECT_TRUE(host.hasLog("BMC machine type index=2"));

    host.clear();
    auto nodes = UseNodes({&a, &b});
    host.config().machineTypeFromID = "ZZ00";
    EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
    EXPECT_FALSE(host.logContains("Discover BMC nodes number"));
    EXPECT_FALSE(host.hasLog("getMachineType() entered."));
    at = host.findLog("Machine Type is:");
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(host.logs[at + 1].text, "QB20");
    EXPECT_TRUE(nodes[1]->received.empty());
    EXPECT_EQ(host.instancesOf("OXASG_IPMILogRecord").size(), 1u);
}

TEST_F(DriverTest, PlatformProbesReportCpldFpgaAndBackplane) {
    MiniBmc bmc;
    UseNodes({&bmc});
    const std::vector<uint8_t> cpld = {0xD8, 0x07, 0x00, 0x01, 0x02, 0x11, 0x12, 0, 0};
    host.config().smbios = host::smbiosFromStructures({Type38(), cpld});
    host.config().iBMC = true;
    EXPECT_EQ(Collect({}), 0);
    EXPECT_TRUE(host.hasLog("This machine has CPLD."));
    EXPECT_TRUE(host.hasLog("This machine doesn't have FPGA."));
    EXPECT_TRUE(host.hasLog("This machine has AMI backplane."));
    EXPECT_TRUE(CurrentPlatform().cpld);
    EXPECT_FALSE(CurrentPlatform().fpga);
    EXPECT_TRUE(CurrentPlatform().ami);
    EXPECT_EQ(CurrentPlatform().cpldSelectors, (std::vector<uint8_t>{0x11, 0x12}));
    EXPECT_EQ(CurrentPlatform().bmcTypeIndex, -1);
    EXPECT_TRUE(host.hasLog("Finished getting IPMI SEL data."));
}

// ---- dispatch ------------------------------------------------------------------

TEST_F(DriverTest, NamesThatAreNotExactlyTheLogRecordClassSendNoSelOrSdrCommand) {
    MiniBmc bmc;
    bmc.sel = {MiniBmc::Record(1)};
    auto nodes = UseNodes({&bmc});
    EXPECT_EQ(Collect({"OXASG_IPMIFRU", "oxasg_ipmilogrecord", "OXASG_IPMILogRecord ",
                       "OXASG_IPMILogRecor", "OXASG_IPMIFirmwareElement", "OXASG_QsvVPD"}),
              0);
    for (uint8_t cmd : {0x40, 0x43, 0x20, 0x22, 0x23}) {
        EXPECT_EQ(CountCmd(*nodes[0], 0x0A, cmd), 0u) << int(cmd);
    }
    EXPECT_FALSE(host.hasLog("Getting log records."));
    EXPECT_TRUE(host.instances.empty());
    EXPECT_TRUE(host.hasLog("Finished getting IPMI SEL data."));
}

TEST_F(DriverTest, ClassesRunInTheFrameworksOrderForEveryNode) {
    MiniBmc a, b;
    UseNodes({&a, &b});
    EXPECT_EQ(Collect({"OXASG_IPMIFRU", "OXASG_IPMILogRecord"}), 0);
    size_t fru0 = host.findLog("Getting FRU records.");
    size_t sel0 = host.findLog("Getting log records.");
    size_t fru1 = host.findLog("Getting FRU records.", fru0 + 1);
    size_t sel1 = host.findLog("Getting log records.", sel0 + 1);
    ASSERT_NE(sel1, std::string::npos);
    EXPECT_LT(fru0, sel0);
    EXPECT_LT(sel0, fru1);
    EXPECT_LT(fru1, sel1);
}

// ---- SEL collector ---------------------------------------------------------------

TEST_F(DriverTest, GetSelInfoFailingOnceIsRetried) {
    MiniBmc bmc;
    bmc.sel = {MiniBmc::Record(1), MiniBmc::Record(2)};
    bmc.selInfoFailures = 1;
    auto nodes = UseNodes({&bmc});
    EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
    EXPECT_EQ(CountCmd(*nodes[0], 0x0A, 0x40), 2u);
    EXPECT_FALSE(host.logContains("Failed to communicate with BMC"));
    EXPECT_EQ(RecordIDs(), (std::vector<std::string>{"1", "2"}));
    EXPECT_TRUE(host.hasLog(4, "num_SELentries = 2"));
    EXPECT_TRUE(host.hasLog(4, "Completed all collecting and exporting of SEL/SDR."));
    EXPECT_TRUE(host.hasLog("Finished getting IPMI SEL data."));
}

TEST_F(DriverTest, GetSelInfoFailingTwiceAbandonsTheCollectionKeepingEarlierNodes) {
    MiniBmc a, b, c;
    a.sel = {MiniBmc::Record(1), MiniBmc::Record(2)};
    b.sel = {MiniBmc::Record(1)};
    b.selInfoFailures = 2;
    c.sel = {MiniBmc::Record(1)};
    auto nodes = UseNodes({&a, &b, &c});
    EXPECT_EQ(Collect({"OXASG_IPMILogRecord", "OXASG_IPMIFRU"}), 0);
    EXPECT_TRUE(host.hasLog(1, "Failed to communicate with BMC. This machine could be non-BMC."));
    EXPECT_EQ(CountCmd(*nodes[1], 0x0A, 0x40), 2u);
    EXPECT_EQ(CountCmd(*nodes[1], 0x0A, 0x43), 0u);
    EXPECT_TRUE(nodes[2]->received.empty());
    EXPECT_EQ(RecordIDs(), (std::vector<std::string>{"1", "2"}));
    EXPECT_FALSE(host.hasLog("Finished getting IPMI SEL data."));
}

TEST_F(DriverTest, RecordIDsOfLaterNodesFollowTheReportedCountsOfEarlierOnes) {
    MiniBmc a, b;
    a.sel = {MiniBmc::Record(1), MiniBmc::Record(2), MiniBmc::Record(3)};
    b.sel = {MiniBmc::Record(1), MiniBmc::Record(7)};
    UseNodes({&a, &b});
    EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
    EXPECT_EQ(RecordIDs(), (std::vector<std::string>{"1", "2", "3", "4", "10"}));
    // The offset starts again at zero for every collection.
    host.clear();
    EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
    EXPECT_EQ(RecordIDs(), (std::vector<std::string>{"1", "2", "3", "4", "10"}));
}

TEST_F(DriverTest, AWalkLongerThanReportedIsFollowedToTheEndAndOnlyReportedKept) {
    MiniBmc bmc;
    for (uint16_t id = 1; id <= 6; ++id) {
        bmc.sel.push_back(MiniBmc::Record(id));
    }
    bmc.reportedCount = 2;
    auto nodes = UseNodes({&bmc});
    EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
    EXPECT_EQ(CountCmd(*nodes[0], 0x0A, 0x43), 6u);
    EXPECT_TRUE(host.logContains("buffer[5].data = "));
    EXPECT_EQ(RecordIDs(), (std::vector<std::string>{"1", "2"}));
}

TEST_F(DriverTest, AnEmptySelStillAsksForTheFirstEntryAndExportsNothing) {
    MiniBmc bmc;
    bmc.reportedCount = 0;
    bmc.sel = {MiniBmc::Record(1)}; // the BMC answers a record it did not count
    auto nodes = UseNodes({&bmc});
    EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
    EXPECT_EQ(CountCmd(*nodes[0], 0x0A, 0x43), 1u);
    EXPECT_TRUE(RecordIDs().empty());
    EXPECT_TRUE(host.hasLog(4, "num_SELentries = 0"));
    EXPECT_TRUE(host.hasLog("Finished getting IPMI SEL data."));
}

TEST_F(DriverTest, ANextRecordIdOfFF10EndsTheWalk) {
    MiniBmc bmc;
    bmc.sel = {MiniBmc::Record(1), MiniBmc::Record(2), MiniBmc::Record(3)};
    bmc.nextOverride[1] = 0xFF10;
    auto nodes = UseNodes({&bmc});
    EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
    EXPECT_EQ(CountCmd(*nodes[0], 0x0A, 0x43), 2u);
    // The third slot was never filled, so no record is made of it.
    EXPECT_EQ(RecordIDs(), (std::vector<std::string>{"1", "2"}));
}

TEST_F(DriverTest, SdrTraceAndAuxLogStatusAreLogged) {
    MiniBmc bmc;
    bmc.sel = {MiniBmc::Record(1)};
    UseNodes({&bmc});
    EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
    // The repository holds no sensor record.
    EXPECT_TRUE(host.hasLog(4, "No SDR data obtained.\n"));
    EXPECT_TRUE(host.hasLog(4, "num_AuxLogEntries = 0"));
}

TEST_F(DriverTest, AuxDebugExportReadsTheSelItselfWhenLogRecordsWereNotAsked) {
    MiniBmc bmc;
    bmc.sel = {MiniBmc::Record(1)};
    auto nodes = UseNodes({&bmc});
    EXPECT_EQ(Collect({"OXASG_VTXAuxDebugRecord"}), 0);
    EXPECT_EQ(CountCmd(*nodes[0], 0x0A, 0x40), 1u);
    EXPECT_EQ(CountCmd(*nodes[0], 0x0A, 0x23), 0u);
    EXPECT_EQ(CountCmd(*nodes[0], 0x0A, 0x5A), 1u);

    // After the log records of the same node, the SEL is not read again.
    ResetDriverState();
    nodes = UseNodes({&bmc});
    EXPECT_EQ(Collect({"OXASG_IPMILogRecord", "OXASG_VTXAuxDebugRecord"}), 0);
    EXPECT_EQ(CountCmd(*nodes[0], 0x0A, 0x40), 1u);
    EXPECT_EQ(CountCmd(*nodes[0], 0x0A, 0x5A), 2u);
}

// ---- FRU gate --------------------------------------------------------------------

TEST_F(DriverTest, FruIsCollectedForEveryNodeOnceAndAgainOnlyAfter600Seconds) {
    MiniBmc a, b;
    UseNodes({&a, &b});
    const struct {
        time_t at;
        size_t fruNodes;
        bool reset;
    } steps[] = {
        {100000, 2, true},  // first collection
        {100010, 0, false}, // ten seconds later
        {100600, 0, false}, // exactly 600 seconds: not more than 600
        {100601, 2, true},  // past it
        {100601, 0, false}, // same second again
    };
    for (const auto& s : steps) {
        SCOPED_TRACE(s.at);
        host.clear();
        g_now = s.at;
        EXPECT_EQ(Collect({"OXASG_IPMIFRU"}), 0);
        EXPECT_EQ(host.countLog("Getting FRU records."), s.fruNodes);
        EXPECT_EQ(host.countLog("Obtaining FRU Locator info."), s.fruNodes);
        EXPECT_EQ(host.countLog("Resetting ipmifruonce."), s.reset ? 1u : 0u);
        EXPECT_EQ(host.countLog("Setting ipmifruonce."), s.fruNodes ? 1u : 0u);
    }
}

TEST_F(DriverTest, FruFlagIsSetAtTheLastNode) {
    MiniBmc a, b;
    UseNodes({&a, &b});
    EXPECT_EQ(Collect({"OXASG_IPMIFRU"}), 0);
    size_t first = host.findLog("Getting FRU records.");
    size_t set = host.findLog("Setting ipmifruonce.");
    ASSERT_NE(set, std::string::npos);
    EXPECT_LT(first, set);
    EXPECT_EQ(host.findLog("Getting FRU records.", first + 1), set + 1);
}

// ---- allocation failures ---------------------------------------------------------

const char* g_failing = nullptr;
bool FailOne(const char* what) {
    return std::string(what) == g_failing;
}

TEST_F(DriverTest, AnAllocationFailureAbandonsTheCollectionWithItsLine) {
    const struct {
        const char* object;
        const char* line;
    } cases[] = {
        {"fIpmiVpdentryFru", "Could not allocate memory for fIpmiVpdentryFru."},
        {"ipmi_sdrp", "Could not allocate memory for ipmi_sdrp."},
        {"ipmi_selp", "Could not allocate memory for ipmi_sdrp."},
        {"ipmi_vpdp", "Could not allocate memory for ipmi_vpdp."},
        {"ipmi_sdr_headp", "Could not allocate memory for ipmi_sdr_headp."},
        {"ipmi_mappingp", "Could not allocate memory for ipmi_mappingp."},
        {"ipmi_selentryp", "Could not allocate memory for ipmi_selentryp."},
        {"ipmi_vpdentryp", "Could not allocate memory for ipmi_vpdentryp."},
        {"sdr_listp", "Could not allocate memory for sdr_listp."},
        {"ipmi_auxlogp", "Could not allocate memory for ipmi_auxlogp."},
        {"sel_slots", "Could not allocate memory for SEL entries."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.object);
        ResetDriverState();
        host.clear();
        MiniBmc bmc;
        bmc.sel = {MiniBmc::Record(1)};
        UseNodes({&bmc});
        g_failing = c.object;
        g_allocationFails = FailOne;
        EXPECT_EQ(Collect({"OXASG_IPMILogRecord"}), 0);
        g_allocationFails = nullptr;
        EXPECT_TRUE(host.hasLog(0, c.line));
        EXPECT_EQ(host.countLog(c.line), 1u);
        EXPECT_TRUE(host.instances.empty());
        EXPECT_FALSE(host.hasLog("Finished getting IPMI SEL data."));
    }
}

} // namespace
} // namespace ipmisel::test
