// Numbers as text without printf, and the "%x" scan of response text.
//
// Every SEL record passes through a few dozen formatted pieces (log lines,
// record IDs, readings) and two scans of its hexadecimal text; through
// vsnprintf and sscanf those cost more than everything else the plug-in does
// with the record. The pieces here give exactly the characters of the printf
// conversion each one names, so texts and log lines stay what they were.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace ipmisel {

// One formatted number, held by value so it can be handed straight to a
// builder: TextBuilder(buf, size).Add("ID ").Add(Decimal(id)).
struct NumberText {
    char text[64]; // the longest: "%.9f" of the lowest float, 39 digits, sign, point, 9 digits
    uint8_t length = 0;
    std::string_view View() const { return std::string_view(text, length); }
};

NumberText HexByte(uint8_t value);            // "%02X"
NumberText HexByteLower(uint8_t value);       // "%02x"
NumberText Fixed(float value, int precision); // "%.<precision>f", precision 0..9
NumberText General(double value);             // "%g"

NumberText DecimalOf(int64_t value); // Decimal's general case

// "00" to "99", for Decimal.
extern const std::array<std::array<char, 2>, 100> kTwoDigits;

// "%d", "%u", "%lld". Most numbers written are bytes: up to three digits are
// put down here, inline, and only the others go through the conversion.
inline NumberText Decimal(int64_t value) {
    if (value < 0 || value >= 1000) {
        return DecimalOf(value);
    }
    const auto v = static_cast<unsigned>(value);
    NumberText n;
    if (v < 10) {
        n.text[0] = static_cast<char>('0' + v);
        n.length = 1;
    } else if (v < 100) {
        std::memcpy(n.text, kTwoDigits[v].data(), 2);
        n.length = 2;
    } else {
        n.text[0] = static_cast<char>('0' + v / 100);
        std::memcpy(n.text + 1, kTwoDigits[v % 100].data(), 2);
        n.length = 3;
    }
    return n;
}

// "%02X " for every byte value, as three characters (no terminator): the
// house form of a response byte.
using HexByteTable = std::array<std::array<char, 3>, 256>;
extern const HexByteTable kHexByteText;

// " %d" for every byte value: a blank and one to three digits, in a piece of
// four characters of which the first `length` count.
struct SpacedDecimal {
    std::array<char, 4> text;
    uint8_t length;
};
extern const std::array<SpacedDecimal, 256> kSpacedDecimal;

// Builds a text in a caller's fixed buffer the way a chain of TextCopy,
// TextAppend and TextAppendF calls would: what does not fit is cut at
// size - 1 and the text is always terminated. A size of 0 or of 2^31 and
// more writes nothing at all, as with the other text helpers.
class TextBuilder {
  public:
    // Starts an empty text in buf.
    TextBuilder(char* buf, size_t size) : TextBuilder(buf, size, 0, size > 0 && size < kNoSize) {
        if (usable_) {
            buf_[0] = '\0';
        }
    }
    // Continues the terminated text already in buf; when buf holds no
    // terminator within size, nothing is appended (as TextAppend).
    static TextBuilder Appending(char* buf, size_t size);

    // Up to its terminator. Inline, so that a literal's length is known when
    // compiling and its copy is a few moves.
    TextBuilder& Add(const char* text) { return Add(std::string_view(text)); }
    TextBuilder& Add(std::string_view text) {
        if (usable_ && !text.empty()) { // an empty view may have no data at all
            const size_t room = size_ - 1 - length_;
            const size_t n = text.size() < room ? text.size() : room;
            std::memcpy(buf_ + length_, text.data(), n);
            length_ += n;
            buf_[length_] = '\0';
        }
        return *this;
    }
    TextBuilder& Add(const NumberText& number) { return Add(number.View()); }

    size_t Length() const { return length_; }

  private:
    static constexpr size_t kNoSize = size_t{1} << 31; // and more: a negative size
    TextBuilder(char* buf, size_t size, size_t length, bool usable)
        : buf_(buf), size_(size), length_(length), usable_(usable) {}
    char* buf_;
    size_t size_;
    size_t length_;
    bool usable_;
};

// The fields of text as sscanf(text, "%x %x ... %x", ...) with `count`
// conversions reads them: the same values and the same result (the number of
// fields converted, or EOF when the text ends before the first one). Fields
// that are not converted are left as they are.
int ScanHexFields(const char* text, unsigned int* fields, int count);

} // namespace ipmisel
