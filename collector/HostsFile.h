// Naming many servers: host ranges ("bmc[1-64]", "bmc[001-120].dc1",
// "bmc[1,3,5-7]") and the hosts file, one server per line. Pure text
// handling apart from readHostsFile, so the tests can call it directly.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "collector/Options.h"

namespace ipmisel::collector {

// The hosts a text names: every bracket group of numbers expanded, in order,
// leading zeros of a bound kept as the width of its numbers; several groups
// multiply out, the last one counting fastest. A bracket holding a ':' is an
// IPv6 address ("[::1]:623") and stays. Text without a range is itself.
// Empty and `error` set (one line, naming the text) when the range is broken.
std::vector<std::string> expandHostRange(const std::string& text, std::string* error);

// A BMC node's address: NAME, NAME:PORT, [V6ADDR] or [V6ADDR]:PORT; a bare
// address with several colons is IPv6 without a port. `why` gets the problem
// alone, without the text.
std::optional<BmcHost> parseNodeAddress(const std::string& text, std::string* why);

// The servers a list of node texts names, as the nodes of one line of a hosts
// file or the --host values of one command line: each text is expanded, all
// of them must give as many hosts, and the i-th server takes the i-th host of
// each. A server is named after its first node as written. Empty and `error`
// set when a text is unusable.
std::vector<Server> serversFromNodes(const std::vector<std::string>& nodes, std::string* error);

struct HostsFile {
    std::vector<Server> servers;
    std::string error; // non-empty: unusable; one line naming the file and line
};

// One server a line: its BMC nodes as comma-separated host[:port] (ranges
// allowed), or "sim:PATH" for a scenario, PATH taken relative to `baseDir`
// unless absolute. '#' starts a comment that runs to the end of the line;
// blank lines are skipped. `name` is what errors call the file.
HostsFile parseHostsFile(std::string_view text, const std::string& name,
                         const std::string& baseDir);

// The file at `path` ("-": standard input, scenario paths then relative to
// the working folder).
HostsFile readHostsFile(const std::string& path);

} // namespace ipmisel::collector
