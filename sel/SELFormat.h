// Formats built from message-file texts. A few texts in the file are printf
// formats with one number in them (the generator's LUN and channel); the file
// is data, so a format is only handed to the formatter once it is known to ask
// for exactly what is passed.
#pragma once

#include <cstddef>

namespace ipmisel {

// True when every '%' in fmt is "%%" or an integer conversion (d i u o x X c,
// with flags, width and precision but no '*' and no length modifier) and
// there is at most one such conversion.
bool IsSingleNumberFormat(const char* fmt);

// dst[size] = fmt formatted with value when fmt passes IsSingleNumberFormat;
// otherwise fmt copied as plain text. Always terminated, cut to size - 1.
void FormatWithNumber(char* dst, size_t size, const char* fmt, int value);

} // namespace ipmisel
