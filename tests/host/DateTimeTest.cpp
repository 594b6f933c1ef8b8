// CIM date-time and interval texts, differences, ordering, local time and the
// status texts.
#include <gtest/gtest.h>

#include <tuple>

#include "host/framework.h"
#include "tests/support/HostFixture.h"

using namespace NOXAQSV20;

namespace {

TCIMDateTime at(uint16_t y, uint16_t mo, uint32_t d, uint16_t h, uint16_t mi, uint16_t s,
                uint32_t us = 0, int16_t offset = 0) {
    TCIMDateTime t;
    t.Set(y, mo, d, h, mi, s, us, offset);
    return t;
}

TCIMDateTime span(uint32_t d, uint16_t h, uint16_t mi, uint16_t s, uint32_t us = 0) {
    TCIMDateTime t;
    t.Set(d, h, mi, s, us);
    return t;
}

} // namespace

TEST(DateTime, TextsKeepTheirFixedLayout) {
    const std::pair<TCIMDateTime, const char*> cases[] = {
        {TCIMDateTime(), "19700101000000.000000+000"},
        {at(2024, 2, 29, 23, 59, 59, 999999, -300), "20240229235959.999999-300"},
        {at(2005, 6, 7, 8, 9, 10, 0, -1), "20050607080910.000000-001"},
        // Out-of-range fields are held at the widest value instead of widening the text.
        {at(65535, 99, 99, 99, 99, 99, 9999999, -32768), "99999999999999.999999-999"},
        {span(1, 2, 3, 4, 5), "00000001020304.000005:000"},
        {span(4000000000u, 0, 0, 0), "99999999000000.000000:000"},
    };
    for (const auto& [value, text] : cases) {
        EXPECT_EQ(value.ToString(), text);
    }
    // A negative offset reads back as its 16-bit pattern.
    EXPECT_EQ(at(2020, 1, 1, 0, 0, 0, 0, -300).GetUTCOffset(), static_cast<uint16_t>(-300));
}

TEST(DateTime, DifferenceAndOrderGoByTheInstant) {
    const std::tuple<TCIMDateTime, TCIMDateTime, const char*> cases[] = {
        // Across a leap day and midnight, in either order.
        {at(2024, 3, 1, 0, 0, 10), at(2024, 2, 28, 23, 59, 50), "00000001000020.000000:000"},
        {at(2024, 2, 28, 23, 59, 50), at(2024, 3, 1, 0, 0, 10), "00000001000020.000000:000"},
        // Microseconds borrow from the seconds, also before 1970.
        {at(1970, 1, 1, 0, 0, 0), at(1969, 12, 31, 23, 59, 59, 500000),
         "00000000000000.500000:000"},
        // A zone five hours west.
        {at(2010, 5, 5, 0, 0, 0, 0, -300), at(2010, 5, 5, 0, 0, 0), "00000000050000.000000:000"},
        // An instant moved back by an interval stays in its zone.
        {at(2024, 3, 1, 0, 30, 0, 0, -300), span(0, 1, 0, 0), "20240229233000.000000-300"},
    };
    for (const auto& [a, b, text] : cases) {
        EXPECT_EQ((a - b).ToString(), text) << a.ToString() << " - " << b.ToString();
    }
    // Less-than compares instants: 10:00 at +1h is 09:00 UTC.
    EXPECT_TRUE(at(2020, 1, 1, 10, 0, 0, 0, 60) < at(2020, 1, 1, 9, 30, 0));
    EXPECT_FALSE(at(2020, 1, 1, 10, 0, 0, 0, 60) < at(2020, 1, 1, 9, 0, 0));
}

TEST(DateTime, LocalTimeUsesTheConfiguredOrTheSystemZone) {
    ipmisel::test::HostCapture host;
    // 1971-01-01 01:01:01 UTC seen five hours west, then five and a half east.
    host.config().now = [] { return int64_t{365 * 86400 + 3661}; };
    host.config().utcOffsetMinutes = -300;
    EXPECT_EQ(TOSSpecific::GetLocalTime().ToString(), "19701231200101.000000-300");
    host.config().utcOffsetMinutes = 330;
    EXPECT_EQ(TOSSpecific::GetLocalTime().ToString(), "19710101063101.000000+330");
    // The system's own zone changes the text, never the instant.
    host.config().utcOffsetMinutes.reset();
    EXPECT_EQ(TOSSpecific::GetLocalTime().Microseconds(), (365LL * 86400 + 3661) * 1000000);
}

TEST(StatusCode, TextReferencesOutliveTheStatusObject) {
    const std::string* kept = &TQSVStatusCode(QSV_INVALID_TIME).TranslateStatusCode();
    EXPECT_EQ(&TQSVStatusCode(QSV_INVALID_TIME).TranslateStatusCode(), kept);
    EXPECT_NE(*kept, TQSVStatusCode(QSV_ERROR).TranslateStatusCode());
    EXPECT_NE(TQSVStatusCode(12345).TranslateStatusCode(),
              TQSVStatusCode(QSV_SUCCESS).TranslateStatusCode());
}
