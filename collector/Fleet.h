// Many servers from one command. One collection is one server in one process,
// as the framework runs the plug-in (its module state belongs to one process
// and one collection at a time), so each server is collected by this program
// run again with that server's options, up to --fanout of them at once. The
// parent reads the children's standard output and error through pipes and
// writes whole lines only, each tagged with its server.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "collector/Collector.h"
#include "collector/Options.h"

namespace ipmisel::collector {

// The servers a fleet's options name: the hosts file's, the --host ranges',
// or the one server of --host or --sim. Empty and `error` set (one line) when
// the hosts file cannot be used.
std::vector<Server> fleetServers(const Options& options, std::string* error);

// The command line (program name left out) that collects one server on its
// own in `format`.
std::vector<std::string> childArguments(const Options& options, const Server& server,
                                        Format format);

// Tags one server's output as it streams past, whole lines at a time: a jsonl
// object gains "server" as its first member, a csv record a leading column
// ("server" in header rows); table lines pass unchanged (the merger puts a
// "Server NAME" line above the server's table). Lines come complete, new line
// included; a csv field quoted across lines is followed to its end.
class ServerTagger {
  public:
    ServerTagger(Format format, std::string server);
    std::string tag(std::string_view line);

  private:
    Format format_;
    std::string jsonPrefix_; // {"server":"NAME",
    std::string csvCell_;    // NAME as a csv field, then ','
    bool inQuotes_ = false;  // inside a quoted csv field that spans lines
    bool atHeader_ = true;   // the next csv record is a section's header row
};

// "servers: D done, F failed, L left"
std::string fleetProgressText(size_t done, size_t failed, size_t left);

// The exit code of a fleet from its servers' codes in list order: 0 when all
// succeeded, kExitSomeServers when some did, otherwise the first one's code.
int fleetExitCode(const std::vector<int>& codes);

// Collects every server, `options.fanout` (default 1) at a time, by running
// env.exePath. Returns the exit code.
int runFleet(const Options& options, const Environment& env, std::ostream& out, std::ostream& err);

} // namespace ipmisel::collector
