// Which record bytes reach which IPMIMapping decoder. The decoders' own texts
// are theirs to test; here a byte in the wrong place shows up as a wrong
// number or a wrong choice in a text whose shape is fixed. Message-file texts
// come from the real ipmisel.INI beside the test's plug-in path.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "mapping/OffsetIds.h"
#include "sel/IPMISELEntry.h"
#include "sel/SELFormat.h"
#include "tests/support/HostFixture.h"

namespace ipmisel {
namespace {

using test::HostCapture;

std::string Held(const char* buf, size_t size) {
    return std::string(buf, strnlen(buf, size));
}

class SELMapping : public ::testing::Test {
  protected:
    std::string Ini(int32_t id) {
        char text[256] = {};
        EXPECT_EQ(0, mapping.GetINIStringById(cb(), id, text, sizeof text)) << id;
        return text;
    }
    std::string Formatted(int32_t id, int value) {
        char text[256];
        FormatWithNumber(text, sizeof text, Ini(id).c_str(), value);
        return text;
    }
    NOXAQSV20::TCPluginCallbacks* cb() { return host::hostCallbacks(); }

    HostCapture host;
    IPMIMapping mapping;
};

TEST_F(SELMapping, SoftwareGeneratorRangesPickTheirText) {
    const struct {
        uint8_t gen1;
        int32_t id;
    } cases[] = {
        {0x01, 535}, {0x1F, 535}, {0x21, 536}, {0x41, 537}, {0x5F, 537}, {0x61, 538},
        {0x81, 539}, {0x8D, 539}, {0x8F, 541}, {0x91, 541}, {0xFF, 541},
    };
    for (const auto& c : cases) {
        IPMISELEntry e;
        e.bytes[7] = c.gen1;
        e.bytes[8] = 0x53; // channel 5, LUN 3 (not printed for software IDs)
        char out[128];
        std::memset(out, 'x', sizeof out);
        EXPECT_EQ(0, e.GetGeneratorID(mapping, cb(), out, sizeof out));
        EXPECT_EQ(Ini(c.id) + Formatted(544, 5), Held(out, sizeof out)) << std::hex << int(c.gen1);
    }
    EXPECT_TRUE(host.hasLog(4, "GenID1, GenID2 = 255 83"));
    EXPECT_TRUE(host.hasLog(4, "IPMISELEntry::GetGeneratorID function completed."));
}

TEST_F(SELMapping, AddressGeneratorPrintsAddressLunAndChannel) {
    IPMISELEntry e;
    e.bytes[7] = 0x20; // BMC, address 10h
    e.bytes[8] = 0xE1; // channel 14, LUN 1
    char out[128];
    e.GetGeneratorID(mapping, cb(), out, sizeof out);
    EXPECT_EQ("16 (address). " + Formatted(543, 1) + Formatted(544, 14), Held(out, sizeof out));
}

TEST(SELMappingMissingFile, GeneratorTextsThatCannotBeFetchedAreLeftOut) {
    host::Config config;
    config.pluginPath = "/nowhere/plugin.so"; // no message file can be found from here
    HostCapture host(std::move(config));
    IPMIMapping mapping;
    IPMISELEntry e;
    char out[128];

    e.bytes[7] = 0x20;
    e.GetGeneratorID(mapping, host::hostCallbacks(), out, sizeof out);
    EXPECT_STREQ("16 (address). ", out);
    EXPECT_EQ(2u, host.countLog("Error in obtaining string."));
    EXPECT_TRUE(host.hasLog(0, "Error in obtaining string."));

    e.bytes[7] = 0x41;
    std::memset(out, 'x', sizeof out);
    e.GetGeneratorID(mapping, host::hostCallbacks(), out, sizeof out);
    EXPECT_STREQ("", out);
}

TEST_F(SELMapping, SensorTypeUsesTypeAndNumber) {
    const struct {
        uint8_t type, number;
        const char* name;
    } cases[] = {
        {0x28, 0x00, "Managment Subsystem Health"},
        {0xC1, 0x94, "CPU 1 Mismatch"},
    };
    for (const auto& c : cases) {
        IPMISELEntry e;
        e.bytes[10] = c.type;
        e.bytes[11] = c.number;
        char out[128];
        EXPECT_EQ(0, e.CopySensorType(mapping, cb(), out, sizeof out));
        EXPECT_STREQ(c.name, out);
        EXPECT_TRUE(host.hasLog(std::string("Sensor Type = ") + c.name));
    }
}

IPMISELEntry Event(uint8_t sensorType, uint8_t number, uint8_t dirType, uint8_t ed1, uint8_t ed2,
                   uint8_t ed3) {
    IPMISELEntry e;
    e.bytes[2] = 0x02;
    e.bytes[10] = sensorType;
    e.bytes[11] = number;
    e.bytes[12] = dirType;
    e.bytes[13] = ed1;
    e.bytes[14] = ed2;
    e.bytes[15] = ed3;
    return e;
}

std::string EventData(IPMIMapping& mapping, IPMISELEntry& e, const SensorConversion& conv = {},
                      size_t size = 256) {
    char out[256];
    std::memset(out, 'x', sizeof out);
    EXPECT_EQ(0, e.GetEventData(mapping, host::hostCallbacks(), out, static_cast<uint32_t>(size),
                                conv, "Sensor"));
    return std::string(out, strnlen(out, size));
}

TEST_F(SELMapping, ThresholdEventsGetBothReadingsAndTheConversion) {
    SensorConversion linear;
    linear.RecordType = 0x01;
    linear.M = 1;
    for (uint8_t dirType : {0x01, 0x81}) {
        // Offset 2; event data 3 is the threshold, event data 2 the reading.
        IPMISELEntry e = Event(0x01, 0x30, dirType, 0x52, 30, 28);
        const std::string text = EventData(mapping, e, linear);
        EXPECT_EQ(0u, text.find(Ini(102) + ". ")) << text;
        EXPECT_NE(std::string::npos, text.find("Trigger threshold value: 28.00")) << text;
        EXPECT_NE(std::string::npos, text.find("Trigger reading: 30.00")) << text;
    }
}

TEST_F(SELMapping, SensorSpecificEventsGetTypeAndAllThreeDataBytes) {
    const struct {
        uint8_t sensorType, ed1, ed2, ed3;
        const char* fragment;
    } cases[] = {
        {0x2B, 0x01, 0x00, 0x00, "Firmware or software change detected with associated Entity"},
        {0x2C, 0x07, 0x00, 0x00, "FRU Communication Lost"},
        {0x12, 0x05, 0x81, 0x00, "event is first of pair. SDR Timestamp Clock updated."},
        {0x12, 0x05, 0x00, 0x00, "event is second of pair. SEL Timestamp Clock updated."},
        {0x21, 0x32, 0x00, 0x05, "#5 "},
    };
    for (const auto& c : cases) {
        IPMISELEntry e = Event(c.sensorType, 0x40, 0x6F, c.ed1, c.ed2, c.ed3);
        const std::string text = EventData(mapping, e);
        EXPECT_NE(std::string::npos, text.find(c.fragment)) << text;
    }
}

TEST_F(SELMapping, OtherEventTypesHaveNoText) {
    for (uint8_t dirType : {0x00, 0x0D, 0x70, 0x7F}) {
        IPMISELEntry e = Event(0x07, 0x01, dirType, 0x01, 0x02, 0x03);
        EXPECT_EQ("", EventData(mapping, e));
    }
    EXPECT_TRUE(host.hasLog(4, "Event Data   = "));
}

TEST_F(SELMapping, GenericEventsGetTheirTypeAndDataBytes) {
    for (uint8_t dirType : {0x02, 0x03, 0x8C}) {
        const uint8_t type = dirType & 0x7F;
        // Offset 1, event data 2 and 3 both OEM codes.
        IPMISELEntry e = Event(0x07, 0x01, dirType, 0xA1, 0x5A, 0xC3);
        EXPECT_EQ(Ini(ids::GenericBase(type) + 1) + ". OEM code 5a. OEM code c3. ",
                  EventData(mapping, e))
            << int(type);
    }
}

// Bytes 3-15 of the E0h/E1h test record: number 513, a type without a field
// layout (so every payload byte after the type is printed), then bytes 7-15.
IPMISELEntry Untimed(uint8_t recordType) {
    IPMISELEntry e;
    e.bytes[2] = recordType;
    const uint8_t payload[13] = {0x01, 0x02, 0x00, 0x05, 0xA7, 0xA8, 0xA9,
                                 0xAA, 0xAB, 0xEC, 0xED, 0xEE, 0xAF};
    std::memcpy(e.bytes + 3, payload, sizeof payload);
    return e;
}

TEST_F(SELMapping, OEMxE0SkipsBytesTwelveToFourteen) {
    IPMISELEntry e = Untimed(0xE0);
    char out[512];
    EXPECT_FALSE(e.GetOEMxE0(mapping, cb(), out, sizeof out));
    const std::string text = out;
    EXPECT_NE(std::string::npos, text.find(" 513. ")) << text;
    EXPECT_NE(std::string::npos, text.find(Ini(ids::kData) + " A7 A8 A9 AA AB AF. ")) << text;
}

TEST_F(SELMapping, OEMxE1GetsBytesThreeToFifteen) {
    IPMISELEntry e = Untimed(0xE1);
    char out[512];
    EXPECT_FALSE(e.GetOEMxE1(mapping, cb(), out, sizeof out));
    const std::string text = out;
    EXPECT_NE(std::string::npos, text.find(" 513. ")) << text;
    EXPECT_NE(std::string::npos, text.find(Ini(ids::kData) + " A7 A8 A9 AA AB EC ED EE AF. "))
        << text;
}

TEST(SELMappingMissingFile, OEMDecoderFailureIsReported) {
    host::Config config;
    config.pluginPath = "/nowhere/plugin.so";
    HostCapture host(std::move(config));
    IPMIMapping mapping;
    IPMISELEntry e = Untimed(0xE1);
    char out[512];
    EXPECT_TRUE(e.GetOEMxE1(mapping, host::hostCallbacks(), out, sizeof out));
}

TEST_F(SELMapping, OEMxC0GenericFormGetsBytesSevenToEleven) {
    IPMISELEntry e;
    e.bytes[2] = 0xC0;
    e.bytes[7] = 0x01; // 24-bit number 0x000201 = 513
    e.bytes[8] = 0x02;
    e.bytes[9] = 0x00;
    e.bytes[10] = 0x01; // processor
    e.bytes[11] = 0x00;
    char out[512];
    EXPECT_FALSE(e.GetOEMxC0(mapping, cb(), out, sizeof out));
    const std::string text = out;
    EXPECT_NE(std::string::npos,
              text.find(" 513. Processor Event/Error occurred. Next non-timestamped OEM SEL "
                        "entry will contain details of the specific Processor event/error. "))
        << text;
}

TEST_F(SELMapping, OEMxC0DetailedFormGetsBytesElevenToFourteen) {
    host.config().biosID = "QSVX3";
    IPMISELEntry e;
    e.bytes[2] = 0xC0;
    e.bytes[10] = 0x04;
    e.bytes[11] = 1;
    e.bytes[12] = 2;
    e.bytes[13] = 3;
    e.bytes[14] = 4;
    e.bytes[15] = 9; // not part of the payload
    char out[128];
    std::memset(out, 'x', sizeof out);
    EXPECT_FALSE(e.GetOEMxC0(mapping, cb(), out, sizeof out));
    EXPECT_STREQ("DIMM 1 Rank 2 DIMM 3 Rank 4:Swap done.", out);
}

TEST_F(SELMapping, OEMxC1GetsBytesSevenToThirteen) {
    const struct {
        uint8_t b12, b13, b14;
        const char* tail;
    } cases[] = {
        {2, 0, 1, ". . Chassis Number 2. Scalability Link Down. "},
        {9, 2, 0, ". . Scalability Link Invalid Node. "},
    };
    for (const auto& c : cases) {
        IPMISELEntry e;
        e.bytes[2] = 0xC1;
        e.bytes[10] = 0x03;
        e.bytes[12] = c.b12;
        e.bytes[13] = c.b13;
        e.bytes[14] = c.b14; // not part of the payload
        char out[512];
        std::memset(out, 0x7F, sizeof out); // cleared before the decoder appends
        out[sizeof out - 1] = '\0';
        e.GetOEMxC1(mapping, cb(), out, sizeof out);
        const std::string text = out;
        const std::string tail = c.tail;
        ASSERT_GE(text.size(), tail.size()) << text;
        EXPECT_EQ(tail, text.substr(text.size() - tail.size())) << text;
        EXPECT_EQ(std::string::npos, text.find('\x7f'));
    }
}

} // namespace
} // namespace ipmisel
