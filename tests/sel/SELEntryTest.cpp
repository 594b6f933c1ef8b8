// The record's accessors: slot scanning, byte order, the strncpy hand-over,
// and which record bytes reach which IPMIMapping decoder. The decoders' own
// texts are theirs to test; here a byte in the wrong place shows up as a wrong
// number or choice in a text whose shape is fixed. Message-file texts come
// from the real ipmisel.INI beside the test's plug-in path.
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "mapping/OffsetIds.h"
#include "sel/IPMISELEntry.h"
#include "sel/SELFormat.h"
#include "tests/support/HostFixture.h"

namespace ipmisel {
namespace {

using Bytes = std::vector<uint8_t>;

// A record from its first bytes, the rest 0.
IPMISELEntry Rec(const Bytes& b) {
    IPMISELEntry e;
    std::memcpy(e.bytes, b.data(), b.size());
    return e;
}

class SEL : public ::testing::Test {
  protected:
    std::string Ini(int32_t id, int value = 0) {
        char text[256] = {}, formatted[256];
        EXPECT_EQ(0, mapping.GetINIStringById(cb, id, text, sizeof text)) << id;
        FormatWithNumber(formatted, sizeof formatted, text, value);
        return formatted;
    }
    // The caller's buffer, filled with `fill` before each call, as far as
    // the text reaches (it may have no terminator).
    char* Out(char fill = 'x') { return static_cast<char*>(std::memset(out, fill, sizeof out)); }
    std::string Text(size_t size = sizeof(out)) { return std::string(out, strnlen(out, size)); }

