#include "collector/Options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <map>
#include <memory>

#include "collector/HostsFile.h"

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

// What CLI11 collects: every value as the text given, so that each refusal
// afterwards keeps our own wording (and names the option the way the user
// typed it) instead of a converter's.
struct Raw {
    bool help = false;
    bool version = false;
    bool inband = false;
    std::string sim, format, out, log, logLevel, plugin, user, passwordFile, cipherSuite, privilege,
        timeout, retries, record, hostsFile, fanout;
    std::vector<std::string> classes, hosts, workarounds;
};

constexpr const char kSources[] = "Where the data comes from";
constexpr const char kFleet[] = "Several servers";
constexpr const char kCollected[] = "What is collected";
constexpr const char kOutput[] = "Output";
constexpr const char kProgram[] = "The program";

constexpr size_t kNameColumn = 25;

// CLI11's layout with our synopsis first, notes under some groups and one
// empty line between groups.
class HelpFormatter : public CLI::Formatter {
  public:
    explicit HelpFormatter(std::string synopsis) : synopsis_(std::move(synopsis)) {
        column_width(kNameColumn);
    }

    std::string make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const override {
        std::string text = synopsis_ + "\n" + app->get_description();
        for (const std::string& group : app->get_groups()) {
            auto options =
                app->get_options([&](const CLI::Option* o) { return o->get_group() == group; });
            text += make_group(group, false, options) + note(group);
        }
        return text + "\n" + app->get_footer();
    }

  private:
    static std::string note(const std::string& group) {
        if (group == kSources) {
            return "  Without any of these: the kernel's IPMI device when there is one,\n"
                   "  otherwise the bundled demo scenario (stderr says which).\n";
        }
        if (group == kFleet) {
            return "  Each jsonl object then starts with \"server\", each csv row with a server\n"
                   "  column, each server's table with a \"Server NAME\" line.\n";
        }
        return {};
    }

    std::string synopsis_;
};

std::string classList() {
    std::string list;
    for (const auto& c : knownClasses()) {
        list += "\n  " + c;
    }
    return list;
}

std::unique_ptr<CLI::App> makeApp(Raw& raw, const std::string& program,
                                  std::vector<CLI::Option*>* onceOnly) {
    auto app = std::make_unique<CLI::App>(
        "Reads the BMCs' event logs, SDR, FRU and firmware data through the ipmisel\n"
        "plug-in and writes what it reports. An option's value may also be given as\n"
        "--name=VALUE, the only way to give one that starts with \"--\".\n",
        program);
    app->formatter(std::make_shared<HelpFormatter>(
        "Usage: " + program +
        " [--sim FILE | --inband | --host H[:PORT] ... | --hosts-file FILE]\n"
        "       [--fanout N] [--class NAME ...] [--format jsonl|table|csv] [--out FILE]\n"
        "       [--log FILE] [--log-level 0..4] [--plugin PATH]\n"));
    app->set_help_flag(); // ours below: help is an answer, not an exception
    app->allow_extras();  // left-over arguments are named by parseOptions
    app->footer("Exit codes:\n"
                "  0  collection ran (a fleet: every server)\n"
                "  1  unexpected failure, or the plug-in reported a failed collection\n"
                "  2  bad options or hosts file\n"
                "  3  the scenario file is missing or broken\n"
                "  4  the plug-in is missing, cannot be loaded or refused to load, or its\n"
                "     message file is missing\n"
                "  5  the output or log file cannot be written\n"
                "  6  a BMC could not be reached or stopped answering (what the other\n"
                "     nodes gave is still written), or this build has no real-BMC transport\n"
                "  7  a fleet: some servers failed, the others were collected; when every\n"
                "     server fails, the code of the first one in the list\n");

    auto once = [&](const char* name, std::string& value, const char* type, const char* group,
                    const char* help) {
        CLI::Option* o = app->add_option(name, value, help)
                             ->type_name(type)
                             ->group(group)
                             ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        onceOnly->push_back(o);
    };
    auto repeatable = [&](const char* name, std::vector<std::string>& values, const char* type,
                          const char* group, const std::string& help) {
        // One value per occurrence: "--class A B" leaves B over, as a typo should.
        app->add_option(name, values, help)->type_name(type)->group(group)->allow_extra_args(false);
    };

    once("--sim", raw.sim, "FILE", kSources, "a simulated BMC described by a scenario file");
    app->add_flag("--inband", raw.inband,
                  "the local BMC through the in-band IPMI drivers\n"
                  "(the kernel's IPMI device, KCS, SSIF, ...)")
        ->group(kSources);
    repeatable("--host", raw.hosts, "H[:PORT]", kSources,
               "a BMC over IPMI 2.0 LAN; repeat it for the nodes of\n"
               "one server. A range (bmc[1-4], bmc[01-20].dc1,\n"
               "bmc[1,3,5-7]) makes one server per host");
    once("--user", raw.user, "NAME", kSources, "LAN user (default: the anonymous user)");
    once("--password-file", raw.passwordFile, "FILE", kSources,
         "the LAN password: the file's first line; without it\n"
         "the IPMISEL_PASSWORD environment variable. One of\n"
         "them is needed; an empty one for a user without a\n"
         "password");
    once("--cipher-suite", raw.cipherSuite, "N", kSources, "default 3");
    once("--privilege", raw.privilege, "LEVEL", kSources,
         "user, operator or admin (default admin)");
    repeatable("--workaround", raw.workarounds, "NAME", kSources,
               "a libfreeipmi workaround, e.g. opensesspriv");
    once("--timeout", raw.timeout, "SECONDS", kSources,
         "how long one LAN request may take (default 10)");
    once("--retries", raw.retries, "N", kSources,
         "an unanswered request is sent again N times\n"
         "before the timeout, further apart each time\n"
         "(1 to 10, default 2)");
    once("--record", raw.record, "FILE", kSources,
         "save every request and answer as a scenario that\n"
         "--sim FILE replays (a fleet: FILE.SERVER per server)");

    once("--hosts-file", raw.hostsFile, "FILE", kFleet,
         "one server per line: its BMC nodes as\n"
         "host[:port],host[:port],... (ranges allowed), or\n"
         "sim:PATH for a scenario (PATH relative to the file);\n"
         "'#' starts a comment; \"-\" reads standard input.\n"
         "The LAN options above apply to every server");
    once("--fanout", raw.fanout, "N", kFleet,
         "servers collected at once, each in a process of its\n"
         "own (1..256, default 1)");

    repeatable("--class", raw.classes, "NAME", kCollected,
               "one class; default, in this order:" + classList());

    once("--format", raw.format, "FORMAT", kOutput,
         "jsonl (one JSON object per instance), table (for\n"
         "people) or csv (a header row per class); default:\n"
         "table when writing to a terminal, jsonl otherwise");
    once("--out", raw.out, "FILE", kOutput, "write there instead of standard output");
    once("--log", raw.log, "FILE", kOutput,
         "write the plug-in's log lines there (a fleet:\n"
         "FILE.SERVER per server)");
    once("--log-level", raw.logLevel, "N", kOutput,
         "keep log lines of severity 0..N (0 errors .. 4\n"
         "trace; default 4)");

    once("--plugin", raw.plugin, "PATH", kProgram,
         "the plug-in to load (default: ipmisel.so beside this\n"
         "program, else the installed one in ../lib/ipmisel/;\n"
         "its message file ipmisel.INI must lie beside it)");
    app->add_flag("-h,--help", raw.help, "this text")->group(kProgram);
    app->add_flag("--version", raw.version, "the program's version")->group(kProgram);
    return app;
}

