// Host ranges and the hosts file: what a line names and how a bad one is
// reported.
#include <gtest/gtest.h>

#include "collector/HostsFile.h"

using namespace ipmisel::collector;

namespace {

std::string joined(const std::vector<std::string>& v) {
    std::string s;
    for (const auto& x : v) {
        s += (s.empty() ? "" : " ") + x;
    }
    return s;
}

// "name=host:port host:port|name=..." or "name=@scenario"
std::string describe(const std::vector<Server>& servers) {
    std::string s;
    for (const Server& server : servers) {
        s += (s.empty() ? "" : "|") + server.name + "=";
        if (server.nodes.empty()) {
            s += "@" + server.simFile;
        }
        for (size_t i = 0; i < server.nodes.size(); ++i) {
            s += (i ? " " : "") + server.nodes[i].host + ":" + std::to_string(server.nodes[i].port);
        }
    }
    return s;
}

TEST(HostRange, Expansions) {
    const std::pair<const char*, const char*> cases[] = {
        {"bmc", "bmc"},
        {"bmc[1-3]", "bmc1 bmc2 bmc3"},
        {"bmc[001-003].dc1", "bmc001.dc1 bmc002.dc1 bmc003.dc1"},
        // The width comes from the lower bound and is kept past it.
        {"bmc[08-10]", "bmc08 bmc09 bmc10"},
        {"bmc[9-11]", "bmc9 bmc10 bmc11"},
        {"bmc[1,3,5-7]", "bmc1 bmc3 bmc5 bmc6 bmc7"},
        {"r[1-2]n[1-2]", "r1n1 r1n2 r2n1 r2n2"},
        {"10.0.0.[9-10]:624", "10.0.0.9:624 10.0.0.10:624"},
        {"[::1]:700", "[::1]:700"}, // an IPv6 address, not a range
    };
    for (const auto& [text, hosts] : cases) {
        std::string error;
        EXPECT_EQ(joined(expandHostRange(text, &error)), hosts) << error;
    }
    const std::pair<const char*, const char*> refused[] = {
        {"bmc[3-1]", "\"bmc[3-1]\": [3-1] counts down from 3 to 1"},
        {"bmc[1-", "\"bmc[1-\": '[' without ']'"},
        {"bmc[a-c]", "\"bmc[a-c]\": [a-c] is not a range: numbers as in [1-64] or [1,3,5-7]"},
        {"bmc[]", "\"bmc[]\": [] is not a range: numbers as in [1-64] or [1,3,5-7]"},
        {"bmc[1,]", "\"bmc[1,]\": [1,] is not a range: numbers as in [1-64] or [1,3,5-7]"},
        {"b[0-65536]", "\"b[0-65536]\": expands to more than 65536 hosts"},
        {"r[1-300]n[1-300]", "\"r[1-300]n[1-300]\": expands to more than 65536 hosts"},
    };
    for (const auto& [text, message] : refused) {
        std::string error;
        EXPECT_TRUE(expandHostRange(text, &error).empty()) << text;
        EXPECT_EQ(error, message);
    }
    // Exactly at the limit is still taken.
    std::string error;
    EXPECT_EQ(expandHostRange("b[1-65536]", &error).size(), 65536u) << error;
}

TEST(HostsFile, ServersOfALine) {
    HostsFile f = parseHostsFile("# rack 1\n"
                                 "\n"
                                 "  bmc1 , bmc1b:624   # two nodes, one server\n"
                                 "a[1-2]:624,b[1-2]\r\n"
                                 "[fe80::1]:700\n"
                                 "sim:scen/x.json\n"
                                 "sim:/abs/y.json\n",
                                 "hosts.txt", "/etc/fleet");
    ASSERT_EQ(f.error, "");
    EXPECT_EQ(describe(f.servers), "bmc1=bmc1:623 bmc1b:624|"
                                   "a1:624=a1:624 b1:623|a2:624=a2:624 b2:623|"
                                   "[fe80::1]:700=fe80::1:700|"
                                   "sim:scen/x.json=@/etc/fleet/scen/x.json|"
                                   "sim:/abs/y.json=@/abs/y.json");
    // Standard input: scenario paths stay relative to the working folder.
    EXPECT_EQ(describe(parseHostsFile("sim:x.json\n", "standard input", "").servers),
              "sim:x.json=@x.json");
}

TEST(HostsFile, ErrorsNameFileAndLine) {
    const std::pair<const char*, const char*> cases[] = {
        {"bmc1\n\nbmc1\n", "h.txt:3: server \"bmc1\" is already named on line 1"},
        {"bmc[1-3]\nbmc2\n", "h.txt:2: server \"bmc2\" is already named on line 1"},
        {"a\nbmc1,,bmc2\n",
         "h.txt:2: an empty node: the nodes of a server are separated by one comma"},
        {"bmc1\tbmc2\n", "h.txt:1: \"bmc1\tbmc2\": a node holds no blank; the nodes of a server "
                         "are separated by commas, servers by lines"},
        {"# c\nsim:  # none\n", "h.txt:2: sim: needs a scenario file"},
        {"a[1-2],b[1-3]\n", "h.txt:1: \"a[1-2]\" gives 2 hosts but \"b[1-3]\" 3; the nodes of "
                            "one server must give as many each"},
        {"x\ny\nbmc[1-2]:0\n", "h.txt:3: \"bmc1:0\": the port must be a number from 1 to 65535"},
        {"bmc[2-1]\n", "h.txt:1: \"bmc[2-1]\": [2-1] counts down from 2 to 1"},
        {"# only comments\n\n", "h.txt: names no server"},
    };
    for (auto [text, message] : cases) {
        HostsFile f = parseHostsFile(text, "h.txt", ".");
        EXPECT_EQ(f.error, message);
        EXPECT_TRUE(f.servers.empty());
    }
    EXPECT_EQ(readHostsFile("/nonexistent/h.txt").error,
              "/nonexistent/h.txt: cannot open: No such file or directory");
}

} // namespace
