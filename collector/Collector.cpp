#include "collector/Collector.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "collector/Fleet.h"
#include "collector/LogFile.h"
#include "collector/Progress.h"
#include "collector/Writers.h"
#include "host/runtime.h"
#include "host/sim/Recording.h"
#include "host/sim/SimBmc.h"
#if IPMISEL_HAVE_FREEIPMI
#include "host/freeipmi/FreeIpmiTransport.h"
#include "host/freeipmi/SdrReadSplitter.h"
#endif

namespace ipmisel::collector {

namespace fs = std::filesystem;

namespace {

constexpr const char kPluginFile[] = "ipmisel.so";
constexpr const char kMessageFile[] = "ipmisel.INI";
// Where an installed program's plug-in and data lie, seen from the program's
// own folder; the build defines them from its install layout. A build tree
// has the plug-in beside the program and the demo in the source tree instead.
#ifndef IPMISEL_INSTALLED_PLUGIN_DIR
#define IPMISEL_INSTALLED_PLUGIN_DIR "../lib/ipmisel"
#endif
#ifndef IPMISEL_INSTALLED_DATA_DIR
#define IPMISEL_INSTALLED_DATA_DIR "../share/ipmisel"
#endif
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

// The first of `candidates` that is a file, normalised; empty when none is.
// `looked` receives every place tried.
std::string firstFile(const std::vector<fs::path>& candidates, std::vector<std::string>* looked) {
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

std::string joined(const std::vector<std::string>& places) {
    std::string text;
    for (const auto& p : places) {
        text += (text.empty() ? "" : ", ") + p;
    }
    return text;
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

// The environment variable that may hold the LAN password. A variable keeps
// it out of the process listing, where an argument would show.
constexpr const char kPasswordVariable[] = "IPMISEL_PASSWORD";

// One line per node that cannot be reached or stops answering, printed when it
// happens so it lands between the node's output and the next node's.
struct NodeErrors {
    const Environment& env;
    std::ostream& err;
    ProgressDisplay* progress = nullptr;
    int count = 0;
    void report(size_t node, const std::string& where, const std::string& what) {
        ++count;
        if (progress) {
            progress->clear();
        }
        err << env.program << ": node " << node + 1 << " (" << where << "): " << what << '\n';
    }
};

#if IPMISEL_HAVE_FREEIPMI
using Session = std::shared_ptr<freeipmi::FreeIpmiTransport>;

// Every session is closed when the collection ends, however it ends.
struct SessionCloser {
    std::vector<Session>& sessions;
    ~SessionCloser() {
        for (auto& s : sessions) {
            s->close();
        }
    }
};

// The real BMCs the options name, one node each, in front of each the helper
// for BMCs that cap Get SDR answers. Returns an exit code other than kExitOk
// when the options cannot be used; `fail` has printed why.
int realBmcConfig(const Options& options, const ErrorLine& fail, NodeErrors& errors,
                  host::Config& config, std::vector<Session>& sessions) {
    const bool lan = !options.hosts.empty();
    std::string error;
    auto flags = freeipmi::workaroundFlags(options.workarounds, lan, &error);
    if (!flags) {
        return fail(kExitUsage, error);
    }
    auto reporter = [&errors](size_t node, const std::string& where) {
        return
            [&errors, node, where](const std::string& what) { errors.report(node, where, what); };
    };
    if (lan) {
        freeipmi::LanSettings base;
        base.user = options.user;
        if (options.passwordFile) {
            base.password = freeipmi::readPasswordFile(*options.passwordFile, &error);
            if (!base.password) {
                return fail(kExitUsage, error);
            }
        } else if (const char* p = std::getenv(kPasswordVariable)) {
            base.password = p;
        } else {
            // Said now rather than left to the BMC: without a password the
            // login fails after a network round trip, with words that do not
            // say a password was missing. An empty file or variable still
            // gives the null password some accounts have.
            return fail(kExitUsage, "no password given: --host needs --password-file FILE or the " +
                                        std::string(kPasswordVariable) +
                                        " environment variable (an empty one for a user without "
                                        "a password)");
        }
        base.cipherSuite = static_cast<uint8_t>(options.cipherSuite.value_or(3));
        base.privilege = *freeipmi::privilegeLevel(options.privilege.value_or("admin"));
        base.workaroundFlags = *flags;
        base.timing.timeoutMs = static_cast<unsigned>(options.timeoutSeconds.value_or(10)) * 1000;
        base.timing.retries = static_cast<unsigned>(options.retries.value_or(2));
        for (const BmcHost& h : options.hosts) {
            freeipmi::LanSettings s = base;
            s.host = h.host;
            s.port = h.port;
            const size_t node = sessions.size();
            const std::string where =
                "lanplus " + freeipmi::FreeIpmiTransport::hostArgument(h.host, h.port);
            sessions.push_back(
                freeipmi::FreeIpmiTransport::lan(std::move(s), reporter(node, where)));
        }
        // Over the LAN the local machine's SMBIOS tables and drivers say nothing
        // about the BMC: the plug-in skips those checks when the LAN flag is set.
        config.lan = true;
        config.driverPresent = true;
    } else {
        freeipmi::InbandSettings s;
        s.workaroundFlags = *flags;
        sessions.push_back(freeipmi::FreeIpmiTransport::inband(s, reporter(0, "in-band")));
        // The driver question is answered by trying it: the plug-in asks it
        // before it sends anything.
        config.lan = false;
        config.driverPresent = sessions.front()->open();
        config.smbios = host::smbiosFromSystem();
    }
    for (const Session& session : sessions) {
        config.nodes.push_back(std::make_shared<freeipmi::SdrReadSplitter>(session));
    }
    return kExitOk;
}
#endif

} // namespace

std::string pluginPathFor(const Options& options, const Environment& env,
                          std::vector<std::string>* looked) {
    if (options.pluginPath) {
        if (looked) {
            looked->push_back(*options.pluginPath);
        }
        return *options.pluginPath;
    }
    return firstFile(
        {exeFolder(env) / kPluginFile, exeFolder(env) / IPMISEL_INSTALLED_PLUGIN_DIR / kPluginFile},
        looked);
}

std::string findDemoScenario(const Environment& env, std::vector<std::string>* looked) {
    std::vector<fs::path> candidates = {exeFolder(env) / IPMISEL_INSTALLED_DATA_DIR / "scenarios" /
                                        "demo.json"};
    if (!env.sourceDir.empty()) {
        candidates.push_back(fs::path(env.sourceDir) / "scenarios" / "demo.json");
    }
    return firstFile(candidates, looked);
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

#if !IPMISEL_HAVE_FREEIPMI
    if (options.wantsRealBmc()) {
        return fail(kExitTransport, std::string(options.inband ? "--inband" : "--host") +
                                        " is not available in this build");
    }
#endif

    // Installation first: a missing plug-in or message file makes everything
    // else pointless.
    std::vector<std::string> pluginPlaces;
    const std::string pluginPath = pluginPathFor(options, env, &pluginPlaces);
    {
        std::error_code ec;
        if (pluginPath.empty() || !fs::is_regular_file(pluginPath, ec)) {
            return fail(kExitPlugin, "plug-in not found: " + joined(pluginPlaces));
        }
        std::string messages = messageFileFor(pluginPath);
        if (!fs::is_regular_file(messages, ec)) {
            return fail(kExitPlugin,
                        "the plug-in's message file is missing: looked for " + messages);
        }
    }

    // Where the data comes from.
    NodeErrors nodeErrors{env, err};
    host::Config config;
    std::string scenarioPath;
#if IPMISEL_HAVE_FREEIPMI
    std::vector<Session> sessions;
    SessionCloser closer{sessions};
    bool real = options.wantsRealBmc();
    if (!real && !options.simFile) {
        if (std::string device = kernelIpmiDevice(env); !device.empty()) {
            err << env.program << ": no BMC given; using the local BMC through " << device << '\n';
            real = true;
        }
    }
    if (real) {
        if (int code = realBmcConfig(options, fail, nodeErrors, config, sessions);
            code != kExitOk) {
            return code;
        }
    }
#else
    const bool real = false;
#endif
    if (real) {
        // configured above
    } else if (options.simFile) {
        scenarioPath = *options.simFile;
    } else {
        std::vector<std::string> looked;
        scenarioPath = findDemoScenario(env, &looked);
        std::string device = kernelIpmiDevice(env);
        if (scenarioPath.empty()) {
            return fail(kExitScenario, "no BMC given and the demo scenario is missing (looked in " +
                                           joined(looked) + ")");
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
    if (!real) {
        try {
            // The nodes' contents move into the simulated BMCs, which need
            // not keep the traffic: a replay of a full SEL is long.
            for (const auto& bmc :
                 sim::applyScenario(sim::loadScenarioFile(scenarioPath), config)) {
                bmc->keepTraffic(false);
            }
        } catch (const sim::ScenarioError& e) {
            return fail(kExitScenario, e.what());
        } catch (const std::exception& e) {
            return fail(kExitScenario, scenarioPath + ": " + e.what());
        }
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

    // The recording is written after the collection; a file that cannot be
    // written is found out before the BMC is troubled.
    if (options.recordFile) {
        std::ofstream probe(*options.recordFile, std::ios::out | std::ios::trunc);
        if (!probe) {
            return fail(kExitOutput,
                        "cannot write " + *options.recordFile + ": " + std::strerror(errno));
        }
    }

    Format format = options.format.value_or(toTerminal ? Format::Table : Format::Jsonl);
    auto writer = makeWriter(format, *sink, toTerminal ? env.terminalWidth : 120);
    ProgressDisplay progress(err, env.stderrIsTerminal);
    nodeErrors.progress = &progress;

    // The recorder sees what the plug-in sees, so a replay of its file gives
    // the plug-in the same answers (and the same output).
    std::vector<std::shared_ptr<sim::RecordingTransport>> recorders;
    if (options.recordFile) {
        recorders = sim::recordNodes(config);
    }
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

    // Written on every way out of the collection, so a BMC that made the
    // plug-in fail can be replayed too.
    auto saveRecording = [&]() {
        if (!options.recordFile) {
            return true;
        }
        try {
            sim::writeRecording(*options.recordFile, recorders, &host::config());
            return true;
        } catch (const std::exception& e) {
            fail(kExitOutput, e.what());
            return false;
        }
    };

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
        saveRecording();
        return fail(kExitFailure, std::string("the plug-in failed: ") + e.what());
    }
    progress.clear();
    writer->finish();
    sink->flush();

    int code = kExitOk;
    if (!saveRecording()) {
        code = kExitOutput;
    }
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
    if (code == kExitOk && nodeErrors.count > 0) {
        // Each unreachable node has had its line already.
        return kExitTransport;
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
    if (parsed.options.isFleet()) {
        return runFleet(parsed.options, env, out, err);
    }
    return runCollector(parsed.options, env, out, err);
}

} // namespace ipmisel::collector
