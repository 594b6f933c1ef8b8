// Scanning the SDR text pieces into an IPMISDREntry.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ipmi/IPMIRequestSDR.h"
#include "plugin/text.h"
#include "sdr/IPMISDREntry.h"
#include "tests/support/HostFixture.h"

namespace ipmisel {
namespace {

using test::HostCapture;

std::string hex(std::vector<uint8_t> bytes) {
    return HexBytes(bytes.data(), bytes.size());
}

// cc, next record ID 0002h, then the bytes: the shape of every Get SDR answer.
std::string answer(std::vector<uint8_t> bytes) {
    bytes.insert(bytes.begin(), {0x00, 0x02, 0x00});
    return hex(bytes);
}

// Record bytes 0..9: ID 0107h, version, full sensor, length, owner, LUN,
// sensor 30h, entity 03h, instance 01h.
std::string header(uint8_t version = 0x51, uint8_t sensor = 0x30, uint8_t entity = 0x03) {
    return answer({0x07, 0x01, version, 0x01, 0x40, 0x20, 0x00, sensor, entity, 0x01});
}

// Record bytes 20..29.
std::string units(uint8_t m, uint8_t mTop, uint8_t b, uint8_t bTop, uint8_t exponents,
                  uint8_t lin = 0x00) {
    return answer({0x80, 0x01, 0x00, lin, m, mTop, b, bTop, 0x00, exponents});
}

std::string idString(const std::string& name, size_t padTo = 0, uint8_t pad = 0xFF) {
    std::vector<uint8_t> bytes{static_cast<uint8_t>(0xC0 | name.size())};
    bytes.insert(bytes.end(), name.begin(), name.end());
    while (bytes.size() < padTo + 1) {
        bytes.push_back(pad);
    }
    return answer(bytes);
}

TEST(ScanSDRInfo, VersionMustBe51h) {
    HostCapture cap;
    IPMISDREntry entry;
    EXPECT_EQ(0, entry.ScanSDRInfoDataFile("00 51 05 00 40 00 11 22 33 44 55 66 77 88 0F "));
    EXPECT_TRUE(cap.hasLog(4, "IPMISDREntry::ScanSDRInfoDataFile() function completed."));

    EXPECT_EQ(1, entry.ScanSDRInfoDataFile("00 02 05 00 "));
    EXPECT_TRUE(
        cap.hasLog(1, "This SDR Version (0x2) does not match the current IPMI Version (0x51).\n"));

    EXPECT_EQ(1, entry.ScanSDRInfoDataFile(""));
    EXPECT_EQ(1, entry.ScanSDRInfoDataFile(" \n"));
    EXPECT_EQ(1, entry.ScanSDRInfoDataFile(nullptr));
    EXPECT_EQ(3u, cap.countLog("Error in reading data file for SDRInfostring"));
}

TEST(ScanSDRInfo, FullWidthTextWithoutTerminator) {
    // 64 characters and nothing after them: the scan stays inside.
    auto info = std::make_unique<char[]>(SDRInfoTextSize);
    std::string text = "00 51 ";
    while (text.size() < SDRInfoTextSize) {
        text += "1 ";
    }
    std::memcpy(info.get(), text.data(), SDRInfoTextSize);
    HostCapture cap;
    IPMISDREntry entry;
    EXPECT_EQ(0, entry.ScanSDRInfoDataFile(info.get()));
}

TEST(ScanSDR, HeaderFieldsAndLogLines) {
    HostCapture cap;
    IPMISDREntry entry;
    ASSERT_EQ(0,
              entry.ScanSDRDataFile(header().c_str(), units(0x10, 0xC0, 0x05, 0x40, 0xF1).c_str(),
                                    idString("CPU 1 Temp").c_str()));
    EXPECT_EQ(0x01, entry.RecordIDHigh);
    EXPECT_EQ(0x07, entry.RecordIDLow);
    EXPECT_EQ(0x51, entry.SDRVersion);
    EXPECT_EQ(0x01, entry.RecordType);
    EXPECT_EQ(0x40, entry.RecordLength);
    EXPECT_EQ(0x30, entry.SensorNumber);
    EXPECT_EQ(0x03, entry.EntityID);
    EXPECT_EQ(0x01, entry.EntityInstance);
    EXPECT_EQ(0x80, entry.SensorUnits1);
    EXPECT_EQ(0x01, entry.BaseUnit);
    EXPECT_EQ(0xCA, entry.IDStringTypeLength);
    EXPECT_STREQ("CPU 1 Temp", entry.IDString);
    EXPECT_EQ(0, entry.Reserved[0]);
    EXPECT_EQ(0u, entry.SpareCounter);
    const SensorConversion conv = entry.Conversion();
    EXPECT_EQ(1, conv.RecordType);
    EXPECT_EQ(0x80, conv.SensorUnits1);
    EXPECT_EQ(0x01, conv.BaseUnit);

    EXPECT_TRUE(cap.hasLog(4, "SDRHeaderData=" + header()));
    EXPECT_TRUE(cap.hasLog(3, "M = 784. B = 261. Rexp = 15. Bexp = 1. Lin = 0"));
    EXPECT_TRUE(cap.hasLog(4, "tempIDString=CPU 1 Temp"));
    EXPECT_TRUE(
        cap.hasLog(4, "strlen(SDRstring) = " + std::to_string(idString("CPU 1 Temp").size())));
    EXPECT_TRUE(cap.hasLog(3, "this->IDString=CPU 1 Temp"));
    EXPECT_TRUE(cap.hasLog(3, "Results of ScanSDRDataFile:  7 1 81 1 64 48 3 1 128 1 0 202"));
    EXPECT_EQ("IPMISDREntry::ScanSDRDataFile() function completed.", cap.logs.back().text);
}

TEST(ScanSDR, TenBitFactorsAndNibblesStayRaw) {
    struct Case {
        uint8_t m, mTop, b, bTop, exponents;
        uint16_t M, B;
        uint8_t r, bx;
    };
    const Case cases[] = {
        {0x10, 0xC0, 0x00, 0x00, 0xF1, 784, 0, 15, 1},     // 310h, not a negative M
        {0xFF, 0x3F, 0xFF, 0x3F, 0x00, 255, 255, 0, 0},    // low six bits of the top byte are not M
        {0x00, 0x40, 0x00, 0x80, 0x0F, 256, 512, 0, 15},   // each top bit on its own
        {0xFF, 0xFF, 0xFF, 0xFF, 0x8E, 1023, 1023, 8, 14}, // all ten bits
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.M);
        HostCapture cap;
        IPMISDREntry entry;
        ASSERT_EQ(0, entry.ScanSDRDataFile(header().c_str(),
                                           units(c.m, c.mTop, c.b, c.bTop, c.exponents).c_str(),
                                           idString("T").c_str()));
        EXPECT_EQ(c.M, entry.M);
        EXPECT_EQ(c.B, entry.B);
        EXPECT_EQ(c.r, entry.RExp);
        EXPECT_EQ(c.bx, entry.BExp);
        const SensorConversion conv = entry.Conversion();
        EXPECT_EQ(c.M, conv.M);
        EXPECT_EQ(c.B, conv.B);
        EXPECT_EQ(c.r, conv.RExp);
        EXPECT_EQ(c.bx, conv.BExp);
    }
}

TEST(ScanSDR, IDStringCleaning) {
    struct Case {
        std::string text;
        const char* expected;
    };
    const Case cases[] = {
        {idString("Fan-1"), "Fan"},
        {idString("CPU 1 Temp", 16, 0xFF), "CPU 1 Temp"},
        {idString("CPU 1 Temp", 16, 0x00), "CPU 1 Temp"},
        {idString("Sys.Temp_2"), "Sys.Temp_2"},
        {idString("ABCDEFGHIJKLMNOP"), "ABCDEFGHIJKLMNOP"},   // all 16 kept
        {idString("ABCDEFGHIJKLMNOPQR"), "ABCDEFGHIJKLMNOP"}, // only 16 are read
        {idString("-5V"), ""},
        {idString("Temp\xB0"
                  "C"),
         "Temp"},
        {idString("PS1/AC"), "PS1"},
        // The type/length byte says 3 characters; it does not cut the string.
        {answer({0xC3, 'F', 'a', 'n', '1', '2'}), "Fan12"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expected);
        HostCapture cap;
        IPMISDREntry entry;
        ASSERT_EQ(0, entry.ScanSDRDataFile(header().c_str(), units(1, 0, 0, 0, 0).c_str(),
                                           c.text.c_str()));
        EXPECT_STREQ(c.expected, entry.IDString);
        EXPECT_LE(std::strlen(entry.IDString), 16u);
    }
}

TEST(ScanSDR, VersionMismatchKeepsHeaderFieldsOnly) {
    HostCapture cap;
    IPMISDREntry entry;
    EXPECT_EQ(3, entry.ScanSDRDataFile(header(0x02, 0x44, 0x07).c_str(),
                                       units(0x10, 0xC0, 0, 0, 0).c_str(), idString("X").c_str()));
    EXPECT_EQ(0, entry.RecordIDHigh);
    EXPECT_EQ(0, entry.RecordIDLow);
    EXPECT_EQ(0x02, entry.SDRVersion);
    EXPECT_EQ(0x01, entry.RecordType);
    EXPECT_EQ(0x44, entry.SensorNumber);
    EXPECT_EQ(0x07, entry.EntityID);
    EXPECT_EQ(0, entry.M);
    EXPECT_STREQ("", entry.IDString);
    EXPECT_TRUE(cap.hasLog(1, "This SDR entry (ID 263, vers 0x2) does not match the current IPMI "
                              "Version (0x51).\n"));
}

TEST(ScanSDR, UnreadablePieces) {
    struct Case {
        std::string head, unitsText, str;
        const char* line;
    };
    const Case cases[] = {
        {"", units(1, 0, 0, 0, 0), idString("A"), "Error in reading data file for SDRHeaderData."},
        {header(), "\n", idString("A"), "Error reading data file for SDRUnitsData."},
        {header(), units(1, 0, 0, 0, 0), "", "Error reading data file for SDRIDStringData."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        HostCapture cap;
        IPMISDREntry entry;
        EXPECT_EQ(1, entry.ScanSDRDataFile(c.head.c_str(), c.unitsText.c_str(), c.str.c_str()));
        EXPECT_TRUE(cap.hasLog(0, c.line));
        EXPECT_FALSE(cap.hasLog("IPMISDREntry::ScanSDRDataFile() function completed."));
    }
    // The factor line is written before the units result is looked at.
    HostCapture cap;
    IPMISDREntry entry;
    EXPECT_EQ(1, entry.ScanSDRDataFile(header().c_str(), "", idString("A").c_str()));
    EXPECT_LT(cap.findLog("M = 0. B = 0. Rexp = 0. Bexp = 0. Lin = 0"),
              cap.findLog("Error reading data file for SDRUnitsData."));
}

TEST(ScanSDR, ShortTextFillsWhatItHas) {
    HostCapture cap;
    IPMISDREntry entry;
    ASSERT_EQ(0, entry.ScanSDRDataFile(header(0x51, 0x30, 0x03).c_str(),
                                       units(0x10, 0xC0, 0x05, 0x40, 0xF1).c_str(),
                                       idString("Fan 1").c_str()));
    // A second header that stops after the record type: the later fields
    // keep what the entry held.
    ASSERT_EQ(0, entry.ScanSDRDataFile("00 02 00 07 01 51 02 ", "00 02 00 81 ",
                                       idString("Fan 2").c_str()));
    EXPECT_EQ(0x02, entry.RecordType);
    EXPECT_EQ(0x30, entry.SensorNumber);
    EXPECT_EQ(0x03, entry.EntityID);
    EXPECT_EQ(0x81, entry.SensorUnits1);
    EXPECT_EQ(784, entry.M);
    EXPECT_EQ(15, entry.RExp);
    EXPECT_STREQ("Fan 2", entry.IDString);
}

TEST(ScanSDR, PiecesAreReadWithinTheirWidths) {
    // A block whose pieces fill their widths with no terminator anywhere:
    // each piece is scanned on its own (the sanitizer build catches a read
    // past the block).
    auto block = std::make_unique<char[]>(224);
    auto fill = [&](size_t at, size_t width, const std::string& text) {
        std::string t = text;
        while (t.size() < width) {
            t += "EE ";
        }
        std::memcpy(block.get() + at, t.data(), width);
    };
    fill(0, 64, header());
    fill(64, 96, units(0x10, 0xC0, 0, 0, 0));
    fill(160, 64, answer({0xC3, 'A', 'b', 'c'}));
    HostCapture cap;
    IPMISDREntry entry;
    ASSERT_EQ(0, entry.ScanSDRDataFile(block.get(), block.get() + 64, block.get() + 160));
    EXPECT_EQ(784, entry.M);
    EXPECT_STREQ("Abc", entry.IDString); // EEh is no letter
    EXPECT_TRUE(cap.hasLog(4, "strlen(SDRstring) = 64"));
}

} // namespace
} // namespace ipmisel
