// The command line: what is accepted, what is refused and with which words.
#include <gtest/gtest.h>

#include "collector/Options.h"

using namespace ipmisel::collector;

namespace {

TEST(Options, AcceptedCommandLines) {
    // A value starting with "--" only in the --name=VALUE form; one dash is a value.
    auto p = parseOptions({"--format=csv", "--log-level", "0", "--class", "OXASG_VTXAuxDebugRecord",
                           "--class", "OXASG_IPMIFRU", "--class=OXASG_IPMILogRecord", "--class",
                           "OXASG_IPMIFRU", "--sim=--odd.json", "--out", "-"});
    ASSERT_EQ(p.error, "");
    EXPECT_EQ(p.options.format, Format::Csv);
    EXPECT_EQ(p.options.logLevel, 0);
    EXPECT_EQ(p.options.simFile, "--odd.json");
    EXPECT_EQ(p.options.outFile, "-");
    // In the driver's order (log records before the debug records matched
    // against them), each once.
    EXPECT_EQ(p.options.effectiveClasses(),
              (std::vector<std::string>{"OXASG_IPMILogRecord", "OXASG_VTXAuxDebugRecord",
                                        "OXASG_IPMIFRU"}));
    // None given: every class; the format is chosen later (a table on a terminal).
    p = parseOptions({});
    EXPECT_FALSE(p.options.format.has_value());
    auto all = p.options.effectiveClasses();
    ASSERT_EQ(all.size(), 8u);
    EXPECT_EQ(all[0] + all[7], "OXASG_IPMILogRecordOXASG_AMIFirmwareElement");
    // Help wins whatever its place and skips the consistency checks.
    p = parseOptions({"--version", "--help", "--sim", "a", "--inband"});
    EXPECT_EQ(p.error, "");
    EXPECT_EQ(p.options.action, Options::Action::Help);

    p = parseOptions({"--host", "bmc1", "--host=10.0.0.5", "--user", "admin", "--cipher-suite=17",
                      "--workaround", "idzero", "--workaround", "authcap", "--timeout", "300",
                      "--retries", "10", "--privilege", "ADMINISTRATOR"});
    ASSERT_EQ(p.error, "");
    const Options& o = p.options;
    EXPECT_EQ(o.hosts.size(), 2u); // several --host values are several BMC nodes of one server
    EXPECT_FALSE(o.isFleet());
    EXPECT_EQ(o.cipherSuite, 17);
    EXPECT_EQ(o.workarounds, (std::vector<std::string>{"idzero", "authcap"}));
    EXPECT_EQ(o.timeoutSeconds, 300);
    EXPECT_EQ(o.retries, 10);
    EXPECT_EQ(o.privilege, "admin"); // ipmitool's spelling accepted
    EXPECT_TRUE(o.wantsRealBmc());
    EXPECT_FALSE(parseOptions({"--sim", "x", "--record", "r"}).options.wantsRealBmc());

    // A range in --host makes a fleet, the i-th server taking the i-th host
    // of every --host; the LAN options apply to a hosts file's servers too.
    p = parseOptions({"--host", "a[1-2]", "--host", "b[1-2]:624"});
    ASSERT_EQ(p.error, "");
    std::string servers;
    for (const Server& s : p.options.hostServers) {
        servers += s.name + "=";
        for (const BmcHost& n : s.nodes) {
            servers += n.host + ":" + std::to_string(n.port) + " ";
        }
    }
    EXPECT_EQ(servers, "a1=a1:623 b1:624 a2=a2:623 b2:624 ");
    EXPECT_TRUE(p.options.isFleet());
    p = parseOptions({"--hosts-file", "h.txt", "--user", "admin", "--fanout", "32"});
    ASSERT_EQ(p.error, "");
    EXPECT_EQ(p.options.fanout, 32);
    EXPECT_TRUE(p.options.isFleet());
}

TEST(Options, HostForms) {
    const struct {
        const char* text;
        const char* host; // null: refused
        uint16_t port;
    } cases[] = {
        {"bmc", "bmc", 623},       {"bmc:65535", "bmc", 65535},
        {"::1", "::1", 623}, // several colons: an IPv6 address, no port
        {"[::1]:700", "::1", 700}, {"bmc:0", nullptr, 0},
        {"bmc:65536", nullptr, 0}, {"bmc:+5", nullptr, 0},
        {":623", nullptr, 0},      {"[::1", nullptr, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        std::string error;
        auto h = parseHost(c.text, &error);
        ASSERT_EQ(h.has_value(), c.host != nullptr) << error;
        if (h) {
            EXPECT_EQ(h->host + ":" + std::to_string(h->port),
                      c.host + (":" + std::to_string(c.port)));
        } else {
            EXPECT_NE(error.find(std::string("--host \"") + c.text + "\""), std::string::npos);
        }
    }
}

TEST(Options, RefusedCommandLines) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"--frobnicate"}, "unknown option --frobnicate"},
        {{"scenario.json"}, "unexpected argument \"scenario.json\""},
        {{"--sim"}, "--sim needs a value"},
        // A forgotten value is named as such, not filled with the next option.
        {{"--host", "--format", "jsonl"}, "--host needs a value before --format"},
        {{"--host="}, "--host needs a value"},
        {{"--inband=yes"}, "--inband takes no value"},
        {{"--out", ""}, "--out needs a value"},
        {{"-x"}, "unknown option -x"},
        {{"--frob=1"}, "unknown option --frob"},
        // One value per --class: a second word is left over, not taken.
        {{"--class", "OXASG_IPMIFRU", "OXASG_QsvVPD"}, "unexpected argument \"OXASG_QsvVPD\""},
        {{"--help", "--frob"}, "unknown option --frob"},
        {{"--format", "JSONL"}, "--format must be jsonl, table or csv, not \"JSONL\""},
        {{"--log-level", "5"}, "--log-level must be a number from 0 to 4, not \"5\""},
        {{"--class", "OXASG_IPMILOGRECORD"}, "unknown class \"OXASG_IPMILOGRECORD\""},
        {{"--out", "a", "--out", "b"}, "--out given more than once"},
        {{"--sim", "a", "--inband"}, "--sim, --inband, --host and --hosts-file exclude each other"},
        {{"--hosts-file", "h", "--host", "b"},
         "--sim, --inband, --host and --hosts-file exclude each other"},
        {{"--user", "admin"}, "--user needs --host or --hosts-file"},
        {{"--inband", "--fanout", "2"}, "--fanout needs --hosts-file, --host or --sim"},
        {{"--sim", "a", "--fanout", "257"},
         "--fanout must be a number of servers from 1 to 256, not \"257\""},
        {{"--host", "a[1-3]", "--host", "b[1-2]"},
         "--host \"a[1-3]\" gives 3 hosts but \"b[1-2]\" 2; the nodes of one server must give "
         "as many each"},
        {{"--host", "b", "--privilege", "root"},
         "--privilege must be user, operator or admin, not \"root\""},
        {{"--host", "b:99999"}, "--host \"b:99999\": the port must be a number from 1 to 65535"},
        {{"--host", "b", "--timeout", "301"},
         "--timeout must be a number of seconds from 1 to 300, not \"301\""},
        {{"--host", "b", "--retries", "11"}, "--retries must be a number from 1 to 10, not \"11\""},
        // libfreeipmi always sends a request again before it gives up.
        {{"--host", "b", "--retries", "0"}, "--retries must be a number from 1 to 10, not \"0\""},
        {{"--inband", "--timeout", "5"}, "--timeout needs --host or --hosts-file"},
    };
    for (const auto& [args, error] : cases) {
        EXPECT_EQ(parseOptions(args).error, error) << args.front();
    }
}

} // namespace
