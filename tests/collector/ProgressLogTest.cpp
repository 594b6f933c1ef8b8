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

TEST(CountingTransport, SelTotalLittleEndianEntriesCountedAndShown) {
    IpmiResponse selInfo = t::ok({0x51, 0x02, 0x01, 0x00, 0x10});
    auto inner = std::make_shared<t::FakeTransport>([&](const IpmiRequest& r) {
        return r.cmd == 0x40 ? selInfo : t::ok({0x00, 0x00});
    });
    std::ostringstream err;
    ProgressDisplay progress(err, true, 2);
    CountingTransport counting(inner, 1, &progress);
    counting.send(request(0x0A, 0x40));
    EXPECT_EQ(counting.selTotal(), 0x0102u); // 258: count is LS byte first
    for (int i = 0; i < 3; ++i) {
        counting.send(request(0x0A, 0x43));
    }
    // Another netfn with the same command does not count.
    counting.send(request(0x06, 0x43));
    EXPECT_EQ(counting.selRead(), 3u);
    EXPECT_EQ(inner->received.size(), 5u); // everything still went through
    // The first entry is always drawn; later ones at most every so often.
    EXPECT_TRUE(err.str().starts_with("\rnode 2: SEL entries 1 / 258")) << err.str();

    // A second Get SEL Info (a retry or the next pass) starts the count again;
    // the largest count the field holds is 65535.
    selInfo = t::ok({0x51, 0xFF, 0xFF});
    counting.send(request(0x0A, 0x40));
    EXPECT_EQ(counting.selTotal(), 65535u);
    EXPECT_EQ(counting.selRead(), 0u);
    // Answers that fail or are too short to hold the count keep the last total.
    for (IpmiResponse bad : {t::cc(0xC1), t::ok({0x51, 0x20})}) {
        selInfo = bad;
        counting.send(request(0x0A, 0x40));
        EXPECT_EQ(counting.selTotal(), 65535u);
    }
}

TEST(ProgressDisplay, QuietUnlessEnabledAndLongThenDrawsInPlaceAndClears) {
    std::ostringstream err;
    ProgressDisplay(err, false, 1).update(0, 1, 1000);
    ProgressDisplay(err, true, 256).update(0, 1, 255);
    EXPECT_EQ(err.str(), "");

    ProgressDisplay p(err, true, 10);
    const std::string shown = "node 2: SEL entries 10 / 10";
    p.update(1, 10, 10); // the last entry is always drawn
    EXPECT_EQ(err.str(), "\r" + shown);
    p.clear();
    const std::string cleared = "\r" + shown + "\r" + std::string(shown.size(), ' ') + "\r";
    EXPECT_EQ(err.str(), cleared);
    p.clear(); // nothing shown: nothing written
    EXPECT_EQ(err.str(), cleared);
    // More requests than entries (retries) never show more read than there are.
    EXPECT_EQ(ProgressDisplay::text(0, 70000, 65535), "node 1: SEL entries 65535 / 65535");
}

TEST(LogFile, OneRecordPerCallTextVerbatim) {
    const std::string path = t::makeTempDir("logfile") + "/run.log";
    LogFile log;
    ASSERT_TRUE(log.open(path, nullptr));
    // Texts that carry their own new line or odd spacing keep it.
    log.write(1, "Failed to export SEL array.\n");
    log.write(3, "RecordSize=  12 ");
    log.write(4, "");
    ASSERT_TRUE(log.close());
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    EXPECT_EQ(text.str(), "1 Failed to export SEL array.\n\n3 RecordSize=  12 \n4 \n");
}

} // namespace
