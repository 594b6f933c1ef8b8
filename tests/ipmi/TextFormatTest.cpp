// The formatting and scanning helpers every request and decoder uses, held
// against the printf and sscanf forms they replace: the texts they build must
// stay byte for byte what those forms gave.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "base/format.h"
#include "base/log.h"
#include "tests/support/HostFixture.h"

namespace ipmisel {
namespace {

template <class... Args> std::string printed(const char* format, Args... args) {
    char text[512];
    std::snprintf(text, sizeof text, format, args...);
    return text;
}

std::string str(const NumberText& n) {
    return std::string(n.View());
}

TEST(NumberText, EveryByteAsTheHexAndDecimalForms) {
    for (int b = 0; b < 256; ++b) {
        const auto byte = static_cast<uint8_t>(b);
        EXPECT_EQ(printed("%02X ", b), std::string(kHexByteText[byte].data(), 3)) << b;
        EXPECT_EQ(printed("%02X", b), str(HexByte(byte))) << b;
        EXPECT_EQ(printed("%02x", b), str(HexByteLower(byte))) << b;
        EXPECT_EQ(printed("%d", b), str(Decimal(byte))) << b;
        EXPECT_EQ(printed(" %d", b),
                  std::string(kSpacedDecimal[byte].text.data(), kSpacedDecimal[byte].length))
            << b;
    }
    for (int64_t v : {INT64_MIN, int64_t{INT32_MIN}, int64_t{-1}, int64_t{10}, int64_t{65535},
                      int64_t{INT32_MAX}, INT64_MAX}) {
        EXPECT_EQ(printed("%lld", static_cast<long long>(v)), str(Decimal(v)));
    }
    // Every record ID and count, through all the ways the digits are put down.
    for (int v = 0; v <= 120000; ++v) {
        ASSERT_EQ(printed("%d", v), str(Decimal(v))) << v;
    }
    // And every length up to the longest, at each power of ten and below it.
    for (int64_t p = 1; p <= INT64_MAX / 10; p *= 10) {
        for (int64_t v : {p - 1, p, p + 1, 10 * p - 1, 5 * p + 7}) {
            ASSERT_EQ(printed("%lld", static_cast<long long>(v)), str(Decimal(v))) << v;
        }
    }
}

// Readings the way the threshold decoder computes them (M * raw + B scaled by
// powers of ten, in single precision), plus the values where the shortcuts
// for whole numbers end: "%g" turns to the exponent form at a million, and
// negative zero keeps its sign.
TEST(NumberText, ReadingsAsPrintfWritesThem) {
    std::vector<float> values = {0.0f,  -0.0f,     0.5f,      0.125f,     0.375f,   2.675f,
                                 13.2f, 999999.0f, 1e6f,      1234567.0f, 1e15f,    -1e15f,
                                 1e-5f, 5e-5f,     FLT_MAX,   -FLT_MAX,   FLT_MIN,  INFINITY,
                                 NAN,   -NAN,      123456.5f, 999999.5f,  -99.995f, 3e38f};
    for (int m : {1, -3, 7, 511}) {
        for (int b : {0, -20, 511}) {
            for (int r : {-3, -1, 0, 2}) {
                for (int raw = 0; raw < 256; raw += 17) {
                    values.push_back(static_cast<float>((m * raw + b * std::pow(10.0, r % 2)) *
                                                        std::pow(10.0, r)));
                }
            }
        }
    }
    for (float v : values) {
        for (int precision : {0, 2, 9}) {
            EXPECT_EQ(printed("%.*f", precision, static_cast<double>(v)), str(Fixed(v, precision)))
                << v << " precision " << precision;
        }
        EXPECT_EQ(printed("%g", static_cast<double>(v)), str(General(v))) << v;
    }
    std::mt19937_64 random(7);
    for (int i = 0; i < 20000; ++i) {
        double d;
        uint64_t bits = random();
        std::memcpy(&d, &bits, sizeof d);
        ASSERT_EQ(printed("%g", d), str(General(d))) << bits;
        float f;
        uint32_t fbits = static_cast<uint32_t>(bits >> 32);
        std::memcpy(&f, &fbits, sizeof f);
        ASSERT_EQ(printed("%.2f", static_cast<double>(f)), str(Fixed(f, 2))) << fbits;
    }
}

// sscanf with five "%x" as the reference, fields preset so that the ones it
// does not convert show.
int scanned(const char* text, unsigned (&f)[5]) {
    for (unsigned& v : f) {
        v = 0xA5A5A5A5u;
    }
    return std::sscanf(text, "%x %x %x %x %x", &f[0], &f[1], &f[2], &f[3], &f[4]);
}

void expectSameScan(const std::string& text) {
    unsigned want[5];
    const int wantResult = scanned(text.c_str(), want);
    unsigned got[5];
    for (unsigned& v : got) {
        v = 0xA5A5A5A5u;
    }
    ASSERT_EQ(wantResult, ScanHexFields(text.c_str(), got, 5)) << '"' << text << '"';
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(want[i], got[i]) << '"' << text << "\" field " << i;
    }
}

TEST(ScanHexFields, AgreesWithSscanf) {
    const char* cases[] = {
        "00 01 00 FF FE \n",
        "00 01",
        "",
        "   \t\n",
        "0",
        "A",
        "0a 0B",
        "1ffffffff",
        "fffffffffffffff0 0fffffffffffffff1", // 64 bits exactly, cut to 32
        "10000000000000000",                  // one digit past 64 bits: saturates
        "-1 +ff -0 +",
        "- 5",
        "\v1\f2\r3",
        "0x1F 0X2 0x 0xg 00x5",
        "01x",
        "12G 34",
        "G",
        "7\n\n\n8",
        "ffffffff -fffffffffffffffff 123456789abcdef0",
    };
    for (const char* text : cases) {
        expectSameScan(text);
    }
    // The whole of a Get SEL Entry text, 19 fields.
    const char* slot = "00 02 00 01 00 02 3C 04 68 66 20 00 04 01 30 01 59 5C 5A ";
    unsigned f[19] = {};
    EXPECT_EQ(19, ScanHexFields(slot, f, 19));
    EXPECT_EQ(0x02u, f[1]);
    EXPECT_EQ(0x5Au, f[18]);
    // Anything made of the characters that matter to the scan.
    const std::string alphabet = "0129aAfFgxX+- \t\n\r\v";
    std::mt19937 random(11);
    for (int i = 0; i < 50000; ++i) {
        std::string text(random() % 16, ' ');
        for (char& c : text) {
            c = alphabet[random() % alphabet.size()];
        }
        expectSameScan(text);
    }
}

TEST(TextBuilder, CutsAndTerminatesLikeTheTextHelpers) {
    // Pieces that together would print "ID 4660: ab"; each size keeps what
    // snprintf of the whole would keep.
    for (size_t size : {1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12, 13, 40}) {
        char buf[48];
        std::memset(buf, 'x', sizeof buf);
        TextBuilder(buf, size).Add("ID ").Add(Decimal(4660)).Add(": ").Add("ab");
        EXPECT_EQ(std::string("ID 4660: ab").substr(0, size - 1), buf) << size;
        // Nothing written past the terminator, inside the buffer or out.
        const size_t end = std::strlen(buf) + 1;
        EXPECT_EQ(std::string(sizeof buf - end, 'x'), std::string(buf + end, sizeof buf - end))
            << size;
    }
    char buf[8] = "keep";
    TextBuilder(buf, 0).Add("x");
    TextBuilder(buf, size_t{1} << 31).Add("x");
    EXPECT_STREQ("keep", buf);
    // Appending: after the text there is; nothing at all without a terminator.
    TextBuilder::Appending(buf, sizeof buf).Add("ers!").Add("cut");
    EXPECT_STREQ("keepers", buf);
    char full[8] = {'a', 'b', 'c', 'd', 'y', 'y', 'y', 'y'};
    TextBuilder::Appending(full, 4).Add("e");
    EXPECT_EQ(0, std::memcmp(full, "abcdyyyy", 8));
}

TEST(LogLine, HandsOverTheWholeLineHoweverLong) {
    test::HostCapture capture;
    // Lengths around the inline room of 512 characters, built from pieces.
    for (size_t length : {size_t{511}, size_t{512}, size_t{513}, size_t{2000}}) {
        const std::string half(length / 2, 'h');
        const std::string rest(length - half.size() - 1, 'r');
        LogLine()
            .Add(half.c_str())
            .Add(std::string_view()) // no data at all: nothing to add
            .Add(std::string_view(rest))
            .Add(Decimal(7))
            .Write(SevTrace);
        ASSERT_FALSE(capture.logs.empty());
        EXPECT_EQ(half + rest + "7", capture.logs.back().text) << length;
        EXPECT_EQ(SevTrace, capture.logs.back().severity);
    }
    // Table pieces copy more than they keep: near the end of the inline room
    // the line must neither lose nor gain a character.
    for (size_t length = 500; length <= 515; ++length) {
        const std::string head(length, 'x');
        LogLine()
            .Add(std::string_view(head))
            .AddPiece(kSpacedDecimal[7].text, 2)
            .AddPiece(kHexByteText[0xAB], 3)
            .AddPiece(kSpacedDecimal[255].text, 4)
            .Write(SevTrace);
        EXPECT_EQ(head + " 7AB  255", capture.logs.back().text) << length;
    }
}

} // namespace
} // namespace ipmisel