// CLI11 fills a required value with whatever argument comes next, another
// option included: "--host --format jsonl" would collect from a BMC called
// "--format" and then stumble over "jsonl". So before CLI11 sees the command
// line, every option that takes a value must have one that is not empty and
// not an option, and one that takes none must not be given one.
std::string checkValuesPresent(const CLI::App& app, const std::vector<std::string>& args) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--") {
            break;
        }
        if (!arg.starts_with("-") || arg == "-") {
            continue;
        }
        const size_t eq = arg.starts_with("--") ? arg.find('=') : std::string::npos;
        const std::string name = arg.substr(0, eq);
        const CLI::Option* option = app.get_option_no_throw(name);
        if (option == nullptr) {
            continue; // CLI11 leaves it over; named as unknown afterwards
        }
        if (option->get_expected_max() == 0) { // a flag
            if (eq != std::string::npos) {
                return name + " takes no value";
            }
            continue;
        }
        if (eq != std::string::npos) {
            if (eq + 1 == arg.size()) {
                return name + " needs a value";
            }
            continue;
        }
        // A value that does start with "--" can still be given as --name=VALUE.
        if (i + 1 == args.size() || args[i + 1].empty()) {
            return name + " needs a value";
        }
        if (args[i + 1].starts_with("--")) {
            return name + " needs a value before " + args[i + 1];
        }
        ++i;
    }
    return {};
}

