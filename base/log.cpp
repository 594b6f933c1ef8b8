#include "base/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

namespace ipmisel {

void LogF(int severity, const char* fmt, ...) {
    char small[512];
    va_list ap;
    va_start(ap, fmt);
    va_list again;
    va_copy(again, ap);
    int n = std::vsnprintf(small, sizeof small, fmt, ap);
    va_end(ap);
    if (n >= 0 && static_cast<size_t>(n) >= sizeof small) {
        std::vector<char> big(static_cast<size_t>(n) + 1);
        std::vsnprintf(big.data(), big.size(), fmt, again);
        Log(severity, big.data());
    } else {
        Log(severity, n < 0 ? "" : small);
    }
    va_end(again);
}

LogLine& LogLine::AddLong(std::string_view text) {
    if (length_ < kInline) {
        long_.assign(inline_, length_);
        length_ = kInline;
    }
    long_.append(text);
    return *this;
}

void LogLine::Write(int severity) {
    if (length_ == kInline) {
        Log(severity, long_.c_str());
        return;
    }
    inline_[length_] = '\0';
    Log(severity, inline_);
}

} // namespace ipmisel
