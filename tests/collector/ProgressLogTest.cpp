// SEL progress worked out from the traffic, and the log file's record format.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "collector/LogFile.h"
#include "collector/Progress.h"
#include "tests/support/HostFixture.h"

using namespace ipmisel::collector;
using ipmisel::host::IpmiRequest;
using ipmisel::host::IpmiResponse;
namespace t = ipmisel::test;

namespace {

IpmiRequest request(uint8_t netfn, uint8_t cmd) {
    return IpmiRequest{netfn, 0, cmd, {}};
}

TEST(CountingTransport, TotalFromSelInfoLittleEndianAndEntriesCounted) {
    IpmiResponse selInfo = t::ok({0x51, 0x02, 0x01, 0x00, 0x10});
    auto inner = std::make_shared<t::FakeTransport>([&](const IpmiRequest& r) {
        return r.cmd == 0x40 ? selInfo : t::ok({0x00, 0x00});
    });
    CountingTransport counting(inner, 0);
    EXPECT_EQ(counting.describe(), "fake BMC");
    counting.send(request(0x0A, 0x40));
    EXPECT_EQ(counting.selTotal(), 0x0102u); // 258: count is LS byte first
    for (int i = 0; i < 3; ++i) {
        counting.send(request(0x0A, 0x43));
    }
    // Neither another netfn with the same command nor other storage commands count.
    counting.send(request(0x06, 0x43));
    counting.send(request(0x0A, 0x42));
    EXPECT_EQ(counting.selRead(), 3u);
    EXPECT_EQ(inner->received.size(), 6u); // everything still went through

    // A second Get SEL Info (a retry or the next pass) starts the count again;
    // the largest count the field holds is 65535.
    selInfo = t::ok({0x51, 0xFF, 0xFF});
    counting.send(request(0x0A, 0x40));
    EXPECT_EQ(counting.selTotal(), 65535u);
    EXPECT_EQ(counting.selRead(), 0u);
}

TEST(CountingTransport, UnusableSelInfoAnswersKeepTheLastTotal) {
    IpmiResponse answer;
    auto inner = std::make_shared<t::FakeTransport>([&](const IpmiRequest&) { return answer; });
    CountingTransport counting(inner, 2);
    answer = t::ok({0x51, 0x10, 0x00});
    counting.send(request(0x0A, 0x40));
    ASSERT_EQ(counting.selTotal(), 16u);
    for (IpmiResponse bad : {t::cc(0xC1), t::notSent(), t::ok({0x51, 0x20})}) {
        answer = bad;
        counting.send(request(0x0A, 0x40));
        EXPECT_EQ(counting.selTotal(), 16u);
    }
}

TEST(ProgressDisplay, QuietUnlessEnabledAndLong) {
    std::ostringstream err;
    {
        ProgressDisplay off(err, false, 1);
        off.update(0, 1, 1000);
        ProgressDisplay shortSel(err, true, 256);
        shortSel.update(0, 1, 255);
    }
    EXPECT_EQ(err.str(), "");
}

TEST(ProgressDisplay, DrawsInPlaceAndClears) {
    std::ostringstream err;
    ProgressDisplay p(err, true, 10);
    const std::string shown = "node 2: SEL entries 10 / 10";
    p.update(1, 10, 10); // the first and the last entry are always drawn
    EXPECT_EQ(err.str(), "\r" + shown);
    p.clear();
    const std::string cleared = "\r" + shown + "\r" + std::string(shown.size(), ' ') + "\r";
    EXPECT_EQ(err.str(), cleared);
    p.clear(); // nothing shown: nothing written
    EXPECT_EQ(err.str(), cleared);
    // More requests than entries (retries) never show more read than there are.
    EXPECT_EQ(ProgressDisplay::text(0, 70000, 65535), "node 1: SEL entries 65535 / 65535");
}

TEST(ProgressDisplay, CountingTransportFeedsIt) {
    std::ostringstream err;
    ProgressDisplay p(err, true, 2);
    auto inner = std::make_shared<t::FakeTransport>([](const IpmiRequest& r) {
        return r.cmd == 0x40 ? t::ok({0x51, 0x02, 0x00}) : t::ok({});
    });
    CountingTransport counting(inner, 0, &p);
    counting.send(request(0x0A, 0x40));
    counting.send(request(0x0A, 0x43));
    counting.send(request(0x0A, 0x43));
    EXPECT_NE(err.str().find("node 1: SEL entries 2 / 2"), std::string::npos) << err.str();
}

TEST(LogFile, OneRecordPerCallTextVerbatim) {
    EXPECT_EQ(formatLogRecord(0, "Could not register plugin!"), "0 Could not register plugin!\n");
    EXPECT_EQ(formatLogRecord(4, ""), "4 \n");
    // Texts that carry their own new line or odd spacing keep it.
    EXPECT_EQ(formatLogRecord(1, "Failed to export SEL array.\n"),
              "1 Failed to export SEL array.\n\n");
    EXPECT_EQ(formatLogRecord(3, "RecordSize=  12 "), "3 RecordSize=  12 \n");

    std::string path = t::makeTempDir() + "/log.txt";
    LogFile log;
    std::string error;
    ASSERT_TRUE(log.open(path, &error)) << error;
    log.write(4, "IPMIRequestSEL::IPMIGetSELInfo() entered.");
    log.write(1, "two\nlines");
    EXPECT_TRUE(log.close());
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    EXPECT_EQ(content.str(), "4 IPMIRequestSEL::IPMIGetSELInfo() entered.\n1 two\nlines\n");
}

TEST(LogFile, UnwritablePathIsReported) {
    LogFile log;
    std::string error;
    EXPECT_FALSE(log.open("/nonexistent-folder/log.txt", &error));
    EXPECT_NE(error.find("/nonexistent-folder/log.txt"), std::string::npos) << error;
}

} // namespace