// The values, converted and checked, in the order the help lists them.
std::string applyValues(const Raw& raw, Options& o) {
    auto given = [](const std::string& v) { return !v.empty(); };
    if (given(raw.sim)) {
        o.simFile = raw.sim;
    }
    o.inband = raw.inband;
    if (!raw.hosts.empty()) {
        std::string why;
        std::vector<Server> servers = serversFromNodes(raw.hosts, &why);
        if (servers.empty()) {
            return "--host " + why;
        }
        for (const Server& s : servers) {
            o.hosts.insert(o.hosts.end(), s.nodes.begin(), s.nodes.end());
        }
        o.hostServers = std::move(servers);
    }
    if (given(raw.user)) {
        o.user = raw.user;
    }
    if (given(raw.passwordFile)) {
        o.passwordFile = raw.passwordFile;
    }
    if (given(raw.cipherSuite) && !(o.cipherSuite = parseInt(raw.cipherSuite, 0, 255))) {
        return "--cipher-suite must be a cipher suite number, not \"" + raw.cipherSuite + "\"";
    }
    if (given(raw.privilege)) {
        // ipmitool's spelling (ADMINISTRATOR) is taken as well.
        std::string level = raw.privilege;
        std::transform(level.begin(), level.end(), level.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (level == "administrator") {
            level = "admin";
        }
        if (level != "user" && level != "operator" && level != "admin") {
            return "--privilege must be user, operator or admin, not \"" + raw.privilege + "\"";
        }
        o.privilege = level;
    }
    o.workarounds = raw.workarounds;
    if (given(raw.timeout) && !(o.timeoutSeconds = parseInt(raw.timeout, 1, 300))) {
        return "--timeout must be a number of seconds from 1 to 300, not \"" + raw.timeout + "\"";
    }
    if (given(raw.retries) && !(o.retries = parseInt(raw.retries, 1, 10))) {
        return "--retries must be a number from 1 to 10, not \"" + raw.retries + "\"";
    }
    if (given(raw.record)) {
        o.recordFile = raw.record;
    }
    if (given(raw.hostsFile)) {
        o.hostsFile = raw.hostsFile;
    }
    if (given(raw.fanout) && !(o.fanout = parseInt(raw.fanout, 1, 256))) {
        return "--fanout must be a number of servers from 1 to 256, not \"" + raw.fanout + "\"";
    }
    for (const std::string& c : raw.classes) {
        const auto& known = knownClasses();
        if (std::find(known.begin(), known.end(), c) == known.end()) {
            return "unknown class \"" + c + "\"";
        }
        // Asking twice for a class would collect it twice.
        if (std::find(o.classes.begin(), o.classes.end(), c) == o.classes.end()) {
            o.classes.push_back(c);
        }
    }
    if (given(raw.format)) {
        static const std::map<std::string, Format> formats = {
            {"jsonl", Format::Jsonl}, {"table", Format::Table}, {"csv", Format::Csv}};
        auto it = formats.find(raw.format);
        if (it == formats.end()) {
            return "--format must be jsonl, table or csv, not \"" + raw.format + "\"";
        }
        o.format = it->second;
    }
    if (given(raw.out)) {
        o.outFile = raw.out;
    }
    if (given(raw.log)) {
        o.logFile = raw.log;
    }
    if (given(raw.logLevel) && !(o.logLevel = parseInt(raw.logLevel, 0, 4))) {
        return "--log-level must be a number from 0 to 4, not \"" + raw.logLevel + "\"";
    }
    if (given(raw.plugin)) {
        o.pluginPath = raw.plugin;
    }
    return {};
}

// Rules that concern several options at once.
std::string crossCheck(const Options& o) {
    int sources = (o.simFile ? 1 : 0) + (o.inband ? 1 : 0) + (o.hosts.empty() ? 0 : 1) +
                  (o.hostsFile ? 1 : 0);
    if (sources > 1) {
        return "--sim, --inband, --host and --hosts-file exclude each other";
    }
    if (o.hosts.empty() && !o.hostsFile) {
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
            return std::string(lanOnly) + " needs --host or --hosts-file";
        }
    }
    if (o.fanout && !o.simFile && o.hosts.empty() && !o.hostsFile) {
        return "--fanout needs --hosts-file, --host or --sim";
    }
    return {};
}

} // namespace

std::optional<BmcHost> parseHost(const std::string& text, std::string* error) {
    std::string why;
    auto host = parseNodeAddress(text, &why);
    if (!host && error) {
        *error = "--host \"" + text + "\": " + why;
    }
    return host;
}

ParsedOptions parseOptions(const std::vector<std::string>& args) {
    ParsedOptions parsed;
    Raw raw;
    std::vector<CLI::Option*> onceOnly;
    auto app = makeApp(raw, "ipmisel-collect", &onceOnly);
    if (parsed.error = checkValuesPresent(*app, args); !parsed.error.empty()) {
        return parsed;
    }
    try {
        std::vector<std::string> reversed(args.rbegin(), args.rend()); // CLI11 pops from the back
        app->parse(reversed);
    } catch (const CLI::ParseError& e) {
        // Whatever the checks above let through, in CLI11's words.
        parsed.error = e.what();
        return parsed;
    }
    if (auto left = app->remaining(); !left.empty()) {
        const std::string& first = left.front();
        parsed.error = first.starts_with("-") && first != "-"
                           ? "unknown option " + first.substr(0, first.find('='))
                           : "unexpected argument \"" + first + "\"";
        return parsed;
    }
    Options& o = parsed.options;
    if (raw.help) {
        // Help wins whatever its place and skips the checks: someone asking
        // for it is still writing the command line.
        o.action = Options::Action::Help;
        return parsed;
    }
    for (const CLI::Option* option : onceOnly) {
        if (option->count() > 1) {
            parsed.error = option->get_name() + " given more than once";
            return parsed;
        }
    }
    if (parsed.error = applyValues(raw, o); !parsed.error.empty()) {
        return parsed;
    }
    if (raw.version) {
        o.action = Options::Action::Version;
        return parsed;
    }
    parsed.error = crossCheck(o);
    return parsed;
}

std::string usageText(const std::string& program) {
    Raw raw;
    std::vector<CLI::Option*> onceOnly;
    return makeApp(raw, program, &onceOnly)->help();
}

} // namespace ipmisel::collector
