// A fleet: how each server's output is tagged, what a child is told, the exit
// code, and whole runs of the built program on simulated servers (skipped
// while the program, the plug-in or its message file is not built).
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "collector/Fleet.h"
#include "host/sim/SimBmc.h"
#include "tests/support/HostFixture.h"

using namespace ipmisel::collector;
namespace t = ipmisel::test;
namespace fs = std::filesystem;

namespace {

#define NEED_PROGRAM()                                                                             \
    for (const char* f : {"ipmisel-collect", "ipmisel.so", "ipmisel.INI"})                         \
        if (!fs::exists(t::binDir() + "/" + f))                                                    \
    GTEST_SKIP() << f << " not built in " << t::binDir()

std::string tagAll(Format format, const std::string& server, const std::vector<std::string>& in) {
    ServerTagger tagger(format, server);
    std::string out;
    for (const auto& line : in) {
        out += tagger.tag(line);
    }
    return out;
}

TEST(Fleet, EachFormatTaggedWithItsServer) {
    EXPECT_EQ(tagAll(Format::Jsonl, "bmc\"1",
                     {"{\"class\":\"A\",\"properties\":{}}\n", "{\"class\":\"B\"}\n"}),
              "{\"server\":\"bmc\\\"1\",\"class\":\"A\",\"properties\":{}}\n"
              "{\"server\":\"bmc\\\"1\",\"class\":\"B\"}\n");
    // Header rows get the column's name, other rows the server; a quoted
    // field running over lines (an empty one and one with a doubled quote
    // among them) is not mistaken for new rows or a section break.
    EXPECT_EQ(tagAll(Format::Csv, "a,b",
                     {"H1,H2\r\n", "1,\"x\r\n", "\r\n", "y\"\"z\r\n", "w\"\r\n", "2,3\r\n", "\r\n",
                      "K\r\n", "4\r\n"}),
              "server,H1,H2\r\n\"a,b\",1,\"x\r\n\r\ny\"\"z\r\nw\"\r\n\"a,b\",2,3\r\n\r\n"
              "server,K\r\n\"a,b\",4\r\n");
    EXPECT_EQ(tagAll(Format::Table, "s", {"Node | Record\n"}), "Node | Record\n");
}

TEST(Fleet, ExitCodeAndProgress) {
    const std::pair<std::vector<int>, int> cases[] = {
        {{0, 0, 0}, 0},
        {{0, 6, 0}, kExitSomeServers},
        {{3, 0}, kExitSomeServers},
        {{6, 3}, 6}, // all failed: the first server's code
        {{3}, 3},
        {{0}, 0},
    };
    for (const auto& [codes, code] : cases) {
        EXPECT_EQ(fleetExitCode(codes), code) << codes.size() << " " << codes.front();
    }
    EXPECT_EQ(fleetProgressText(12, 1, 187), "servers: 12 done, 1 failed, 187 left");
}

TEST(Fleet, EachChildIsToldItsServerAlone) {
    ParsedOptions p =
        parseOptions({"--host", "a[1-2]", "--host", "[fe80::1]:[700-701]", "--user", "admin",
                      "--password-file=--pw", "--timeout", "5", "--class", "OXASG_IPMIFRU", "--log",
                      "run.log", "--log-level", "2", "--record", "r.json"});
    ASSERT_EQ(p.error, "");
    ASSERT_EQ(p.options.hostServers.size(), 2u);
    std::vector<std::string> expected = {
        "--host=a2:623", "--host=[fe80::1]:701",  "--user=admin", "--password-file=--pw",
        "--timeout=5",   "--class=OXASG_IPMIFRU", "--format=csv", "--log=run.log.a2",
        "--log-level=2", "--record=r.json.a2"};
    EXPECT_EQ(childArguments(p.options, p.options.hostServers[1], Format::Csv), expected);

    // A scenario gets no LAN settings; a name unfit for a file name is made fit.
    Server sim{"sim:dir/x y.json", {}, "/h/dir/x y.json"};
    p = parseOptions({"--hosts-file", "h", "--user", "admin", "--log", "l"});
    ASSERT_EQ(p.error, "");
    expected = {"--sim=/h/dir/x y.json", "--format=jsonl", "--log=l.sim_dir_x_y.json"};
    EXPECT_EQ(childArguments(p.options, sim, Format::Jsonl), expected);
}

// A scenario with one node whose SEL holds `records` records, IDs 1...
std::string scenario(int records, int latencyMs = 0) {
    std::string list;
    for (int i = 0; i < records; ++i) {
        list += (i ? "," : "") + std::string("{}");
    }
    return R"({"smbios": [{"type": 38}], "nodes": [{"latencyMs": )" + std::to_string(latencyMs) +
           R"(, "sel": {"records": [)" + list + "]}}]}";
}

struct Outcome {
    int code;
    std::string out, err;
};

Outcome runFleetOf(const std::vector<std::string>& args) {
    ParsedOptions p = parseOptions(args);
    EXPECT_EQ(p.error, "");
    Environment env;
    env.exePath = t::binDir() + "/ipmisel-collect";
    std::ostringstream out, err;
    int code = runFleet(p.options, env, out, err);
    return {code, out.str(), err.str()};
}

// Six servers, three at a time: server k (1..6) holds k records, the fourth
// one's scenario is broken.
class FleetRun : public ::testing::Test {
  protected:
    void SetUp() override {
        dir = t::makeTempDir("fleet");
        fs::create_directories(dir + "/s");
        std::ofstream hosts(dir + "/hosts.txt");
        hosts << "# six servers\n";
        for (int k = 1; k <= 6; ++k) {
            std::ofstream(dir + "/s/" + std::to_string(k) + ".json")
                << (k == 4 ? std::string("{\"nodes\": [") : scenario(k));
            hosts << "sim:s/" << k << ".json\n";
        }
    }
    std::vector<std::string> args(const char* format) {
        return {"--hosts-file", dir + "/hosts.txt", "--fanout",           "3", "--format",
                format,         "--class",          "OXASG_IPMILogRecord"};
    }
    std::string dir;
};

TEST_F(FleetRun, OneBrokenServerLeavesTheOthersComplete) {
    NEED_PROGRAM();
    Outcome r = runFleetOf(args("jsonl"));
    EXPECT_EQ(r.code, kExitSomeServers);
    // One line, naming the server and the child's own account of the problem.
    EXPECT_EQ(r.err, "ipmisel-collect: sim:s/4.json: " + dir +
                         "/s/4.json: parse error at line 1, column 12: syntax error while "
                         "parsing value - unexpected end of input; expected '[', '{', or a "
                         "literal\n");
    std::map<std::string, std::vector<std::string>> ids;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);) {
        ASSERT_TRUE(line.starts_with("{\"server\":\"sim:s/")) << line;
        auto j = nlohmann::json::parse(line); // a merged line is whole
        ids[j["server"]].push_back(j["properties"]["RecordID"]);
    }
    std::map<std::string, std::vector<std::string>> expected = {
        {"sim:s/1.json", {"1"}},
        {"sim:s/2.json", {"1", "2"}},
        {"sim:s/3.json", {"1", "2", "3"}},
        {"sim:s/5.json", {"1", "2", "3", "4", "5"}},
        {"sim:s/6.json", {"1", "2", "3", "4", "5", "6"}},
    };
    EXPECT_EQ(ids, expected);
}

