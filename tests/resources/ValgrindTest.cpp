// The demo collection under valgrind's memcheck, as a user runs it: the
// program, the host library, the plug-in opened with dlopen and the simulated
// BMCs. No read or write outside a block, no use of an unset value, no
// definite leak; "still reachable" blocks (the C++ runtime's emergency pool,
// function-local statics) are what every program keeps at exit.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/e2e/Processes.h"
#include "tests/resources/Resources.h"

namespace ipmisel::resources {
namespace {

using e2e::kCollector;
using e2e::readFile;

TEST(Valgrind, DemoCollectionHasNoInvalidAccessAndNoDefiniteLeak) {
    if (kSanitized) {
        GTEST_SKIP() << "valgrind cannot run a program built with AddressSanitizer";
    }
    if (std::system("command -v valgrind >/dev/null 2>&1") != 0) {
        GTEST_SKIP()
            << "valgrind not found (Debian package valgrind; scripts/setup.sh installs it)";
    }
    const std::string dir = test::makeTempDir("ipmisel-valgrind");
    const std::string demo = test::sourceDir() + "/scenarios/demo.json";
    const std::vector<std::string> collect = {kCollector, "--sim", demo,
                                              "--format", "jsonl", "--out"};
    std::vector<std::string> args = {"valgrind",
                                     "--tool=memcheck",
                                     "--error-exitcode=99",
                                     "--leak-check=full",
                                     "--errors-for-leak-kinds=definite",
                                     "--track-origins=yes",
                                     "--log-file=" + dir + "/valgrind.txt"};
    args.insert(args.end(), collect.begin(), collect.end());
    args.push_back(dir + "/under-valgrind.jsonl");
    // In UTC like the run it is compared with below, which runProgram makes.
    const auto started = std::chrono::steady_clock::now();
    const pid_t pid = e2e::spawn(args, {{"TZ", "UTC"}}, dir + "/out", dir + "/err");
    const int code = e2e::reap(pid, std::chrono::seconds(120));
    const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started);
    const std::string report = readFile(dir + "/valgrind.txt");
    ASSERT_EQ(code, 0) << readFile(dir + "/err") << report;
    // The exit code says it; the summary says valgrind ran the program.
    EXPECT_NE(report.find("ERROR SUMMARY: 0 errors"), std::string::npos) << report;
    // Its budget in the suite; about 6 s on a quiet two-core machine.
    EXPECT_LT(seconds.count(), 60) << "valgrind took " << seconds.count() << " s";

    // It collected what a run without valgrind collects, byte for byte: a
    // value that depends on memory never set would show here too. The demo's
    // two BMCs hold 57 and 17 SEL entries, one of them another controller's.
    e2e::RunResult plain = e2e::runProgram({kCollector, "--sim", demo, "--format", "jsonl"});
    ASSERT_EQ(plain.code, 0) << plain.err;
    const std::string output = readFile(dir + "/under-valgrind.jsonl");
    EXPECT_EQ(output, plain.out);
    size_t logRecords = 0;
    for (size_t at = 0; (at = output.find("\"class\":\"OXASG_IPMILogRecord\"", at)) != e2e::npos;
         ++at) {
        ++logRecords;
    }
    EXPECT_EQ(logRecords, 73u);
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
}

} // namespace
} // namespace ipmisel::resources
