// The libfreeipmi transport and what sits around it: the split of Get SDR
// reads a BMC refuses, raw commands against ipmi_sim, and the settings the
// collector hands over (workaround names, password files, LAN options).
#include <freeipmi/freeipmi.h>
#include <gtest/gtest.h>

#include <chrono>
#include <numeric>
#include <thread>
#include <tuple>

#include "collector/Options.h"
#include "host/freeipmi/FreeIpmiTransport.h"
#include "host/freeipmi/SdrReadSplitter.h"
#include "host/sim/Builders.h"
#include "host/sim/SimBmc.h"
#include "tests/e2e/Processes.h"

namespace ipmisel::e2e {
namespace {

using freeipmi::FreeIpmiTransport;
using freeipmi::SdrReadSplitter;
using host::IpmiRequest;
using host::IpmiResponse;
using Bytes = std::vector<uint8_t>;

IpmiRequest getSdr(uint16_t reservation, uint16_t id, uint8_t offset, uint8_t count) {
    Bytes data = {uint8_t(reservation), uint8_t(reservation >> 8), uint8_t(id), uint8_t(id >> 8)};
    data.insert(data.end(), {offset, count});
    return {0x0A, 0, 0x23, data};
}

uint16_t reserve(host::Transport& t) {
    IpmiResponse r = t.send({0x0A, 0, 0x22, {}});
    EXPECT_TRUE(r.sent && r.cc == 0 && r.data.size() == 2);
    return r.data.size() == 2 ? uint16_t(r.data[0] | (r.data[1] << 8)) : 0;
}

TEST(SdrReadSplitter, AnswersARefusedRestOfRecordWholeAndLeavesTheRestAlone) {
    // Get SDR capped at 16 bytes; the first name's rest from 2Fh is 17 bytes.
    sim::NodeSetup node;
    node.sdrMaxReadCount = 16;
    node.sdrRecords = {sim::buildFullSensorRecord({.id = 1, .name = "CPU1 Temperature"}),
                       sim::buildFullSensorRecord({.id = 2, .name = "FAN1"}),
                       sim::buildCompactSensorRecord({.id = 3, .name = "PSU1 Status"})};
    auto bmc = std::make_shared<sim::SimBmc>(node);
    SdrReadSplitter splitter(bmc);
    const uint16_t rsv = reserve(splitter);
    // The plug-in's ID-string reads (2Fh full, 1Fh compact) and whole records
    // from offset 0, which the splitter's own header read must not confuse:
    // record ID, offset, next record ID.
    for (auto [id, offset, next] :
         {std::tuple<uint16_t, uint8_t, uint16_t>{1, 0x2F, 2}, {3, 0x1F, 0xFFFF}, {2, 0, 3}}) {
        IpmiResponse r = splitter.send(getSdr(rsv, id, offset, 0xFF));
        ASSERT_TRUE(r.sent && r.cc == 0 && r.data.size() >= 2) << id << " " << int(offset);
        EXPECT_EQ(r.data[0] | (r.data[1] << 8), next);
        const Bytes& record = node.sdrRecords[id - 1];
        EXPECT_EQ(Bytes(r.data.begin() + 2, r.data.end()),
                  Bytes(record.begin() + offset, record.end()));
    }
    EXPECT_EQ(splitter.pieceSize(), 16); // halved from 32 once, and kept
    const unsigned splits = splitter.splitReads();
    EXPECT_GE(splits, 2u);
    // A refused count that is not "the rest" stays refused: the plug-in asked
    // for exactly that many bytes. A wrong reservation and a malformed
    // request pass through untouched.
    EXPECT_EQ(splitter.send(getSdr(rsv, 1, 0, 40)).cc, 0xCA);
    EXPECT_EQ(splitter.send(getSdr(rsv + 1, 1, 0x2F, 0xFF)).cc, 0xC5);
    EXPECT_EQ(splitter.send({0x0A, 0, 0x23, {1, 2, 3}}).cc,
              bmc->send({0x0A, 0, 0x23, {1, 2, 3}}).cc);
    EXPECT_EQ(splitter.splitReads(), splits);
}

TEST(SdrReadSplitter, OddBmcAnswers) {
    // A BMC written inline, for answers no well-behaved one gives: pieces
    // above `cap` bytes are refused, `skew` bytes more (stale ones) or fewer
    // than asked for come back, and piece read `lostAt` (from 0) finds the
    // reservation lost. The header read always works, stale bytes included.
    Bytes record(25);
    std::iota(record.begin() + 5, record.end(), 0x40);
    struct Case {
        const char* what;
        uint8_t length, cap; // the record's length byte
        int skew, lostAt;
        uint8_t offset, cc;
    };
    const Case cases[] = {
        {"stale bytes after each piece are dropped", 20, 8, 6, -1, 6, 0x00},
        {"short pieces are continued where they ended", 20, 8, -3, -1, 6, 0x00},
        {"a lost reservation reaches the caller", 20, 8, 0, 1, 6, 0xC5},
        // A length byte that puts the offset past the end, and a BMC that
        // refuses even one byte: its own refusal, after few requests.
        {"offset past the end", 2, 8, 0, -1, 0x2F, 0xCA},
        {"not even one byte", 200, 0, 0, -1, 0x2F, 0xCA},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::copy_n(Bytes{0x01, 0x00, 0x51, 0x01, c.length}.begin(), 5, record.begin());
        int pieces = 0;
        auto fake = std::make_shared<test::FakeTransport>([&](const IpmiRequest& rq) {
            const size_t offset = rq.data[4], count = rq.data[5], size = record.size();
            if (offset != 0 && count > c.cap) {
                return test::cc(0xCA);
            }
            if (offset != 0 && pieces++ == c.lostAt) {
                return test::cc(0xC5);
            }
            Bytes data(record.begin() + std::min(offset, size),
                       record.begin() + std::min(offset + count, size));
            data.resize(std::max<int>(int(data.size()) + c.skew, offset ? 1 : 5), 0xEE);
            data.insert(data.begin(), {0xFF, 0xFF});
            return test::ok(data);
        });
        IpmiResponse r = SdrReadSplitter(fake).send(getSdr(1, 1, c.offset, 0xFF));
        EXPECT_TRUE(r.sent);
        EXPECT_EQ(r.cc, c.cc);
        if (c.cc == 0) {
            EXPECT_EQ(Bytes(r.data.begin() + 2, r.data.end()),
                      Bytes(record.begin() + 6, record.end()));
        }
        EXPECT_LE(fake->received.size(), 12u);
    }
}

// A LAN session to 127.0.0.1:port, one second to answer; what it reports
// goes to `reports`.
std::shared_ptr<FreeIpmiTransport> lan(uint16_t port, std::optional<std::string> user,
                                       std::string password, unsigned flags,
                                       std::vector<std::string>& reports) {
    return FreeIpmiTransport::lan({.host = "127.0.0.1",
                                   .port = port,
                                   .user = std::move(user),
                                   .password = std::move(password),
                                   .workaroundFlags = flags,
                                   .timing = {1000, 1}},
                                  [&](const std::string& line) { reports.push_back(line); });
}

TEST(FreeIpmiTransport, RawCommandsAgainstIpmiSim) {
    if (std::string why = missingTool({"ipmi_sim"}); !why.empty()) {
        GTEST_SKIP() << why;
    }
    IpmiSim sim({});
    std::vector<std::string> reports;
    auto bmc = lan(sim.port(), IpmiSim::kUser, IpmiSim::kPassword,
                   *freeipmi::workaroundFlag("opensesspriv", true, nullptr), reports);
    std::string error;
    ASSERT_TRUE(bmc->open(&error)) << error;
    // A completion code comes back as an answer, not as a failed send: here
    // "the rest" of a 64-byte record, refused.
    const uint16_t rsv = reserve(*bmc);
    IpmiResponse refused = bmc->send(getSdr(rsv, 1, 0, 0xFF));
    EXPECT_TRUE(refused.sent && refused.cc == 0xCA);
    // The splitter reads that record in pieces the simulator accepts.
    IpmiResponse whole = SdrReadSplitter(bmc).send(getSdr(rsv, 1, 0, 0xFF));
    ASSERT_TRUE(whole.sent && whole.cc == 0 && whole.data.size() == 2u + 64u);
    EXPECT_EQ(whole.data[0] | (whole.data[1] << 8), 2); // next record
    EXPECT_EQ(std::string(whole.data.begin() + 50, whole.data.begin() + 59), "CPU1 Temp");
    // Requests closer together than the idle limit (240 ms here) keep the
    // session, however long they go on; a pause longer than the timeout (a
    // caller blocked on its output) does not end the node: the next request
    // logs in again first.
    EXPECT_EQ(bmc->sessionsOpened(), 1u);
    for (int i = 0; i < 10; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
        EXPECT_TRUE(bmc->send({0x06, 0, 0x01, {}}).sent) << i;
    }
    EXPECT_EQ(bmc->sessionsOpened(), 1u);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    const IpmiResponse afterPause = bmc->send({0x06, 0, 0x01, {}});
    EXPECT_TRUE(afterPause.sent && afterPause.cc == 0);
    EXPECT_EQ(bmc->sessionsOpened(), 2u);
    // Closed is closed: no reopening behind the caller's back.
    bmc->close();
    EXPECT_FALSE(bmc->send({0x06, 0, 0x01, {}}).sent);
    EXPECT_TRUE(reports.empty());
}

// The error line of a failed login, which the reporter got once too.
std::string openFailure(uint16_t port, std::optional<std::string> user, std::string password,
                        unsigned flags = 0) {
    std::vector<std::string> reports;
    std::string error;
    EXPECT_FALSE(lan(port, std::move(user), std::move(password), flags, reports)->open(&error));
    EXPECT_EQ(reports, std::vector<std::string>{error});
    return error;
}

TEST(FreeIpmiTransport, LoginFailuresTellSilenceFromRefusal) {
    // Nothing listens on a port just found free: no answer at all.
    EXPECT_EQ(openFailure(bindLoopback(0), "admin", "pw"),
              "cannot open an IPMI 2.0 session: the BMC did not answer within 1 s (connection "
              "timeout); is the address right and IPMI over LAN enabled on it?");
    if (std::string why = missingTool({"ipmi_sim"}); !why.empty()) {
        GTEST_SKIP() << why;
    }
    // ipmi_sim answers a bad login with a privilege refusal until the
    // opensesspriv workaround is used; the reason given is the real one.
    IpmiSim sim({});
    const unsigned opensesspriv = *freeipmi::workaroundFlag("opensesspriv", true, nullptr);
    const std::string refused = "cannot open an IPMI 2.0 session: the BMC refused the login: ";
    const std::tuple<std::optional<std::string>, std::string, unsigned, std::string> cases[] = {
        {"nobody", IpmiSim::kPassword, 0,
         refused + "it does not know user \"nobody\" (username invalid)"},
        {std::nullopt, IpmiSim::kPassword, 0,
         refused + "it does not take the anonymous (null) user (username invalid)"},
        {IpmiSim::kUser, "Not-The-Pw-7", 0,
         refused + "wrong password for user \"ipmiusr\" (password invalid)"},
        {IpmiSim::kUser, "Not-The-Pw-7", opensesspriv,
         refused + "wrong password for user \"ipmiusr\" (password invalid)"},
        {IpmiSim::kUser, "", 0,
         refused + "the empty password is wrong for user \"ipmiusr\" (password invalid)"},
    };
    for (const auto& [user, password, flags, line] : cases) {
        EXPECT_EQ(openFailure(sim.port(), user, password, flags), line);
    }
}

// What libfreeipmi does with a request nobody answers, step by step as its
// LAN code does it: after each send it waits (resends / 2 + 1) intervals
// from that send, but no longer than the session timeout; on silence it sends
// again and then gives up if more than the session timeout has passed since
// the last answer. `lastAnswerMs` is when that answer came, before the first
// send at 0; every wake-up comes `lateMs` after its time.
struct Silence {
    double gaveUpMs = 0;
    unsigned resends = 0; // the one sent at the moment of giving up included
};
Silence waitOut(unsigned sessionMs, unsigned resendMs, double lastAnswerMs, double lateMs) {
    Silence s;
    double lastSend = 0;
    while (s.resends < 100) {
        const double wait = std::min<double>((s.resends / 2 + 1) * resendMs, sessionMs);
        const double now = lastSend + wait + lateMs;
        ++s.resends;
        lastSend = now;
        if (now - lastAnswerMs > sessionMs) {
            s.gaveUpMs = now;
            break;
        }
    }
    return s;
}

TEST(FreeIpmiSettings, ASilentBmcIsGivenUpAtTheTimeoutAfterTheGivenResends) {
    // Written out: ten seconds and two retries resend at 2.5 s and 5 s and
    // give up at 10 s (wake-ups after 1, 2 and 4 intervals).
    const auto two = freeipmi::wireTiming({10000, 2});
    EXPECT_EQ(two.resendMs, 2500u);
    EXPECT_EQ(two.sessionTimeoutMs, 9980u);
    EXPECT_EQ(two.idleLimitMs, 2490u);                 // half of 9,980 - 5,000
    const auto ten = freeipmi::wireTiming({1000, 10}); // 36 intervals, rounded up
    EXPECT_EQ(ten.resendMs, 28u);
    EXPECT_EQ(ten.sessionTimeoutMs, 980u);
    EXPECT_EQ(ten.idleLimitMs, 70u); // half of 980 - 30 * 28

    for (unsigned timeout : {1000u, 2000u, 2500u, 10000u, 60000u, 300000u}) {
        for (unsigned retries = 1; retries <= 10; ++retries) {
            const auto wire = freeipmi::wireTiming({timeout, retries});
            SCOPED_TRACE(std::to_string(timeout) + " ms, " + std::to_string(retries) +
                         " retries: session " + std::to_string(wire.sessionTimeoutMs) +
                         " ms, resend " + std::to_string(wire.resendMs) + " ms");
            ASSERT_LT(wire.resendMs, wire.sessionTimeoutMs); // libfreeipmi refuses otherwise
            // The last answer a moment, 50 ms or the longest pause the
            // transport lets pass before the send, wake-ups on time or 5 ms
            // late each: the same resends, and the end between the timeout
            // and the rounding of the interval (under 36 ms) plus the
            // lateness after it.
            ASSERT_GT(wire.idleLimitMs, 0u);
            for (double lastAnswer : {-0.001, -50.0, -double(wire.idleLimitMs)}) {
                for (double late : {0.0, 5.0}) {
                    const Silence s =
                        waitOut(wire.sessionTimeoutMs, wire.resendMs, lastAnswer, late);
                    EXPECT_EQ(s.resends, retries + 1) << lastAnswer << " " << late;
                    EXPECT_GE(s.gaveUpMs, timeout);
                    EXPECT_LE(s.gaveUpMs, timeout + 36 + late * (retries + 1));
                    // A wall clock set back or forward by 15 ms during the
                    // wait changes nothing: no wake-up lies that close to
                    // the session timeout.
                    for (int skew : {-15, 15}) {
                        const Silence t =
                            waitOut(wire.sessionTimeoutMs + skew, wire.resendMs, lastAnswer, late);
                        EXPECT_EQ(t.resends, s.resends) << skew;
                    }
                }
            }
        }
    }
}

TEST(FreeIpmiSettings, LoginFailureWordsForWhatASimulatorWillNotDo) {
    freeipmi::LanSettings s;
    s.host = "bmc", s.user = "op", s.cipherSuite = 17, s.privilege = 3, s.timing.timeoutMs = 2500;
    const std::pair<int, std::string> cases[] = {
        {IPMI_ERR_PRIVILEGE_LEVEL_CANNOT_BE_OBTAINED,
         "the BMC refused the login: user \"op\" may not have the operator privilege (lib)"},
        {IPMI_ERR_CIPHER_SUITE_ID_UNAVAILABLE, "the BMC does not offer cipher suite 17 (lib)"},
        {IPMI_ERR_SESSION_TIMEOUT, "the BMC did not answer within 2500 ms (lib); is the address "
                                   "right and IPMI over LAN enabled on it?"},
        {IPMI_ERR_HOSTNAME_INVALID, "cannot find the host \"bmc\" (lib)"},
        {IPMI_ERR_INTERNAL_ERROR, "lib"}, // nothing to add to libfreeipmi's words
    };
    for (const auto& [errnum, line] : cases) {
        EXPECT_EQ(freeipmi::sessionOpenFailure(errnum, "lib", s), line);
    }
}

TEST(FreeIpmiSettings, WorkaroundNamesAndHostArgument) {
    // Names compared without case; each family only where it applies.
    struct Case {
        const char* name;
        bool lan, known;
    };
    for (Case c : {Case{"OpenSessPriv", true, true}, Case{"assumeio", false, true},
                   Case{"spinpoll", true, false}, Case{"opensesspriv", false, false},
                   Case{"", true, false}}) {
        std::string error;
        EXPECT_EQ(freeipmi::workaroundFlag(c.name, c.lan, &error).has_value(), c.known) << c.name;
        if (!c.known) {
            EXPECT_NE(error.find(std::string("\"") + c.name + "\""), std::string::npos) << error;
            EXPECT_NE(error.find(c.lan ? "opensesspriv" : "assumeio"), std::string::npos);
        }
    }
    EXPECT_FALSE(freeipmi::workaroundFlags({"opensesspriv", "bogus"}, true, nullptr));
    // An IPv6 address needs brackets so that its colons are not read as the port's.
    EXPECT_EQ(FreeIpmiTransport::hostArgument("bmc1", 623), "bmc1:623");
    EXPECT_EQ(FreeIpmiTransport::hostArgument("fe80::1", 6230), "[fe80::1]:6230");
}

TEST(FreeIpmiSettings, PasswordFiles) {
    const std::string x20(20, 'x');
    // The first line as it is, spaces included; IPMI 2.0 takes at most 20 bytes.
    const std::pair<std::string, std::optional<std::string>> files[] = {
        {" s 3 \r\nsecond\n", " s 3 "}, {"", ""}, {x20, x20}, {x20 + "Y\n", std::nullopt}};
    for (const auto& [content, password] : files) {
        std::string path = test::writeTempFile("pw", content), error;
        EXPECT_EQ(freeipmi::readPasswordFile(path, &error), password) << content;
        if (!password) {
            EXPECT_NE(error.find(path), std::string::npos);
            EXPECT_EQ(error.find("xxxxY"), std::string::npos) << "the password leaked: " << error;
        }
    }
    std::string error;
    EXPECT_FALSE(freeipmi::readPasswordFile("/nonexistent/pw", &error));
    EXPECT_NE(error.find("/nonexistent/pw"), std::string::npos);
}

} // namespace
} // namespace ipmisel::e2e