TEST_F(FleetRun, CsvAndTableKeepEachServerTogether) {
    NEED_PROGRAM();
    for (const char* format : {"csv", "table"}) {
        SCOPED_TRACE(format);
        Outcome r = runFleetOf(args(format));
        EXPECT_EQ(r.code, kExitSomeServers);
        // Which server each line belongs to, one entry per run of lines.
        std::vector<std::string> runs;
        std::map<std::string, int> rows;
        std::istringstream lines(r.out);
        for (std::string line; std::getline(lines, line);) {
            std::string server;
            if (std::string(format) == "csv") {
                if (line.starts_with("server,") || line == "\r") {
                    continue;
                }
                server = line.substr(0, line.find(','));
                ++rows[server];
            } else if (line.starts_with("Server ")) {
                server = line.substr(7);
            } else {
                ASSERT_FALSE(runs.empty()) << "a line before the first Server line: " << line;
                rows[runs.back()] += line.starts_with("   1 | ");
                continue;
            }
            if (runs.empty() || runs.back() != server) {
                runs.push_back(server);
            }
        }
        std::sort(runs.begin(), runs.end());
        EXPECT_EQ(runs, (std::vector<std::string>{"sim:s/1.json", "sim:s/2.json", "sim:s/3.json",
                                                  "sim:s/5.json", "sim:s/6.json"}));
        EXPECT_EQ(rows, (std::map<std::string, int>{{"sim:s/1.json", 1},
                                                    {"sim:s/2.json", 2},
                                                    {"sim:s/3.json", 3},
                                                    {"sim:s/5.json", 5},
                                                    {"sim:s/6.json", 6}}));
    }
}

