// The libfreeipmi transport and what sits around it: the split of Get SDR
// reads a BMC refuses, the session's failure handling against a real
// simulator, and the settings the collector hands over (workaround names,
// privilege, password files, LAN options).
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>

#include "collector/Collector.h"
#include "collector/Options.h"
#include "host/freeipmi/FreeIpmiTransport.h"
#include "host/freeipmi/SdrReadSplitter.h"
#include "host/sim/Builders.h"
#include "host/sim/SimBmc.h"
#include "tests/e2e/Processes.h"
#include "tests/support/HostFixture.h"

namespace ipmisel::e2e {
namespace {

using freeipmi::FreeIpmiTransport;
using freeipmi::SdrReadSplitter;
using host::IpmiRequest;
using host::IpmiResponse;

IpmiRequest getSdr(uint16_t reservation, uint16_t id, uint8_t offset, uint8_t count) {
    return {0x0A,
            0,
            0x23,
            {static_cast<uint8_t>(reservation), static_cast<uint8_t>(reservation >> 8),
             static_cast<uint8_t>(id), static_cast<uint8_t>(id >> 8), offset, count}};
}

// A repository of two full records with 16-byte names and one compact record.
sim::NodeSpec cappedRepository(uint32_t cap) {
    sim::NodeSpec spec;
    sim::FullSensorFields cpu;
    cpu.id = 1;
    cpu.number = 0x30;
    cpu.sensorType = 0x01;
    cpu.baseUnit = 1;
    cpu.name = "CPU1 Temperature"; // 16 characters: the rest from 2Fh is 17 bytes
    sim::FullSensorFields fan = cpu;
    fan.id = 2;
    fan.number = 0x20;
    fan.name = "FAN1";
    sim::CompactSensorFields psu;
    psu.id = 3;
    psu.number = 0x50;
    psu.sensorType = 0x08;
    psu.name = "PSU1 Status";
    spec.sdrRecords = {sim::buildFullSensorRecord(cpu), sim::buildFullSensorRecord(fan),
                       sim::buildCompactSensorRecord(psu)};
    spec.sdrMaxReadCount = cap;
    return spec;
}

uint16_t reserve(host::Transport& t) {
    IpmiResponse r = t.send({0x0A, 0, 0x22, {}});
    EXPECT_TRUE(r.sent && r.cc == 0 && r.data.size() == 2);
    return static_cast<uint16_t>(r.data[0] | (r.data[1] << 8));
}

TEST(SdrReadSplitter, AnswersRefusedRestOfRecordReadsWhole) {
    auto bmc = std::make_shared<sim::SimBmc>(cappedRepository(16));
    SdrReadSplitter splitter(bmc);
    const auto& records = bmc->spec().sdrRecords;
    const uint16_t reservation = reserve(splitter);

    struct Case {
        uint16_t id;
        uint8_t offset;
        uint16_t next;
    };
    // The plug-in's ID-string reads (2Fh full, 1Fh compact) and a whole
    // record from offset 0, which the header read itself must not confuse.
    for (Case c : {Case{1, 0x2F, 2}, Case{3, 0x1F, 0xFFFF}, Case{2, 0x00, 3}, Case{1, 0x00, 2}}) {
        SCOPED_TRACE("record " + std::to_string(c.id) + " offset " + std::to_string(c.offset));
        // What the BMC alone says.
        IpmiResponse refused = bmc->send(getSdr(reservation, c.id, c.offset, 0xFF));
        const auto& record = records[c.id - 1];
        if (record.size() - c.offset <= 16) {
            EXPECT_EQ(refused.cc, 0x00);
        } else {
            EXPECT_EQ(refused.cc, 0xCA);
        }
        IpmiResponse r = splitter.send(getSdr(reservation, c.id, c.offset, 0xFF));
        ASSERT_TRUE(r.sent);
        ASSERT_EQ(r.cc, 0x00);
        ASSERT_GE(r.data.size(), 2u);
        EXPECT_EQ(r.data[0] | (r.data[1] << 8), c.next);
        EXPECT_EQ(std::vector<uint8_t>(r.data.begin() + 2, r.data.end()),
                  std::vector<uint8_t>(record.begin() + c.offset, record.end()));
    }
    // Halved from 32 to the BMC's 16 once, and kept.
    EXPECT_EQ(splitter.pieceSize(), 16);
    EXPECT_GE(splitter.splitReads(), 3u);
}

TEST(SdrReadSplitter, LeavesEverythingElseAlone) {
    auto bmc = std::make_shared<sim::SimBmc>(cappedRepository(16));
    SdrReadSplitter splitter(bmc);
    const uint16_t reservation = reserve(splitter);
    // A count the BMC refuses that is not "the rest" stays refused: the
    // plug-in asked for exactly that many bytes.
    EXPECT_EQ(splitter.send(getSdr(reservation, 1, 0, 40)).cc, 0xCA);
    // Other commands and a wrong reservation pass through untouched.
    EXPECT_EQ(splitter.send({0x0A, 0, 0x23, {1, 2, 3}}).cc,
              bmc->send({0x0A, 0, 0x23, {1, 2, 3}}).cc);
    EXPECT_EQ(splitter.send(getSdr(reservation + 1, 1, 0x2F, 0xFF)).cc, 0xC5);
    EXPECT_EQ(splitter.splitReads(), 0u);
}

// A BMC written inline, for answers no real one should give.
struct Scripted {
    std::vector<uint8_t> record;
    unsigned cap = 8;
    int failPieceAt = -1;  // this piece read (counted from 0) fails
    uint8_t failCc = 0;    // ... with this code; 0: the send fails
    size_t extraBytes = 0; // stale bytes after what was asked for
    size_t shortBy = 0;    // bytes fewer than asked for
    int pieces = 0;
    IpmiResponse answer(const IpmiRequest& rq) {
        const uint8_t offset = rq.data[4], count = rq.data[5];
        if (count > cap && !(offset == 0 && count == 5)) {
            return test::cc(0xCA);
        }
        if (offset != 0 && pieces++ == failPieceAt) {
            return failCc ? test::cc(failCc) : test::notSent();
        }
        std::vector<uint8_t> data = {0xFF, 0xFF};
        size_t n = std::min<size_t>(count, record.size() > offset ? record.size() - offset : 0);
        if (offset != 0 && n > shortBy) {
            n -= shortBy;
        }
        data.insert(data.end(), record.begin() + offset, record.begin() + offset + n);
        data.insert(data.end(), extraBytes, 0xEE);
        return test::ok(data);
    }
};

TEST(SdrReadSplitter, OddBmcAnswers) {
    std::vector<uint8_t> record = {0x01, 0x00, 0x51, 0x01, 20};
    for (uint8_t i = 0; i < 20; ++i) {
        record.push_back(static_cast<uint8_t>(0x40 + i));
    }
    const std::vector<uint8_t> rest(record.begin() + 6, record.end());
    struct Case {
        const char* what;
        int failPieceAt;
        uint8_t failCc;
        size_t extra;
        size_t shortBy;
        bool sent;
        uint8_t cc;
    };
    const Case cases[] = {
        {"stale bytes after each piece are dropped", -1, 0, 6, 0, true, 0x00},
        {"short pieces are continued from where they ended", -1, 0, 0, 3, true, 0x00},
        {"a lost reservation reaches the caller", 1, 0xC5, 0, 0, true, 0xC5},
        {"a failed send reaches the caller", 0, 0, 0, 0, false, 0x00},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Scripted bmc{record, 8, c.failPieceAt, c.failCc, c.extra, c.shortBy};
        auto fake = std::make_shared<test::FakeTransport>(
            [&bmc](const IpmiRequest& rq) { return bmc.answer(rq); });
        SdrReadSplitter splitter(fake);
        IpmiResponse r = splitter.send(getSdr(1, 1, 6, 0xFF));
        EXPECT_EQ(r.sent, c.sent);
        EXPECT_EQ(r.cc, c.cc);
        if (c.sent && c.cc == 0) {
            EXPECT_EQ(std::vector<uint8_t>(r.data.begin() + 2, r.data.end()), rest);
        }
    }

    // A length byte that puts the offset past the end, and a BMC that refuses
    // even one byte: its own refusal comes back, after a bounded number of
    // requests.
    for (unsigned cap : {8u, 0u}) {
        Scripted bmc{{0x01, 0x00, 0x51, 0x01, cap ? uint8_t{2} : uint8_t{200}}, cap};
        auto fake = std::make_shared<test::FakeTransport>(
            [&bmc](const IpmiRequest& rq) { return bmc.answer(rq); });
        SdrReadSplitter splitter(fake);
        IpmiResponse r = splitter.send(getSdr(1, 1, 0x2F, 0xFF));
        EXPECT_TRUE(r.sent);
        EXPECT_EQ(r.cc, 0xCA);
        EXPECT_LE(fake->received.size(), 12u);
    }
}

// ---- the plug-in behind the splitter ------------------------------------------

// The whole collection with a BMC that caps Get SDR at 16 bytes: without the
// splitter the walk ends at the first 16-character name (and every sensor
// after it goes unnamed); with it every sensor is named.
TEST(SdrReadSplitter, PluginNamesEverySensorOfACappedBmc) {
    sim::NodeSpec spec = cappedRepository(16);
    sim::SelEventFields e;
    e.sensorType = 0x08;
    e.sensorNumber = 0x50; // PSU1 Status, after the long name in the repository
    e.data = {0x01, 0xFF, 0xFF};
    spec.selRecords = {sim::selRecord(e)};

    std::vector<std::string> names;
    for (bool split : {false, true}) {
        test::HostCapture host;
        host.config().lan = true;
        auto bmc = std::make_shared<sim::SimBmc>(spec);
        std::shared_ptr<host::Transport> node = bmc;
        if (split) {
            node = std::make_shared<SdrReadSplitter>(bmc);
        }
        host.setNodes({node});
        std::string error;
        auto plugin = collector::loadPlugin(test::binDir() + "/ipmisel.so", &error);
        ASSERT_NE(plugin, nullptr) << error;
        const char* classes[] = {"OXASG_IPMILogRecord"};
        plugin->initialize(host::hostCallbacks());
        plugin->collect(host::hostCallbacks(), host::outputHandle(), classes, 1);
        plugin->terminate();
        auto records = host.instancesOf("OXASG_IPMILogRecord");
        ASSERT_EQ(records.size(), 1u);
        names.push_back(records[0].get("SensorInformation"));
        EXPECT_EQ(host.logContains("Cannot return number of requested data bytes"), !split);
    }
    EXPECT_EQ(names[0], "");
    EXPECT_EQ(names[1], "PSU1 Status");
}

// ---- against ipmi_sim -------------------------------------------------------------

#define NEED_SIMULATOR()                                                                           \
    do {                                                                                           \
        if (findProgram("ipmi_sim").empty()) {                                                     \
            GTEST_SKIP() << "ipmi_sim not found (Debian package openipmi; scripts/setup.sh "       \
                            "installs it)";                                                        \
        }                                                                                          \
    } while (0)

freeipmi::LanSettings simSettings(const IpmiSim& sim) {
    freeipmi::LanSettings s;
    s.host = "127.0.0.1";
    s.port = sim.port();
    s.user = IpmiSim::kUser;
    s.password = IpmiSim::kPassword;
    s.workaroundFlags = *freeipmi::workaroundFlag("opensesspriv", true, nullptr);
    s.timing = {2000, 1};
    return s;
}

TEST(FreeIpmiTransport, RawCommandsAgainstIpmiSim) {
    NEED_SIMULATOR();
    IpmiSim sim({});
    std::vector<std::string> reports;
    auto bmc = FreeIpmiTransport::lan(simSettings(sim),
                                      [&](const std::string& line) { reports.push_back(line); });
    EXPECT_EQ(bmc->describe(), "lanplus " + sim.hostArg());
    std::string error;
    ASSERT_TRUE(bmc->open(&error)) << error;

    // Completion codes come back as answers, not as failed sends: a missing
    // FRU device answers CCh, a read above the simulator's limit C8h.
    IpmiResponse missing = bmc->send({0x0A, 0, 0x11, {0x00, 0x00, 0x00, 0x10}});
    EXPECT_TRUE(missing.sent);
    EXPECT_EQ(missing.cc, 0xCC);
    IpmiResponse fru = bmc->send({0x0A, 0, 0x11, {0x01, 0x00, 0x00, 34}});
    ASSERT_TRUE(fru.sent);
    ASSERT_EQ(fru.cc, 0x00);
    ASSERT_EQ(fru.data.size(), 35u);
    EXPECT_EQ(fru.data[0], 34);
    EXPECT_EQ(std::vector<uint8_t>(fru.data.begin() + 1, fru.data.begin() + 6),
              (std::vector<uint8_t>{0x01, 0x00, 0x00, 0x01, 0x08}));
    IpmiResponse tooMany = bmc->send({0x0A, 0, 0x11, {0x01, 0x00, 0x00, 35}});
    EXPECT_TRUE(tooMany.sent);
    EXPECT_EQ(tooMany.cc, 0xC8);

    // The simulator refuses "the rest" from offset 0 of a 64-byte record; the
    // splitter reads it in pieces it accepts.
    SdrReadSplitter splitter(bmc);
    const uint16_t reservation = reserve(splitter);
    EXPECT_EQ(bmc->send(getSdr(reservation, 1, 0, 0xFF)).cc, 0xCA);
    IpmiResponse whole = splitter.send(getSdr(reservation, 1, 0, 0xFF));
    ASSERT_TRUE(whole.sent);
    ASSERT_EQ(whole.cc, 0x00);
    ASSERT_EQ(whole.data.size(), 2u + 64u);
    EXPECT_EQ(whole.data[0] | (whole.data[1] << 8), 2); // next record
    const std::string name(whole.data.begin() + 2 + 48, whole.data.begin() + 2 + 57);
    EXPECT_EQ(name, "CPU1 Temp");
    EXPECT_TRUE(reports.empty());

    // Closed is closed: no reopening behind the caller's back.
    bmc->close();
    EXPECT_FALSE(bmc->send({0x06, 0, 0x01, {}}).sent);
    EXPECT_TRUE(reports.empty());
}

TEST(FreeIpmiTransport, ABmcThatDoesNotAnswerIsReportedOnce) {
    NEED_SIMULATOR();
    IpmiSim sim({});
    auto settings = simSettings(sim);
    sim.stop(); // the port is now silent
    settings.timing = {1000, 1};
    std::vector<std::string> reports;
    auto bmc =
        FreeIpmiTransport::lan(settings, [&](const std::string& line) { reports.push_back(line); });
    for (int i = 0; i < 5; ++i) {
        EXPECT_FALSE(bmc->send({0x0A, 0, 0x40, {}}).sent);
    }
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_NE(reports[0].find("cannot open an IPMI 2.0 session"), std::string::npos) << reports[0];
    EXPECT_TRUE(bmc->failed());
    std::string error;
    EXPECT_FALSE(bmc->open(&error));
    EXPECT_EQ(error, reports[0]);
}

// ---- settings -------------------------------------------------------------------

TEST(FreeIpmiSettings, WorkaroundNames) {
    struct Case {
        const char* name;
        bool lan;
        bool known;
    };
    for (Case c : {Case{"opensesspriv", true, true}, Case{"OpenSessPriv", true, true},
                   Case{"intel20", true, true}, Case{"authcap", true, true},
                   Case{"assumeio", false, true}, Case{"spinpoll", false, true},
                   // each family only where it applies
                   Case{"spinpoll", true, false}, Case{"opensesspriv", false, false},
                   Case{"", true, false}, Case{"opensesspriv ", true, false}}) {
        std::string error;
        auto flag = freeipmi::workaroundFlag(c.name, c.lan, &error);
        EXPECT_EQ(flag.has_value(), c.known) << c.name;
        if (!c.known) {
            EXPECT_NE(error.find(std::string("\"") + c.name + "\""), std::string::npos) << error;
            EXPECT_NE(error.find(c.lan ? "opensesspriv" : "assumeio"), std::string::npos);
        }
    }
    auto both = freeipmi::workaroundFlags({"opensesspriv", "intel20"}, true, nullptr);
    ASSERT_TRUE(both);
    EXPECT_EQ(*both, *freeipmi::workaroundFlag("opensesspriv", true, nullptr) |
                         *freeipmi::workaroundFlag("intel20", true, nullptr));
    EXPECT_FALSE(freeipmi::workaroundFlags({"opensesspriv", "bogus"}, true, nullptr));
}

TEST(FreeIpmiSettings, HostArgumentBracketsIPv6) {
    // The port follows a colon: an IPv6 address needs its brackets so that
    // its own colons are not read as the port's.
    EXPECT_EQ(FreeIpmiTransport::hostArgument("bmc1", 623), "bmc1:623");
    EXPECT_EQ(FreeIpmiTransport::hostArgument("fe80::1", 6230), "[fe80::1]:6230");
}

TEST(FreeIpmiSettings, PasswordFiles) {
    struct Case {
        const char* what;
        std::string content;
        std::optional<std::string> password;
    };
    const Case cases[] = {
        {"line end", "s3cret\n", "s3cret"},
        {"CRLF", "s3cret\r\n", "s3cret"},
        {"no line end", "s3cret", "s3cret"},
        {"only the first line", "s3cret\nsecond\n", "s3cret"},
        {"blanks are part of it", " s3 cret \n", " s3 cret "},
        {"empty", "", ""},
        {"20 bytes, the most IPMI 2.0 takes", std::string(20, 'x') + "\n", std::string(20, 'x')},
        {"21 bytes", std::string(20, 'x') + "Y\n", std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::string path = test::writeTempFile("pw", c.content);
        std::string error;
        auto got = freeipmi::readPasswordFile(path, &error);
        EXPECT_EQ(got, c.password);
        if (!c.password) {
            EXPECT_NE(error.find(path), std::string::npos);
            EXPECT_EQ(error.find("xxxxY"), std::string::npos) << "the password leaked: " << error;
        }
    }
    std::string error;
    EXPECT_FALSE(freeipmi::readPasswordFile("/nonexistent/pw", &error));
    EXPECT_NE(error.find("/nonexistent/pw"), std::string::npos);
}

TEST(FreeIpmiSettings, LanOptions) {
    using collector::parseOptions;
    auto ok = parseOptions({"--host", "b", "--timeout", "3", "--retries", "0", "--privilege",
                            "ADMINISTRATOR", "--workaround", "opensesspriv"});
    ASSERT_EQ(ok.error, "");
    EXPECT_EQ(ok.options.timeoutSeconds, 3);
    EXPECT_EQ(ok.options.retries, 0);
    EXPECT_EQ(ok.options.privilege, "admin");

    struct Case {
        std::vector<std::string> args;
        const char* error;
    };
    const Case cases[] = {
        {{"--host", "b", "--timeout", "0"},
         "--timeout must be a number of seconds from 1 to 300, not \"0\""},
        {{"--host", "b", "--timeout", "301"},
         "--timeout must be a number of seconds from 1 to 300, not \"301\""},
        {{"--host", "b", "--retries", "11"}, "--retries must be a number from 0 to 10, not \"11\""},
        {{"--host", "b", "--retries", "-1"}, "--retries must be a number from 0 to 10, not \"-1\""},
        {{"--inband", "--timeout", "5"}, "--timeout needs --host"},
        {{"--retries", "1"}, "--retries needs --host"},
        {{"--host", "b", "--privilege", "Callback"},
         "--privilege must be user, operator or admin, not \"Callback\""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(parseOptions(c.args).error, c.error);
    }
    // --record goes with every transport, the simulated one included.
    EXPECT_EQ(parseOptions({"--sim", "x.json", "--record", "r.json"}).error, "");
}

} // namespace
} // namespace ipmisel::e2e
