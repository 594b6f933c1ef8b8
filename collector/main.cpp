// ipmisel-collect: runs the ipmisel plug-in the way the diagnostics framework
// would, against a simulated or real BMC, and writes what it reports.
#include <sys/ioctl.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "collector/Collector.h"

#ifndef IPMISEL_VERSION
#define IPMISEL_VERSION "unknown"
#endif
#ifndef IPMISEL_SOURCE_DIR
#define IPMISEL_SOURCE_DIR ""
#endif

namespace {

// The program's own file, so the plug-in is found beside it wherever the user
// runs it from; argv[0] only when /proc is not there.
std::string ownPath(const char* argv0) {
    std::error_code ec;
    auto p = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (!ec) {
        return p.string();
    }
    return argv0 ? std::string(argv0) : std::string();
}

size_t terminalWidth() {
    winsize ws{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0) {
        return ws.ws_col;
    }
    return 120;
}

} // namespace

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    ipmisel::collector::Environment env;
    env.version = IPMISEL_VERSION;
    env.sourceDir = IPMISEL_SOURCE_DIR;
    env.exePath = ownPath(argc > 0 ? argv[0] : nullptr);
    env.stdoutIsTerminal = ::isatty(STDOUT_FILENO) == 1;
    env.stderrIsTerminal = ::isatty(STDERR_FILENO) == 1;
    if (env.stdoutIsTerminal) {
        env.terminalWidth = terminalWidth();
    }
    std::vector<std::string> args(argv + (argc > 0 ? 1 : 0), argv + argc);
    int code = ipmisel::collector::kExitFailure;
    try {
        code = ipmisel::collector::runCommandLine(args, env, std::cout, std::cerr);
    } catch (const std::exception& e) {
        std::cerr << env.program << ": unexpected error: " << e.what() << '\n';
    }
    std::cout.flush();
    return code;
}
