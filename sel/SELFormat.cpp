#include "sel/SELFormat.h"

#include <cstring>
#include <string_view>

#include "base/format.h"
#include "base/text.h"

namespace ipmisel {

bool IsSingleNumberFormat(const char* fmt) {
    int conversions = 0;
    for (const char* p = fmt; *p != '\0'; ++p) {
        if (*p != '%') {
            continue;
        }
        ++p;
        if (*p == '%') {
            continue;
        }
        while (*p != '\0' && std::strchr("-+ #0", *p) != nullptr) {
            ++p;
        }
        while (*p >= '0' && *p <= '9') {
            ++p;
        }
        if (*p == '.') {
            ++p;
            while (*p >= '0' && *p <= '9') {
                ++p;
            }
        }
        if (*p == '\0' || std::strchr("diuoxXc", *p) == nullptr) {
            return false;
        }
        if (++conversions > 1) {
            return false;
        }
    }
    return true;
}

void FormatWithNumber(char* dst, size_t size, const char* fmt, int value) {
    // The file's formats are plain "%d" texts, formatted for every record:
    // those are put together without printf.
    const char* conversion = std::strchr(fmt, '%');
    if (conversion != nullptr && conversion[1] == 'd' &&
        std::strchr(conversion + 2, '%') == nullptr) {
        TextBuilder(dst, size)
            .Add(std::string_view(fmt, static_cast<size_t>(conversion - fmt)))
            .Add(Decimal(value))
            .Add(conversion + 2);
        return;
    }
    if (IsSingleNumberFormat(fmt)) {
        TextFormat(dst, size, fmt, value);
    } else {
        TextCopy(dst, size, fmt);
    }
}

} // namespace ipmisel
