// Time stamps of SEL and aux-log records, and the BMC clock difference.
//
// Record times are written exactly as the BMC stamped them: the difference
// that GetDiffTime measures is logged and handed along, but never added to a
// record's time. A corrected time would disagree with what every other SEL
// reader of the same BMC shows.
#include <cstdio>
#include <ctime>
#include <string>

#include "base/format.h"
#include "base/log.h"
#include "base/text.h"
#include "ipmi/IPMIRequestFrame.h"
#include "sel/IPMISELEntry.h"

namespace ipmisel {

using NOXAQSV20::TOSSpecific;
using NOXAQSV20::TQSVException;
using NOXAQSV20::TQSVStatusCode;

namespace {

constexpr uint8_t kNetFnStorage = 0x0A;
constexpr uint8_t kCmdGetSELTime = 0x48;
// IPMI counts time stamps up to here from the BMC's initialisation, not 1970.
constexpr int64_t kPreInitLimit = 0x20000000;
constexpr size_t kStampText = 28; // the 25-character CIM text, cut at 27
constexpr const char* kDefaultStamp = "19700101000000.000000+000";

// Four bytes, least significant first, as the signed 32-bit count the BMC
// means, widened with its sign: 80000000h and above are before 1970.
int64_t SignedStamp(const uint8_t* b) {
    const uint32_t u = static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 |
                       static_cast<uint32_t>(b[2]) << 16 | static_cast<uint32_t>(b[3]) << 24;
    return static_cast<int64_t>(static_cast<int32_t>(u));
}

// Seconds since 1970 UTC into broken-down UTC time (the fields FromTm reads).
// A negative count is not a time the BMC can mean: it fails like the 64-bit
// conversion it stands for. Worked out here rather than by gmtime_r, which
// takes the time-zone lock for every record of the log.
bool ToUTC(int64_t seconds, std::tm& out) {
    if (seconds < 0) {
        return false;
    }
    constexpr int64_t kSecondsPerDay = 86400;
    const int64_t days = seconds / kSecondsPerDay;
    const int64_t time = seconds % kSecondsPerDay;
    // The Gregorian calendar repeats every 400 years (146,097 days). Counted
    // from 1 March of year 0, the leap day is the last day of a year, so
    // days fall into years and months by plain division: years of 365 days
    // corrected for the leap years before, and months of 153 days per five.
    const int64_t fromMarch0 = days + 719468; // 1970-01-01 is day 719,468
    const int64_t era = fromMarch0 / 146097;
    const int64_t dayOfEra = fromMarch0 - era * 146097;
    const int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
    const int64_t month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    out = std::tm{};
    out.tm_year = static_cast<int>(era * 400 + yearOfEra + (month <= 2 ? 1 : 0) - 1900);
    out.tm_mon = static_cast<int>(month - 1);
    out.tm_mday = static_cast<int>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1);
    out.tm_hour = static_cast<int>(time / 3600);
    out.tm_min = static_cast<int>(time / 60 % 60);
    out.tm_sec = static_cast<int>(time % 60);
    return true;
}

// The broken-down UTC time as a date-time labelled with the given offset.
// The offset travels as the unsigned value GetUTCOffset gives and goes back
// to its signed self here, so western zones keep their minus sign.
NOXAQSV20::TCIMDateTime FromTm(const std::tm& tm, uint16_t utcOffset) {
    NOXAQSV20::TCIMDateTime value;
    value.Set(static_cast<uint16_t>(tm.tm_year + 1900), static_cast<uint16_t>(tm.tm_mon + 1),
              static_cast<uint32_t>(tm.tm_mday), static_cast<uint16_t>(tm.tm_hour),
              static_cast<uint16_t>(tm.tm_min), static_cast<uint16_t>(tm.tm_sec), 0,
              static_cast<int16_t>(utcOffset));
    return value;
}

} // namespace

