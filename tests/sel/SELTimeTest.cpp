// Time stamps and the BMC clock difference, in three zones: the local offset
// comes from the host configuration, never from the machine running the test.
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "sel/IPMISELEntry.h"
#include "tests/support/HostFixture.h"

namespace ipmisel {
namespace {

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

// The stamp in bytes 3-6 (or 11-14) as text; always handed a difference of
// days, with either setting of the flags, none of which may show.
std::string Stamp(uint32_t raw, StampSource source = StampSource::Record, uint32_t size = 64) {
    IPMISELEntry e;
    for (size_t i = 0; i < 4; ++i) {
        e.bytes[(source == StampSource::Record ? 3 : 11) + i] = static_cast<uint8_t>(raw >> 8 * i);
    }
    e.bytes[source == StampSource::Record ? 14 : 6] = 0x80; // the other stamp is negative
    NOXAQSV20::TCIMDateTime diff;
    diff.Set(uint32_t{3}, 4, 5, 6, 0);
    char out[64];
    std::memset(out, 'x', sizeof out);
    const bool record = source == StampSource::Record;
    EXPECT_EQ(0, e.GetTimestamp(out, size, diff, record, !record, source));
    return std::string(out, strnlen(out, sizeof out));
}

TEST(SELTimestamp, TheBMCsTimeWithTheLocalOffsetAndNothingAdded) {
    // The UTC fields whatever the zone; none: negative, the default text.
    const std::tuple<uint32_t, const char*, int, const char*> cases[] = {
        {0x00000000, "19700101000000", 4, "Adding 0 hours to Timestamp."},
        {0x1FFFFFFF, "19870105184831", 4, "Adding 0 hours to Timestamp."},
        {0x20000000, "19870105184832", 4, "No addition to Timestamp."},
        {0x80000000, nullptr, 3, "Could not convert CurrentTimeStamp."},
        {0xFFFFFFFF, nullptr, 3, "Could not convert CurrentTimeStamp."},
    };
    for (int offset : {0, 330, -300}) {
        for (const auto& [raw, utc, severity, branch] : cases) {
            HostCapture host = Zone(offset);
            char zone[8];
            std::snprintf(zone, sizeof zone, "%+04d", offset);
            const std::string want = utc ? utc + std::string(".000000") + zone : kDefault;
            EXPECT_EQ(want, Stamp(raw)) << offset << " " << raw;
            EXPECT_EQ(want, Stamp(raw, StampSource::Embedded)) << offset << " " << raw;
            EXPECT_TRUE(host.hasLog(severity, branch));
            EXPECT_EQ(utc == nullptr,
                      host.hasLog(2, "Unable to obtain Timestamp due to caught exception " +
                                         kInvalidTimeText +
                                         ". Using default Timestamp (1/2/1970)."));
        }
    }
    // A 20-character buffer gets a cut text without terminator.
    HostCapture host = Zone(0);
    EXPECT_EQ("19870105184832.00000xxxx", Stamp(0x20000000, StampSource::Record, 20).substr(0, 24));
    EXPECT_EQ(kDefault.substr(0, 20) + "xxxx",
              Stamp(0x80000000, StampSource::Record, 20).substr(0, 24));
}

TEST(SELTimestamp, EveryDateAsTheCLibraryHasIt) {
    // The last second of every 37th day up to 2038 (every month and leap
    // day comes round), and the first seconds of the leap days themselves.
    HostCapture host = Zone(0);
    std::vector<int64_t> raws;
    for (int64_t day = 0; day < 24855; day += 37) {
        raws.push_back(day * 86400 + 86399);
    }
    for (int64_t leapDay : {951782400, 1709164800, 2024784000, 68169600}) {
        raws.push_back(leapDay); // 2000-02-29, 2024-02-29, 2034-03-01 (no leap day), 1972-02-29
    }
    raws.push_back(0x7FFFFFFF);
    for (int64_t raw : raws) {
        const time_t t = static_cast<time_t>(raw);
        std::tm tm{};
        ASSERT_NE(nullptr, gmtime_r(&t, &tm));
        char want[32];
        std::strftime(want, sizeof want, "%Y%m%d%H%M%S.000000+000", &tm);
        ASSERT_EQ(want, Stamp(static_cast<uint32_t>(raw))) << raw;
    }
}

FakeTransport::Handler Reply(host::IpmiResponse r) {
    return [r](const host::IpmiRequest&) { return r; };
}
FakeTransport::Handler Clock(uint32_t t) {
    return Reply(test::ok({uint8_t(t), uint8_t(t >> 8), uint8_t(t >> 16), uint8_t(t >> 24)}));
}

TEST(SELDiffTime, MeasuredOrLeftAlone) {
    const uint32_t now = 1700000000;
    const std::string error = "IPMI error in obtaining system event log device time: ";
    const std::string same = "00000001000000.000000:000";
    const std::string negative = "Unable to obtain set DiffTime due to caught exception ";
    // Zone, the BMC's answer (none: no library), the difference and "not
    // behind" after a run from one day and false, and a line to be logged.
    const std::tuple<int, FakeTransport::Handler, std::string, bool, int, std::string> cases[] = {
        {0, Clock(now + 10), "00000000000010.000000:000", true, 3, "BMCTime raw = 1700000010"},
        // The UTC reading is labelled with the local offset: east of UTC a
        // clock in step counts as behind by the offset, west as ahead.
        {60, Clock(now), "00000000010000.000000:000", false, 3,
         "OSTime  = 20231114231320.000000+060"},
        {-300, Clock(now), "00000000050000.000000:000", true, 3,
         "BMCTime = 20231114221320.000000-300"},
        {0, nullptr, same, false, 2, "Could not allocate memory for SPLibrary in DiffTime."},
        {0, Reply(test::notSent()), same, false, 0,
         "Failure in sending command to obtain system event log device time."},
        {0, Reply(test::cc(0xC7)), same, false, 1, error + "Request data length"},
        {0, Reply(test::ok({1, 2})), same, false, 1, error + "Response too short."},
        {0, Clock(0xFFFFFFFF), same, false, 3, negative + kInvalidTimeText},
    };
    for (const auto& [offset, answer, diff, notBehind, severity, line] : cases) {
        HostCapture host = Zone(offset);
        auto bmc = std::make_shared<FakeTransport>(answer);
        host.setNodes({bmc});
        NOXAQSV20::TCIMDateTime measured;
        measured.Set(uint32_t{1}, 0, 0, 0, 0);
        bool measuredNotBehind = false;
        auto* library = answer ? NOXAQSV20::SPLibrary::GetSplibraryInstance(0) : nullptr;
        EXPECT_EQ(diff == same, GetDiffTime(measured, measuredNotBehind, library) == 1);
        EXPECT_EQ(diff, measured.ToString());
        EXPECT_EQ(notBehind, measuredNotBehind) << diff;
        EXPECT_TRUE(host.hasLog(severity, line)) << line;
        for (const auto& r : bmc->received) {
            EXPECT_EQ(0x0A48, r.netfn << 8 | r.cmd); // Get SEL Time
        }
    }
}

} // namespace
} // namespace ipmisel
