// The fault matrix: every request the collector sends, answered once with
// each kind of fault a BMC can produce, through the real ipmisel-collect.
// Whatever the fault, the program must exit with its documented code, every
// SEL record read before the fault must be written exactly once, no record
// ID may appear twice, and the other node's output must not change.
//
// The base scenario (base.json beside this file) is a trimmed two-node demo
// server whose first node answers everything the collector asks, firmware and
// VPD requests of machine type QB11 included. The fault always goes to the
// first node; the second one looks on.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/e2e/Processes.h"

namespace ipmisel::faults {
namespace {

using e2e::json;

constexpr size_t kAll = SIZE_MAX;

// The first node's SEL in log order. Record 27 comes from the OS agent
// (generator 41h) and is never exported for the first node.
constexpr uint16_t kFirstNodeLog[] = {1, 5, 7, 10, 11, 13, 20, 23, 24, 27, 31, 37, 57};
constexpr uint16_t kFiltered = 27;
// The second node's records 1..4 follow the 13 the first node's Get SEL Info reports.
const std::vector<std::string> kSecondNodeIDs = {"14", "15", "16", "17"};

// Where the fault goes: the nth request of netfn/cmd whose data starts with
// `data`. `needs` is how many response data bytes the collector reads from
// the answer (the "one byte short" fault keeps one less). `keptBefore`: the
// records at log positions below it were read before the fault and must all
// be written; kAll when the fault is not on the SEL walk. Reservation IDs in
// Get SDR data are the simulated BMC's: 0001h for the sensor walk, 0002h for
// the FRU-locator walk that reserves again.
struct Target {
    const char* name;
    uint8_t netfn, cmd;
    const char* data;
    uint32_t nth;
    size_t needs;
    size_t keptBefore;
};

const Target kTargets[] = {
    {"GetSELInfo", 0x0A, 0x40, "", 1, 3, kAll},
    {"GetSELEntryFirst", 0x0A, 0x43, "00 00 00 00", 1, 18, 0},
    {"GetSELEntryMiddle", 0x0A, 0x43, "00 00 14 00", 1, 18, 6},
    {"GetSELEntryLast", 0x0A, 0x43, "00 00 39 00", 1, 18, 12},
    {"GetSDRInfo", 0x0A, 0x20, "", 1, 3, kAll},
    {"ReserveSDR", 0x0A, 0x22, "", 1, 2, kAll},
    {"GetSDRHeaderFirst", 0x0A, 0x23, "01 00 00 00 00", 1, 12, kAll},
    {"GetSDRHeaderFull", 0x0A, 0x23, "01 00 02 00 00", 1, 12, kAll},
    {"GetSDRUnits", 0x0A, 0x23, "01 00 02 00 14", 1, 12, kAll},
    {"GetSDRStringFull", 0x0A, 0x23, "01 00 02 00 2F", 1, 3, kAll},
    {"GetSDRStringCompact", 0x0A, 0x23, "01 00 03 00 1F", 1, 3, kAll},
    {"GetSDRHeaderNotASensor", 0x0A, 0x23, "01 00 08 00 00", 1, 12, kAll},
    {"AuxLogStatusForSEL", 0x0A, 0x5A, "", 1, 9, kAll},
    {"AuxLogStatusForDebugRecords", 0x0A, 0x5A, "", 2, 9, kAll},
    {"AuxLogReadHeader", 0x2E, 0x93, "C1 A3 00 02 00 00 00 00", 1, 10, kAll},
    {"AuxLogReadBody", 0x2E, 0x93, "C1 A3 00 02 00 19", 1, 10, kAll},
    {"GetSELTimeForSEL", 0x0A, 0x48, "", 1, 4, kAll},
    {"GetSELTimeForDebugRecords", 0x0A, 0x48, "", 2, 4, kAll},
    {"FRUReserveSDR", 0x0A, 0x22, "", 2, 2, kAll},
    {"FRUGetSDRHeader", 0x0A, 0x23, "02 00 08 00 00", 1, 17, kAll},
    {"FRUGetSDRString", 0x0A, 0x23, "02 00 08 00 0F", 1, 3, kAll},
    {"ReadFRUDataFirst", 0x0A, 0x11, "00 00 00", 1, 17, kAll},
    {"ReadFRUDataMiddle", 0x0A, 0x11, "00 80 00", 1, 17, kAll},
    {"GetDeviceID", 0x06, 0x01, "", 1, 15, kAll},
    {"BMCBuildInfo", 0x3A, 0x50, "", 1, 18, kAll},
    {"CPLDVersion", 0x3A, 0x6B, "01", 1, 1, kAll},
    {"FPGAVersion", 0x3A, 0x6B, "00", 1, 4, kAll},
    {"FPGARevisions", 0x3A, 0x90, "", 1, 4, kAll},
    {"Property", 0x3A, 0xC4, "00 00 00 91", 1, 11, kAll},
    {"VPDFirstChunk", 0x3A, 0x0B, "00 00 00 19", 1, 25, kAll},
    {"VPDLastChunk", 0x3A, 0x0B, "FA 00 00 05", 1, 5, kAll},
    {"BackplaneSelectRegister", 0x06, 0x52, "03 C0 00 63", 1, 0, kAll},
    {"BackplaneReadOneByte", 0x06, 0x52, "03 C0 01", 1, 1, kAll},
    {"BackplaneVersion", 0x06, 0x52, "03 40", 1, 14, kAll},
    {"BackplaneVPD", 0x06, 0x52, "03 A0", 1, 15, kAll},
};

// One fault and the exit code it must give. A BMC's answer, whatever it is,
// leaves the collection a run that happened: 0. The simulated BMC never
// counts as unreachable (6), and the plug-in always reports success.
struct Fault {
    std::string name;
    json answer; // the scenario keys that make the answer faulty
    int exitCode;
    // An answer longer than asked for still holds everything: nothing is lost.
    bool keepsAll = false;
};

std::vector<Fault> faultsFor(const Target& t) {
    std::vector<Fault> out = {{"send failure", {{"fail", true}}, 0}};
    for (int cc = 0xC0; cc <= 0xD5; ++cc) {
        char name[8];
        std::snprintf(name, sizeof name, "cc %02Xh", static_cast<unsigned>(cc));
        out.push_back({name, {{"cc", cc}}, 0});
    }
    out.push_back({"cc 81h", {{"cc", 0x81}}, 0});
    out.push_back({"empty answer", {{"truncate", 0}}, 0});
    if (t.needs > 1) {
        out.push_back({"one byte short", {{"truncate", t.needs - 1}}, 0});
    }
    out.push_back({"1024 bytes too long", {{"oversize", 1024}}, 0, true});
    return out;
}

struct Outcome {
    int code = -1;
    std::vector<std::string> lines;
    std::string err;
};

// A collector gone wild under some fault must not take the machine with it:
// the runs inherit an address-space limit far above what a collection of
// this base needs. A sanitizer build maps terabytes of shadow memory and
// goes without.
#if defined(__SANITIZE_ADDRESS__)
#define IPMISEL_FAULTS_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define IPMISEL_FAULTS_ASAN 1
#endif
#endif

void limitChildMemory() {
#if !defined(IPMISEL_FAULTS_ASAN)
    static std::once_flag once;
    std::call_once(once, [] {
        rlimit limit{};
        if (::getrlimit(RLIMIT_AS, &limit) == 0) {
            limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, rlim_t{2} << 30);
            ::setrlimit(RLIMIT_AS, &limit);
        }
    });
#endif
}

Outcome collect(const std::string& scenarioPath) {
    limitChildMemory();
    e2e::RunResult r = e2e::runProgram(
        {e2e::kCollector, "--sim", scenarioPath, "--format", "jsonl", "--log-level", "0"});
    Outcome out{r.code, {}, r.err};
    std::istringstream in(r.out);
    for (std::string line; std::getline(in, line);) {
        out.lines.push_back(line);
    }
    return out;
}

json baseScenario() {
    std::ifstream in(test::sourceDir() + "/tests/faults/base.json");
    return json::parse(in);
}

// The lines from the second node's first log record on: everything the
// second node wrote. Empty when it wrote no log record.
std::vector<std::string> secondNodeLines(const Outcome& run) {
    for (size_t i = 0; i < run.lines.size(); ++i) {
        if (run.lines[i].find("\"class\":\"OXASG_IPMILogRecord\"") != std::string::npos &&
            run.lines[i].find("\"SourceNode\":\"2\"") != std::string::npos) {
            return {run.lines.begin() + static_cast<long>(i), run.lines.end()};
        }
    }
    return {};
}

// The fault-free run every case is compared with, checked once against the
// base scenario's own records.
const Outcome& baseline() {
    static const Outcome run = [] {
        const std::string dir = test::makeTempDir("ipmisel-faults");
        const std::string path = dir + "/base.json";
        std::ofstream(path) << baseScenario().dump();
        Outcome r = collect(path);
        std::filesystem::remove_all(dir);
        return r;
    }();
    return run;
}

// Record IDs of the log records written, by source node ("1", "2"), in order;
// a line that is not JSON is reported and skipped.
std::vector<std::pair<std::string, std::string>> logRecords(const Outcome& run,
                                                            std::vector<std::string>& broken) {
    std::vector<std::pair<std::string, std::string>> out;
    for (const std::string& line : run.lines) {
        json j = json::parse(line, nullptr, false);
        if (j.is_discarded()) {
            broken.push_back(line);
            continue;
        }
        if (j["class"] == "OXASG_IPMILogRecord") {
            const json& p = j["properties"];
            out.emplace_back(p.value("SourceNode", ""), p.value("RecordID", ""));
        }
    }
    return out;
}

// Everything wrong with one faulted run, one line each; empty when it is right.
std::vector<std::string> problems(const Target& t, const Fault& f, const Outcome& run) {
    std::vector<std::string> out;
    if (run.code != f.exitCode) {
        out.push_back("exit code " + std::to_string(run.code) + ", expected " +
                      std::to_string(f.exitCode) + "; stderr: " + run.err);
    }
    std::vector<std::string> broken;
    const auto records = logRecords(run, broken);
    for (const std::string& line : broken) {
        out.push_back("not a JSON line: " + line.substr(0, 120));
    }
    std::multiset<std::string> ids;
    std::set<std::string> firstNode;
    for (const auto& [node, id] : records) {
        ids.insert(id);
        if (node == "1") {
            firstNode.insert(id);
        }
    }
    for (const std::string& id : std::set<std::string>(ids.begin(), ids.end())) {
        if (ids.count(id) > 1) {
            out.push_back("record " + id + " written " + std::to_string(ids.count(id)) + " times");
        }
    }
    const size_t kept = f.keepsAll ? kAll : t.keptBefore;
    for (size_t i = 0; i < std::size(kFirstNodeLog) && i < kept; ++i) {
        const std::string id = std::to_string(kFirstNodeLog[i]);
        if (kFirstNodeLog[i] != kFiltered && !firstNode.count(id)) {
            out.push_back("record " + id + " of the first node is missing");
        }
    }
    if (secondNodeLines(run) != secondNodeLines(baseline())) {
        out.push_back("the second node's output changed");
    }
    return out;
}

// A failing case names its request rather than dumping the row's bytes.
void PrintTo(const Target& t, std::ostream* os) {
    *os << t.name;
}

class FaultMatrix : public testing::TestWithParam<Target> {};

TEST(FaultMatrixBase, TheFaultFreeRunWritesEveryRecordOnce) {
    std::vector<std::string> broken;
    std::vector<std::string> first, second;
    for (const auto& [node, id] : logRecords(baseline(), broken)) {
        (node == "1" ? first : second).push_back(id);
    }
    EXPECT_EQ(baseline().code, 0) << baseline().err;
    EXPECT_TRUE(broken.empty());
    EXPECT_EQ(first, (std::vector<std::string>{"1", "5", "7", "10", "11", "13", "20", "23", "24",
                                               "31", "37", "57"}));
    EXPECT_EQ(second, kSecondNodeIDs);
}

TEST_P(FaultMatrix, CollectionSurvivesEveryFaultOfThisRequest) {
    const Target& t = GetParam();
    const std::vector<Fault> faults = faultsFor(t);
    const std::string dir = test::makeTempDir("ipmisel-faults");
    const json base = baseScenario();
    std::vector<std::string> paths;
    for (size_t i = 0; i < faults.size(); ++i) {
        json s = base;
        json fault = {{"netfn", t.netfn}, {"cmd", t.cmd}, {"nth", t.nth}};
        if (*t.data) {
            fault["data"] = t.data;
        }
        fault.update(faults[i].answer);
        s["nodes"][0]["faults"] = json::array({fault});
        paths.push_back(dir + "/case" + std::to_string(i) + ".json");
        std::ofstream(paths.back()) << s.dump();
    }
    (void)baseline(); // made before the workers start

    // Two workers: the machine's cores are shared with the rest of the suite.
    std::vector<Outcome> runs(faults.size());
    std::atomic<size_t> next{0};
    auto work = [&] {
        for (size_t i; (i = next++) < faults.size();) {
            runs[i] = collect(paths[i]);
        }
    };
    std::thread helper(work);
    work();
    helper.join();
    std::filesystem::remove_all(dir);

    for (size_t i = 0; i < faults.size(); ++i) {
        for (const std::string& p : problems(t, faults[i], runs[i])) {
            ADD_FAILURE() << t.name << ", " << faults[i].name << ": " << p;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryRequest, FaultMatrix, testing::ValuesIn(kTargets),
                         [](const testing::TestParamInfo<Target>& info) {
                             return std::string(info.param.name);
                         });

} // namespace
} // namespace ipmisel::faults