int GetDiffTime(TCIMDateTime& diffTime, bool& bmcNotBehind, NOXAQSV20::SPLibrary* library) {
    Log(SevTrace, "GetDiffTime entered.");
    if (library == nullptr) {
        Log(SevNotice, "Could not allocate memory for SPLibrary in DiffTime.");
        return 1;
    }
    try {
        IPMIRequestFrame frame(library);
        frame.Prepare(kNetFnStorage, kCmdGetSELTime, nullptr, 0);
        if (!frame.Send()) {
            Log(SevError, "Failure in sending command to obtain system event log device time.");
            return 1;
        }
        if (frame.CompletionCode() != 0) {
            Log(SevFailure, ComposeIPMIError("system event log device time",
                                             CompletionCodeText(frame.CompletionCode())));
            return 1;
        }

        // The time is read back from the rendered answer like every other
        // response. An answer without its four time bytes measures nothing.
        unsigned int cc = 0;
        unsigned int t[4] = {};
        const std::string answer = frame.ResponseText();
        if (frame.Length() < 4 ||
            std::sscanf(answer.c_str(), "%x %x %x %x %x", &cc, &t[0], &t[1], &t[2], &t[3]) != 5) {
            Log(SevFailure,
                ComposeIPMIError("system event log device time", "Response too short."));
            return 1;
        }

        const TCIMDateTime osTime = TOSSpecific::GetLocalTime();
        Log(SevDetail, "OSTime  = " + osTime.ToString());

        const uint8_t raw[4] = {static_cast<uint8_t>(t[0]), static_cast<uint8_t>(t[1]),
                                static_cast<uint8_t>(t[2]), static_cast<uint8_t>(t[3])};
        const int64_t rawTime = SignedStamp(raw);
        LogF(SevDetail, "BMCTime raw = %lld", static_cast<long long>(rawTime));

        std::tm utc{};
        if (!ToUTC(rawTime, utc)) {
            Log(SevDetail, "Could not convert RawBMCTime.");
            throw TQSVException(TQSVStatusCode(NOXAQSV20::QSV_INVALID_TIME));
        }
        // The BMC's UTC reading carries the local offset, so the difference
        // includes the local zone's offset. Kept that way: nothing applies
        // the difference, and the logged figure is what users have compared
        // for years.
        const TCIMDateTime bmcTime = FromTm(utc, osTime.GetUTCOffset());
        Log(SevDetail, "BMCTime = " + bmcTime.ToString());

        diffTime = bmcTime - osTime;
        bmcNotBehind = !(bmcTime < osTime);
        Log(SevDetail, "DiffTime = " + diffTime.ToString());
        Log(SevTrace, "GetDiffTime completed.");
        return 0;
    } catch (const TQSVException& e) {
        Log(SevDetail,
            std::string("Unable to obtain set DiffTime due to caught exception ") + e.what());
        return 1;
    }
}

int IPMISELEntry::GetTimestamp(char* out, uint32_t size, TCIMDateTime diffTime, bool synchronize,
                               bool bmcNotBehind, StampSource source) {
    // Accepted and deliberately unused: see the top of this file.
    (void)diffTime;
    (void)synchronize;
    (void)bmcNotBehind;

    Log(SevTrace, "IPMISELEntry::GetTimestamp() function entered.");
    try {
        const uint16_t offset = TOSSpecific::GetLocalTime().GetUTCOffset();
        const int64_t raw = SignedStamp(source == StampSource::Record ? bytes + 3 : bytes + 11);

        std::tm utc{};
        if (!ToUTC(raw, utc)) {
            Log(SevDetail, "Could not convert CurrentTimeStamp.");
            throw TQSVException(TQSVStatusCode(NOXAQSV20::QSV_INVALID_TIME));
        }
        // Pre-init stamps (seconds since the BMC started) are shown as they
        // are; there is nothing reliable to add to them.
        const TCIMDateTime stamp = FromTm(utc, offset);
        Log(SevTrace,
            raw < kPreInitLimit ? "Adding 0 hours to Timestamp." : "No addition to Timestamp.");

        char text[kStampText] = {};
        TextCopy(text, sizeof text, stamp.ToString().c_str());
        LogLine()
            .Add("RawTimeStamp = ")
            .Add(Decimal(raw))
            .Add("\n         PreTimeStamp = ")
            .Add(text)
            .Write(SevTrace);

        CopyOut(out, size, text);
        LogLine().Add("Timestamp = ").Add(text).Write(SevTrace);
        Log(SevTrace, "IPMISELEntry::GetTimestamp() function completed.");
    } catch (const TQSVException& e) {
        // The only exception raised here is the unconvertible time (21).
        Log(SevNotice, std::string("Unable to obtain Timestamp due to caught exception ") +
                           e.what() + ". Using default Timestamp (1/2/1970).");
        CopyOut(out, size, kDefaultStamp);
    }
    return 0;
}

} // namespace ipmisel
