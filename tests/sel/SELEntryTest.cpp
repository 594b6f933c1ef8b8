// The record's accessors: slot scanning, byte order, the strncpy hand-over,
// and which record bytes reach which IPMIMapping decoder, seen as a wrong
// number or choice in a text of fixed shape. The expected texts are those of
// the shipped ipmisel.INI, which the test host finds beside its plug-in path.
#include <cstring>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "sel/IPMISELEntry.h"
#include "sel/SELFormat.h"
#include "tests/support/HostFixture.h"

namespace ipmisel {
namespace {

using Bytes = std::vector<uint8_t>;

// A record holding `b` from byte `at` on, the rest 0.
IPMISELEntry Rec(const Bytes& b, size_t at = 0) {
    IPMISELEntry e;
    std::memcpy(e.bytes + at, b.data(), b.size());
    return e;
}

class SEL : public ::testing::Test {
  protected:
    // The caller's buffer, filled with `fill` before a call, and the text the
    // call left in it (which may have no terminator).
    char* Out(char fill = 'x') { return static_cast<char*>(std::memset(out, fill, sizeof out)); }
    std::string Text(size_t n = sizeof(out)) { return std::string(out, strnlen(out, n)); }

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
                             slot("00 FF FF 78 56", 0) + slot("", 0);
    const std::pair<int, Bytes> cases[] = {
        {0, {0x34, 0xFF, 0x05}}, // the rest 0
        {0, {0x12, 0x34, 2, 0x10, 0x20, 0x30, 0x40, 0x20, 0, 4, 1, 0x30, 0x81, 0x52, 0x1E, 0x1C}},
        {0, {0x56, 0x78}},
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
    // From byte 10: sensor type, number and event direction/type for the
    // event type; the shutdown flag and four data bytes for the shutdown text.
    const std::pair<Bytes, std::string> cases[] = {
        {{0, 0, 0x81}, "Deassertion, Threshold."},
        {{0, 0, 0x02}, "Assertion, Generic."},
        {{0, 0, 0x8C}, "Deassertion, Generic."},
        {{0, 0, 0x0D}, "Assertion, Unknown event type."},
        {{0, 0, 0x6F}, "Assertion, Sensor-specific."},
        // A zero byte is a gap in the comment, not its end, and the part is
        // always 0; the reason code is signed, least significant byte first.
        {{0x00, 0x41, 0x00, 0x42, 0x43}, "(Shutdown Event): Comment String Part 0: ABC"},
        {{0x80, 0x01, 0x02, 0x03, 0xFF}, "(Shutdown Event): ReasonCode: -16580095"},
    };
    for (const auto& [bytes, text] : cases) {
        IPMISELEntry e = Rec(bytes, 10);
        EXPECT_EQ(0, bytes.size() == 5 ? e.GetShutDownEvent(Out(), 64) : e.GetEventType(Out(), 64));
        EXPECT_EQ(text + std::string(64 - text.size(), '\0') + "x", std::string(out, 65));
    }
    // A buffer shorter than the text gets its start and no terminator.
    Rec({0x12, 0x34}).GetRecordID(Out(), 3);
    EXPECT_EQ("466xx", std::string(out, 5));
    EXPECT_TRUE(host.hasLog("Record ID    = 4660"));
}

TEST_F(SEL, RawDataIsInWireOrderAndRefusesSmallBuffers) {
    Bytes wire = {0xB4, 0x1A, 0x02, 0xAB, 0xCD, 0xEF, 0x01, 0x20,
                  0x00, 0x04, 0x01, 0x30, 0x81, 0x52, 0x1E, 0x1C};
    IPMISELEntry e = Rec(wire);
    std::swap(e.bytes[0], e.bytes[1]); // held high byte first
    EXPECT_EQ(1, e.CopyRawDataString(Out(), 63));
    EXPECT_EQ(std::string(63, '\0') + "x", std::string(out, 64)); // cleared even when refused
    EXPECT_TRUE(host.hasLog(1, "Buffer not big enough to copy Raw Data."));
    EXPECT_EQ(0, e.CopyRawDataString(Out(), 64));
    EXPECT_EQ("b4 1a 02 ab cd ef 01 20 00 04 01 30 81 52 1e 1c" + std::string(17, '\0') + "x",
              std::string(out, 65));
    // 2^31 and above is a negative size from a signed caller: nothing is cleared.
    e.CopyRawDataString(Out(), 0x80000000u);
    EXPECT_EQ('x', out[0]);

    auto* raw = reinterpret_cast<uint8_t*>(Out('\xAA'));
    EXPECT_EQ(1, e.CopyRawDataHex(raw, 15));
    EXPECT_EQ(0xAA, raw[0]); // refused before anything is written
    EXPECT_TRUE(host.hasLog(1, "Buffer not big enough to copy Raw Hex Data."));
    EXPECT_EQ(0, e.CopyRawDataHex(raw, 16));
    wire.push_back(0xAA); // and nothing past the 16 bytes
    EXPECT_EQ(wire, Bytes(raw, raw + 17));
}

TEST_F(SEL, MessageFileFormatsTakeOneIntegerOrNothing) {
    // Anything but one integer conversion is copied as it stands.
    for (const char* fmt : {"%s", "%n", "%ld", "%d and %d", "trailing %"}) {
        FormatWithNumber(out, sizeof out, fmt, 7);
        EXPECT_STREQ(fmt, out);
    }
    FormatWithNumber(out, sizeof out, "Channel %02x, 100%%.", 7);
    EXPECT_STREQ("Channel 07, 100%.", out);
    FormatWithNumber(out, sizeof out, "[%-3d]", 7);
    EXPECT_STREQ("[7  ]", out);
    FormatWithNumber(out, 5, "Channel %d", 12);
    EXPECT_STREQ("Chan", out);
}

TEST_F(SEL, GeneratorIDByRangeOrAddress) {
    // Byte 7 values at both ends of each software-ID range (byte 7 >> 1: 00h
    // 0Fh, 10h 1Fh, 20h 2Fh, 30h 3Fh, 40h 46h, 47h, 48h 7Fh), and an address.
    // Byte 8 = 5Fh: channel 5, LUN 3 (printed for addresses only).
    const std::pair<std::string, Bytes> cases[] = {
        {"BIOS", {0x01, 0x1F}},
        {"SMI handler", {0x21, 0x3F}},
        {"System management software", {0x41, 0x5F}},
        {"OEM software", {0x61, 0x7F}},
        {"Remote console software", {0x81, 0x8D}},
        {"Terminal mode remote console software", {0x8F}},
        {"Reserved software ID", {0x91, 0xFF}},
        {"16 (address). LUN 3.", {0x20}},
    };
    for (const auto& [head, gen1s] : cases) {
        for (uint8_t gen1 : gen1s) {
            EXPECT_EQ(0, Rec({gen1, 0x5F}, 7).GetGeneratorID(mapping, cb, Out(), 512));
            EXPECT_EQ(head + " Channel 5.", Text()) << int(gen1);
        }
    }
}

TEST_F(SEL, SensorTypeAndEventDataGetTheirBytes) {
    // The shipped texts, and a site's words for OEM codes in event data 3
    // keyed <sensor name>-<type>-<number>-3-<code>, another sensor's first.
    const std::string folder = test::makeTempDir("sel");
    std::ofstream(folder + "/ipmisel.INI")
        << std::ifstream(test::sourceDir() + "/data/ipmisel.INI").rdbuf()
        << "Other-33-64-3-5=Other's\nFan 1-33-64-3-5=Site five\n"
        << "Other-7-1-3-195=Other's\nFan 1-7-1-3-195=Site C3\n";
    host.config().pluginPath = folder + "/ipmisel.so";

    EXPECT_EQ(0, Rec({0xC1, 0x94}, 10).CopySensorType(mapping, cb, Out(), 512));
    EXPECT_TRUE(host.hasLog("Sensor Type = CPU 1 Mismatch")); // C1h is named by the number
    SensorConversion linear;
    linear.RecordType = 0x01;
    linear.M = 1;
    // From byte 10: sensor type and number, direction/type, event data 1-3.
    const std::pair<Bytes, std::string> cases[] = {
        {{0x01, 0x30, 0x81, 0x52, 30, 28},
         "28.00 unspecified. \n               Trigger reading: 30.00"},
        {{0x07, 0x01, 0x8C, 0xA1, 0x5A, 0xC3},
         "Device in ACPI power state D1. OEM code 5a. OEM code c3. "},
        {{0x07, 0x01, 0x07, 0x21, 0x00, 0xC3}, "Site C3. "},
        {{0x21, 0x40, 0x6F, 0x22, 0x00, 5}, "Device installed or attached. Site five. "},
        {{0x07, 0x01, 0x70, 1, 2, 3}, ""}, // OEM and reserved types have no decoder
    };
    for (const auto& [bytes, fragment] : cases) {
        EXPECT_EQ(0, Rec(bytes, 10).GetEventData(mapping, cb, Out(), 256, linear, "Fan 1"));
        EXPECT_EQ(fragment.empty(), Text(256).empty()) << Text(256);
        EXPECT_NE(std::string::npos, Text(256).find(fragment)) << Text(256);
    }
}

TEST_F(SEL, OEMAccessorsPassTheirBytes) {
    using Accessor = bool (IPMISELEntry::*)(IPMIMapping&, TCPluginCallbacks*, char*, uint32_t);
    // From byte 3. E0h/E1h: event 513 in bytes 3-5, type 5 in byte 6, then
    // bytes that no field layout of type 5 reads, so each is shown; E0h is
    // not handed bytes 12-14. C0h and C1h: event 513 in bytes 7-9, type in
    // byte 10; C1h's chassis and link state in bytes 12 and 13.
    const Bytes untimed = {1, 2, 0, 5, 0xA7, 0xA8, 0xA9, 0xAA, 0xAB, 0xEC, 0xED, 0xEE, 0xAF};
    const std::tuple<Accessor, Bytes, std::vector<std::string>> cases[] = {
        {&IPMISELEntry::GetOEMxE0, untimed, {"Boot device error", " 513", "A7 A8 A9 AA AB", "AF"}},
        {&IPMISELEntry::GetOEMxE1,
         untimed,
         {"Thermal event", " 513", "A7 A8 A9 AA AB EC ED EE AF"}},
        {&IPMISELEntry::GetOEMxC0,
         {0, 0, 0, 0, 1, 2, 0, 1, 0},
         {"Processor error. Record part 0. Event identifier 513. Processor Event/Error occurred."}},
        {&IPMISELEntry::GetOEMxC1,
         {0, 0, 0, 0, 1, 2, 0, 3, 0, 2, 0, 1},
         {"Scalability link event. Record part 0. Event identifier 513. . Chassis Number 2. "
          "Scalability Link Down. "}},
    };
    for (const auto& [get, bytes, fragments] : cases) {
        Out('\x7f')[511] = '\0'; // cleared before the decoder appends
        EXPECT_FALSE((Rec(bytes, 3).*get)(mapping, cb, out, sizeof out));
        for (const std::string& fragment : fragments) {
            EXPECT_NE(std::string::npos, Text().find(fragment)) << Text();
        }
        EXPECT_EQ(std::string::npos, Text().find('\x7f')) << Text();
    }
    Rec(untimed, 3).GetOEMxE0(mapping, cb, out, sizeof out);
    EXPECT_EQ(std::string::npos, Text().find("EE")) << Text(); // byte 14 not handed to E0h
    // The detailed C0h form reads bytes 10-14; byte 15 is not passed.
    host.config().biosID = "QSVX3";
    EXPECT_FALSE(Rec({4, 1, 2, 3, 4, 9}, 10).GetOEMxC0(mapping, cb, out, 512));
    EXPECT_STREQ("DIMM 1 Rank 2 DIMM 3 Rank 4:Swap done.", out);
}

TEST(SELMissingMessageFile, TextsThatCannotBeFetchedAreLeftOut) {
    host::Config config;
    config.pluginPath = "/nowhere/plugin.so"; // no message file can be found from here
    test::HostCapture host(std::move(config));
    IPMIMapping mapping;
    char out[128];
    Rec({0x20}, 7).GetGeneratorID(mapping, host::hostCallbacks(), out, sizeof out);
    EXPECT_STREQ("16 (address). ", out);
    Rec({0x21}, 7).GetGeneratorID(mapping, host::hostCallbacks(), out, sizeof out);
    EXPECT_STREQ("", out);
    EXPECT_EQ(4u, host.countLog("Error in obtaining string."));
}

} // namespace
} // namespace ipmisel
