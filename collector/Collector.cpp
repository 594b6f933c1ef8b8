#include "collector/Collector.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "collector/LogFile.h"
#include "collector/Progress.h"
#include "collector/Writers.h"
#include "host/runtime.h"
#include "host/sim/SimBmc.h"

namespace ipmisel::collector {

namespace fs = std::filesystem;

namespace {

constexpr const char kPluginFile[] = "ipmisel.so";
constexpr const char kMessageFile[] = "ipmisel.INI";
constexpr uint32_t kProcessAttach = 1;
// The marked-up form of a core-log notice; class 101 carries the same words
// as plain text, which is what a terminal wants.
constexpr uint32_t kMarkedUpNotice = 100;

using AttachFn = int (*)(void*, uint32_t, void*);

// Restores an empty host configuration on every way out, so no sink keeps
// pointing at this run's streams and writers.
struct HostReset {
    ~HostReset() { host::configure(host::Config{}); }
};

fs::path exeFolder(const Environment& env) {
    return env.exePath.empty() ? fs::path(".") : fs::path(env.exePath).parent_path();
}

// One line on stderr, prefixed with the program's name.
struct ErrorLine {
    const Environment& env;
    std::ostream& err;
    int operator()(int code, const std::string& text) const {
        err << env.program << ": " << text << '\n';
        return code;
    }
};

// Where a real BMC would be reached. No real transport is built in yet: the
// options are understood, and refused here with a clear word.
int realBmcUnavailable(const Options& options, const ErrorLine& fail) {
    std::string what = options.inband ? "--inband" : !options.hosts.empty() ? "--host" : "--record";
    return fail(kExitTransport, what + " is not available in this build");
}

} // namespace

std::string pluginPathFor(const Options& options, const Environment& env) {
    if (options.pluginPath) {
        return *options.pluginPath;
    }
    return (exeFolder(env) / kPluginFile).string();
}

std::string findDemoScenario(const Environment& env, std::vector<std::string>* looked) {
    std::vector<fs::path> candidates = {exeFolder(env) / ".." / "scenarios" / "demo.json"};
    if (!env.sourceDir.empty()) {
        candidates.push_back(fs::path(env.sourceDir) / "scenarios" / "demo.json");
    }
    for (const fs::path& p : candidates) {
        fs::path normal = p.lexically_normal();
        if (looked) {
            looked->push_back(normal.string());
        }
        std::error_code ec;
        if (fs::is_regular_file(normal, ec)) {
            return normal.string();
        }
    }
    return {};
}

std::string kernelIpmiDevice(const Environment& env) {
    for (const std::string& device : env.ipmiDevices) {
        std::error_code ec;
        if (fs::exists(device, ec)) {
            return device;
        }
    }
    return {};
}

std::string messageFileFor(const std::string& pluginPath) {
    return (fs::path(pluginPath).parent_path() / kMessageFile).string();
}

const NOXAQSV20::fdrPluginCallbacks* loadPlugin(const std::string& path, std::string* error) {
    auto fail = [&](const std::string& text) -> const NOXAQSV20::fdrPluginCallbacks* {
        if (error) {
            *error = text;
        }
        return nullptr;
    };
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) {
        return fail("plug-in not found: " + path);
    }
    std::string absolute = fs::absolute(path, ec).lexically_normal().string();
    if (ec) {
        absolute = path;
    }
    // The handle stays open for the life of the process: the plug-in's code may
    // still be on the call stack of the host's exit-time logging.
    void* handle = ::dlopen(absolute.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* why = ::dlerror();
        return fail("cannot load the plug-in " + absolute + ": " + (why ? why : "unknown reason"));
    }
    auto attach = reinterpret_cast<AttachFn>(::dlsym(handle, "PluginAttach"));
    if (attach == nullptr) {
        return fail(absolute + " is not an ipmisel plug-in (no PluginAttach entry)");
    }
    host::setLoadedPluginPath(absolute);
    host::clearRegistration();
    if (attach(handle, kProcessAttach, nullptr) == 0) {
        return fail("the plug-in " + absolute +
                    " refused to load (its registration with the host failed)");
    }
    const NOXAQSV20::fdrPluginCallbacks* callbacks = host::registeredCallbacks();
    if (callbacks == nullptr || callbacks->initialize == nullptr || callbacks->collect == nullptr ||
        callbacks->terminate == nullptr) {
        return fail("the plug-in " + absolute + " did not register its callbacks");
    }
    return callbacks;
}

