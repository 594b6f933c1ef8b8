// Decoders over the shipped message file: names, readings, thresholds,
// sensor-specific and generic offsets, OEM records.
#include <gtest/gtest.h>

#include "mapping/MappingConfig.h"
#include "tests/mapping/MappingTestSupport.h"

namespace ipmisel::test {
namespace {

const std::string kSpaces(15, ' ');

SensorConversion Linear(uint16_t m, uint16_t b = 0, uint16_t rexp = 0, uint16_t bexp = 0,
                        uint8_t units1 = 0, uint8_t base = 1, uint8_t modifier = 0) {
    return SensorConversion{1, units1, base, modifier, 0, m, b, rexp, bexp};
}

std::string Offset(MappingHost& h, uint8_t type, uint8_t ed1, uint8_t ed2 = 0, uint8_t ed3 = 0,
                   const std::string& name = "CPU1", uint32_t size = 256) {
    char out[256] = {};
    h.mapping.GetSensorOffset(h.cb(), type, ed1, ed2, ed3, 0x6F, out, size, name, 0x30);
    return out;
}

class Decode : public ::testing::Test {
  protected:
    Decode() : h(shippedMessageFile()) {}
    std::string T(int32_t id) { return h.text(id); }
    std::string units(const SensorConversion& sdr, uint8_t raw) {
        char out[128];
        h.mapping.GetSensorUnits(h.cb(), sdr, raw, out, sizeof out);
        return out;
    }
    std::string threshold(uint8_t ed1, uint8_t ed2, uint8_t ed3) {
        char out[256] = {};
        h.mapping.GetThresholdOffset(h.cb(), ed1, ed2, ed3, out, sizeof out, Linear(1));
        return out;
    }
    MappingHost h;
};

TEST_F(Decode, SensorTypeNames) {
    const struct {
        uint8_t type, number;
        const char* name;
    } cases[] = {
        {0x00, 0, "Unknown Sensor Type"},
        {0x28, 0, "Managment Subsystem Health"},
        {0x2C, 0, "FRU State"},
        {0x2D, 0, "Unknown Sensor Type"},
        // OEM types are named by the sensor number's range.
        {0xC1, 0x5F, "Drive/Slot Status"},
        {0xC1, 0x60, "Drive Status"},
        {0xD1, 0x67, "Drive Status"},
        {0xC1, 0x68, "Drive/Slot Status"},
        {0xC1, 0x94, "CPU 1 Mismatch"},
        {0xD1, 0x97, "CPU 4 Mismatch"},
        {0xC1, 0x98, "Drive/Slot Status"},
        {0xD0, 0x12, "SEL Fullness"},
        {0xD2, 0x12, "Unknown Sensor Type"},
    };
    for (const auto& c : cases) {
        char out[128] = {};
        EXPECT_EQ(h.mapping.GetSensorType(h.cb(), c.type, out, sizeof out, c.number), 0);
        EXPECT_STREQ(out, c.name) << int(c.type) << "/" << int(c.number);
    }
    char small[10] = {}, none[4] = "abc";
    h.mapping.GetSensorType(h.cb(), 0x01, small, sizeof small, 0);
    h.mapping.GetSensorType(h.cb(), 0x01, none, 0, 0);
    EXPECT_STREQ(small, "Temperatu");
    EXPECT_STREQ(none, "abc");
}

TEST_F(Decode, OnesComplementKeepsMinusZero) {
    const std::pair<uint8_t, const char*> cases[] = {
        {0x00, "0"}, {0x7F, "127"}, {0x80, "-127"}, {0xFE, "-1"}, {0xFF, "-0"}};
    for (const auto& [value, text] : cases) {
        char out[16];
        h.mapping.GetOnesComplement(h.cb(), static_cast<int8_t>(value), out, sizeof out);
        EXPECT_STREQ(out, text);
    }
}

TEST_F(Decode, ReadingsWithUnits) {
    const std::string deg = " " + T(731);
    const struct {
        SensorConversion sdr;
        uint8_t raw;
        std::string text;
    } cases[] = {
        {Linear(1, 0x200), 0, "-512.00" + deg},           // B = -512
        {Linear(1, 0, 0x0F), 25, "2.50" + deg},           // R exponent -1
        {Linear(1, 0, 0x08), 100, "0.00" + deg},          // R exponent -8
        {Linear(1, 3, 0, 0x0F), 1, "1.30" + deg},         // B exponent -1
        {Linear(1, 3, 0, 2), 1, "301.00" + deg},          // B exponent 2
        {Linear(0x200, 0x3FF), 0xFF, "-130561.00" + deg}, // M = -512, B = -1, raw 255
        // Compact and non-linear sensors are not converted.
        {{.RecordType = 2, .BaseUnit = 1, .M = 1}, 50, "0.00" + deg},
        {{.RecordType = 1, .BaseUnit = 1, .Linearization = 1, .M = 1}, 50, "0.00" + deg},
        // Signed formats print the raw byte unconverted, even with M = 2.
        {Linear(2, 0, 0, 0, 0x40), 0xFF, "-0" + deg},
        {Linear(2, 0, 0, 0, 0x80), 0xFF, "-1" + deg},
        {Linear(1, 0, 0, 0, 0x01, 0), 40, "40.00% " + T(730)},
        {Linear(1, 0, 0, 0, 3 << 3, 18), 2, "2.00 " + T(723) + " " + T(748)},  // per second
        {Linear(1, 0, 0, 0, 0x02, 6, 24), 3, "3.00 " + T(736) + "/" + T(754)}, // modifier: divide
        // Codes past 92 have no name: the blank stays, and ids that other
        // blocks own (856 + n, 870 + n) are never read as units.
        {Linear(1, 0, 0, 0, 0, 92), 1, "1.00 " + T(822)},
        {Linear(1, 0, 0, 0, 0, 200), 1, "1.00 "},
        {Linear(1, 0, 0, 0, 0, 126), 1, "1.00 "},
        {Linear(1, 0, 0, 0, 0x04, 1, 140), 1, "1.00 " + T(731) + "*"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(units(c.sdr, c.raw), c.text) << &c - cases;
    }
    EXPECT_TRUE(h.capture.hasLog(SevError, "Error in obtaining string."));
}

TEST_F(Decode, ThresholdEvents) {
    const std::string unit = " " + T(731);
    EXPECT_EQ(threshold(0x52, 30, 28), T(102) + ". \n" + kSpaces +
                                           "Trigger threshold value: 28.00" + unit + ". \n" +
                                           kSpaces + "Trigger reading: 30.00" + unit + ".");
    EXPECT_EQ(threshold(0xA7, 0x3C, 0x05), T(107) + ". DIMM_11.\n" + kSpaces + "OEM code 3c.");
    EXPECT_EQ(threshold(0xF1, 0xAB, 0x0C),
              T(101) + ". \n" + kSpaces + "Sensor-specific event extension code 0c. \n" + kSpaces +
                  "Sensor-specific event extension code ab.");
    // Appends to what the caller wrote; offsets 0Ch..0Fh have no text. A small
    // buffer is cut, and terminated.
    char out[256] = "Assertion: ", small[20] = {};
    h.mapping.GetThresholdOffset(h.cb(), 0x0C, 0, 0, out, sizeof out, Linear(1));
    h.mapping.GetThresholdOffset(h.cb(), 0x52, 30, 28, small, sizeof small, Linear(1));
    EXPECT_EQ(std::string(out), "Assertion: " + kSpaces);
    EXPECT_EQ(std::string(small), (T(102) + ". ").substr(0, 19));
}

TEST_F(Decode, SensorSpecificOffsets) {
    const std::string lead = "Logging disabled for offset 5 of one event type.\n" + kSpaces;
    const std::string lead3 = "Logging disabled for offset 3 of one event type.\n" + kSpaces;
    const std::string allOf = "Deassertion event. Logging has been disabled for all events of ";
    const struct {
        uint8_t type, ed1, ed2, ed3;
        std::string text;
    } cases[] = {
        // Processor offset 0Ah is built in; D0h has one text for any offset.
        {0x07, 0x09, 0, 0, T(259) + ". "},
        {0x07, 0x0A, 0, 0, "Processor Automatically Throttled. "},
        {0x07, 0x0B, 0, 0, ""},
        {0xD0, 0x0F, 0, 0, "SEL Fullness"},
        // Memory: the module number goes through the file's format.
        {0x0C, 0x31, 0, 7, T(281) + ". Memory module 7."},
        {0x0C, 0x3A, 0, 2, "Critical Overtemperature.Memory module 2."},
        {0x0C, 0x0B, 0, 0, ""},
        // Firmware progress, slips kept: FFh reads past the table, never "Reserved".
        {0x0F, 0xC2, 0x13, 0, T(292) + ": " + T(323) + ". "},
        {0x0F, 0xC1, 0xFF, 0, T(291) + ": " + T(335) + ". "},
        {0x0F, 0x02, 0x13, 0, T(292) + ": "},
        {0x0F, 0xC3, 0x01, 0, ""},
        // System events; skipped lookups reuse the scratch text.
        {0x12, 0xC4, 0x0A, 0, T(377) + ": power cycle.  power off.  "},
        {0x12, 0xC4, 0xF1, 0,
         T(377) + ": Reserved  Reserved  Diagnostic Interrupt (NMI).  OEM action.  Alert.  "},
        {0x12, 0x05, 0x81, 0, T(378) + ": event is first of pair. SDR Timestamp Clock updated."},
        {0x12, 0x02, 0, 0, T(375) + "."},
        {0x12, 0xC3, 0x0F, 0, T(376) + ": " + T(376) + ":  " + T(412) + "."},
        {0x12, 0xC3, 0xF1, 0, T(376) + ": " + T(386) + " " + T(386) + " ."},
        {0x12, 0xC3, 0x53, 0, T(376) + ": " + T(376) + ":  " + T(417) + "."},
        // Slot/connector, watchdog 2.
        {0x21, 0xF2, 0x01, 5, T(465) + " #5 " + T(422) + ". "},
        {0x21, 0xF2, 0x0D, 5, "#5 " + T(422) + ". "},
        {0x23, 0xC8, 0x34, 0, T(458) + ". " + T(513) + ". " + T(519) + ". "},
        {0x23, 0xC8, 0x46, 0, T(458) + ". "},
        // Event logging disabled, decoding the disabled offset again.
        {0x10, 0x00, 0, 0, T(346) + "."},
        {0x10, 0x05, 0, 0, "SEL Almost Full. "},
        {0x10, 0x01, 0x01, 0x15,
         lead + "Assertion event. Threshold Type. " + T(105) + ". " + kSpaces},
        {0x10, 0x01, 0x07, 0x25,
         lead + allOf + T(657) + ". \n" + kSpaces + T(657) + " - " + T(175) + ". "},
        {0x10, 0x01, 0x6F, 0x03,
         lead3 + "Deassertion event. Sensor-specific Type. " + T(349) + ". "},
        {0x10, 0x01, 0x0D, 0x23,
         lead3 + allOf + " Sensor-specific type. \n" + kSpaces + "Sensor-specific Type. " + T(349) +
             ". "},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Offset(h, c.type, c.ed1, c.ed2, c.ed3), c.text)
            << std::hex << int(c.type) << " " << int(c.ed1) << " " << int(c.ed2);
    }
    // An offset that names itself does not loop.
    std::string self = Offset(h, 0x10, 0x01, 0x6F, 0x01);
    EXPECT_EQ(self.find("Sensor-specific Type. "), self.rfind("Sensor-specific Type. "));
}

TEST(DecodeOtherFiles, OemBytesByKey) {
    MappingHost site(shippedMessageFile() + "CPU1-7-48-2-3=Site text three\n"
                                            "CPU1-7-48-3-1=Byte three one\n");
    // Severity nibble 2 (id 172), code 3, then byte 3 = 1.
    EXPECT_EQ(Offset(site, 0x07, 0xA0, 0x23, 0x01),
              site.text(250) + ". " + site.text(172) + ". Site text three. Byte three one. ");
    // The appends never pass the caller's size.
    EXPECT_EQ(Offset(site, 0x07, 0xA0, 0x23, 0x01, "CPU1", 8),
              (site.text(250) + ". ").substr(0, 7));
    // Severity nibble 9 has no text; no key for the code: logged, the
    // separator still written.
    EXPECT_EQ(Offset(site, 0x07, 0x8F, 0x95, 0x00, "CPU9"), ". ");
    EXPECT_FALSE(site.capture.logContains("severity string"));
    EXPECT_TRUE(site.capture.hasLog(SevError, "Error in obtaining OEM string for Byte 2."));
    // Generic types 03h..0Bh read the OEM bytes by the same keys; without a
    // site text, and for 02h and 0Ch, the code itself is shown.
    const struct {
        uint8_t type, ed2;
        const char* name;
        std::string text;
    } generic[] = {
        {0x03, 0x23, "CPU1",
         site.text(131) + ". " + site.text(172) + ". Site text three. Byte three one. "},
        {0x0B, 0x23, "CPU1",
         site.text(211) + ". " + site.text(172) + ". Site text three. Byte three one. "},
        {0x03, 0x93, "CPU1", site.text(131) + ". Site text three. Byte three one. "},
        {0x03, 0x23, "CPU9",
         site.text(131) + ". " + site.text(172) + ". OEM code 23. OEM code 01. "},
        {0x02, 0x23, "CPU1", site.text(121) + ". OEM code 23. OEM code 01. "},
        {0x0C, 0x23, "CPU1", site.text(221) + ". OEM code 23. OEM code 01. "},
    };
    for (const auto& g : generic) {
        char out[256] = {};
        EXPECT_EQ(site.mapping.GetGenericOffset(site.cb(), 0xA1, g.ed2, 0x01, g.type, 0x07, 0x30,
                                                out, sizeof out, g.name),
                  0);
        EXPECT_EQ(std::string(out), g.text) << int(g.type) << g.name;
    }
    // A severity whose text the file lacks has its own line.
    MappingHost bare("250=Internal error\n");
    EXPECT_EQ(Offset(bare, 0x07, 0x80, 0x20), "Internal error. . . ");
    EXPECT_TRUE(
        bare.capture.hasLog(SevError, "Error in obtaining severity string for OEM Byte 2."));
    EXPECT_TRUE(bare.capture.hasLog(SevError, "Error in obtaining OEM string for Byte 2."));
}

// First and last offset of every offset table, and the first one past it.
TEST_F(Decode, EveryOffsetTableFromItsBaseToItsEnd) {
    // Sensor types whose offsets are message-file texts base + offset, ". ".
    const struct {
        uint8_t type;
        int32_t base;
        uint8_t count;
    } fileRows[] = {
        {0x05, 230, 7},  {0x06, 240, 6}, {0x08, 260, 6},  {0x09, 270, 8}, {0x11, 350, 8},
        {0x13, 360, 10}, {0x14, 370, 3}, {0x1D, 380, 5},  {0x1E, 390, 5}, {0x1F, 400, 7},
        {0x20, 410, 2},  {0x21, 420, 9}, {0x22, 430, 15}, {0x23, 450, 9}, {0x24, 460, 4},
        {0x25, 477, 3},  {0x27, 480, 2}, {0x28, 490, 4},  {0x29, 500, 4}, {0xC1, 856, 10},
    };
    for (const auto& r : fileRows) {
        SCOPED_TRACE(int(r.type));
        EXPECT_EQ(Offset(h, r.type, 0), T(r.base) + ". ");
        EXPECT_EQ(Offset(h, r.type, r.count - 1), T(r.base + r.count - 1) + ". ");
        EXPECT_EQ(Offset(h, r.type, r.count), "");
    }
    // Built-in texts, appended as they stand.
    const struct {
        uint8_t type, count;
        const char *first, *last;
    } builtIn[] = {
        {0x0D, 9, "Drive Presence", "Rebuild/Remap Aborted (was not completed normally)"},
        {0x16, 1, "Cable is connected", "Cable is connected"},
        {0x1B, 2, "Cable/Interconnect is connected",
         "Configuration Error - Incorrect cable connected / Incorrect interconnection"},
        {0x2A, 2, "Session Activated", "Session Deactivated"},
        {0x2B, 8, "Hardware change detected with associated Entity",
         "Software or Firmware Change detected with associated Entity was successful"},
        {0x2C, 8, "FRU Not Installed", "FRU Communication Lost"},
        {0xD2, 7, "Vtt Enable Check", "CPU Cores"},
    };
    for (const auto& b : builtIn) {
        SCOPED_TRACE(int(b.type));
        EXPECT_EQ(Offset(h, b.type, 0), b.first);
        EXPECT_EQ(Offset(h, b.type, b.count - 1), b.last);
        EXPECT_EQ(Offset(h, b.type, b.count), "");
    }
    // Generic event/reading types: 120 + 10 x (type - 2) + offset.
    const struct {
        uint8_t type;
        int32_t base;
        uint8_t count;
    } generic[] = {
        {0x02, 120, 3}, {0x03, 130, 2}, {0x04, 140, 2}, {0x05, 150, 2},
        {0x06, 160, 2}, {0x07, 170, 9}, {0x08, 180, 2}, {0x09, 190, 2},
        {0x0A, 200, 9}, {0x0B, 210, 8}, {0x0C, 220, 4},
    };
    auto genericText = [&](uint8_t type, uint8_t offset, int result) {
        char out[256] = {};
        EXPECT_EQ(
            h.mapping.GetGenericOffset(h.cb(), offset, 0, 0, type, 0x04, 0x30, out, sizeof out),
            result);
        return std::string(out);
    };
    for (const auto& g : generic) {
        SCOPED_TRACE(int(g.type));
        EXPECT_EQ(genericText(g.type, 0, 0), T(g.base) + ". ");
        EXPECT_EQ(genericText(g.type, g.count - 1, 0), T(g.base + g.count - 1) + ". ");
        EXPECT_EQ(genericText(g.type, g.count, 1), T(531) + ": " + std::to_string(g.count) + ". ");
    }
}

TEST_F(Decode, GenericOffsets) {
    const struct {
        uint8_t type, ed1, ed2, ed3;
        int result;
        std::string text;
    } cases[] = {
        {0x0B, 0x51, 0x60, 0, 0,
         T(211) + ". " + T(525) + ": " + T(210) + ". " + T(526) + ": " + T(176) + ". "},
        // Previous state Fh and severity 9 have no text.
        {0x0B, 0x51, 0x9F, 0, 0, T(211) + ". "},
        {0x01, 0x00, 0, 0, 1, ""},
        {0x0D, 0x00, 0, 0, 1, ""},
    };
    for (const auto& c : cases) {
        char out[256] = {};
        EXPECT_EQ(h.mapping.GetGenericOffset(h.cb(), c.ed1, c.ed2, c.ed3, c.type, 0x04, 0x30, out,
                                             sizeof out),
                  c.result);
        EXPECT_EQ(std::string(out), c.text);
    }
}

TEST_F(Decode, PostRecords) {
    char out[512] = {};
    EXPECT_EQ(h.mapping.GetOEMxC0(h.cb(), 0x01, 0x02, 0x00, 1, 0, 0, 0, 0, out, sizeof out), 0);
    EXPECT_EQ(std::string(out), T(112) + ": " + T(114) + ". " + T(123) + " 0. " + T(124) +
                                    " 513. Processor Event/Error occurred. Next non-timestamped "
                                    "OEM SEL entry will contain details of the specific "
                                    "Processor event/error. ");
    // Types 0-6 have a text; byte 11 not 0 ends the text after the number.
    const std::pair<uint8_t, std::string> generic[] = {
        {6, T(112) + ": " + T(119) + ". " + T(123) + " 0. " + T(124) + " 16777215. "},
        {7, T(112) + ": " + T(123) + " 0. " + T(124) + " 16777215. "},
    };
    for (const auto& [type, text] : generic) {
        char other[512] = {};
        h.mapping.GetOEMxC0(h.cb(), 0xFF, 0xFF, 0xFF, type, 5, 0, 0, 0, other, sizeof other);
        EXPECT_EQ(std::string(other), text);
    }
    EXPECT_EQ(h.capture.countLog("Error Type (Byte 12) is undefined."), 2u);

    // The detailed form, chosen by the BIOS ID: bytes 10-14.
    h.capture.config().biosID = kDetailedOEMBiosID;
    const struct {
        uint8_t b10, b11, b12;
        const char* text;
    } detailed[] = {
        {0x02, 7, 1,
         "DIMM 7 Rank 1:The occurrence of Single-Bit ECC error has exceeded predictive "
         "threshold."},
        {0x0B, 3, 0x0A, "Bus:3Dev:8Fun:2:PCIE SERR."},
        {0x15, 2, 0, "CPU 2:Uncorrectable error."},
        {0x81, 0, 0, "CPU thermal trip error."},
        {0x82, 0, 0, "Unspecified error."},
    };
    for (const auto& d : detailed) {
        char text[256] = {};
        h.mapping.GetOEMxC0(h.cb(), 0, 0, 0, d.b10, d.b11, d.b12, 0, 0, text, sizeof text);
        EXPECT_STREQ(text, d.text);
    }
}

TEST_F(Decode, SmiAndRecordsWithoutTimeStamp) {
    auto c1 = [&](uint8_t b10, uint8_t b12, uint8_t b13) {
        char out[512] = {};
        h.mapping.GetOEMxC1(h.cb(), 0x10, 0, 0, b10, 0x77, b12, b13, out, sizeof out);
        return std::string(out);
    };
    const std::string head3 = T(132) + ": " + T(136) + ". " + T(123) + " 0. " + T(124) + " 16. ";
    EXPECT_EQ(c1(3, 9, 4), head3 + ". ");
    EXPECT_EQ(c1(3, 8, 0), head3 + ". Chassis Number 8. Scalability Link Down. ");
    EXPECT_EQ(c1(3, 0, 3), head3 + ". Chassis Number 0. Scalability Link Invalid Node. ");
    // Types 0-5 have a text.
    EXPECT_EQ(c1(5, 0, 0), T(132) + ": " + T(138) + ". " + T(123) + " 0. " + T(124) + " 16. ");
    EXPECT_EQ(c1(6, 0, 0), T(132) + ": " + T(123) + " 0. " + T(124) + " 16. ");
}

// E0h gets record bytes 3-11 and 15, E1h bytes 3-15: numbers are built only
// from neighbouring record bytes, and every byte a layout does not name is
// shown with its record byte number.
TEST_F(Decode, RecordsWithoutTimeStampShowEveryByte) {
    auto e0 = [&](const uint8_t(&b)[10]) {
        char out[512] = {};
        EXPECT_EQ(h.mapping.GetOEMxE0(h.cb(), b, out, sizeof out), 0);
        return std::string(out);
    };
    auto e1 = [&](const uint8_t(&b)[13]) {
        char out[512] = {};
        EXPECT_EQ(h.mapping.GetOEMxE1(h.cb(), b, out, sizeof out), 0);
        return std::string(out);
    };
    const std::string part = T(123) + " 1. " + T(124);
    const std::string post = T(870) + ": ", smi = T(139) + ": ", data = ", " + T(880) + " ";
    const std::pair<std::string, std::string> cases[] = {
        // PCI: bus, device and function from one byte, status 9-10, kind 11.
        {e0({0x01, 0x02, 0x00, 0, 3, 0x0A, 0x10, 0x80, 2, 0xAF}),
         post + T(113) + ". " + part + " 513. " + T(871) + " 3, " + T(872) + " 1, " + T(873) +
             " 2, " + T(874) + " 8010h, " + T(883) + data + T(887) + " 15: AF. "},
        // Processor status is bytes 9-11, never joined with byte 15.
        {e0({0, 0, 0, 1, 2, 5, 0x11, 0x22, 0x33, 0x44}),
         post + T(114) + ". " + part + " 0. " + T(875) + " 2, " + T(876) + " 5, " + T(874) +
             " 332211h" + data + T(887) + " 15: 44. "},
        // A class without a layout: bytes 7-11 and 15 as the two runs they are.
        {e0({0, 0, 0, 6, 0xA7, 0xA8, 0xA9, 0xAA, 0xAB, 0xAF}),
         post + T(119) + ". " + part + " 0. " + T(880) + " " + T(888) + " 7-11: A7 A8 A9 AA AB, " +
             T(887) + " 15: AF. "},
        {e0({0xFF, 0xFF, 0xFF, 7, 0, 0, 0, 0, 0, 0}), post + part + " 16777215. " + T(880) + " " +
                                                          T(888) + " 7-11: 00 00 00 00 00, " +
                                                          T(887) + " 15: 00. "},
        // Memory: kind 9, syndrome 10-11; bytes 12-15 follow.
        {e1({0, 0, 0, 0, 4, 1, 7, 0x34, 0x12, 0xC1, 0xC2, 0xC3, 0xC4}),
         smi + T(133) + ". " + part + " 0. " + T(877) + " 4, " + T(878) + " 1, " + T(886) + " 7, " +
             T(879) + " 1234h" + data + T(888) + " 12-15: C1 C2 C3 C4. "},
        {e1({0, 0, 0, 0, 4, 1, 1, 0x34, 0x12, 0, 0, 0, 0}),
         smi + T(133) + ". " + part + " 0. " + T(877) + " 4, " + T(878) + " 1, " + T(885) + ", " +
             T(879) + " 1234h" + data + T(888) + " 12-15: 00 00 00 00. "},
        {e1({0, 0, 0, 2, 3, 0x0A, 0x10, 0x80, 3, 0xC1, 0xC2, 0xC3, 0xC4}),
         smi + T(135) + ". " + part + " 0. " + T(871) + " 3, " + T(872) + " 1, " + T(873) + " 2, " +
             T(874) + " 8010h, " + T(886) + " 3" + data + T(888) + " 12-15: C1 C2 C3 C4. "},
        // Scalability link: state 0 down, 1-3 invalid node, others by number.
        {e1({0, 0, 0, 3, 2, 1, 0, 0xB0, 0xB1, 0xB2, 0xB3, 0xB4, 0xB5}),
         smi + T(136) + ". " + part + " 0. " + T(142) + " 2, " + T(143) + " 1, " + T(144) + data +
             T(888) + " 10-15: B0 B1 B2 B3 B4 B5. "},
        {e1({0, 0, 0, 3, 2, 1, 3, 0, 0, 0, 0, 0, 0}), smi + T(136) + ". " + part + " 0. " + T(142) +
                                                          " 2, " + T(143) + " 1, " + T(145) + data +
                                                          T(888) + " 10-15: 00 00 00 00 00 00. "},
        {e1({0, 0, 0, 3, 2, 1, 4, 0, 0, 0, 0, 0, 0}),
         smi + T(136) + ". " + part + " 0. " + T(142) + " 2, " + T(143) + " 1, " + T(146) + " 4" +
             data + T(888) + " 10-15: 00 00 00 00 00 00. "},
        {e1({0, 0, 0, 5, 1, 2, 3, 4, 5, 6, 7, 8, 0xF9}), smi + T(138) + ". " + part + " 0. " +
                                                             T(880) + " " + T(888) +
                                                             " 7-15: 01 02 03 04 05 06 07 08 F9. "},
        {e1({0, 0, 0, 6, 0, 0, 0, 0, 0, 0, 0, 0, 0}),
         smi + part + " 0. " + T(880) + " " + T(888) + " 7-15: 00 00 00 00 00 00 00 00 00. "},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(text, expected) << &text - &cases[0].first;
    }
}

TEST(DecodeOtherFiles, RecordsWithoutTimeStampKeepGapsForMissingTexts) {
    MappingHost bare("870=POST\n871=Bus\n");
    const uint8_t pci[10] = {0x01, 0x02, 0x00, 0, 3, 0x0A, 0x10, 0x80, 1, 0xAF};
    char out[512] = {};
    EXPECT_EQ(bare.mapping.GetOEMxE0(bare.cb(), pci, out, sizeof out), 0);
    EXPECT_STREQ(out, "POST: .  1.  513. Bus 3,  1,  2,  8010h, ,   15: AF. ");
    EXPECT_TRUE(bare.capture.hasLog(SevError, "Error in obtaining string."));
    // Nothing can be written into no room.
    const uint8_t e1[13] = {};
    EXPECT_NE(bare.mapping.GetOEMxE1(bare.cb(), e1, out, 0), 0);
}

} // namespace
} // namespace ipmisel::test