    test::HostCapture host;
    IPMIMapping mapping;
    NOXAQSV20::TCPluginCallbacks* cb = host::hostCallbacks();
    char out[512];
};

TEST_F(SEL, FixedSlotsByteOrderAndEndOfData) {
    auto slot = [](std::string line, char fill) { return line.append(58 - line.size(), fill); };
    // Slot 0 is short, has fields wider than a byte and no terminator: the
    // scan must stop at its end rather than run on into slot 1.
    const std::string text = slot("00 00 00 1FF 234 5", ' ') +
                             slot("00 35 12 34 12 02 10 20 30 40 20 00 04 01 30 81 52 1E 1C", 0) +
                             slot("", 0);
    const std::pair<int, Bytes> cases[] = {
        {0, {0x34, 0xFF, 0x05}}, // the rest 0
        {0, {0x12, 0x34, 2, 0x10, 0x20, 0x30, 0x40, 0x20, 0, 4, 1, 0x30, 0x81, 0x52, 0x1E, 0x1C}},
        {2, {}}, // untouched
    };
    for (uint32_t i = 0; i < std::size(cases); ++i) {
        IPMISELEntry e;
        std::memset(e.bytes, 0xAA, 16);
        EXPECT_EQ(cases[i].first, e.ScanSELDataFile(text.c_str(), i)) << i;
        Bytes want = cases[i].second;
        want.resize(16, want.empty() ? 0xAA : 0);
        EXPECT_EQ(want, Bytes(e.bytes, e.bytes + 16)) << i;
    }
    EXPECT_TRUE(host.hasLog(3, "System event log end-of-file found.\n"));
}

TEST_F(SEL, OwnTextsAndTheStrncpyHandOver) {
    // Bytes 10-12 for the event type, 10-14 for the shutdown text.
    const std::pair<Bytes, std::string> cases[] = {
        {{0, 0, 0x81}, "Deassertion, Threshold."},
        {{0, 0, 0x6F}, "Assertion, Sensor-specific."},
        {{0, 0, 0x0D}, "Assertion, Unknown event type."},
        // A zero byte is a gap in the comment, not its end, and the part is
        // always 0; the reason code is signed, least significant byte first.
        {{0x00, 0x41, 0x00, 0x42, 0x43}, "(Shutdown Event): Comment String Part 0: ABC"},
        {{0x80, 0x01, 0x02, 0x03, 0xFF}, "(Shutdown Event): ReasonCode: -16580095"},
    };
    for (const auto& [bytes, text] : cases) {
        IPMISELEntry e;
        std::memcpy(e.bytes + 10, bytes.data(), bytes.size());
        EXPECT_EQ(0, bytes.size() == 5 ? e.GetShutDownEvent(Out(), 64) : e.GetEventType(Out(), 64));
        EXPECT_EQ(text + std::string(64 - text.size(), '\0') + "x", std::string(out, 65));
    }
    // A buffer shorter than the text gets its start and no terminator.
    IPMISELEntry e = Rec({0x12, 0x34});
    e.GetRecordID(Out(), 3);
    EXPECT_EQ("466xx", std::string(out, 5));
    e.GetRecordID(Out(), 16);
    EXPECT_EQ("4660", Text());
    EXPECT_TRUE(host.hasLog("Record ID    = 4660"));
}

TEST_F(SEL, RawDataIsInWireOrderAndRefusesSmallBuffers) {
    Bytes record = {0x12, 0x34, 0x02, 0xAB, 0xCD, 0xEF, 0x01, 0x20,
                    0x00, 0x04, 0x01, 0x30, 0x81, 0x52, 0x1E, 0x1C};
    IPMISELEntry e = Rec(record);
    EXPECT_EQ(1, e.CopyRawDataString(Out(), 63));
    EXPECT_EQ(std::string(63, '\0') + "x", std::string(out, 64)); // cleared even when refused
    EXPECT_TRUE(host.hasLog(1, "Buffer not big enough to copy Raw Data."));
    EXPECT_EQ(0, e.CopyRawDataString(Out(), 64));
    const std::string want = "34 12 02 ab cd ef 01 20 00 04 01 30 81 52 1e 1c"; // 47 characters
    EXPECT_EQ(want + std::string(17, '\0') + "x", std::string(out, 65));

    auto* raw = reinterpret_cast<uint8_t*>(Out('\xAA'));
    EXPECT_EQ(1, e.CopyRawDataHex(raw, 15));
    EXPECT_EQ(0xAA, raw[0]); // refused before anything is written
    EXPECT_TRUE(host.hasLog(1, "Buffer not big enough to copy Raw Hex Data."));
    EXPECT_EQ(0, e.CopyRawDataHex(raw, 16));
    std::swap(record[0], record[1]);
    record.push_back(0xAA);
    EXPECT_EQ(record, Bytes(raw, raw + 17));
}

TEST_F(SEL, MessageFileFormatsTakeOneIntegerOrNothing) {
    // Anything but one integer conversion is copied as it stands.
    for (const char* fmt : {"%s", "%n", "%ld", "%d and %d", "trailing %"}) {
        FormatWithNumber(out, sizeof out, fmt, 7);
        EXPECT_STREQ(fmt, out);
    }
    FormatWithNumber(out, sizeof out, "Channel %02x, 100%%.", 7);
    EXPECT_STREQ("Channel 07, 100%.", out);
    FormatWithNumber(out, 5, "Channel %d", 12);
    EXPECT_STREQ("Chan", out);
}

TEST_F(SEL, GeneratorIDByRangeOrAddress) {
    // Byte 8 = 5Fh: channel 5, LUN 3 (printed for addresses only). Software
    // IDs (byte 7 >> 1) at each end of their ranges.
    const std::pair<uint8_t, std::string> cases[] = {
        {0x01, "BIOS"},                                  // 00h
        {0x1F, "BIOS"},                                  // 0Fh
        {0x21, "SMI handler"},                           // 10h
        {0x41, "System management software"},            // 20h
        {0x7F, "OEM software"},                          // 3Fh
        {0x81, "Remote console software"},               // 40h
        {0x8D, "Remote console software"},               // 46h
        {0x8F, "Terminal mode remote console software"}, // 47h
        {0x91, "Reserved software ID"},                  // 48h
        {0xFF, "Reserved software ID"},                  // 7Fh
        {0x20, "16 (address). LUN 3."},
    };
    for (const auto& [gen1, head] : cases) {
        EXPECT_EQ(0,
                  Rec({0, 0, 2, 0, 0, 0, 0, gen1, 0x5F}).GetGeneratorID(mapping, cb, Out(), 512));
        EXPECT_EQ(head + " Channel 5.", Text()) << int(gen1);
    }
}

TEST_F(SEL, SensorTypeAndEventDataGetTheirBytes) {
    // Bytes 10-15: sensor type and number, direction/type, event data 1-3.
    auto event = [](Bytes b10_15) {
        b10_15.insert(b10_15.begin(), 10, 0);
        return Rec(b10_15);
    };
    EXPECT_EQ(0, event({0xC1, 0x94}).CopySensorType(mapping, cb, Out(), 512));
    EXPECT_TRUE(host.hasLog("Sensor Type = CPU 1 Mismatch"));

    SensorConversion linear;
    linear.RecordType = 0x01;
    linear.M = 1;
    const std::pair<Bytes, std::string> cases[] = {
        {{0x01, 0x30, 0x81, 0x52, 30, 28}, "Trigger reading: 30.00"}, // ED3 is the threshold
        {{0x07, 0x01, 0x8C, 0xA1, 0x5A, 0xC3},
         Ini(ids::GenericBase(0x0C) + 1) + ". OEM code 5a. OEM code c3. "},
        {{0x21, 0x40, 0x6F, 0x32, 0x00, 5}, "#5 "},
        {{0x07, 0x01, 0x70, 1, 2, 3}, ""}, // OEM and reserved types have no decoder
    };
    for (const auto& [bytes, fragment] : cases) {
        EXPECT_EQ(0, event(bytes).GetEventData(mapping, cb, Out(), 256, linear, "Sensor"));
        EXPECT_EQ(fragment.empty(), Text(256).empty()) << Text(256);
        EXPECT_NE(std::string::npos, Text(256).find(fragment)) << Text(256);
    }
}

TEST_F(SEL, OEMAccessorsPassTheirBytes) {
    using Accessor = bool (IPMISELEntry::*)(IPMIMapping&, TCPluginCallbacks*, char*, uint32_t);
    // E0h/E1h: number 513 and a type without a field layout, so every later
    // byte is printed; E0h leaves out bytes 12-14. C0h: number 513 in bytes
    // 7-9. C1h: bytes 12, 13 (byte 14 is not passed).
    const Bytes untimed = {0,    0,    0,    1,    2,    0,    5,    0xA7,
                           0xA8, 0xA9, 0xAA, 0xAB, 0xEC, 0xED, 0xEE, 0xAF};
    const std::tuple<Accessor, uint8_t, Bytes, std::string> cases[] = {
        {&IPMISELEntry::GetOEMxE0, 0xE0, untimed,
         " 513. " + Ini(ids::kData) + " A7 A8 A9 AA AB AF. "},
        {&IPMISELEntry::GetOEMxE1, 0xE1, untimed,
         " 513. " + Ini(ids::kData) + " A7 A8 A9 AA AB EC ED EE AF. "},
        {&IPMISELEntry::GetOEMxC0,
         0xC0,
         {0, 0, 0, 0, 0, 0, 0, 1, 2, 0, 1, 0},
         " 513. Processor Event/Error occurred. "},
        {&IPMISELEntry::GetOEMxC1,
         0xC1,
         {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 2, 0, 1},
         ". . Chassis Number 2. Scalability Link Down. "},
    };
    for (const auto& [get, type, bytes, fragment] : cases) {
        IPMISELEntry e = Rec(bytes);
        e.bytes[2] = type;
        Out('\x7f')[511] = '\0'; // cleared before the decoder appends
        EXPECT_FALSE((e.*get)(mapping, cb, out, sizeof out));
        EXPECT_NE(std::string::npos, Text().find(fragment)) << Text();
        EXPECT_EQ(std::string::npos, Text().find('\x7f')) << Text();
    }
    // The detailed C0h form reads bytes 10-14; byte 15 is not passed.
    host.config().biosID = "QSVX3";
    EXPECT_FALSE(
        Rec({0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0, 4, 1, 2, 3, 4, 9}).GetOEMxC0(mapping, cb, out, 512));
    EXPECT_STREQ("DIMM 1 Rank 2 DIMM 3 Rank 4:Swap done.", out);
}

TEST(SELMissingMessageFile, TextsThatCannotBeFetchedAreLeftOut) {
    host::Config config;
    config.pluginPath = "/nowhere/plugin.so"; // no message file can be found from here
    test::HostCapture host(std::move(config));
    IPMIMapping mapping;
    IPMISELEntry e = Rec({0, 0, 0xE1, 0, 0, 0, 0, 0x20});
    char out[128];
    e.GetGeneratorID(mapping, host::hostCallbacks(), out, sizeof out);
    EXPECT_STREQ("16 (address). ", out);
    EXPECT_EQ(2u, host.countLog("Error in obtaining string."));
    EXPECT_TRUE(e.GetOEMxE1(mapping, host::hostCallbacks(), out, sizeof out)); // failure reported
}

} // namespace
} // namespace ipmisel
