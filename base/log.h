// The plug-in's log: every line goes to the framework's fdrWriteLog (by way
// of a tape while one runs, see base/tape.h).
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "base/format.h"
#include "base/tape.h"
#include "host/framework.h"

namespace ipmisel {

enum Severity {
    SevError = NOXAQSV20::QSV_LOG_ERROR,
    SevFailure = NOXAQSV20::QSV_LOG_FAILURE,
    SevNotice = NOXAQSV20::QSV_LOG_NOTICE,
    SevDetail = NOXAQSV20::QSV_LOG_DETAIL,
    SevTrace = NOXAQSV20::QSV_LOG_TRACE,
};

// Inline: a SEL record writes some fifty lines.
inline void Log(int severity, const char* text) {
    tape::WriteLog(severity, text);
}
inline void Log(int severity, const std::string& text) {
    Log(severity, text.c_str());
}
void LogF(int severity, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

// One log line put together from pieces, for the lines written once or more
// per SEL record: no printf and, for lines that fit the inline room, no
// allocation. Nothing is ever cut; Write hands the whole line to the log.
//   LogLine().Add("Record ID    = ").Add(Decimal(id)).Write(SevTrace);
class LogLine {
  public:
    LogLine() = default;
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    LogLine& Add(const char* text) { return Add(std::string_view(text)); }
    LogLine& Add(std::string_view text) {
        if (text.empty()) {
            return *this; // an empty view may have no data to copy from at all
        }
        if (length_ + text.size() < kInline) {
            std::memcpy(inline_ + length_, text.data(), text.size());
            length_ += text.size();
            return *this;
        }
        return AddLong(text);
    }
    LogLine& Add(const NumberText& number) {
        // Numbers are short: a fixed 16-character copy, of which the line
        // keeps the number's length, needs no length-dependent loop.
        if (number.length <= kShortCopy && length_ + kShortCopy < kInline) {
            std::memcpy(inline_ + length_, number.text, kShortCopy);
            length_ += number.length;
            return *this;
        }
        return Add(number.View());
    }

    // The first `length` characters of a small piece of a table (a byte's
    // text): the whole piece is copied, a copy of known size without a loop.
    template <size_t N> LogLine& AddPiece(const std::array<char, N>& piece, size_t length) {
        if (length_ + N < kInline) {
            std::memcpy(inline_ + length_, piece.data(), N);
            length_ += length;
            return *this;
        }
        return Add(std::string_view(piece.data(), length));
    }

    void Write(int severity);

  private:
    static constexpr size_t kInline = 512;
    static constexpr size_t kShortCopy = 16;
    // Moves the line to long_ and appends there from then on.
    LogLine& AddLong(std::string_view text);

    char inline_[kInline];
    size_t length_ = 0; // kInline once the line lives in long_
    std::string long_;
};

} // namespace ipmisel
