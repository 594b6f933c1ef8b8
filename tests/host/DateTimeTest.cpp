// CIM date-time texts, intervals, differences and ordering, and the status texts.
#include <gtest/gtest.h>

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

TEST(DateTime, TextOfAbsoluteValues) {
    struct Case {
        TCIMDateTime value;
        const char* text;
    } cases[] = {
        {TCIMDateTime(), "19700101000000.000000+000"},
        {at(1970, 1, 1, 0, 0, 0), "19700101000000.000000+000"},
        {at(2024, 2, 29, 23, 59, 59, 999999, -300), "20240229235959.999999-300"},
        {at(2001, 9, 8, 7, 6, 5, 4, 60), "20010908070605.000004+060"},
        {at(1999, 12, 31, 12, 0, 0, 0, 840), "19991231120000.000000+840"},
        {at(2005, 6, 7, 8, 9, 10, 0, -1), "20050607080910.000000-001"},
        // Out-of-range fields keep the fixed layout instead of widening the text.
        {at(65535, 99, 99, 99, 99, 99, 9999999, -32768), "99999999999999.999999-999"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.value.ToString(), c.text);
        EXPECT_EQ(c.value.ToString().size(), 25u);
        EXPECT_FALSE(c.value.IsInterval());
    }
}

TEST(DateTime, NegativeOffsetReadsBackAsSixteenBits) {
    EXPECT_EQ(at(2020, 1, 1, 0, 0, 0, 0, -300).GetUTCOffset(), static_cast<uint16_t>(-300));
    EXPECT_EQ(at(2020, 1, 1, 0, 0, 0, 0, 120).GetUTCOffset(), 120);
}

TEST(DateTime, TextOfIntervals) {
    EXPECT_EQ(span(0, 0, 0, 0).ToString(), "00000000000000.000000:000");
    EXPECT_EQ(span(1, 2, 3, 4, 5).ToString(), "00000001020304.000005:000");
    EXPECT_EQ(span(4000000000u, 0, 0, 0).ToString(), "99999999000000.000000:000");
    EXPECT_TRUE(span(0, 0, 0, 0).IsInterval());
}

TEST(DateTime, DifferenceIsTheDistanceBetweenInstants) {
    struct Case {
        TCIMDateTime a, b;
        const char* text;
    } cases[] = {
        // Across a leap day and midnight.
        {at(2024, 3, 1, 0, 0, 10), at(2024, 2, 28, 23, 59, 50), "00000001000020.000000:000"},
        // Order does not matter: the length is what is kept.
        {at(2024, 2, 28, 23, 59, 50), at(2024, 3, 1, 0, 0, 10), "00000001000020.000000:000"},
        {at(2000, 1, 1, 0, 0, 0), at(1999, 12, 31, 0, 0, 0), "00000001000000.000000:000"},
        {at(2021, 3, 1, 0, 0, 0), at(2021, 2, 28, 0, 0, 0), "00000001000000.000000:000"},
        // Microseconds borrow from the seconds.
        {at(2010, 5, 5, 0, 0, 1, 0), at(2010, 5, 5, 0, 0, 0, 999999), "00000000000000.000001:000"},
        // Same instant written in two zones.
        {at(2010, 5, 5, 10, 0, 0, 0, 60), at(2010, 5, 5, 9, 0, 0, 0, 0),
         "00000000000000.000000:000"},
        {at(2010, 5, 5, 0, 0, 0, 0, -300), at(2010, 5, 5, 0, 0, 0, 0, 0),
         "00000000050000.000000:000"},
        // A BMC clock at 0 against a recent local time: many days.
        {at(1970, 1, 1, 0, 0, 0), at(2000, 1, 1, 0, 0, 0), "00010957000000.000000:000"},
    };
    for (const auto& c : cases) {
        TCIMDateTime d = c.a - c.b;
        EXPECT_TRUE(d.IsInterval());
        EXPECT_EQ(d.ToString(), c.text) << c.a.ToString() << " - " << c.b.ToString();
    }
}

TEST(DateTime, InstantMinusIntervalStaysInItsZone) {
    TCIMDateTime t = at(2024, 3, 1, 0, 30, 0, 0, -300) - span(0, 1, 0, 0);
    EXPECT_EQ(t.ToString(), "20240229233000.000000-300");
}

