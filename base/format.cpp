#include "base/format.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace ipmisel {

namespace {

constexpr char kUpperDigits[] = "0123456789ABCDEF";
constexpr char kLowerDigits[] = "0123456789abcdef";

// Sizes from signed callers arrive as huge unsigned values; nothing that big
// is a real buffer (the same rule as text.cpp).
bool usableSize(size_t size) {
    return size > 0 && size < (size_t{1} << 31);
}

// The length to_chars reached in n.text (none when it ran out of room).
void fromChars(NumberText& n, std::to_chars_result result) {
    n.length = result.ec == std::errc() ? static_cast<uint8_t>(result.ptr - n.text) : 0;
}

// Value of a hexadecimal digit, -1 for any other character.
constexpr std::array<int8_t, 256> makeDigitValues() {
    std::array<int8_t, 256> values{};
    for (int c = 0; c < 256; ++c) {
        values[c] = -1;
    }
    for (int d = 0; d < 10; ++d) {
        values['0' + d] = static_cast<int8_t>(d);
    }
    for (int d = 0; d < 6; ++d) {
        values['a' + d] = static_cast<int8_t>(10 + d);
        values['A' + d] = static_cast<int8_t>(10 + d);
    }
    return values;
}
constexpr std::array<int8_t, 256> kDigitValue = makeDigitValues();

// isspace() of the "C" locale, which is what the scan skips.
bool isBlank(unsigned char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr HexByteTable makeHexByteText() {
    HexByteTable table{};
    for (int b = 0; b < 256; ++b) {
        table[b] = {kUpperDigits[b >> 4], kUpperDigits[b & 0x0F], ' '};
    }
    return table;
}

} // namespace

const HexByteTable kHexByteText = makeHexByteText();

const std::array<SpacedDecimal, 256> kSpacedDecimal = [] {
    std::array<SpacedDecimal, 256> table{};
    for (int b = 0; b < 256; ++b) {
        SpacedDecimal& d = table[b];
        d.text[d.length++] = ' ';
        if (b >= 100) {
            d.text[d.length++] = static_cast<char>('0' + b / 100);
        }
        if (b >= 10) {
            d.text[d.length++] = static_cast<char>('0' + b / 10 % 10);
        }
        d.text[d.length++] = static_cast<char>('0' + b % 10);
    }
    return table;
}();

const std::array<std::array<char, 2>, 100> kTwoDigits = [] {
    std::array<std::array<char, 2>, 100> table{};
    for (int i = 0; i < 100; ++i) {
        table[i] = {static_cast<char>('0' + i / 10), static_cast<char>('0' + i % 10)};
    }
    return table;
}();

NumberText DecimalOf(int64_t value) {
    NumberText n;
    // Record IDs, counts and time stamps: by pairs of digits from the end.
    if (value >= 0) {
        auto v = static_cast<uint64_t>(value);
        char* const end = n.text + 20; // the most a 64-bit value has
        char* at = end;
        while (v >= 100) {
            at -= 2;
            std::memcpy(at, kTwoDigits[v % 100].data(), 2);
            v /= 100;
        }
        if (v >= 10) {
            at -= 2;
            std::memcpy(at, kTwoDigits[v].data(), 2);
        } else {
            *--at = static_cast<char>('0' + v);
        }
        n.length = static_cast<uint8_t>(end - at);
        std::memmove(n.text, at, n.length);
        return n;
    }
    fromChars(n, std::to_chars(n.text, n.text + sizeof n.text, value));
    return n;
}

namespace {

NumberText hexByteWith(const char* digits, uint8_t value) {
    NumberText n;
    n.text[0] = digits[value >> 4];
    n.text[1] = digits[value & 0x0F];
    n.length = 2;
    return n;
}

} // namespace

NumberText HexByte(uint8_t value) {
    return hexByteWith(kUpperDigits, value);
}

NumberText HexByteLower(uint8_t value) {
    return hexByteWith(kLowerDigits, value);
}

namespace {

// A whole number that every printf form below writes as its digits alone.
bool isSmallWholeNumber(double value, double limit) {
    return value > -limit && value < limit &&
           value == static_cast<double>(static_cast<int64_t>(value)) &&
           !(value == 0.0 && std::signbit(value));
}

} // namespace

NumberText Fixed(float value, int precision) {
    // Readings are mostly whole numbers: their digits, the point and zeros.
    if (precision > 0 && precision <= 9 && isSmallWholeNumber(value, 1e15)) {
        NumberText n = Decimal(static_cast<int64_t>(value));
        n.text[n.length++] = '.';
        for (int i = 0; i < precision; ++i) {
            n.text[n.length++] = '0';
        }
        return n;
    }
    // printf widens a float to double; so does this, for the same digits.
    NumberText n;
    fromChars(n, std::to_chars(n.text, n.text + sizeof n.text, static_cast<double>(value),
                               std::chars_format::fixed, precision));
    return n;
}

NumberText General(double value) {
    // Six significant digits: a whole number below a million is written as
    // its digits (from 1e6 on "%g" turns to the exponent form).
    if (isSmallWholeNumber(value, 1e6)) {
        return Decimal(static_cast<int64_t>(value));
    }
    NumberText n;
    fromChars(n,
              std::to_chars(n.text, n.text + sizeof n.text, value, std::chars_format::general, 6));
    return n;
}

TextBuilder TextBuilder::Appending(char* buf, size_t size) {
    if (!usableSize(size)) {
        return TextBuilder(buf, size, 0, false);
    }
    const size_t used = strnlen(buf, size);
    return TextBuilder(buf, size, used, used < size);
}

// What glibc's scanf does for "%x": skip blanks (the end of the text there
// ends the whole scan), an optional sign, a "0" that may be followed by an
// "x" or "X" which is passed over, then hexadecimal digits; the digits
// collected (sign and leading "0" included, never the "x") are converted by
// strtoul and the result is cut to unsigned int. A field with no digit at
// all is a matching failure that ends the scan.
int ScanHexFields(const char* text, unsigned int* fields, int count) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    int done = 0;
    // The house text first: fields of two digits, each followed by a blank.
    // The rules below read such a field as the same value and skip the blank.
    while (done < count) {
        const int high = kDigitValue[p[0]];
        if (high < 0) {
            break;
        }
        const int low = kDigitValue[p[1]];
        if (low < 0 || p[2] != ' ') {
            break;
        }
        fields[done++] = static_cast<unsigned int>(high << 4 | low);
        p += 3;
    }
    for (int i = done; i < count; ++i) {
        while (isBlank(*p)) {
            ++p;
        }
        if (*p == '\0') {
            return done == 0 ? EOF : done;
        }
        // Two digits and no third (the last field of a line, or one after
        // more blanks): the rules below come to the same value.
        const int high = kDigitValue[p[0]];
        const int low = high >= 0 ? kDigitValue[p[1]] : -1;
        if (low >= 0 && kDigitValue[p[2]] < 0) {
            fields[i] = static_cast<unsigned int>(high << 4 | low);
            ++done;
            p += p[2] == ' ' ? 3 : 2;
            continue;
        }
        bool negative = false;
        bool digits = false;
        if (*p == '+' || *p == '-') {
            negative = *p == '-';
            ++p;
        }
        if (*p == '0') {
            digits = true;
            ++p;
            if (*p == 'x' || *p == 'X') {
                ++p;
            }
        }
        unsigned long value = 0;
        bool overflow = false;
        for (int d; (d = kDigitValue[*p]) >= 0; ++p) {
            digits = true;
            if (value > (ULONG_MAX >> 4)) {
                overflow = true;
            }
            value = value << 4 | static_cast<unsigned long>(d);
        }
        if (!digits) {
            return done;
        }
        if (overflow) {
            value = ULONG_MAX;
        } else if (negative) {
            value = 0UL - value;
        }
        fields[i] = static_cast<unsigned int>(value);
        ++done;
    }
    return done;
}

} // namespace ipmisel