// The GNU parallel recipe of docs/fleet.md, run locally: the hosts file split
// in two, one command per part, the outputs concatenated and merged by
// server with sort must give what one fleet run gives.
TEST_F(FleetRun, GnuParallelRecipeMergesByServer) {
    NEED_PROGRAM();
    if (std::system("parallel --version >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "GNU parallel is not installed";
    }
    std::ofstream(dir + "/part1.txt") << "sim:s/1.json\nsim:s/2.json\nsim:s/3.json\n";
    std::ofstream(dir + "/part2.txt") << "sim:s/5.json\nsim:s/6.json\n";
    std::ofstream(dir + "/all.txt") << "sim:s/1.json\nsim:s/2.json\nsim:s/3.json\n"
                                       "sim:s/5.json\nsim:s/6.json\n";
    const std::string bin = t::binDir() + "/ipmisel-collect";
    const std::string cd = "cd '" + dir + "' && ";
    std::string cmd = cd + "parallel --will-cite -j 2 '" + bin +
                      "' --hosts-file {} --format jsonl ::: part1.txt part2.txt"
                      " | LC_ALL=C sort -s -t, -k1,1 > parallel.jsonl";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    cmd = cd + "'" + bin + "' --hosts-file all.txt --format jsonl --fanout 4" +
          " | LC_ALL=C sort -s -t, -k1,1 > one.jsonl";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    auto read = [&](const char* name) {
        std::ifstream in(dir + "/" + name);
        return std::string(std::istreambuf_iterator<char>(in), {});
    };
    std::string merged = read("parallel.jsonl");
    EXPECT_EQ(merged, read("one.jsonl"));
    // Each server's lines together and in its own order (record IDs rising).
    std::istringstream lines(merged);
    std::string last;
    int lastId = 0, count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        auto j = nlohmann::json::parse(line);
        if (j["class"] != "OXASG_IPMILogRecord") {
            continue;
        }
        int id = std::stoi(j["properties"]["RecordID"].get<std::string>());
        EXPECT_EQ(id, j["server"] == last ? lastId + 1 : 1) << line;
        last = j["server"];
        lastId = id;
    }
    EXPECT_GT(count, 17); // 17 log records and each server's firmware elements
}

TEST(SimLatency, EveryAnswerWaits) {
    auto s = ipmisel::sim::parseScenario(scenario(0, 30), "lat.json");
    ipmisel::sim::SimBmc bmc(s.nodes.at(0));
    auto start = std::chrono::steady_clock::now();
    bmc.send({0x06, 0, 0x01, {}}); // Get Device ID
    bmc.send({0x0A, 0, 0x40, {}}); // Get SEL Info
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(60));
    EXPECT_THROW(ipmisel::sim::parseScenario(scenario(0, 10001), "lat.json"),
                 ipmisel::sim::ScenarioError);
}

} // namespace
