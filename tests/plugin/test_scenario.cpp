// Whole collections through the simulated BMC: two nodes with SEL, SDR and
// auxiliary log, as a user's machine would answer.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "plugin/Driver.h"
#include "plugin/PluginEntry.h"
#include "plugin/module.h"
#include "tests/support/HostFixture.h"

namespace ipmisel::test {
namespace {

time_t g_now = 50000;
time_t FakeClock() {
    return g_now;
}

const char* kTwoNodes = R"({
  "machineType": "QB11",
  "smbios": [{"type": 38}],
  "nodes": [
    {"sel": {"records": [
        {"id": 1, "sensorType": 1, "sensorNumber": "0x30", "eventType": 1, "data": "59 52 50"},
        {"id": 2, "sensorType": 8, "sensorNumber": "0x40", "data": [1]}]},
     "sdr": {"records": [
        {"full": {"number": "0x30", "entityId": 3, "sensorType": 1, "eventType": 1,
                  "baseUnit": 1, "name": "CPU 1 Temp"}},
        {"compact": {"number": "0x40", "sensorType": 8, "name": "PSU 1"}}]},
     "auxlog": [{"recordId": 1, "type": 3, "class": 3, "subClass": 5,
                 "extendedData": "DE AD"}]},
    {"sel": {"records": [{"id": 5, "sensorType": 8, "sensorNumber": "0x40", "data": [1]}]},
     "auxlog": [],
     "faults": [{"netfn": "0x0A", "cmd": "0x40", "cc": "0xC0"}]}
  ]
})";

class ScenarioTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetDriverState();
        g_clock = FakeClock;
        PluginInitialize(host::hostCallbacks());
    }
    void TearDown() override { ResetDriverState(); }
    int Collect(std::vector<const char*> classes) {
        return PluginCollect(host::hostCallbacks(), host::outputHandle(), classes.data(),
                             static_cast<int32_t>(classes.size()))
            .GetCode();
    }
    HostCapture host;
};

TEST_F(ScenarioTest, TwoNodesTwoCollectionsTenSecondsApart) {
    auto bmcs = host.useScenario(kTwoNodes);
    ASSERT_EQ(bmcs.size(), 2u);
    const std::vector<const char*> classes = {"OXASG_IPMILogRecord", "OXASG_VTXAuxDebugRecord",
                                              "OXASG_IPMIFRU"};
    g_now = 50000;
    EXPECT_EQ(Collect(classes), 0);

    auto records = host.instancesOf("OXASG_IPMILogRecord");
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].get("RecordID"), "1");
    EXPECT_EQ(records[0].get("SensorInformation"), "CPU 1 Temp");
    EXPECT_EQ(records[0].get("SourceNode"), "1");
    EXPECT_NE(records[0].get("AuxLog"), "No Extended Data");
    EXPECT_EQ(records[1].get("SensorInformation"), "PSU 1");
    EXPECT_EQ(records[1].get("AuxLog"), "No Extended Data");
    // Node 1's record 5 follows node 0's two records; its first Get SEL Info
    // failed and was asked again.
    EXPECT_EQ(records[2].get("RecordID"), "7");
    EXPECT_EQ(records[2].get("SourceNode"), "2");
    EXPECT_FALSE(host.logContains("Failed to communicate with BMC"));

    auto debug = host.instancesOf("OXASG_VTXAuxDebugRecord");
    ASSERT_EQ(debug.size(), 1u);
    EXPECT_EQ(debug[0].get("MessageTimestamp"), records[0].get("MessageTimestamp"));

    EXPECT_TRUE(host.hasLog(4, "Printing out the SDR buffer..."));
    EXPECT_TRUE(host.hasLog(4, "CPU 1 Temp") || host.logContains("SDR String ="));
    EXPECT_EQ(host.countLog("Getting FRU records."), 2u);
    EXPECT_TRUE(host.hasLog("Finished getting IPMI SEL data."));

    // Ten seconds later: the same records, no FRU.
    host.clear();
    g_now = 50010;
    EXPECT_EQ(Collect(classes), 0);
    EXPECT_EQ(host.instancesOf("OXASG_IPMILogRecord").size(), 3u);
    EXPECT_EQ(host.countLog("Getting FRU records."), 0u);
    EXPECT_FALSE(host.hasLog("Resetting ipmifruonce."));
}

} // namespace
} // namespace ipmisel::test
