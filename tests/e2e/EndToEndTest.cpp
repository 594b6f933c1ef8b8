// ipmisel-collect against a BMC we did not write: OpenIPMI's ipmi_sim on
// 127.0.0.1, reached over an IPMI 2.0 (lanplus) session through libfreeipmi.
// What the collector reports is checked against the records we gave the
// simulator and against ipmitool reading the same simulator.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "host/sim/Builders.h"
#include "tests/e2e/Processes.h"

namespace ipmisel::e2e {
namespace {

constexpr uint32_t kT0 = 1718092800; // 2024-06-11 08:00:00 UTC

// Record ID, when (seconds after kT0), sensor type, sensor number, event
// type, event data, deassertion.
Bytes event(uint16_t id, uint32_t at, uint8_t type, uint8_t number, uint8_t eventType,
            std::array<uint8_t, 3> data, bool deassertion = false) {
    return sim::selRecord({.id = id,
                           .timestamp = kT0 + at,
                           .sensorType = type,
                           .sensorNumber = number,
                           .eventType = eventType,
                           .deassertion = deassertion,
                           .data = data});
}

// Every sensor in tests/e2e/bmc/bmc.emu, threshold (CPU1 Temp above UC, FAN1
// below LC, 12V above UNC) and sensor-specific, assertions and deassertions,
// a sensor without a record (99h) and an OEM record (its byte 7 names the
// BMC, so the first node keeps it).
const std::vector<Bytes> kNodeOne = {
    event(1, 0, 0x01, 0x30, 0x01, {0x59, 92, 90}),
    event(2, 61, 0x04, 0x20, 0x01, {0x52, 8, 10}),
    event(3, 122, 0x02, 0x40, 0x01, {0x57, 225, 220}),
    event(4, 183, 0x08, 0x50, 0x6F, {1, 255, 255}),
    event(5, 244, 0x0C, 0x52, 0x6F, {0, 255, 255}),
    event(6, 305, 0x05, 0x54, 0x6F, {0, 255, 255}),
    event(7, 366, 0x08, 0x50, 0x6F, {1, 255, 255}, true),
    event(8, 3600, 0x01, 0x30, 0x01, {0x59, 80, 90}, true),
    event(9, 7200, 0x07, 0x99, 0x6F, {0, 255, 255}),
    sim::selOemRecord(10, 0xC0, kT0 + 86400,
                      Bytes{0x20, 1, 0, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC})};
const std::vector<Bytes> kNodeTwo = {event(1, 10, 0x05, 0x54, 0x6F, {0, 255, 255}),
                                     event(2, 20, 0x01, 0x30, 0x01, {0x57, 86, 85}),
                                     event(3, 30, 0x0C, 0x52, 0x6F, {1, 255, 255})};

std::vector<json> logRecords(const std::string& jsonl) {
    return instancesOf(jsonl, "OXASG_IPMILogRecord");
}

// Each line of `text` cut at '|', the cells trimmed.
std::vector<std::vector<std::string>> rowsOf(const std::string& text) {
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        auto& cells = rows.emplace_back();
        std::istringstream in(line);
        for (std::string cell; std::getline(in, cell, '|');) {
            cells.push_back(trimmed(cell));
        }
    }
    return rows;
}

class AgainstIpmiSim : public ::testing::Test {
  protected:
    void SetUp() override {
        if (std::string why = missingTool({"ipmi_sim", "ipmitool"}); !why.empty()) {
            GTEST_SKIP() << why;
        }
        sim = std::make_unique<IpmiSim>(kNodeOne);
    }
    std::unique_ptr<IpmiSim> sim;
};

TEST_F(AgainstIpmiSim, TableNamesSensorsAndConvertsReadingsAsIpmitoolDoes) {
    RunResult run = collect({sim.get()}, {"--class", "OXASG_IPMILogRecord", "--format", "table"});
    ASSERT_EQ(run.code, 0) << run.err;
    RunResult elist = sim->ipmitool({"sel", "elist"});
    ASSERT_EQ(elist.code, 0) << elist.err;
    // Ours: node | record | time stamp | sensor type | sensor | message, a
    // message wrapped over several lines joined again. ipmitool's, one a line
    // in ID order: ID | 06/11/24 | 08:00:00 UTC | <type> <sensor> | event |
    // Asserted | Reading 92 > Threshold 90 degrees C.
    std::vector<std::vector<std::string>> ours, theirs = rowsOf(elist.out);
    for (auto& cells : rowsOf(run.out)) {
        if (cells.size() == 6 && cells[0].empty()) {
            ours.back()[5] += " " + cells[5];
        } else if (cells.size() == 6 && cells[0] != "Node") {
            ours.push_back(cells);
        }
    }
    ASSERT_EQ(ours.size(), kNodeOne.size()) << run.out;
    ASSERT_EQ(theirs.size(), ours.size()) << elist.out;

    // The sensor's name from the BMC's SDR; no record names sensor 99h. The
    // messages themselves are the decoder's and checked with it.
    const char* const names[] = {
        "CPU1 Temp", "FAN1", "12V", "PSU1 Status", "DIMM A1", "Chassis Intru", "PSU1 Status",
        "CPU1 Temp", "",     ""};
    int readings = 0;
    for (size_t i = 0; i < ours.size(); ++i) {
        const auto &row = ours[i], &their = theirs[i];
        SCOPED_TRACE(row[1] + ": " + row[5]);
        EXPECT_EQ(row[0], "1");
        ASSERT_EQ(row[1], std::to_string(i + 1));
        // 06/11/24 and 08:00:00 UTC against 2024-06-11 08:00:00.
        EXPECT_EQ(row[2], "20" + their[1].substr(6, 2) + "-" + their[1].substr(0, 2) + "-" +
                              their[1].substr(3, 2) + " " + their[2].substr(0, 8));
        EXPECT_EQ(row[4], names[i]);
        if (!row[4].empty()) {
            // ipmitool says "<type> <ID string>"; our type may add a word in
            // brackets ("Physical Security (Chassis Intrusion)").
            ASSERT_TRUE(their[3].ends_with(" " + row[4])) << their[3];
            const std::string type = their[3].substr(0, their[3].size() - row[4].size() - 1);
            EXPECT_TRUE(row[3] == type || row[3].starts_with(type + " (")) << their[3];
        }
        // A threshold event's readings as ipmitool converts them.
        double reading = 0, threshold = 0;
        char unit[32] = "";
        if (their.size() > 6 &&
            std::sscanf(their[6].c_str(), "Reading %lf %*c Threshold %lf %31[^\n]", &reading,
                        &threshold, unit) == 3) {
            ++readings;
            char text[128];
            std::snprintf(text, sizeof text, "Trigger reading: %.2f %s", reading, unit);
            EXPECT_NE(row[5].find(text), npos) << text;
            std::snprintf(text, sizeof text, "Trigger threshold value: %.2f %s", threshold, unit);
            EXPECT_NE(row[5].find(text), npos) << text;
        }
    }
    EXPECT_EQ(readings, 4);
}

TEST_F(AgainstIpmiSim, RecordThenReplayAndThePasswordNowhereEvenWhenRefused) {
    // The password from the environment this time, with a trace log.
    const std::string dir = test::makeTempDir("ipmisel-record");
    RunResult live = collect({sim.get()},
                             {"--format", "jsonl", "--record", dir + "/bmc.json", "--log",
                              dir + "/run.log", "--log-level", "4"},
                             IpmiSim::kPassword, false);
    ASSERT_EQ(live.code, 0) << live.err;
    EXPECT_EQ(live.err, "");
    auto records = logRecords(live.out);
    ASSERT_EQ(records.size(), kNodeOne.size());
    for (size_t i = 0; i < records.size(); ++i) {
        // The bytes the BMC holds, untouched on their way through the session.
        EXPECT_EQ(records[i]["RawData"].get<Bytes>(), kNodeOne[i]);
        EXPECT_EQ(records[i]["SourceNode"], "1");
    }
    // A refused login is one line naming the node, without the password given.
    // No --workaround: the privilege fallback must not hide the refusal.
    RunResult refused = collect({sim.get()}, {}, "not-the-Secret");
    EXPECT_EQ(refused.code, 6);
    EXPECT_EQ(std::count(refused.err.begin(), refused.err.end(), '\n'), 1) << refused.err;
    EXPECT_NE(refused.err.find("node 1 (lanplus " + sim->hostArg() + ")"), npos) << refused.err;
    EXPECT_EQ(refused.err.find("not-the-Secret"), npos) << refused.err;
    sim->stop(); // the replay must not need the BMC

    RunResult replay = runProgram({kCollector, "--sim", dir + "/bmc.json", "--format", "jsonl"});
    ASSERT_EQ(replay.code, 0) << replay.err;
    EXPECT_EQ(replay.out, live.out);

    const std::string recording = readFile(dir + "/bmc.json"), log = readFile(dir + "/run.log");
    EXPECT_NE(recording.find("recorded from lanplus " + sim->hostArg()), npos);
    EXPECT_FALSE(log.empty());
    for (const std::string& text : {recording, log, live.out, live.err}) {
        EXPECT_EQ(text.find(IpmiSim::kPassword), npos);
    }
}

TEST_F(AgainstIpmiSim, TwoNodesWithRunningRecordIdsThenOneStopped) {
    IpmiSim& first = *sim;
    IpmiSim second(kNodeTwo);
    const std::vector<std::string> args = {"--class", "OXASG_IPMILogRecord", "--format", "jsonl"};
    RunResult both = collect({&first, &second}, args);
    ASSERT_EQ(both.code, 0) << both.err;
    auto records = logRecords(both.out);
    ASSERT_EQ(records.size(), kNodeOne.size() + kNodeTwo.size());
    for (size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(records[i]["SourceNode"], i < kNodeOne.size() ? "1" : "2") << i;
    }
    // Node 2's IDs follow node 1's: its record 1 is shown as node 1's count + 1.
    EXPECT_EQ(records[kNodeOne.size()]["RecordID"], std::to_string(kNodeOne.size() + 1));
    EXPECT_EQ(records[kNodeOne.size()]["SensorInformation"], "Chassis Intru");

    second.stop();
    RunResult one = collect({&first, &second}, args);
    EXPECT_EQ(one.code, 6);
    auto kept = logRecords(one.out);
    EXPECT_EQ(kept, std::vector<json>(records.begin(), records.begin() + kNodeOne.size()));
    // One line naming the node, not one per request that could not be sent.
    EXPECT_EQ(std::count(one.err.begin(), one.err.end(), '\n'), 1) << one.err;
    EXPECT_NE(one.err.find("node 2 (lanplus " + second.hostArg() + ")"), npos) << one.err;
}

} // namespace
} // namespace ipmisel::e2e
