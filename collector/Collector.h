// The framework stand-in: sets the host up, loads the plug-in, runs one
// collection and writes what comes out. Everything that depends on the
// process (its own path, terminals, the kernel's devices) comes in through
// Environment, so the tests can run it in-process.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "collector/Options.h"
#include "host/framework.h"

namespace ipmisel::collector {

struct Environment {
    std::string program = "ipmisel-collect"; // prefix of every stderr line
    std::string version = "unknown";
    std::string exePath;   // this program's file; the plug-in and demo are found from it
    std::string sourceDir; // the source tree, where the demo scenario lives before install
    std::vector<std::string> ipmiDevices = {"/dev/ipmi0", "/dev/ipmi/0", "/dev/ipmidev/0"};
    bool stdoutIsTerminal = false;
    bool stderrIsTerminal = false;
    size_t terminalWidth = 120;
};

// Parses, then runs. Returns the exit code.
int runCommandLine(const std::vector<std::string>& args, const Environment& env, std::ostream& out,
                   std::ostream& err);

// Runs a parsed collection; errors go to err as one line each.
int runCollector(const Options& options, const Environment& env, std::ostream& out,
                 std::ostream& err);

// The plug-in: the given path, else ipmisel.so beside the program (a build
// tree), else in the installed plug-in folder (../lib/ipmisel from the
// program's folder). Empty when neither exists; `looked` receives the places
// tried.
std::string pluginPathFor(const Options& options, const Environment& env,
                          std::vector<std::string>* looked = nullptr);

// The bundled demo scenario: scenarios/demo.json in the installed data folder
// (../share/ipmisel from the program's folder), else in the source tree the
// program was built from. Empty when neither exists; `looked` receives the
// places tried.
std::string findDemoScenario(const Environment& env, std::vector<std::string>* looked = nullptr);

// The first of env.ipmiDevices that exists, or "".
std::string kernelIpmiDevice(const Environment& env);

// Where the plug-in reads its message file: ipmisel.INI in its own folder.
std::string messageFileFor(const std::string& pluginPath);

// Opens the plug-in and lets it register with the host (which must be
// configured already). Null and `error` set (one line) when the file is
// missing, cannot be loaded, lacks the attach hook or refuses to load.
const NOXAQSV20::fdrPluginCallbacks* loadPlugin(const std::string& path, std::string* error);

} // namespace ipmisel::collector
