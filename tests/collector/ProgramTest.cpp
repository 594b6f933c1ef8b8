// The program as a user meets it: the built ipmisel-collect run on the demo
// scenario and on broken set-ups (skipped while the program, the plug-in or
// its message file is not built), and the demo scenario's place.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "collector/Collector.h"
#include "tests/support/HostFixture.h"

using namespace ipmisel::collector;
namespace t = ipmisel::test;
namespace fs = std::filesystem;

namespace {

struct Outcome {
    int code = -1;
    std::string out;
    std::string err;
};

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string demo() {
    return t::sourceDir() + "/scenarios/demo.json";
}

// `env` goes before the program, e.g. "env -u NAME".
Outcome run(const std::vector<std::string>& args, const std::string& env = "") {
    std::string dir = t::makeTempDir("collect-run");
    std::string cmd = env + " '" + t::binDir() + "/ipmisel-collect'";
    for (const auto& a : args) {
        cmd += " '" + a + "'"; // no test argument holds a quote
    }
    cmd += " >'" + dir + "/out' 2>'" + dir + "/err' </dev/null";
    int status = std::system(cmd.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(dir + "/out"),
            readFile(dir + "/err")};
}

#define NEED_PROGRAM()                                                                             \
    for (const char* f : {"ipmisel-collect", "ipmisel.so", "ipmisel.INI"})                         \
        if (!fs::exists(t::binDir() + "/" + f))                                                    \
    GTEST_SKIP() << f << " not built in " << t::binDir()

TEST(Program, UsageAndEveryRefusalIsOneLineWithItsExitCode) {
    NEED_PROGRAM();
    EXPECT_NE(run({"--help"}).out.find("Exit codes:"), std::string::npos);

    // A plug-in folder without its message file (the folder's name avoids the
    // word the plug-in looks for in its path), and a plug-in that is not one.
    std::string bare = t::makeTempDir("collect-plugin"), fake = t::makeTempDir("collect-fake");
    fs::copy_file(t::binDir() + "/ipmisel.so", bare + "/ipmisel.so");
    std::ofstream(fake + "/ipmisel.so") << "not a library";
    std::ofstream(fake + "/ipmisel.INI") << "";
    auto sim = [](const char* name, const char* content) {
        return std::vector<std::string>{"--sim", content ? t::writeTempFile(name, content)
                                                         : t::makeTempDir() + "/" + name};
    };
    [[maybe_unused]] const std::vector<std::string> lan = {"--host", "127.0.0.1:1", "--user",
                                                           "a",      "--timeout",   "1"};
    const char* record15 =
        R"({"nodes": [{"sel": {"records": ["00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E"]}}]})";
    struct Case {
        std::vector<std::string> args;
        int code;
        std::string words;
        std::string env = "";
    } cases[] = {
        {{"--format", "xml"}, kExitUsage, "(see ipmisel-collect --help)"},
        // Plug-in and output problems, on the demo scenario.
        {{"--plugin", "/none/ipmisel.so"}, kExitPlugin, "plug-in not found: /none/ipmisel.so"},
        {{"--plugin", bare + "/ipmisel.so"}, kExitPlugin, "looked for " + bare + "/ipmisel.INI"},
        {{"--plugin", fake + "/ipmisel.so"}, kExitPlugin, "cannot load the plug-in"},
        {{"--out", "/none/o.txt"}, kExitOutput, "/none/o.txt"},
        // Broken scenarios: the simulator's account names the file, the place
        // and the problem.
        {sim("bad.json", "{ \"nodes\": [ }"), kExitScenario,
         "bad.json: parse error at line 1, column 14"},
        {sim("rec.json", record15), kExitScenario, "rec.json: nodes[0].sel.records[0]: 15 bytes"},
        {sim("absent.json", nullptr), kExitScenario, "absent.json: cannot open"},
#if !IPMISEL_HAVE_FREEIPMI
        // Without the real-BMC transport the option is understood and refused.
        {{"--inband"}, kExitTransport, "not available in this build"},
#else
        // A LAN login needs a password source, but an empty password will do:
        // nothing listens on UDP port 1, so that login waits out its timeout.
        {lan, kExitUsage,
         "no password given: --host needs --password-file FILE or the IPMISEL_PASSWORD "
         "environment variable",
         "env -u IPMISEL_PASSWORD"},
        {lan, kExitTransport, "the BMC did not answer within 1 s", "env IPMISEL_PASSWORD="},
#endif
    };
    for (Case& c : cases) {
        if (c.code == kExitPlugin || c.code == kExitOutput) {
            c.args.insert(c.args.begin(), {"--sim", demo()});
        }
        Outcome r = run(c.args, c.env);
        EXPECT_EQ(r.code, c.code) << c.words;
        // One line, our prefix, and the given words in it.
        EXPECT_TRUE(r.err.starts_with("ipmisel-collect: ") &&
                    r.err.find('\n') == r.err.size() - 1 &&
                    r.err.find(c.words) != std::string::npos)
            << r.err;
        EXPECT_EQ(r.out, "");
    }
}

TEST(Program, DemoScenarioAsJsonlWithTheLogThenAsATableWithAQuietLog) {
    NEED_PROGRAM();
    // With nothing given and no kernel IPMI device, the bundled demo is used.
    Environment env;
    bool device = !kernelIpmiDevice(env).empty();
    std::string dir = t::makeTempDir("collect-out");
    std::vector<std::string> args = {"--log", dir + "/log.txt"};
    if (device) {
        args.insert(args.end(), {"--sim", demo()});
    }
    Outcome r = run(args);
    ASSERT_EQ(r.code, 0) << r.err;
    // Quiet apart from that notice: no terminal, so no progress either.
    EXPECT_EQ(r.err, device ? ""
                            : "ipmisel-collect: no BMC given and no kernel IPMI device found; "
                              "using the demo scenario " +
                                  demo() + "\n");

    std::map<std::string, std::vector<int>> idsByNode;
    int readings = 0;
    std::istringstream out(r.out);
    for (std::string line; std::getline(out, line);) {
        auto j = nlohmann::json::parse(line); // throws on a malformed line
        if (j.at("class") != "OXASG_IPMILogRecord") {
            continue;
        }
        const auto& p = j.at("properties");
        idsByNode[p["SourceNode"]].push_back(std::stoi(p["RecordID"].get<std::string>()));
        EXPECT_EQ(p["RawData"].size(), 16u);
        // No marker left unfilled ("%s", "%02X", "%.2f"); "100.00% unspecified" is none.
        std::string message = p["Message"];
        EXPECT_FALSE(message.empty());
        for (size_t at = message.find('%'); at != std::string::npos;
             at = message.find('%', at + 1)) {
            size_t end = message.find_first_not_of("-+#0123456789.l", at + 1);
            EXPECT_TRUE(end == std::string::npos || !std::isalpha(uint8_t(message[end])))
                << message;
        }
        readings += message.find("Trigger reading: 500.00 RPM.") != std::string::npos ||
                    message.find("Trigger reading: 1180.00 Watts.") != std::string::npos;
    }
    // Every record once, in order, except the first node's record from
    // generator 41h; the second node's IDs continue after the 57 entries the
    // first one reported. The threshold events carry readings with units.
    std::vector<int> node1, node2;
    for (int id = 1; id <= 74; ++id) {
        (id <= 57 ? node1 : node2).push_back(id);
    }
    std::erase(node1, 27);
    EXPECT_EQ(idsByNode["1"], node1);
    EXPECT_EQ(idsByNode["2"], node2);
    EXPECT_EQ(readings, 2);
    // One record per log call: the severity digit, a space, the text.
    std::string text = readFile(dir + "/log.txt");
    EXPECT_TRUE(text.starts_with("3 Getting IPMI SEL data.\n")) << text.substr(0, 80);
    EXPECT_NE(text.find("\n4 "), std::string::npos);

    r = run({"--sim", demo(), "--format", "table", "--out", dir + "/table.txt", "--log",
             dir + "/quiet.txt", "--log-level", "1"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_TRUE(readFile(dir + "/table.txt").starts_with("Node | Record | Time stamp"));
    std::string quiet = "\n" + readFile(dir + "/quiet.txt"); // severities 0 and 1 only
    for (const char* above : {"\n2 ", "\n3 ", "\n4 "})
        EXPECT_EQ(quiet.find(above), std::string::npos) << quiet;
}

// A build tree has the plug-in beside the program and the demo in the source
// tree; an installed program has them in ../lib/ipmisel and ../share/ipmisel.
TEST(Paths, BuildTreeAndInstalledPlaces) {
    std::string root = t::makeTempDir("collect-layout");
    Environment env;
    env.exePath = root + "/bin/ipmisel-collect";
    env.sourceDir = root + "/src";
    std::vector<std::string> looked;
    EXPECT_EQ(findDemoScenario(env, &looked), "");
    EXPECT_EQ(looked, (std::vector<std::string>{root + "/share/ipmisel/scenarios/demo.json",
                                                root + "/src/scenarios/demo.json"}));
    looked.clear();
    EXPECT_EQ(pluginPathFor(Options{}, env, &looked), "");
    EXPECT_EQ(looked, (std::vector<std::string>{root + "/bin/ipmisel.so",
                                                root + "/lib/ipmisel/ipmisel.so"}));

    // Each place is taken once it exists; the installed demo wins over the
    // source tree's, the plug-in beside the program over the installed one.
    for (std::string f : {"/src/scenarios/demo.json", "/share/ipmisel/scenarios/demo.json",
                          "/lib/ipmisel/ipmisel.so", "/bin/ipmisel.so"}) {
        fs::create_directories(fs::path(root + f).parent_path());
        std::ofstream(root + f) << "{}";
        std::string found =
            f.ends_with(".so") ? pluginPathFor(Options{}, env) : findDemoScenario(env);
        EXPECT_EQ(found, root + f);
    }
    Options given;
    given.pluginPath = "/none/ipmisel.so";
    EXPECT_EQ(pluginPathFor(given, env), "/none/ipmisel.so");
}

} // namespace
