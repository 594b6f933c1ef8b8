#include "collector/Options.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <functional>
#include <map>

namespace ipmisel::collector {

const std::vector<std::string>& knownClasses() {
    static const std::vector<std::string> classes = {"OXASG_IPMILogRecord",
                                                     "OXASG_VTXAuxDebugRecord",
                                                     "OXASG_IPMIFRU",
                                                     "OXASG_IPMIFirmwareElement",
                                                     "OXASG_CPLDFirmwareElement",
                                                     "OXASG_FPGAFirmwareElement",
                                                     "OXASG_QsvVPD",
                                                     "OXASG_AMIFirmwareElement"};
    return classes;
}

std::vector<std::string> Options::effectiveClasses() const {
    if (classes.empty()) {
        return knownClasses();
    }
    // The driver runs the classes in the order it is handed them, and the
    // debug records are matched against the log records the same collection
    // read before them: "--class OXASG_VTXAuxDebugRecord --class
    // OXASG_IPMILogRecord" would otherwise find no log record. So the given
    // classes (all known ones, checked when parsed) go in the driver's order.
    std::vector<std::string> ordered;
    for (const auto& known : knownClasses()) {
        if (std::find(classes.begin(), classes.end(), known) != classes.end()) {
            ordered.push_back(known);
        }
    }
    return ordered;
}

namespace {

// A whole decimal number within [lo, hi]; no sign, no blanks, no trailing junk.
std::optional<int> parseInt(const std::string& text, int lo, int hi) {
    if (text.empty() || text.size() > 9 ||
        !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return std::nullopt;
    }
    int value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    if (value < lo || value > hi) {
        return std::nullopt;
    }
    return value;
}

struct OptionRule {
    bool takesValue;
    // Applies the option; returns an error text or "".
    std::function<std::string(Options&, const std::string&)> apply;
};

std::string once(bool already, const std::string& name) {
    return already ? name + " given more than once" : std::string();
}

const std::map<std::string, OptionRule>& optionRules() {
    static const std::map<std::string, OptionRule> table = {
        {"--help",
         {false,
          [](Options& o, const std::string&) {
              o.action = Options::Action::Help;
              return std::string();
          }}},
        {"-h",
         {false,
          [](Options& o, const std::string&) {
              o.action = Options::Action::Help;
              return std::string();
          }}},
        {"--version",
         {false,
          [](Options& o, const std::string&) {
              if (o.action != Options::Action::Help) {
                  o.action = Options::Action::Version;
              }
              return std::string();
          }}},
        {"--sim",
         {true,
          [](Options& o, const std::string& v) {
              auto e = once(o.simFile.has_value(), "--sim");
              o.simFile = v;
              return e;
          }}},
        {"--class",
         {true,
          [](Options& o, const std::string& v) {
              const auto& known = knownClasses();
              if (std::find(known.begin(), known.end(), v) == known.end()) {
                  return "unknown class \"" + v + "\"";
              }
              // Asking twice for a class would collect it twice.
              if (std::find(o.classes.begin(), o.classes.end(), v) == o.classes.end()) {
                  o.classes.push_back(v);
              }
              return std::string();
          }}},
        {"--format",
         {true,
          [](Options& o, const std::string& v) {
              auto e = once(o.format.has_value(), "--format");
              if (v == "jsonl") {
                  o.format = Format::Jsonl;
              } else if (v == "table") {
                  o.format = Format::Table;
              } else if (v == "csv") {
                  o.format = Format::Csv;
              } else {
                  return "--format must be jsonl, table or csv, not \"" + v + "\"";
              }
              return e;
          }}},
        {"--out",
         {true,
          [](Options& o, const std::string& v) {
              auto e = once(o.outFile.has_value(), "--out");
              o.outFile = v;
              return e;
          }}},
        {"--log",
         {true,
          [](Options& o, const std::string& v) {
              auto e = once(o.logFile.has_value(), "--log");
              o.logFile = v;
              return e;
          }}},
        {"--log-level",
         {true,
          [](Options& o, const std::string& v) {
              auto e = once(o.logLevel.has_value(), "--log-level");
              o.logLevel = parseInt(v, 0, 4);
              if (!o.logLevel) {
                  return "--log-level must be a number from 0 to 4, not \"" + v + "\"";
              }
              return e;
          }}},
        {"--plugin",
         {true,
          [](Options& o, const std::string& v) {
              auto e = once(o.pluginPath.has_value(), "--plugin");
              o.pluginPath = v;
              return e;
          }}},
        {"--inband",
         {false,
          [](Options& o, const std::string&) {
              o.inband = true;
              return std::string();
          }}},
        {"--host",
         {true,
          [](Options& o, const std::string& v) {
              std::string error;
              auto host = parseHost(v, &error);
              if (!host) {
                  return error;
              }
              o.hosts.push_back(*host);
              return std::string();
          }}},
        {"--user",
         {true,
          [](Options& o, const std::string& v) {
              auto e = once(o.user.has_value(), "--user");
              o.user = v;
              return e;
          }}},
        {"--password-file",
         {true,
          [](Options& o, const std::string& v) {
              auto e = once(o.passwordFile.has_value(), "--password-file");
              o.passwordFile = v;
              return e;
          }}},
        {"--cipher-suite",
         {true,
          [](Options& o, const std::string& v) {
              auto e = once(o.cipherSuite.has_value(), "--cipher-suite");
              o.cipherSuite = parseInt(v, 0, 255);
              if (!o.cipherSuite) {
                  return "--cipher-suite must be a cipher suite number, not \"" + v + "\"";
              }
              return e;
          }}},
        {"--privilege",
         {true,
          [](Options& o, const std::string& v) {
              auto e = once(o.privilege.has_value(), "--privilege");
              // ipmitool's spelling (ADMINISTRATOR) is taken as well.
              std::string level = v;
              std::transform(level.begin(), level.end(), level.begin(),
                             [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
              if (level == "administrator") {
                  level = "admin";
              }
              if (level != "user" && level != "operator" && level != "admin") {
                  return "--privilege must be user, operator or admin, not \"" + v + "\"";
              }
              o.privilege = level;
              return e;
          }}},
        {"--workaround",
         {true,
          [](Options& o, const std::string& v) {
              o.workarounds.push_back(v);
              return std::string();
          }}},
        {"--timeout",
         {true,
          [](Options& o, const std::string& v) {
              auto e = once(o.timeoutSeconds.has_value(), "--timeout");
              o.timeoutSeconds = parseInt(v, 1, 300);
              if (!o.timeoutSeconds) {
                  return "--timeout must be a number of seconds from 1 to 300, not \"" + v + "\"";
              }
              return e;
          }}},
        {"--retries",
         {true,
          [](Options& o, const std::string& v) {
              auto e = once(o.retries.has_value(), "--retries");
              o.retries = parseInt(v, 0, 10);
              if (!o.retries) {
                  return "--retries must be a number from 0 to 10, not \"" + v + "\"";
              }
              return e;
          }}},
        {"--record",
         {true,
          [](Options& o, const std::string& v) {
              auto e = once(o.recordFile.has_value(), "--record");
              o.recordFile = v;
              return e;
          }}},
    };
    return table;
}

// Rules that concern several options at once.
std::string crossCheck(const Options& o) {
    int transports = (o.simFile ? 1 : 0) + (o.inband ? 1 : 0) + (o.hosts.empty() ? 0 : 1);
    if (transports > 1) {
        return "--sim, --inband and --host exclude each other";
    }
    if (o.hosts.empty()) {
        // These only mean something to a BMC reached over the network; silently
        // ignoring them would hide a mistyped command line.
        const char* lanOnly = o.user             ? "--user"
                              : o.passwordFile   ? "--password-file"
                              : o.cipherSuite    ? "--cipher-suite"
                              : o.privilege      ? "--privilege"
                              : o.timeoutSeconds ? "--timeout"
                              : o.retries        ? "--retries"
                                                 : nullptr;
        if (lanOnly) {
            return std::string(lanOnly) + " needs --host";
        }
    }
    return {};
}

} // namespace

std::optional<BmcHost> parseHost(const std::string& text, std::string* error) {
    auto fail = [&](const std::string& why) -> std::optional<BmcHost> {
        if (error) {
            *error = "--host \"" + text + "\": " + why;
        }
        return std::nullopt;
    };
    BmcHost result;
    std::string portText;
    bool hasPort = false;
    if (!text.empty() && text.front() == '[') {
        size_t close = text.find(']');
        if (close == std::string::npos) {
            return fail("missing ']'");
        }
        result.host = text.substr(1, close - 1);
        std::string rest = text.substr(close + 1);
        if (!rest.empty()) {
            if (rest.front() != ':') {
                return fail("unexpected text after ']'");
            }
            hasPort = true;
            portText = rest.substr(1);
        }
    } else {
        size_t first = text.find(':');
        if (first != std::string::npos && text.find(':', first + 1) == std::string::npos) {
            result.host = text.substr(0, first);
            hasPort = true;
            portText = text.substr(first + 1);
        } else {
            result.host = text; // a name, or an IPv6 address without a port
        }
    }
    if (result.host.empty()) {
        return fail("no host name");
    }
    if (hasPort) {
        auto port = parseInt(portText, 1, 65535);
        if (!port) {
            return fail("the port must be a number from 1 to 65535");
        }
        result.port = static_cast<uint16_t>(*port);
    }
    return result;
}

ParsedOptions parseOptions(const std::vector<std::string>& args) {
    ParsedOptions parsed;
    Options& o = parsed.options;
    for (size_t i = 0; i < args.size(); ++i) {
        std::string name = args[i];
        std::optional<std::string> inlineValue;
        if (name.starts_with("--")) {
            size_t eq = name.find('=');
            if (eq != std::string::npos) {
                inlineValue = name.substr(eq + 1);
                name = name.substr(0, eq);
            }
        }
        auto it = optionRules().find(name);
        if (it == optionRules().end()) {
            parsed.error = name.starts_with("-") ? "unknown option " + name
                                                 : "unexpected argument \"" + name + "\"";
            return parsed;
        }
        const OptionRule& rule = it->second;
        std::string value;
        if (rule.takesValue) {
            // A forgotten value must not swallow the next option: "--host
            // --format jsonl" would otherwise take "--format" as the host and
            // then complain about "jsonl". A value that does start with "--"
            // can still be given as --name=VALUE.
            const bool nextIsOption = i + 1 < args.size() && args[i + 1].starts_with("--");
            if (inlineValue) {
                value = *inlineValue;
            } else if (i + 1 < args.size() && !nextIsOption) {
                value = args[++i];
            }
            // No option here means anything when empty.
            if (value.empty()) {
                parsed.error = name + " needs a value" +
                               (!inlineValue && nextIsOption ? " before " + args[i + 1] : "");
                return parsed;
            }
        } else if (inlineValue) {
            parsed.error = name + " takes no value";
            return parsed;
        }
        if (std::string e = rule.apply(o, value); !e.empty()) {
            parsed.error = e;
            return parsed;
        }
    }
    if (o.action == Options::Action::Collect) {
        parsed.error = crossCheck(o);
    }
    return parsed;
}

std::string usageText(const std::string& program) {
    std::string classes;
    for (const auto& c : knownClasses()) {
        classes += "                       " + c + "\n";
    }
    return "Usage: " + program +
           " [--sim FILE | --inband | --host H[:PORT] ...] [--class NAME ...]\n"
           "       [--format jsonl|table|csv] [--out FILE] [--log FILE] [--log-level 0..4]\n"
           "       [--plugin PATH]\n"
           "\n"
           "Reads the BMCs' event logs, SDR, FRU and firmware data through the ipmisel\n"
           "plug-in and writes what it reports. An option's value may also be given as\n"
           "--name=VALUE, the only way to give one that starts with \"--\".\n"
           "\n"
           "Where the data comes from:\n"
           "  --sim FILE           a simulated BMC described by a scenario file\n"
           "  --inband             the local BMC through the in-band IPMI drivers\n"
           "                       (the kernel's IPMI device, KCS, SSIF, ...)\n"
           "  --host H[:PORT]      a BMC over IPMI 2.0 LAN (repeat for several nodes)\n"
           "  --user NAME          LAN user (default: the anonymous user)\n"
           "  --password-file FILE the LAN password: the file's first line; without it\n"
           "                       the IPMISEL_PASSWORD environment variable. One of\n"
           "                       them is needed; an empty one for a user without a\n"
           "                       password\n"
           "  --cipher-suite N     default 3\n"
           "  --privilege LEVEL    user, operator or admin (default admin)\n"
           "  --workaround NAME    a libfreeipmi workaround, e.g. opensesspriv (repeatable)\n"
           "  --timeout SECONDS    how long one LAN request may take (default 10)\n"
           "  --retries N          packets sent again within that time (default 2)\n"
           "  --record FILE        save every request and answer as a scenario that\n"
           "                       --sim FILE replays\n"
           "  Without any of these: the kernel's IPMI device when there is one, otherwise\n"
           "  the bundled demo scenario (stderr says which).\n"
           "\n"
           "What is collected:\n"
           "  --class NAME         one class (repeatable); default, in this order:\n" +
           classes +
           "\n"
           "Output:\n"
           "  --format FORMAT      jsonl (one JSON object per instance), table (for\n"
           "                       people) or csv (a header row per class); default:\n"
           "                       table when writing to a terminal, jsonl otherwise\n"
           "  --out FILE           write there instead of standard output\n"
           "  --log FILE           write the plug-in's log lines there\n"
           "  --log-level N        keep log lines of severity 0..N (0 errors .. 4 trace;\n"
           "                       default 4)\n"
           "  --plugin PATH        the plug-in to load (default: ipmisel.so beside this\n"
           "                       program; its message file ipmisel.INI must lie beside it)\n"
           "  -h, --help           this text\n"
           "  --version            the program's version\n"
           "\n"
           "Exit codes:\n"
           "  0  collection ran\n"
           "  1  unexpected failure, or the plug-in reported a failed collection\n"
           "  2  bad options\n"
           "  3  the scenario file is missing or broken\n"
           "  4  the plug-in is missing, cannot be loaded or refused to load, or its\n"
           "     message file is missing\n"
           "  5  the output or log file cannot be written\n"
           "  6  a BMC could not be reached or stopped answering (what the other\n"
           "     nodes gave is still written), or this build has no real-BMC transport\n";
}

} // namespace ipmisel::collector