TEST(DateTime, LessThanComparesInstants) {
    // 10:00 at +1h is 09:00 UTC, before 09:30 UTC.
    EXPECT_TRUE(at(2020, 1, 1, 10, 0, 0, 0, 60) < at(2020, 1, 1, 9, 30, 0));
    EXPECT_FALSE(at(2020, 1, 1, 9, 30, 0) < at(2020, 1, 1, 10, 0, 0, 0, 60));
    // Equal instants are not less in either direction.
    TCIMDateTime a = at(2020, 1, 1, 10, 0, 0, 0, 60), b = at(2020, 1, 1, 9, 0, 0);
    EXPECT_FALSE(a < b);
    EXPECT_FALSE(b < a);
    EXPECT_TRUE(at(2020, 1, 1, 0, 0, 0, 1) < at(2020, 1, 1, 0, 0, 0, 2));
    EXPECT_TRUE(span(0, 23, 59, 59) < span(1, 0, 0, 0));
    EXPECT_FALSE(span(1, 0, 0, 0) < span(0, 23, 59, 59));
}

TEST(DateTime, MicrosecondsCountFromTheEpochInUtc) {
    EXPECT_EQ(at(1970, 1, 1, 0, 0, 0).Microseconds(), 0);
    EXPECT_EQ(at(1970, 1, 1, 0, 0, 0, 0, 60).Microseconds(), -3600LL * 1000000);
    EXPECT_EQ(at(2038, 1, 19, 3, 14, 8).Microseconds(), (1LL << 31) * 1000000);
    EXPECT_EQ(at(1969, 12, 31, 23, 59, 59, 500000).Microseconds(), -500000);
    EXPECT_EQ(span(2, 0, 0, 1, 7).Microseconds(), (2LL * 86400 + 1) * 1000000 + 7);
}

TEST(DateTime, SetDateTimeFillsTheSameFields) {
    TCIMDateTime t;
    EXPECT_EQ(fdrSetDateTime(&t, 2023, 7, 4, 12, 34, 56, 789, -420), QSV_SUCCESS);
    EXPECT_EQ(t.ToString(), at(2023, 7, 4, 12, 34, 56, 789, -420).ToString());
    EXPECT_EQ(fdrSetDateTime(nullptr, 2023, 7, 4, 12, 34, 56, 0, 0), QSV_ERROR);
}

TEST(DateTime, LocalTimeUsesConfiguredClockAndZone) {
    ipmisel::test::HostCapture host;
    // 1971-01-01 01:01:01 UTC seen five hours west.
    host.config().now = [] { return int64_t{365 * 86400 + 3661}; };
    host.config().utcOffsetMinutes = -300;
    TCIMDateTime t = TOSSpecific::GetLocalTime();
    EXPECT_EQ(t.ToString(), "19701231200101.000000-300");
    EXPECT_EQ(t.Microseconds(), (365LL * 86400 + 3661) * 1000000);

    host.config().utcOffsetMinutes = 330;
    EXPECT_EQ(TOSSpecific::GetLocalTime().ToString(), "19710101063101.000000+330");
}

TEST(DateTime, LocalTimeWithTheSystemZoneKeepsTheInstant) {
    ipmisel::test::HostCapture host;
    host.config().now = [] { return int64_t{1700000000}; };
    host.config().utcOffsetMinutes.reset();
    EXPECT_EQ(TOSSpecific::GetLocalTime().Microseconds(), 1700000000LL * 1000000);
}

TEST(StatusCode, TextsAreDistinctAndStable) {
    const std::string& ok = TQSVStatusCode(QSV_SUCCESS).TranslateStatusCode();
    const std::string& error = TQSVStatusCode(QSV_ERROR).TranslateStatusCode();
    const std::string& none = TQSVStatusCode(QSV_NO_MORE_DATA).TranslateStatusCode();
    const std::string& time = TQSVStatusCode(QSV_INVALID_TIME).TranslateStatusCode();
    const std::string& other = TQSVStatusCode(12345).TranslateStatusCode();
    std::set<std::string> texts{ok, error, none, time, other};
    EXPECT_EQ(texts.size(), 5u);
    EXPECT_EQ(&TQSVStatusCode(QSV_INVALID_TIME).TranslateStatusCode(), &time);
    EXPECT_EQ(&TQSVStatusCode(-7).TranslateStatusCode(), &other);

    try {
        throw TQSVException(TQSVStatusCode(QSV_INVALID_TIME));
    } catch (const TQSVException& e) {
        EXPECT_EQ(std::string(e.what()), time);
        EXPECT_EQ(e.GetStatus().GetCode(), QSV_INVALID_TIME);
    }
}
