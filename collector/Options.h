// The command line of ipmisel-collect: what the user asked for, checked for
// consistency but not yet acted on (files are opened and transports made by
// the collector itself, so that parsing stays a pure function tests can call).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ipmisel::collector {

// Exit codes. Kept few and stable: scripts branch on them.
enum ExitCode : int {
    kExitOk = 0,       // collection ran (whatever the BMC had to say)
    kExitFailure = 1,  // anything unexpected, or the plug-in reported a failed collection
    kExitUsage = 2,    // bad options
    kExitScenario = 3, // the scenario file is missing or broken
    kExitPlugin = 4,   // plug-in missing, not loadable, refused to load, or no message file
    kExitOutput = 5,   // --out or --log cannot be written
    kExitTransport =
        6, // a BMC could not be reached or stopped answering (or no transport in this build)
    kExitSomeServers = 7, // a fleet: some servers failed, the others were collected
};

enum class Format { Jsonl, Table, Csv };

// The classes the plug-in's driver recognises, in the order they are
// collected when no --class is given.
const std::vector<std::string>& knownClasses();

struct BmcHost {
    std::string host;
    uint16_t port = 623;
};

// One collection: the BMC nodes of one server over the LAN, or a scenario.
struct Server {
    std::string name;           // how its output and errors are tagged
    std::vector<BmcHost> nodes; // LAN nodes, node 1 first; empty for a scenario
    std::string simFile;        // the scenario when there are no nodes
};

struct Options {
    enum class Action { Collect, Help, Version } action = Action::Collect;

    std::optional<std::string> simFile;
    std::vector<std::string> classes; // empty: every known class
    std::optional<Format> format;     // none: table on a terminal, jsonl otherwise
    std::optional<std::string> outFile;
    std::optional<std::string> logFile;
    std::optional<int> logLevel; // 0..4
    std::optional<std::string> pluginPath;

    // Real BMCs. Parsed and checked now so that scripts written today keep
    // working when the transports arrive.
    bool inband = false;
    std::vector<BmcHost> hosts;
    std::optional<std::string> user;
    std::optional<std::string> passwordFile;
    std::optional<int> cipherSuite;
    std::optional<std::string> privilege; // "user", "operator" or "admin"
    std::vector<std::string> workarounds;
    std::optional<int> timeoutSeconds; // how long one LAN request may take
    std::optional<int> retries;        // resends of a packet within that time (1-10)
    std::optional<std::string> recordFile;

    // Several servers. A --host value with a range ("bmc[1-4]") names one
    // server per host it expands to, the i-th server taking the i-th host of
    // every --host. `hostServers` holds the servers the --host values name
    // (one without a range), `hosts` all their nodes.
    std::optional<std::string> hostsFile; // "-": standard input
    std::optional<int> fanout;            // servers collected at once
    std::vector<Server> hostServers;

    bool wantsRealBmc() const { return inband || !hosts.empty(); }
    // Collected as a fleet, each server in a child process of its own, every
    // output line tagged with its server: a hosts file, a range in --host, or
    // --fanout given.
    bool isFleet() const { return hostsFile || fanout || hostServers.size() > 1; }
    // The classes to request: the given ones or every known class.
    std::vector<std::string> effectiveClasses() const;
};

struct ParsedOptions {
    Options options;
    std::string error; // non-empty: the command line is unusable; one line, no program name
};

// args excludes the program name.
ParsedOptions parseOptions(const std::vector<std::string>& args);

// "--host" value: NAME, NAME:PORT, [V6ADDR] or [V6ADDR]:PORT. A bare address
// with several colons is taken as IPv6 without a port.
std::optional<BmcHost> parseHost(const std::string& text, std::string* error);

// The --help text, generated from the same option definitions the parser uses.
std::string usageText(const std::string& program);

} // namespace ipmisel::collector
