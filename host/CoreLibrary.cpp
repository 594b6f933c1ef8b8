// The core library: status texts, the CIM date-time value, facts about the
// machine, the core logger and the IPMI-over-LAN switch.
#include <sys/time.h>
#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <vector>

#include "host/framework.h"
#include "host/runtime.h"

namespace NOXAQSV20 {

namespace {

struct StatusText {
    EQSVStatusCode code;
    const char* text;
};

constexpr StatusText kStatusTexts[] = {
    {QSV_SUCCESS, "The operation completed successfully."},
    {QSV_ERROR, "The operation failed."},
    {QSV_NO_MORE_DATA, "No more data is available."},
    {QSV_INVALID_TIME, "The time value cannot be converted."},
};

constexpr int64_t kMicrosPerSecond = 1000000;
constexpr int64_t kMicrosPerDay = 86400 * kMicrosPerSecond;

// Days from 1970-01-01 to the given civil date (proleptic Gregorian calendar).
int64_t daysFromCivil(int64_t y, int64_t m, int64_t d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

struct Civil {
    int64_t year;
    uint32_t month, day;
};

Civil civilFromDays(int64_t z) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    const uint32_t d = static_cast<uint32_t>(doy - (153 * mp + 2) / 5 + 1);
    const uint32_t m = static_cast<uint32_t>(mp < 10 ? mp + 3 : mp - 9);
    return {yoe + era * 400 + (m <= 2), m, d};
}

int64_t floorDiv(int64_t a, int64_t b) {
    return a / b - ((a % b != 0) && ((a < 0) != (b < 0)));
}

// Fields wider than their slot in the text are held at the largest value that
// fits, so the text always keeps its fixed layout.
uint32_t fit(uint64_t value, uint32_t max) {
    return static_cast<uint32_t>(std::min<uint64_t>(value, max));
}

} // namespace

const std::string& TQSVStatusCode::TranslateStatusCode() const {
    // Built once; callers keep the reference.
    static const std::vector<std::string>* texts = [] {
        auto* v = new std::vector<std::string>();
        for (const StatusText& s : kStatusTexts) {
            v->emplace_back(s.text);
        }
        return v;
    }();
    static const std::string* generic =
        new std::string("The operation failed with an unknown status code.");
    for (size_t i = 0; i < std::size(kStatusTexts); ++i) {
        if (kStatusTexts[i].code == code_) {
            return (*texts)[i];
        }
    }
    return *generic;
}

TCIMDateTime::TCIMDateTime() = default;

void TCIMDateTime::Set(uint32_t days, uint16_t hours, uint16_t minutes, uint16_t seconds,
                       uint32_t microseconds) {
    interval_ = true;
    year_ = 0;
    month_ = 0;
    day_ = days;
    hour_ = hours;
    minute_ = minutes;
    second_ = seconds;
    microseconds_ = microseconds;
    utcOffset_ = 0;
}

void TCIMDateTime::Set(uint16_t year, uint16_t month, uint32_t day, uint16_t hour, uint16_t minute,
                       uint16_t second, uint32_t microseconds, int16_t utcOffset) {
    interval_ = false;
    year_ = year;
    month_ = month;
    day_ = day;
    hour_ = hour;
    minute_ = minute;
    second_ = second;
    microseconds_ = microseconds;
    utcOffset_ = utcOffset;
}

std::string TCIMDateTime::ToString() const {
    // Every field is held within its slot (fit), so each takes exactly its
    // width: digits are written straight into the fixed layout. Records carry
    // two of these each, a full SEL over a hundred thousand.
    std::string text(25, '0');
    char* at = text.data();
    auto digits = [&at](uint32_t v, int width) {
        for (int i = width - 1; i >= 0; --i) {
            at[i] = static_cast<char>('0' + v % 10);
            v /= 10;
        }
        at += width;
    };
    if (interval_) {
        digits(fit(day_, 99999999), 8);
    } else {
        digits(fit(year_, 9999), 4);
        digits(fit(month_, 99), 2);
        digits(fit(day_, 99), 2);
    }
    digits(fit(hour_, 99), 2);
    digits(fit(minute_, 99), 2);
    digits(fit(second_, 99), 2);
    *at++ = '.';
    digits(fit(microseconds_, 999999), 6);
    if (interval_) {
        *at++ = ':';
        digits(0, 3);
    } else {
        const int offset = utcOffset_;
        *at++ = offset < 0 ? '-' : '+';
        digits(fit(static_cast<uint32_t>(offset < 0 ? -offset : offset), 999), 3);
    }
    return text;
}

int64_t TCIMDateTime::Microseconds() const {
    const int64_t timeOfDay =
        ((static_cast<int64_t>(hour_) * 60 + minute_) * 60 + second_) * kMicrosPerSecond +
        microseconds_;
    if (interval_) {
        return static_cast<int64_t>(day_) * kMicrosPerDay + timeOfDay;
    }
    // Months outside 1..12 roll into the neighbouring years; days past the end of
    // the month roll forward, as the fields are simply added up.
    const int64_t m0 = static_cast<int64_t>(month_) - 1;
    const int64_t y = static_cast<int64_t>(year_) + floorDiv(m0, 12);
    const int64_t m = m0 - floorDiv(m0, 12) * 12 + 1;
    const int64_t days = daysFromCivil(y, m, 1) + static_cast<int64_t>(day_) - 1;
    // The fields are local time; UTC is local time minus the offset.
    return days * kMicrosPerDay + timeOfDay -
           static_cast<int64_t>(utcOffset_) * 60 * kMicrosPerSecond;
}

namespace {

TCIMDateTime intervalOf(int64_t micros) {
    if (micros < 0) {
        micros = -micros;
    }
    TCIMDateTime d;
    const int64_t days = micros / kMicrosPerDay;
    int64_t rest = micros % kMicrosPerDay;
    const auto us = static_cast<uint32_t>(rest % kMicrosPerSecond);
    rest /= kMicrosPerSecond;
    d.Set(static_cast<uint32_t>(std::min<int64_t>(days, UINT32_MAX)),
          static_cast<uint16_t>(rest / 3600), static_cast<uint16_t>(rest / 60 % 60),
          static_cast<uint16_t>(rest % 60), us);
    return d;
}

TCIMDateTime absoluteOf(int64_t utcMicros, int16_t offset) {
    const int64_t local = utcMicros + static_cast<int64_t>(offset) * 60 * kMicrosPerSecond;
    const int64_t days = floorDiv(local, kMicrosPerDay);
    int64_t rest = local - days * kMicrosPerDay;
    const Civil c = civilFromDays(days);
    const auto us = static_cast<uint32_t>(rest % kMicrosPerSecond);
    rest /= kMicrosPerSecond;
    TCIMDateTime t;
    t.Set(static_cast<uint16_t>(std::clamp<int64_t>(c.year, 0, UINT16_MAX)),
          static_cast<uint16_t>(c.month), c.day, static_cast<uint16_t>(rest / 3600),
          static_cast<uint16_t>(rest / 60 % 60), static_cast<uint16_t>(rest % 60), us, offset);
    return t;
}

} // namespace

TCIMDateTime TCIMDateTime::operator-(const TCIMDateTime& other) const {
    if (!interval_ && other.interval_) {
        // A point in time moved back by a length of time, in the same zone.
        return absoluteOf(Microseconds() - other.Microseconds(), utcOffset_);
    }
    // Two points in time (or two lengths): how far apart they are.
    return intervalOf(Microseconds() - other.Microseconds());
}

bool TCIMDateTime::operator<(const TCIMDateTime& other) const {
    return Microseconds() < other.Microseconds();
}

std::string TOSSpecific::GetMachineType() {
    return ipmisel::host::config().machineType;
}

std::string TOSSpecific::GetMachineTypeFromID() {
    return ipmisel::host::config().machineTypeFromID;
}

std::string TOSSpecific::GetBiosID() {
    return ipmisel::host::config().biosID;
}

TCIMDateTime TOSSpecific::GetLocalTime() {
    const auto& cfg = ipmisel::host::config();
    int64_t utcMicros;
    if (cfg.now) {
        utcMicros = cfg.now() * kMicrosPerSecond;
    } else {
        timeval tv{};
        ::gettimeofday(&tv, nullptr);
        utcMicros = static_cast<int64_t>(tv.tv_sec) * kMicrosPerSecond + tv.tv_usec;
    }
    int offset;
    if (cfg.utcOffsetMinutes) {
        offset = *cfg.utcOffsetMinutes;
    } else {
        // The zone's offset at that instant, daylight saving included. The
        // plug-in asks once per record, nearly always within the same second:
        // that second's answer is kept.
        const time_t secs = static_cast<time_t>(floorDiv(utcMicros, kMicrosPerSecond));
        thread_local time_t cachedSecs = 0;
        thread_local int cachedOffset = 0;
        thread_local bool cached = false;
        if (!cached || secs != cachedSecs) {
            tm local{};
            cachedOffset =
                ::localtime_r(&secs, &local) ? static_cast<int>(local.tm_gmtoff / 60) : 0;
            cachedSecs = secs;
            cached = true;
        }
        offset = cachedOffset;
    }
    offset = std::clamp(offset, -999, 999);
    return absoluteOf(utcMicros, static_cast<int16_t>(offset));
}

namespace {

class CoreLogger : public ILogger {
  public:
    void LogMessage(uint32_t messageClass, const std::string& text) override {
        const auto& sink = ipmisel::host::config().coreLogSink;
        if (sink) {
            sink(messageClass, text);
        } else {
            std::cerr << "core log [" << messageClass << "]: " << text << '\n';
        }
    }
};

class IpmiLan : public IIPMILan {
  public:
    bool getipmiLanStatus() override { return ipmisel::host::config().lan.value_or(false); }
};

} // namespace

ILogger* TRootObject::GetCoreLogger() {
    static CoreLogger* logger = new CoreLogger();
    return logger;
}

IIPMILan* TRootObject::GetipmiLanIns() {
    static IpmiLan* lan = new IpmiLan();
    return ipmisel::host::config().lan ? lan : nullptr;
}

} // namespace NOXAQSV20
