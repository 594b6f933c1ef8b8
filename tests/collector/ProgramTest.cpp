// The program as a user meets it: the built ipmisel-collect run on small
// scenarios (skipped while the program or the plug-in is not built), and the
// loader and path finding in-process.
#include <algorithm>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "collector/Collector.h"
#include "tests/support/HostFixture.h"

using namespace ipmisel::collector;
namespace t = ipmisel::test;
namespace fs = std::filesystem;

namespace {

// Two ordinary events on one BMC that the SMBIOS table announces.
const char kTinyScenario[] = R"({
  "comment": "collector test: two SEL events on one node",
  "smbios": [{"type": 38}],
  "nodes": [{
    "sel": {"records": [
      {"id": 1, "timestamp": "2024-03-01T12:00:00Z", "generator": 32, "sensorType": 7,
       "sensorNumber": 1, "eventType": 111, "data": [0]},
      {"id": 2, "timestamp": "2024-03-01T12:05:00Z", "generator": 32, "sensorType": 1,
       "sensorNumber": 2, "eventType": 1, "data": [7, 50, 40]}
    ]}
  }]
})";

struct Outcome {
    int code = -1;
    std::string out;
    std::string err;
};

std::string quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) {
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return q + "'";
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<std::string> lines(const std::string& s) {
    std::vector<std::string> out;
    std::istringstream in(s);
    for (std::string l; std::getline(in, l);) {
        out.push_back(l);
    }
    return out;
}

std::string program() {
    return t::binDir() + "/ipmisel-collect";
}
std::string plugin() {
    return t::binDir() + "/ipmisel.so";
}

Outcome run(const std::vector<std::string>& args) {
    std::string dir = t::makeTempDir("collect-run");
    std::string cmd = quote(program());
    for (const auto& a : args) {
        cmd += " " + quote(a);
    }
    cmd += " >" + quote(dir + "/out") + " 2>" + quote(dir + "/err") + " </dev/null";
    Outcome r;
    int status = std::system(cmd.c_str());
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = readFile(dir + "/out");
    r.err = readFile(dir + "/err");
    return r;
}

// One line, our prefix, and the given words in it.
void expectOneErrorLine(const Outcome& r, const std::string& words) {
    auto ls = lines(r.err);
    ASSERT_EQ(ls.size(), 1u) << r.err;
    EXPECT_TRUE(ls[0].starts_with("ipmisel-collect: ")) << ls[0];
    EXPECT_NE(ls[0].find(words), std::string::npos) << ls[0];
}

bool haveProgram() {
    return fs::exists(program());
}
bool havePlugin() {
    return fs::exists(plugin());
}
bool haveMessageFile() {
    return fs::exists(t::binDir() + "/ipmisel.INI");
}

// A plug-in folder of its own: a copy of the built plug-in, with or without a
// message file (a stand-in one when the real one is not built yet). The
// folder's name avoids the word the plug-in looks for in its path.
std::string pluginFolder(bool withMessageFile) {
    std::string dir = t::makeTempDir("collect-plugin");
    fs::copy_file(plugin(), dir + "/ipmisel.so");
    if (withMessageFile) {
        if (haveMessageFile()) {
            fs::copy_file(t::binDir() + "/ipmisel.INI", dir + "/ipmisel.INI");
        } else {
            std::ofstream(dir + "/ipmisel.INI") << "[stand-in]\n";
        }
    }
    return dir;
}

#define NEED_PROGRAM()                                                                             \
    if (!haveProgram() || !havePlugin())                                                           \
    GTEST_SKIP() << "ipmisel-collect or ipmisel.so not built in " << t::binDir()

TEST(Program, HelpVersionAndBadOptions) {
    if (!haveProgram()) {
        GTEST_SKIP() << "ipmisel-collect not built";
    }
    Outcome help = run({"--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_NE(help.out.find("Exit codes:"), std::string::npos);
    EXPECT_EQ(help.err, "");

    Outcome version = run({"--version"});
    EXPECT_EQ(version.code, 0);
    EXPECT_TRUE(version.out.starts_with("ipmisel-collect ")) << version.out;

    Outcome bad = run({"--format", "xml"});
    EXPECT_EQ(bad.code, kExitUsage);
    expectOneErrorLine(bad, "(see ipmisel-collect --help)");
    EXPECT_EQ(bad.out, "");

#if !IPMISEL_HAVE_FREEIPMI
    // Without the real-BMC transport the options are understood and refused.
    for (auto args : std::vector<std::vector<std::string>>{
             {"--inband"}, {"--host", "10.0.0.5", "--user", "admin"}}) {
        Outcome real = run(args);
        EXPECT_EQ(real.code, kExitTransport);
        expectOneErrorLine(real, "not available in this build");
    }
#endif
}

TEST(Program, InstallationProblems) {
    NEED_PROGRAM();
    std::string scenario = t::writeTempFile("tiny.json", kTinyScenario);

    std::string bare = pluginFolder(false);
    Outcome noMessages = run({"--sim", scenario, "--plugin", bare + "/ipmisel.so"});
    EXPECT_EQ(noMessages.code, kExitPlugin);
    expectOneErrorLine(noMessages, "looked for " + bare + "/ipmisel.INI");
    EXPECT_EQ(noMessages.out, "");

    std::string fake = t::makeTempDir("collect-fake");
    std::ofstream(fake + "/ipmisel.so") << "not a library";
    std::ofstream(fake + "/ipmisel.INI") << "";
    Outcome notLoadable = run({"--sim", scenario, "--plugin", fake + "/ipmisel.so"});
    EXPECT_EQ(notLoadable.code, kExitPlugin);
    expectOneErrorLine(notLoadable, "cannot load the plug-in");
}

TEST(Program, BrokenScenarios) {
    NEED_PROGRAM();
    std::string dir = pluginFolder(true);
    struct Case {
        const char* name;
        const char* content; // null: the file does not exist
    };
    const Case cases[] = {
        {"syntax.json", "{ \"nodes\": [ }"},
        {"record.json", R"({"nodes": [{"sel": {"records": ["00 01 02"]}}]})"},
        {"absent.json", nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string path = c.content ? t::writeTempFile(c.name, c.content)
                                     : t::makeTempDir("collect-none") + "/" + c.name;
        Outcome r = run({"--sim", path, "--plugin", dir + "/ipmisel.so"});
        EXPECT_EQ(r.code, kExitScenario);
        // The simulator's own one-line account, naming the file.
        expectOneErrorLine(r, c.name);
        EXPECT_EQ(r.out, "");
    }
}

TEST(Program, CollectsATinyScenario) {
    NEED_PROGRAM();
    if (!haveMessageFile()) {
        GTEST_SKIP() << "ipmisel.INI not built yet";
    }
    std::string scenario = t::writeTempFile("tiny.json", kTinyScenario);
    std::string dir = t::makeTempDir("collect-out");

    Outcome jsonl = run({"--sim", scenario, "--log", dir + "/log.txt"});
    ASSERT_EQ(jsonl.code, 0) << jsonl.err;
    EXPECT_EQ(jsonl.err, ""); // quiet: no terminal, nothing went wrong
    std::vector<std::string> ids;
    for (const auto& line : lines(jsonl.out)) {
        auto j = nlohmann::json::parse(line); // throws on a malformed line
        ASSERT_TRUE(j.contains("class") && j.contains("properties")) << line;
        if (j["class"] == "OXASG_IPMILogRecord") {
            ids.push_back(j["properties"]["RecordID"]);
            EXPECT_EQ(j["properties"]["SourceNode"], "1");
            EXPECT_EQ(j["properties"]["RawData"].size(), 16u);
        }
    }
    EXPECT_EQ(ids, (std::vector<std::string>{"1", "2"}));
    // Texts keep their own new lines, so only record starts are checked.
    std::string log = readFile(dir + "/log.txt");
    EXPECT_TRUE(log.starts_with("3 ") || log.starts_with("4 ")) << log.substr(0, 80);
    EXPECT_NE(log.find("\n4 "), std::string::npos);

    // The level filter, the table and an output file.
    Outcome table =
        run({"--sim", scenario, "--class", "OXASG_IPMILogRecord", "--format", "table", "--out",
             dir + "/table.txt", "--log", dir + "/quiet.txt", "--log-level", "1"});
    ASSERT_EQ(table.code, 0) << table.err;
    EXPECT_EQ(table.out, "");
    auto rows = lines(readFile(dir + "/table.txt"));
    ASSERT_GE(rows.size(), 3u);
    EXPECT_TRUE(rows[0].starts_with("Node | Record | Time stamp"));
    EXPECT_TRUE(rows[1].starts_with("   1 |      1 | 2024-03-01 "));
    // One row per record; long cells continue on lines with empty number columns.
    EXPECT_EQ(std::count_if(rows.begin() + 1, rows.end(),
                            [](const std::string& r) { return r.rfind("   1 |", 0) == 0; }),
              2);
    std::string quiet = readFile(dir + "/quiet.txt");
    for (const char* above : {"\n2 ", "\n3 ", "\n4 "}) {
        EXPECT_EQ(quiet.find(above), std::string::npos) << quiet;
    }

    Outcome csv = run({"--sim", scenario, "--class", "OXASG_IPMILogRecord", "--format", "csv"});
    ASSERT_EQ(csv.code, 0) << csv.err;
    EXPECT_TRUE(csv.out.starts_with("CreationClassName,LogCreationClassName,LogName,RecordID,"));
    EXPECT_EQ(lines(csv.out).size(), 3u);
}

TEST(Program, UnwritableOutput) {
    NEED_PROGRAM();
    if (!haveMessageFile()) {
        GTEST_SKIP() << "ipmisel.INI not built yet";
    }
    std::string scenario = t::writeTempFile("tiny.json", kTinyScenario);
    for (const char* option : {"--out", "--log"}) {
        SCOPED_TRACE(option);
        Outcome r = run({"--sim", scenario, option, "/nonexistent-folder/file.txt"});
        EXPECT_EQ(r.code, kExitOutput);
        expectOneErrorLine(r, "/nonexistent-folder/file.txt");
    }
}

TEST(Program, DemoScenarioWhenNothingIsGiven) {
    NEED_PROGRAM();
    if (!haveMessageFile()) {
        GTEST_SKIP() << "ipmisel.INI not built yet";
    }
    Environment env;
    if (!kernelIpmiDevice(env).empty()) {
        GTEST_SKIP() << "this machine has a kernel IPMI device";
    }
    Outcome r = run({"--class", "OXASG_IPMILogRecord"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.err.find("using the demo scenario"), std::string::npos) << r.err;
}

// ---- in-process ---------------------------------------------------------------------

TEST(Loader, RefusalAndUnusableFiles) {
    if (!havePlugin()) {
        GTEST_SKIP() << "ipmisel.so not built";
    }
    std::string error;
    {
        ipmisel::host::Config config;
        config.registerFails = true;
        t::HostCapture host(config);
        EXPECT_EQ(loadPlugin(plugin(), &error), nullptr);
        EXPECT_NE(error.find("refused to load"), std::string::npos) << error;
        EXPECT_TRUE(host.hasLog(0, "Could not register plugin!"));
    }
    {
        t::HostCapture host;
        const auto* callbacks = loadPlugin(plugin(), &error);
        ASSERT_NE(callbacks, nullptr) << error;
        EXPECT_EQ(callbacks->size, 48u);
        EXPECT_NE(callbacks->collect, nullptr);
    }
    EXPECT_EQ(loadPlugin("/nonexistent/ipmisel.so", &error), nullptr);
    EXPECT_EQ(error, "plug-in not found: /nonexistent/ipmisel.so");
}

TEST(Paths, PluginDemoScenarioAndDevices) {
    std::string root = t::makeTempDir("collect-layout");
    fs::create_directories(root + "/bin");
    fs::create_directories(root + "/src/scenarios");
    std::ofstream(root + "/src/scenarios/demo.json") << "{}";
    Environment env;
    env.exePath = root + "/bin/ipmisel-collect";
    env.sourceDir = root + "/src";

    Options o;
    EXPECT_EQ(pluginPathFor(o, env), root + "/bin/ipmisel.so");
    o.pluginPath = "/elsewhere/ipmisel.so";
    EXPECT_EQ(pluginPathFor(o, env), "/elsewhere/ipmisel.so");
    EXPECT_EQ(messageFileFor("/elsewhere/ipmisel.so"), "/elsewhere/ipmisel.INI");

    // Before installation the source tree's copy; after, the one beside bin/.
    std::vector<std::string> looked;
    EXPECT_EQ(findDemoScenario(env, &looked), root + "/src/scenarios/demo.json");
    EXPECT_EQ(looked, (std::vector<std::string>{root + "/scenarios/demo.json",
                                                root + "/src/scenarios/demo.json"}));
    fs::create_directories(root + "/scenarios");
    std::ofstream(root + "/scenarios/demo.json") << "{}";
    EXPECT_EQ(findDemoScenario(env), root + "/scenarios/demo.json");
    env.sourceDir.clear();
    fs::remove(root + "/scenarios/demo.json");
    EXPECT_EQ(findDemoScenario(env), "");

    env.ipmiDevices = {root + "/ipmi0", root + "/ipmi/0"};
    EXPECT_EQ(kernelIpmiDevice(env), "");
    fs::create_directories(root + "/ipmi");
    std::ofstream(root + "/ipmi/0") << "";
    EXPECT_EQ(kernelIpmiDevice(env), root + "/ipmi/0");
}

TEST(CommandLine, MissingPluginBesideTheProgram) {
    std::string root = t::makeTempDir("collect-empty");
    Environment env;
    env.exePath = root + "/ipmisel-collect";
    std::ostringstream out, err;
    std::string scenario = t::writeTempFile("tiny.json", kTinyScenario);
    EXPECT_EQ(runCommandLine({"--sim", scenario}, env, out, err), kExitPlugin);
    EXPECT_EQ(err.str(), "ipmisel-collect: plug-in not found: " + root + "/ipmisel.so\n");
    EXPECT_EQ(out.str(), "");
}

} // namespace