int runCollector(const Options& options, const Environment& env, std::ostream& out,
                 std::ostream& err) {
    ErrorLine fail{env, err};

    if (options.wantsRealBmc() || options.recordFile) {
        return realBmcUnavailable(options, fail);
    }

    // Installation first: a missing plug-in or message file makes everything
    // else pointless.
    const std::string pluginPath = pluginPathFor(options, env);
    {
        std::error_code ec;
        if (!fs::is_regular_file(pluginPath, ec)) {
            return fail(kExitPlugin, "plug-in not found: " + pluginPath);
        }
        std::string messages = messageFileFor(pluginPath);
        if (!fs::is_regular_file(messages, ec)) {
            return fail(kExitPlugin,
                        "the plug-in's message file is missing: looked for " + messages);
        }
    }

    // Where the data comes from.
    std::string scenarioPath;
    if (options.simFile) {
        scenarioPath = *options.simFile;
    } else {
        std::vector<std::string> looked;
        scenarioPath = findDemoScenario(env, &looked);
        std::string device = kernelIpmiDevice(env);
        if (scenarioPath.empty()) {
            std::string places;
            for (const auto& p : looked) {
                places += (places.empty() ? "" : ", ") + p;
            }
            return fail(kExitScenario,
                        "no BMC given and the demo scenario is missing (looked in " + places + ")");
        }
        if (device.empty()) {
            err << env.program << ": no BMC given and no kernel IPMI device found; using the "
                << "demo scenario " << scenarioPath << '\n';
        } else {
            err << env.program << ": " << device
                << " exists but this build cannot use it; using the demo scenario " << scenarioPath
                << " instead\n";
        }
    }
    host::Config config;
    try {
        sim::Scenario scenario = sim::loadScenarioFile(scenarioPath);
        sim::applyScenario(scenario, config);
    } catch (const sim::ScenarioError& e) {
        return fail(kExitScenario, e.what());
    } catch (const std::exception& e) {
        return fail(kExitScenario, scenarioPath + ": " + e.what());
    }

    // Outputs, before any work is done.
    std::ofstream outFile;
    std::ostream* sink = &out;
    bool toTerminal = env.stdoutIsTerminal;
    if (options.outFile) {
        outFile.open(*options.outFile, std::ios::out | std::ios::trunc | std::ios::binary);
        if (!outFile) {
            return fail(kExitOutput,
                        "cannot write " + *options.outFile + ": " + std::strerror(errno));
        }
        sink = &outFile;
        toTerminal = false;
    }
    LogFile logFile;
    if (options.logFile) {
        std::string error;
        if (!logFile.open(*options.logFile, &error)) {
            return fail(kExitOutput, error);
        }
    }

    Format format = options.format.value_or(toTerminal ? Format::Table : Format::Jsonl);
    auto writer = makeWriter(format, *sink, toTerminal ? env.terminalWidth : 120);
    ProgressDisplay progress(err, env.stderrIsTerminal);

    for (size_t i = 0; i < config.nodes.size(); ++i) {
        if (config.nodes[i]) {
            config.nodes[i] = std::make_shared<CountingTransport>(config.nodes[i],
                                                                  static_cast<int>(i), &progress);
        }
    }
    config.instanceSink = [&](const host::Instance& instance) {
        if (toTerminal) {
            progress.clear(); // the table and the progress line share the terminal
        }
        writer->write(instance);
    };
    if (options.logFile) {
        config.logSink = [&](int severity, const std::string& text) {
            logFile.write(severity, text);
        };
    }
    config.logLevel = options.logLevel.value_or(4);
    config.coreLogSink = [&](uint32_t messageClass, const std::string& text) {
        if (messageClass == kMarkedUpNotice) {
            return;
        }
        progress.clear();
        err << text;
        if (text.empty() || text.back() != '\n') {
            err << '\n';
        }
    };

    HostReset reset;
    host::configure(std::move(config));

    std::string error;
    const NOXAQSV20::fdrPluginCallbacks* plugin = loadPlugin(pluginPath, &error);
    if (plugin == nullptr) {
        return fail(kExitPlugin, error);
    }

    std::vector<std::string> classes = options.effectiveClasses();
    std::vector<const char*> classNames;
    for (const auto& c : classes) {
        classNames.push_back(c.c_str());
    }
    NOXAQSV20::EQSVStatusCode status = NOXAQSV20::QSV_SUCCESS;
    try {
        plugin->initialize(host::hostCallbacks());
        status = plugin
                     ->collect(host::hostCallbacks(), host::outputHandle(), classNames.data(),
                               static_cast<int32_t>(classNames.size()))
                     .GetCode();
        plugin->terminate();
    } catch (const std::exception& e) {
        progress.clear();
        logFile.close();
        return fail(kExitFailure, std::string("the plug-in failed: ") + e.what());
    }
    progress.clear();
    writer->finish();
    sink->flush();

    int code = kExitOk;
    if (!*sink) {
        code =
            fail(kExitOutput, "writing " + options.outFile.value_or("standard output") + " failed");
    }
    if (!logFile.close()) {
        code = fail(kExitOutput, "writing the log file " + *options.logFile + " failed");
    }
    if (status != NOXAQSV20::QSV_SUCCESS) {
        return fail(kExitFailure, "the plug-in reported status " + std::to_string(status));
    }
    if (code == kExitOk && host::instancesCommitted() == 0) {
        err << env.program << ": the plug-in reported nothing"
            << (options.logFile ? " (its log may say why)" : " (--log FILE shows why)") << '\n';
    }
    return code;
}

int runCommandLine(const std::vector<std::string>& args, const Environment& env, std::ostream& out,
                   std::ostream& err) {
    ParsedOptions parsed = parseOptions(args);
    if (!parsed.error.empty()) {
        err << env.program << ": " << parsed.error << " (see " << env.program << " --help)\n";
        return kExitUsage;
    }
    switch (parsed.options.action) {
    case Options::Action::Help:
        out << usageText(env.program);
        return kExitOk;
    case Options::Action::Version:
        out << env.program << " " << env.version << '\n';
        return kExitOk;
    case Options::Action::Collect:
        break;
    }
    return runCollector(parsed.options, env, out, err);
}

} // namespace ipmisel::collector
