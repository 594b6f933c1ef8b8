// The record's own accessors: slot scanning, byte order, the texts this class
// builds itself and the strncpy hand-over to callers.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sel/IPMISELEntry.h"
#include "sel/SELFormat.h"
#include "tests/support/HostFixture.h"

namespace ipmisel {
namespace {

using test::HostCapture;

// One 58-character slot as the SEL request writes it: 19 "%02X " fields.
std::string Slot(const std::vector<unsigned>& fields) {
    std::string s;
    char piece[16];
    for (unsigned f : fields) {
        std::snprintf(piece, sizeof piece, "%02X ", f);
        s += piece;
    }
    s.resize(58, '\0');
    return s;
}

IPMISELEntry Entry(std::initializer_list<uint8_t> b) {
    IPMISELEntry e;
    size_t i = 0;
    for (uint8_t v : b) {
        e.bytes[i++] = v;
    }
    return e;
}

// A text in a buffer that may lack its terminator.
std::string Held(const char* buf, size_t size) {
    return std::string(buf, strnlen(buf, size));
}

TEST(SELScan, RecordIDIsKeptHighByteFirstAndPrintedInDecimal) {
    HostCapture host;
    const std::string text = Slot({0x00, 0x35, 0x12, 0x34, 0x12, 0x02, 0x10, 0x20, 0x30, 0x40, 0x20,
                                   0x00, 0x04, 0x01, 0x30, 0x81, 0x52, 0x1E, 0x1C});
    IPMISELEntry e;
    ASSERT_EQ(0, e.ScanSELDataFile(text.c_str(), 0));
    const uint8_t want[16] = {0x12, 0x34, 0x02, 0x10, 0x20, 0x30, 0x40, 0x20,
                              0x00, 0x04, 0x01, 0x30, 0x81, 0x52, 0x1E, 0x1C};
    EXPECT_EQ(0, std::memcmp(want, e.bytes, 16));
    EXPECT_TRUE(host.hasLog(4, "Results of ScanSELDataFile: 18 52 2 16 32 48 64 32 0 4 1 48 "
                               "129 82 30 28"));
    EXPECT_TRUE(host.hasLog(4, "IPMISELEntry::ScanSELDataFile() function completed."));

    char id[16];
    std::memset(id, 'x', sizeof id);
    EXPECT_EQ(0, e.GetRecordID(id, sizeof id));
    EXPECT_STREQ("4660", id);
    EXPECT_TRUE(host.hasLog("Record ID    = 4660"));
}

TEST(SELScan, SlotsAreFixedWidthAndEndOfDataIsTwo) {
    HostCapture host;
    std::string text = Slot({0, 0, 0, 1, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}) +
                       Slot({0, 0, 0, 0xFF, 0xFF, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xEE}) +
                       std::string(58, '\0');
    IPMISELEntry e;
    ASSERT_EQ(0, e.ScanSELDataFile(text.c_str(), 1));
    EXPECT_EQ(0xFFFF, e.RecordID());
    EXPECT_EQ(0xEE, e.bytes[15]);

    IPMISELEntry end;
    end.bytes[4] = 0x77;
    EXPECT_EQ(2, end.ScanSELDataFile(text.c_str(), 2));
    EXPECT_EQ(0x77, end.bytes[4]); // untouched
    EXPECT_TRUE(host.hasLog(3, "System event log end-of-file found.\n"));
    EXPECT_TRUE(host.hasLog(4, "IPMISELEntry::ScanSELDataFile() function returned."));

    // Blanks only are end of data as well.
    std::string blanks(58, ' ');
    blanks.back() = '\0';
    EXPECT_EQ(2, end.ScanSELDataFile(blanks.c_str(), 0));
}

TEST(SELScan, OddFieldsAreCutToEightBitsOrLeftZero) {
    HostCapture host;
    // A field wider than a byte keeps its low 8 bits; a short line is not an
    // error and leaves the missing bytes zero.
    std::string text = "00 00 00 1FF 234 5";
    text.resize(58, '\0');
    IPMISELEntry e;
    std::memset(e.bytes, 0xAA, 16);
    ASSERT_EQ(0, e.ScanSELDataFile(text.c_str(), 0));
    EXPECT_EQ(0x34, e.bytes[0]);
    EXPECT_EQ(0xFF, e.bytes[1]);
    EXPECT_EQ(0x05, e.bytes[2]);
    for (int i = 3; i < 16; ++i) {
        EXPECT_EQ(0, e.bytes[i]) << i;
    }
}

TEST(SELScan, AnUnterminatedSlotDoesNotReachIntoTheNext) {
    HostCapture host;
    // Slot 0: five fields and blanks to the full 58 characters, no NUL.
    std::string slot0 = "00 00 00 01 00";
    slot0.resize(58, ' ');
    std::string text = slot0 + Slot({0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA,
                                     0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 0x12, 0x13, 0x14, 0x15});
    IPMISELEntry e;
    ASSERT_EQ(0, e.ScanSELDataFile(text.c_str(), 0));
    EXPECT_EQ(1, e.RecordID());
    EXPECT_EQ(0, e.bytes[2]);
    EXPECT_EQ(0, e.bytes[15]);
}

TEST(SELEntry, EventTypeTexts) {
    HostCapture host;
    const struct {
        uint8_t b12;
        const char* text;
    } cases[] = {
        {0x81, "Deassertion, Threshold."},
        {0x01, "Assertion, Threshold."},
        {0x6F, "Assertion, Sensor-specific."},
        {0xEF, "Deassertion, Sensor-specific."},
        {0x02, "Assertion, Generic."},
        {0x8C, "Deassertion, Generic."},
        {0x0D, "Assertion, Unknown event type."},
        {0x00, "Assertion, Unknown event type."},
        {0xF0, "Deassertion, Unknown event type."},
    };
    for (const auto& c : cases) {
        IPMISELEntry e;
        e.bytes[12] = c.b12;
        char out[64];
        std::memset(out, 'x', sizeof out);
        EXPECT_EQ(0, e.GetEventType(out, sizeof out));
        EXPECT_STREQ(c.text, out) << std::hex << int(c.b12);
        EXPECT_TRUE(host.hasLog(4, c.text));
    }
}

TEST(SELEntry, ResultsAreHandedOverWithStrncpySemantics) {
    HostCapture host;
    IPMISELEntry e;
    e.bytes[12] = 0x81; // "Deassertion, Threshold." is 23 characters

    char exact[24];
    std::memset(exact, 'x', sizeof exact);
    e.GetEventType(exact, 23);
    EXPECT_EQ("Deassertion, Threshold.", std::string(exact, 23));
    EXPECT_EQ('x', exact[23]); // no terminator written past the size

    char padded[32];
    std::memset(padded, 'x', sizeof padded);
    e.GetEventType(padded, sizeof padded);
    for (size_t i = 23; i < sizeof padded; ++i) {
        EXPECT_EQ('\0', padded[i]) << i;
    }

    char cut[8];
    std::memset(cut, 'x', sizeof cut);
    IPMISELEntry id = Entry({0x12, 0x34});
    id.GetRecordID(cut, 3);
    EXPECT_EQ("466x", std::string(cut, 4));
}

TEST(SELEntry, RawDataStringNeedsSixtyFourAndIsInWireOrder) {
    HostCapture host;
    IPMISELEntry e = Entry({0x12, 0x34, 0x02, 0xAB, 0xCD, 0xEF, 0x01, 0x20, 0x00, 0x04, 0x01, 0x30,
                            0x81, 0x52, 0x1E, 0x1C});
    char small[63];
    std::memset(small, 'x', sizeof small);
    EXPECT_EQ(1, e.CopyRawDataString(small, sizeof small));
    EXPECT_TRUE(host.hasLog(1, "Buffer not big enough to copy Raw Data."));
    EXPECT_EQ(std::string(63, '\0'), std::string(small, 63)); // cleared even when refused

    char out[64];
    std::memset(out, 'x', sizeof out);
    EXPECT_EQ(0, e.CopyRawDataString(out, sizeof out));
    const std::string want = "34 12 02 ab cd ef 01 20 00 04 01 30 81 52 1e 1c";
    EXPECT_EQ(47u, want.size());
    EXPECT_EQ(want, Held(out, sizeof out));
    EXPECT_TRUE(host.hasLog(3, "RawDataString = " + want));
}

TEST(SELEntry, RawDataHexNeedsSixteenAndIsInWireOrder) {
    HostCapture host;
    IPMISELEntry e = Entry({0x12, 0x34, 0x02, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});
    uint8_t small[15];
    std::memset(small, 0xAA, sizeof small);
    EXPECT_EQ(1, e.CopyRawDataHex(small, sizeof small));
    EXPECT_TRUE(host.hasLog(1, "Buffer not big enough to copy Raw Hex Data."));
    EXPECT_EQ(0xAA, small[0]); // refused before anything is written

    uint8_t out[20];
    std::memset(out, 0xAA, sizeof out);
    EXPECT_EQ(0, e.CopyRawDataHex(out, sizeof out));
    const uint8_t want[20] = {0x34, 0x12, 0x02, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    EXPECT_EQ(0, std::memcmp(want, out, sizeof out));
}

TEST(SELEntry, ShutdownReasonAndComment) {
    HostCapture host;
    const struct {
        uint8_t b10, b11, b12, b13, b14;
        const char* text;
    } cases[] = {
        // A zero byte is a gap in the comment, not its end; the part number
        // is always printed as 0.
        {0x00, 0x41, 0x00, 0x42, 0x43, "(Shutdown Event): Comment String Part 0: ABC"},
        {0x00, 0x00, 0x00, 0x00, 0x00, "(Shutdown Event): Comment String Part 0: "},
        // Reason code: little endian, signed.
        {0x01, 0x01, 0x02, 0x03, 0x04, "(Shutdown Event): ReasonCode: 67305985"},
        {0x80, 0xFF, 0xFF, 0xFF, 0xFF, "(Shutdown Event): ReasonCode: -1"},
        {0x02, 0x00, 0x00, 0x00, 0x80, "(Shutdown Event): ReasonCode: -2147483648"},
    };
    for (const auto& c : cases) {
        IPMISELEntry e;
        e.bytes[10] = c.b10;
        e.bytes[11] = c.b11;
        e.bytes[12] = c.b12;
        e.bytes[13] = c.b13;
        e.bytes[14] = c.b14;
        char out[128];
        std::memset(out, 'x', sizeof out);
        EXPECT_EQ(0, e.GetShutDownEvent(out, sizeof out));
        EXPECT_EQ(c.text, Held(out, sizeof out));
    }
}

TEST(SELFormat, OnlyASingleIntegerConversionIsFormatted) {
    const struct {
        const char* fmt;
        const char* text;
    } cases[] = {
        {"LUN %d. ", "LUN 7. "},
        {"Channel %02x, 100%%.", "Channel 07, 100%."},
        {"%s", "%s"},               // would read a string that is not there
        {"%d and %d", "%d and %d"}, // two numbers, one given
        {"%ld", "%ld"},             // width of the argument differs
        {"%n", "%n"},
        {"trailing %", "trailing %"},
        {"", ""},
    };
    for (const auto& c : cases) {
        char out[64];
        FormatWithNumber(out, sizeof out, c.fmt, 7);
        EXPECT_STREQ(c.text, out) << c.fmt;
    }
    char tiny[5];
    FormatWithNumber(tiny, sizeof tiny, "Channel %d", 12);
    EXPECT_STREQ("Chan", tiny);
}

} // namespace
} // namespace ipmisel
