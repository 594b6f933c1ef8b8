// Time stamps and the BMC clock difference, in three zones: the local offset
// comes from the host configuration, never from the machine running the test.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sel/IPMISELEntry.h"
#include "tests/support/HostFixture.h"

namespace ipmisel {
namespace {

using NOXAQSV20::SPLibrary;
using test::FakeTransport;
using test::HostCapture;

const std::string kDefault = "19700101000000.000000+000";
const std::string kInvalidTimeText = NOXAQSV20::TQSVStatusCode(21).TranslateStatusCode();

HostCapture Zone(int offsetMinutes) {
    host::Config config;
    config.utcOffsetMinutes = offsetMinutes;
    config.now = [] { return int64_t{1700000000}; }; // 2023-11-14 22:13:20 UTC
    return HostCapture(std::move(config));
}

IPMISELEntry Stamped(uint32_t stamp, size_t at = 3) {
    IPMISELEntry e;
    for (size_t i = 0; i < 4; ++i) {
        e.bytes[at + i] = static_cast<uint8_t>(stamp >> (8 * i));
    }
    return e;
}

std::string Stamp(IPMISELEntry& e, StampSource source = StampSource::Record) {
    char out[64];
    std::memset(out, 'x', sizeof out);
    EXPECT_EQ(0, e.GetTimestamp(out, sizeof out, NOXAQSV20::TCIMDateTime(), true, true, source));
    return std::string(out, strnlen(out, sizeof out));
}

std::string OffsetText(int minutes) {
    char text[16];
    std::snprintf(text, sizeof text, "%c%03d", minutes < 0 ? '-' : '+', std::abs(minutes));
    return text;
}

TEST(SELTimestamp, TheBMCsTimeWithTheLocalOffsetAndNothingAdded) {
    const struct {
        uint32_t raw;
        const char* fields; // the UTC reading, whatever the zone
        const char* branch;
    } cases[] = {
        {0x00000000, "19700101000000", "Adding 0 hours to Timestamp."},
        {0x1FFFFFFF, "19870105184831", "Adding 0 hours to Timestamp."},
        {0x20000000, "19870105184832", "No addition to Timestamp."},
        {0x7FFFFFFF, "20380119031407", "No addition to Timestamp."},
    };
    for (int offset : {0, 330, -300}) {
        for (const auto& c : cases) {
            HostCapture host = Zone(offset);
            IPMISELEntry e = Stamped(c.raw);
            const std::string want = std::string(c.fields) + ".000000" + OffsetText(offset);
            EXPECT_EQ(want, Stamp(e)) << offset << " " << c.raw;
            EXPECT_TRUE(host.hasLog(c.branch));
            EXPECT_TRUE(host.hasLog("RawTimeStamp = " + std::to_string(c.raw) +
                                    "\n         PreTimeStamp = " + want));
            EXPECT_TRUE(host.hasLog("Timestamp = " + want));
            EXPECT_TRUE(host.hasLog(4, "IPMISELEntry::GetTimestamp() function completed."));
        }
    }
}

TEST(SELTimestamp, NegativeTimesGiveTheDefault) {
    for (uint32_t raw : {0x80000000u, 0xFFFFFFFFu}) {
        HostCapture host = Zone(-300);
        IPMISELEntry e = Stamped(raw);
        EXPECT_EQ(kDefault, Stamp(e));
        EXPECT_TRUE(host.hasLog(3, "Could not convert CurrentTimeStamp."));
        EXPECT_TRUE(host.hasLog(2, "Unable to obtain Timestamp due to caught exception " +
                                       kInvalidTimeText + ". Using default Timestamp (1/2/1970)."));
        EXPECT_FALSE(host.logContains("Timestamp = "));
        EXPECT_FALSE(host.hasLog("IPMISELEntry::GetTimestamp() function completed."));
    }
}

TEST(SELTimestamp, EmbeddedFormReadsBytesElevenToFourteen) {
    HostCapture host = Zone(0);
    IPMISELEntry e = Stamped(0x20000000, 11);
    e.bytes[6] = 0x80; // record stamp negative: must not matter
    EXPECT_EQ("19870105184832.000000+000", Stamp(e, StampSource::Embedded));
    EXPECT_EQ(kDefault, Stamp(e, StampSource::Record));
}

TEST(SELTimestamp, TheDifferenceIsNeverApplied) {
    HostCapture host = Zone(60);
    IPMISELEntry e = Stamped(0x20000000);
    NOXAQSV20::TCIMDateTime diff;
    diff.Set(uint32_t{3}, 4, 5, 6, 0);
    for (bool sync : {false, true}) {
        for (bool notBehind : {false, true}) {
            char out[32] = {};
            e.GetTimestamp(out, sizeof out, diff, sync, notBehind);
            EXPECT_STREQ("19870105184832.000000+060", out);
        }
    }
}

TEST(SELTimestamp, ShortCallerBufferGetsACutTextWithoutTerminator) {
    for (uint32_t raw : {0x20000000u, 0x80000000u}) {
        HostCapture host = Zone(0);
        IPMISELEntry e = Stamped(raw);
        char out[24];
        std::memset(out, 'x', sizeof out);
        e.GetTimestamp(out, 20, NOXAQSV20::TCIMDateTime(), true, true);
        const std::string full = raw == 0x20000000u ? "19870105184832.000000+000" : kDefault;
        EXPECT_EQ(full.substr(0, 20) + "xxxx", std::string(out, sizeof out));
    }
}

// ---- GetDiffTime -----------------------------------------------------------------

struct DiffRun {
    int rc;
    NOXAQSV20::TCIMDateTime diff;
    bool notBehind;
};

// The out values start as a one-day interval and false, so a run that must
// leave them alone can be told from one that wrote them.
DiffRun Measure(HostCapture& host, FakeTransport::Handler answer,
                std::shared_ptr<FakeTransport>* keep = nullptr) {
    auto bmc = std::make_shared<FakeTransport>(std::move(answer));
    host.setNodes({bmc});
    if (keep) {
        *keep = bmc;
    }
    DiffRun run{0, {}, false};
    run.diff.Set(uint32_t{1}, 0, 0, 0, 0);
    run.rc = GetDiffTime(run.diff, run.notBehind, SPLibrary::GetSplibraryInstance(0));
    return run;
}

std::vector<uint8_t> LE(int64_t v) {
    const auto u = static_cast<uint32_t>(v);
    return {static_cast<uint8_t>(u), static_cast<uint8_t>(u >> 8), static_cast<uint8_t>(u >> 16),
            static_cast<uint8_t>(u >> 24)};
}

TEST(SELDiffTime, MeasuresTheBMCsUTCReadingAgainstLocalTime) {
    const int64_t now = 1700000000;
    const struct {
        int offset;
        int64_t bmc;
        const char* diff;
        bool notBehind;
        const char* osText;
        const char* bmcText;
    } cases[] = {
        {0, now, "00000000000000.000000:000", true, "20231114221320.000000+000",
         "20231114221320.000000+000"},
        {0, now + 10, "00000000000010.000000:000", true, nullptr, nullptr},
        {0, now - 10, "00000000000010.000000:000", false, nullptr, nullptr},
        // The UTC reading is labelled with the local offset: east of UTC a
        // clock in step counts as behind by the offset, west as ahead.
        {60, now, "00000000010000.000000:000", false, "20231114231320.000000+060",
         "20231114221320.000000+060"},
        {-300, now, "00000000050000.000000:000", true, "20231114171320.000000-300",
         "20231114221320.000000-300"},
    };
    for (const auto& c : cases) {
        HostCapture host = Zone(c.offset);
        std::shared_ptr<FakeTransport> bmc;
        DiffRun run = Measure(
            host, [&](const host::IpmiRequest&) { return test::ok(LE(c.bmc)); }, &bmc);
        ASSERT_EQ(0, run.rc);
        EXPECT_EQ(c.diff, run.diff.ToString()) << c.offset << " " << c.bmc;
        EXPECT_EQ(c.notBehind, run.notBehind) << c.offset << " " << c.bmc;
        ASSERT_EQ(1u, bmc->received.size());
        EXPECT_EQ(0x0A, bmc->received[0].netfn);
        EXPECT_EQ(0x48, bmc->received[0].cmd);
        EXPECT_TRUE(bmc->received[0].data.empty());
        EXPECT_TRUE(host.hasLog("BMCTime raw = " + std::to_string(c.bmc)));
        if (c.osText) {
            EXPECT_TRUE(host.hasLog(std::string("OSTime  = ") + c.osText));
            EXPECT_TRUE(host.hasLog(std::string("BMCTime = ") + c.bmcText));
        }
        EXPECT_TRUE(host.hasLog(std::string("DiffTime = ") + c.diff));
        EXPECT_TRUE(host.hasLog(4, "GetDiffTime completed."));
    }
}

TEST(SELDiffTime, FailuresLeaveTheDifferenceAlone) {
    const std::string prefix = "IPMI error in obtaining system event log device time: ";
    const struct {
        const char* name;
        FakeTransport::Handler answer;
        int severity;
        std::string log;
    } cases[] = {
        {"send fails", [](const host::IpmiRequest&) { return test::notSent(); }, 0,
         "Failure in sending command to obtain system event log device time."},
        {"cut code text", [](const host::IpmiRequest&) { return test::cc(0xC7); }, 1,
         prefix + "Request data length"},
        // 81h is only known to the SEL entry commands.
        {"81h", [](const host::IpmiRequest&) { return test::cc(0x81); }, 1,
         prefix + "Unknown error\n"},
        {"negative time",
         [](const host::IpmiRequest&) {
             return test::ok({0, 0, 0, 0x80});
         },
         3, "Unable to obtain set DiffTime due to caught exception " + kInvalidTimeText},
        {"short answer",
         [](const host::IpmiRequest&) {
             return test::ok({1, 2});
         },
         1, prefix + "Response too short."},
    };
    for (const auto& c : cases) {
        HostCapture host = Zone(60);
        DiffRun run = Measure(host, c.answer);
        EXPECT_EQ(1, run.rc) << c.name;
        EXPECT_EQ("00000001000000.000000:000", run.diff.ToString()) << c.name;
        EXPECT_FALSE(run.notBehind) << c.name;
        EXPECT_TRUE(host.hasLog(c.severity, c.log)) << c.name;
        EXPECT_FALSE(host.hasLog("GetDiffTime completed.")) << c.name;
    }
    {
        HostCapture host = Zone(0);
        Measure(host, [](const host::IpmiRequest&) { return test::ok({0xFF, 0xFF, 0xFF, 0xFF}); });
        EXPECT_TRUE(host.hasLog(3, "Could not convert RawBMCTime."));
        EXPECT_TRUE(host.hasLog("BMCTime raw = -1"));
    }
}

TEST(SELDiffTime, NoLibraryMeansNoMeasurement) {
    HostCapture host = Zone(0);
    NOXAQSV20::TCIMDateTime diff;
    diff.Set(uint32_t{2}, 0, 0, 0, 0);
    bool notBehind = false;
    EXPECT_EQ(1, GetDiffTime(diff, notBehind, nullptr));
    EXPECT_EQ("00000002000000.000000:000", diff.ToString());
    EXPECT_FALSE(notBehind);
    EXPECT_TRUE(host.hasLog(2, "Could not allocate memory for SPLibrary in DiffTime."));
}

} // namespace
} // namespace ipmisel
