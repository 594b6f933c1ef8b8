// Decoders over the shipped message file: names, readings, thresholds,
// sensor-specific and generic offsets, OEM records.
#include <gtest/gtest.h>

#include "mapping/MappingConfig.h"
#include "tests/mapping/MappingTestSupport.h"

namespace ipmisel::test {
namespace {

const std::string kSpaces(15, ' ');

class Decode : public ::testing::Test {
  protected:
    Decode() : h(shippedMessageFile()) {}
    std::string T(int32_t id) { return h.text(id); }
    std::string sensorType(uint8_t type, uint8_t number, int32_t size = 128) {
        char out[128] = {};
        EXPECT_EQ(h.mapping.GetSensorType(h.cb(), type, out, size, number), 0);
        return out;
    }
    std::string ones(uint8_t v) {
        char out[16];
        h.mapping.GetOnesComplement(h.cb(), static_cast<int8_t>(v), out, sizeof out);
        return out;
    }
    std::string units(const SensorConversion& sdr, uint8_t raw) {
        char out[128];
        h.mapping.GetSensorUnits(h.cb(), sdr, raw, out, sizeof out);
        return out;
    }
    std::string threshold(uint8_t ed1, uint8_t ed2, uint8_t ed3, const SensorConversion& sdr) {
        char out[256] = {};
        h.mapping.GetThresholdOffset(h.cb(), ed1, ed2, ed3, out, sizeof out, sdr);
        return out;
    }
    std::string offset(uint8_t type, uint8_t ed1, uint8_t ed2 = 0, uint8_t ed3 = 0,
                       const std::string& name = "Sensor", uint8_t number = 0x30) {
        char out[256] = {};
        h.mapping.GetSensorOffset(h.cb(), type, ed1, ed2, ed3, 0x6F, out, sizeof out, name, number);
        return out;
    }
    std::string generic(uint8_t type, uint8_t ed1, uint8_t ed2 = 0, uint8_t ed3 = 0,
                        int* result = nullptr) {
        char out[256] = {};
        int r =
            h.mapping.GetGenericOffset(h.cb(), ed1, ed2, ed3, type, 0x04, 0x30, out, sizeof out);
        if (result) {
            *result = r;
        }
        return out;
    }
    static SensorConversion linear(uint16_t m, uint16_t b = 0, uint16_t rexp = 0, uint16_t bexp = 0,
                                   uint8_t units1 = 0, uint8_t base = 1) {
        SensorConversion c;
        c.RecordType = 1;
        c.SensorUnits1 = units1;
        c.BaseUnit = base;
        c.M = m;
        c.B = b;
        c.RExp = rexp;
        c.BExp = bexp;
        return c;
    }
    MappingHost h;
};

TEST_F(Decode, SensorTypeNames) {
    struct Case {
        uint8_t type, number;
        const char* name;
    };
    const Case cases[] = {
        {0x00, 0, "Unknown Sensor Type"},
        {0x01, 0, "Temperature"},
        {0x28, 0, "Managment Subsystem Health"},
        {0x2C, 0, "FRU State"},
        {0x2D, 0, "Unknown Sensor Type"},
        {0xFF, 0, "Unknown Sensor Type"},
        {0xC1, 0x5F, "Drive/Slot Status"},
        {0xC1, 0x60, "Drive Status"},
        {0xC1, 0x67, "Drive Status"},
        {0xD1, 0x68, "Drive/Slot Status"},
        {0xC1, 0x94, "CPU 1 Mismatch"},
        {0xD1, 0x97, "CPU 4 Mismatch"},
        {0xC1, 0x98, "Drive/Slot Status"},
        {0xD0, 0x12, "SEL Fullness"},
        {0xD2, 0x12, "Unknown Sensor Type"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(sensorType(c.type, c.number), c.name) << int(c.type) << "/" << int(c.number);
    }
    EXPECT_EQ(sensorType(0x01, 0, 10), "Temperatu");
    EXPECT_EQ(sensorType(0xD0, 0, 4), "SEL");
    char untouched[4] = "abc";
    h.mapping.GetSensorType(h.cb(), 0x01, untouched, 0, 0);
    EXPECT_STREQ(untouched, "abc");
}

TEST_F(Decode, OnesComplement) {
    EXPECT_EQ(ones(0x00), "0");
    EXPECT_EQ(ones(0x7F), "127");
    EXPECT_EQ(ones(0x80), "-127");
    EXPECT_EQ(ones(0xFE), "-1");
    EXPECT_EQ(ones(0xFF), "-0");
    EXPECT_TRUE(h.capture.hasLog(SevTrace, "IPMIMapping::GetOnesComplement() function completed."));
}

TEST_F(Decode, ConversionSignExtensionAndExponents) {
    const std::string deg = " " + T(731);
    struct Case {
        SensorConversion sdr;
        uint8_t raw;
        std::string text;
    };
    const Case cases[] = {
        {linear(1), 28, "28.00" + deg},
        {linear(0x3FF), 10, "-10.00" + deg},              // M = -1
        {linear(1, 0x200), 0, "-512.00" + deg},           // B = -512
        {linear(1, 0x1FF), 0, "511.00" + deg},            // largest positive B
        {linear(1, 0, 0x0F), 25, "2.50" + deg},           // R exponent -1
        {linear(1, 0, 0x08), 100, "0.00" + deg},          // R exponent -8
        {linear(1, 0, 0x07), 1, "10000000.00" + deg},     // R exponent 7
        {linear(5, 0, 0x0E), 100, "5.00" + deg},          // R exponent -2
        {linear(1, 3, 0, 0x0F), 1, "1.30" + deg},         // B exponent -1
        {linear(1, 3, 0, 0x02), 1, "301.00" + deg},       // B exponent 2
        {linear(1, 5, 0, 0x08), 0, "0.00" + deg},         // B exponent -8
        {linear(0x200, 0x3FF), 0xFF, "-130561.00" + deg}, // both negative, raw 255
    };
    for (const Case& c : cases) {
        EXPECT_EQ(units(c.sdr, c.raw), c.text) << c.sdr.M << " " << c.sdr.B << " " << c.sdr.RExp;
    }
    // The stored values, the extended ones and the result go to the trace.
    units(linear(0x3FF, 0x200, 0x0F, 0x08), 1);
    EXPECT_TRUE(h.capture.hasLog(SevTrace, "Bexp = 8. FinalBexp = -8. Rexp = 15. FinalRexp = -1. "
                                           "B = 512. FinalB = -512. M = 1023. FinalM = -1"));
    EXPECT_TRUE(h.capture.logContains("Value = 1. Value1 = 0.1. Value2 = -5.12e-06. FinalValue = "
                                      "-0.1"));
}

TEST_F(Decode, UnconvertedReadingsAndUnitForms) {
    SensorConversion compact = linear(1);
    compact.RecordType = 2;
    SensorConversion nonLinear = linear(1);
    nonLinear.Linearization = 1;
    SensorConversion noAnalog = linear(1, 0, 0, 0, 0xC0);
    noAnalog.RecordType = 2;
    EXPECT_EQ(units(compact, 50), "0.00 " + T(731));
    EXPECT_EQ(units(nonLinear, 50), "0.00 " + T(731));
    EXPECT_EQ(units(noAnalog, 50), "0.00 " + T(731));
    // Signed formats print the raw byte unconverted, even with M = 2.
    EXPECT_EQ(units(linear(2, 0, 0, 0, 0x40), 0xFF), "-0 " + T(731));
    EXPECT_EQ(units(linear(2, 0, 0, 0, 0x80), 0xFF), "-1 " + T(731));
    EXPECT_EQ(units(linear(2, 0, 0, 0, 0x80), 0x7F), "127 " + T(731));
    // Percentage, base unit 0.
    EXPECT_EQ(units(linear(1, 0, 0, 0, 0x01, 0), 40), "40.00% " + T(730));
    // Rate: per second (3), then the base unit.
    SensorConversion rate = linear(1, 0, 0, 0, 3 << 3, 18);
    EXPECT_EQ(units(rate, 2), "2.00 " + T(723) + " " + T(748));
    SensorConversion per = linear(1, 0, 0, 0, 0x02, 6);
    per.ModifierUnit = 24;
    EXPECT_EQ(units(per, 3), "3.00 " + T(736) + "/" + T(754));
    per.SensorUnits1 = 0x04;
    EXPECT_EQ(units(per, 3), "3.00 " + T(736) + "*" + T(754));
    per.SensorUnits1 = 0x06;
    EXPECT_EQ(units(per, 3), "3.00 reserved units");
    // A unit code without a text: logged, and the blank still written.
    h.capture.clear();
    EXPECT_EQ(units(linear(1, 0, 0, 0, 0, 200), 1), "1.00 ");
    EXPECT_TRUE(h.capture.hasLog(SevError, "Error in obtaining string."));
}

TEST_F(Decode, ConversionTraceComesBeforeEntered) {
    units(linear(1), 5);
    size_t linearLine = h.capture.findLog("Linear sensor.");
    size_t entered = h.capture.findLog("IPMIMapping::GetSensorUnits() function entered.");
    ASSERT_NE(linearLine, std::string::npos);
    ASSERT_NE(entered, std::string::npos);
    EXPECT_LT(linearLine, entered);
    EXPECT_LT(h.capture.findLog("SDRType is 1"), linearLine);
}

TEST_F(Decode, ThresholdEventMultiLine) {
    SensorConversion sdr = linear(1);
    const std::string unit = " " + T(731);
    EXPECT_EQ(threshold(0x52, 30, 28, sdr), T(102) + ". " + "\n" + kSpaces +
                                                "Trigger threshold value: 28.00" + unit + ". \n" +
                                                kSpaces + "Trigger reading: 30.00" + unit + ".");
    // Appends to what the caller wrote; offsets 0Ch..0Fh give no offset text.
    char out[256] = "Assertion: ";
    h.mapping.GetThresholdOffset(h.cb(), 0x0C, 0, 0, out, sizeof out, sdr);
    EXPECT_EQ(std::string(out), "Assertion: " + kSpaces);
    EXPECT_EQ(threshold(0xA7, 0x3C, 0x05, sdr), T(107) + ". DIMM_11.\n" + kSpaces + "OEM code 3c.");
    EXPECT_EQ(threshold(0xA7, 0x3C, 0x02, sdr), T(107) + ". \n" + kSpaces + "OEM code 3c.");
    EXPECT_EQ(threshold(0xF1, 0xAB, 0x0C, sdr),
              T(101) + ". \n" + kSpaces + "Sensor-specific event extension code 0c. \n" + kSpaces +
                  "Sensor-specific event extension code ab.");
    // A small caller buffer is cut, and terminated.
    char small[20] = {};
    h.mapping.GetThresholdOffset(h.cb(), 0x52, 30, 28, small, sizeof small, sdr);
    EXPECT_EQ(std::string(small), (T(102) + ". ").substr(0, 19));
}

TEST_F(Decode, SensorSpecificRows) {
    EXPECT_EQ(offset(0x05, 0x00), T(230) + ". ");
    EXPECT_EQ(offset(0x05, 0x07), "");
    EXPECT_EQ(offset(0x0D, 0x01), "Drive Fault");
    EXPECT_EQ(offset(0x0D, 0x09), "");
    EXPECT_EQ(offset(0x07, 0x09), T(259) + ". ");
    EXPECT_EQ(offset(0x07, 0x0A), "Processor Automatically Throttled. ");
    EXPECT_EQ(offset(0x07, 0x0B), "");
    EXPECT_EQ(offset(0x16, 0x00), "Cable is connected");
    EXPECT_EQ(offset(0x16, 0x01), "");
    EXPECT_EQ(offset(0x22, 0x0E), T(444) + ". ");
    EXPECT_EQ(offset(0x2B, 0x07),
              "Software or Firmware Change detected with associated Entity was successful");
    EXPECT_EQ(offset(0x2C, 0x07), "FRU Communication Lost");
    EXPECT_EQ(offset(0xC1, 0x09), T(865) + ". ");
    EXPECT_EQ(offset(0xD0, 0x0F), "SEL Fullness");
    EXPECT_EQ(offset(0xD2, 0x06), "CPU Cores");
    EXPECT_EQ(offset(0x01, 0x00), "");
    EXPECT_EQ(offset(0x26, 0x00), "");
}

TEST_F(Decode, MemoryModuleNumberThroughTheFileFormat) {
    EXPECT_EQ(offset(0x0C, 0x31, 0, 7), T(281) + ". Memory module 7.");
    EXPECT_EQ(offset(0x0C, 0x06), "Presence detected.");
    EXPECT_EQ(offset(0x0C, 0x3A, 0, 2), "Critical Overtemperature.Memory module 2.");
    EXPECT_EQ(offset(0x0C, 0x0B), "");
}

TEST_F(Decode, MemoryFormatFromADamagedFileCannotReadStrayArguments) {
    MappingHost bad("281=Uncorrectable\n286=Module %s at %n\n");
    char out[256] = {};
    bad.mapping.GetSensorOffset(bad.cb(), 0x0C, 0x31, 0, 7, 0x6F, out, sizeof out, "S", 1);
    EXPECT_STREQ(out, "Uncorrectable. Module %s at %n 7");
}

TEST_F(Decode, FirmwareProgressKeepsItsSlips) {
    EXPECT_EQ(offset(0x0F, 0xC2, 0x13), T(292) + ": " + T(323) + ". ");
    EXPECT_EQ(offset(0x0F, 0xC0, 0x0B), T(290) + ": " + T(311) + ". ");
    EXPECT_EQ(offset(0x0F, 0xC1, 0xFF), T(291) + ": " + T(335) + ". "); // never "Reserved"
    EXPECT_EQ(offset(0x0F, 0x02, 0x13), T(292) + ": ");
    EXPECT_EQ(offset(0x0F, 0xC3, 0x01), "");
}

TEST_F(Decode, SystemEvents) {
    EXPECT_EQ(offset(0x12, 0xC4, 0x0A), T(377) + ": power cycle.  power off.  ");
    EXPECT_EQ(offset(0x12, 0xC4, 0xC1), T(377) + ": Reserved  Reserved  Alert.  ");
    EXPECT_EQ(offset(0x12, 0x04, 0x0A), T(377) + ": ");
    EXPECT_EQ(offset(0x12, 0x05, 0x81),
              T(378) + ": event is first of pair. SDR Timestamp Clock updated.");
    EXPECT_EQ(offset(0x12, 0x05, 0x00),
              T(378) + ": event is second of pair. SEL Timestamp Clock updated.");
    EXPECT_EQ(offset(0x12, 0x02), T(375) + ".");
    EXPECT_EQ(offset(0x12, 0xC3, 0x01), T(376) + ": " + T(386) + " " + T(412) + ".");
    // Skipped lookups reuse the scratch text: the offset text comes again.
    EXPECT_EQ(offset(0x12, 0xC3, 0x0F), T(376) + ": " + T(376) + ":  " + T(412) + ".");
    EXPECT_EQ(offset(0x12, 0xC3, 0xF1), T(376) + ": " + T(386) + " " + T(386) + " .");
}

TEST_F(Decode, EventLoggingDisabled) {
    EXPECT_EQ(offset(0x10, 0x00), T(346) + ".");
    EXPECT_EQ(offset(0x10, 0x03), T(349) + ". ");
    EXPECT_EQ(offset(0x10, 0x04), "SEL Full. ");
    EXPECT_EQ(offset(0x10, 0x05), "SEL Almost Full. ");
    EXPECT_EQ(offset(0x10, 0x06), "");
    const std::string lead = "Logging disabled for offset 5 of one event type.\n" + kSpaces;
    ASSERT_EQ(T(347), "Logging disabled for offset %d of one event type");
    // Threshold type, assertion.
    EXPECT_EQ(offset(0x10, 0x01, 0x01, 0x15),
              lead + "Assertion event. Threshold Type. " + T(105) + ". " + kSpaces);
    // Generic type 07h, deassertion, all events.
    EXPECT_EQ(offset(0x10, 0x01, 0x07, 0x25),
              lead + "Deassertion event. Logging has been disabled for all events of " + T(657) +
                  ". \n" + kSpaces + T(657) + " - " + T(175) + ". ");
    // Sensor-specific: the offset is read against the same sensor type again.
    const std::string lead3 = "Logging disabled for offset 3 of one event type.\n" + kSpaces;
    EXPECT_EQ(offset(0x10, 0x01, 0x6F, 0x03),
              lead3 + "Deassertion event. Sensor-specific Type. " + T(349) + ". ");
    EXPECT_EQ(offset(0x10, 0x01, 0x0F, 0x23),
              lead3 + "Deassertion event. Logging has been disabled for all events of " +
                  " Sensor-specific type. \n" + kSpaces + "Sensor-specific Type. " + T(349) + ". ");
    // An offset that names itself does not loop.
    std::string self = offset(0x10, 0x01, 0x6F, 0x01);
    EXPECT_EQ(self.find("Sensor-specific Type. "), self.rfind("Sensor-specific Type. "));
}

TEST_F(Decode, SlotWatchdogAndRanges) {
    EXPECT_EQ(offset(0x21, 0xF2, 0x01, 5), T(465) + " #5 " + T(422) + ". ");
    EXPECT_EQ(offset(0x21, 0xF2, 0x0D, 5), "#5 " + T(422) + ". ");
    EXPECT_EQ(offset(0x21, 0x09), "");
    EXPECT_EQ(offset(0x23, 0xC8, 0x34), T(458) + ". " + T(513) + ". " + T(519) + ". ");
    EXPECT_EQ(offset(0x23, 0xC8, 0x46), T(458) + ". ");
    EXPECT_EQ(offset(0x23, 0x08, 0x34), T(458) + ". ");
}

TEST_F(Decode, OemBytesByKey) {
    MappingHost site(shippedMessageFile() + "CPU1-7-48-2-3=Site text three\n"
                                            "CPU1-7-48-2-10=Site text ten\n"
                                            "CPU1-7-48-3-1=Byte three one\n");
    char out[256] = {};
    // Severity nibble 2 (id 172), code 3, then byte 3 = 1.
    site.mapping.GetSensorOffset(site.cb(), 0x07, 0xA0, 0x23, 0x01, 0x6F, out, sizeof out, "CPU1",
                                 0x30);
    EXPECT_EQ(std::string(out),
              site.text(250) + ". " + site.text(172) + ". Site text three. " + "Byte three one. ");
    // Severity nibble 9 has no text; no key for the code: logged, the
    // separator still written.
    char out2[256] = {};
    site.mapping.GetSensorOffset(site.cb(), 0x07, 0x8F, 0x95, 0x00, 0x6F, out2, sizeof out2, "CPU9",
                                 0x30);
    EXPECT_EQ(std::string(out2), ". ");
    EXPECT_FALSE(site.capture.logContains("severity string"));
    EXPECT_TRUE(site.capture.hasLog(SevError, "Error in obtaining OEM string for Byte 2."));
    // The OEM appends never pass 256 bytes, and never the caller's smaller size.
    char small[8] = {};
    site.mapping.GetSensorOffset(site.cb(), 0x07, 0xA0, 0x23, 0x01, 0x6F, small, sizeof small,
                                 "CPU1", 0x30);
    EXPECT_EQ(std::string(small), (site.text(250) + ". ").substr(0, 7));
}

TEST_F(Decode, GenericOffsets) {
    int r = -1;
    EXPECT_EQ(generic(0x07, 0x02, 0, 0, &r), T(172) + ". ");
    EXPECT_EQ(r, 0);
    EXPECT_EQ(generic(0x0C, 0x03), T(223) + ". ");
    EXPECT_EQ(generic(0x0B, 0x51, 0x60),
              T(211) + ". " + T(525) + ": " + T(210) + ". " + T(526) + ": " + T(176) + ". ");
    EXPECT_EQ(generic(0x03, 0x41, 0xFF), T(131) + ". ");
    EXPECT_EQ(generic(0x08, 0xA1, 0x12, 0x34), T(181) + ". OEM code 12. OEM code 34. ");
    EXPECT_EQ(generic(0x02, 0x03, 0, 0, &r), T(531) + ": 3. ");
    EXPECT_EQ(r, 1);
    EXPECT_EQ(generic(0x01, 0x00, 0, 0, &r), "");
    EXPECT_EQ(r, 1);
    EXPECT_EQ(generic(0x0D, 0x00, 0, 0, &r), "");
    EXPECT_EQ(r, 1);
}

TEST_F(Decode, PostRecordGenericForm) {
    char out[512] = {};
    EXPECT_EQ(h.mapping.GetOEMxC0(h.cb(), 0x01, 0x02, 0x00, 1, 0, 0, 0, 0, out, sizeof out), 0);
    EXPECT_EQ(std::string(out), T(112) + ": " + T(114) + ". " + T(123) + " 0. " + T(124) +
                                    " 513. Processor Event/Error occurred. Next non-timestamped "
                                    "OEM SEL entry will contain details of the specific "
                                    "Processor event/error. ");
    char out2[512] = {};
    h.mapping.GetOEMxC0(h.cb(), 0xFF, 0xFF, 0xFF, 9, 5, 0, 0, 0, out2, sizeof out2);
    EXPECT_EQ(std::string(out2), T(112) + ": " + T(123) + " 0. " + T(124) + " 16777215. ");
    EXPECT_EQ(h.capture.countLog("Error Type (Byte 12) is undefined."), 1u);
}

TEST_F(Decode, PostRecordDetailedForm) {
    h.capture.config().biosID = kDetailedOEMBiosID;
    struct Case {
        uint8_t b10, b11, b12, b13, b14;
        const char* text;
    };
    const Case cases[] = {
        {0x0B, 3, 0x0A, 0, 0, "Bus:3Dev:8Fun:2:PCIE SERR."},
        {0x0D, 0, 0xFF, 0, 0, "Bus:0Dev:248Fun:7:PCIE uncorrectable error."},
        {0x04, 1, 2, 3, 4, "DIMM 1 Rank 2 DIMM 3 Rank 4:Swap done."},
        {0x02, 5, 1, 0, 0,
         "DIMM 5 Rank 1:The occurrence of Single-Bit ECC error has exceeded predictive "
         "threshold."},
        {0x15, 2, 0, 0, 0, "CPU 2:Uncorrectable error."},
        {0x81, 0, 0, 0, 0, "CPU thermal trip error."},
        {0x16, 0, 0, 0, 0, "Unspecified error."},
        {0x00, 0, 0, 0, 0, "Unspecified error."},
    };
    for (const Case& c : cases) {
        char out[256] = {};
        h.mapping.GetOEMxC0(h.cb(), 0, 0, 0, c.b10, c.b11, c.b12, c.b13, c.b14, out, sizeof out);
        EXPECT_STREQ(out, c.text);
    }
}

TEST_F(Decode, SmiRecord) {
    auto c1 = [&](uint8_t b10, uint8_t b12, uint8_t b13) {
        char out[512] = {};
        h.mapping.GetOEMxC1(h.cb(), 0x10, 0, 0, b10, 0x77, b12, b13, out, sizeof out);
        return std::string(out);
    };
    const std::string head3 = T(132) + ": " + T(136) + ". " + T(123) + " 0. " + T(124) + " 16. ";
    EXPECT_EQ(c1(3, 9, 4), head3 + ". ");
    EXPECT_EQ(c1(3, 8, 0), head3 + ". Chassis Number 8. Scalability Link Down. ");
    EXPECT_EQ(c1(3, 0, 3), head3 + ". Chassis Number 0. Scalability Link Invalid Node. ");
    EXPECT_EQ(c1(6, 0, 0), T(132) + ": " + T(123) + " 0. " + T(124) + " 16. ");
}

TEST_F(Decode, RecordsWithoutTimeStamp) {
    const uint8_t pci[10] = {0x01, 0x02, 0x00, 0, 3, 0x0A, 0x10, 0x80, 1, 0};
    char out[512] = {};
    EXPECT_EQ(h.mapping.GetOEMxE0(h.cb(), pci, out, sizeof out), 0);
    EXPECT_EQ(std::string(out), T(870) + ": " + T(113) + ". " + T(123) + " 1. " + T(124) +
                                    " 513. " + T(871) + " 3, " + T(872) + " 1, " + T(873) + " 2, " +
                                    T(874) + " 8010h, " + T(882) + ". ");
    const uint8_t other[10] = {0, 0, 0, 9, 1, 2, 3, 4, 5, 6};
    char out2[512] = {};
    EXPECT_EQ(h.mapping.GetOEMxE0(h.cb(), other, out2, sizeof out2), 0);
    EXPECT_EQ(std::string(out2),
              T(870) + ": " + T(123) + " 1. " + T(124) + " 0. " + T(880) + " 01 02 03 04 05 06. ");

    const uint8_t link[13] = {5, 0, 0, 3, 2, 1, 2, 0, 0, 0, 0, 0, 0};
    char out3[512] = {};
    EXPECT_EQ(h.mapping.GetOEMxE1(h.cb(), link, out3, sizeof out3), 0);
    EXPECT_EQ(std::string(out3), T(139) + ": " + T(136) + ". " + T(123) + " 1. " + T(124) + " 5. " +
                                     T(142) + " 2, " + T(143) + " 1, " + T(145) + ". ");
    const uint8_t mem[13] = {0, 0, 0, 0, 4, 1, 7, 0x34, 0x12, 0, 0, 0, 0};
    char out4[512] = {};
    h.mapping.GetOEMxE1(h.cb(), mem, out4, sizeof out4);
    EXPECT_EQ(std::string(out4), T(139) + ": " + T(133) + ". " + T(123) + " 1. " + T(124) + " 0. " +
                                     T(877) + " 4, " + T(878) + " 1, " + T(886) + " 7, " + T(879) +
                                     " 1234h. ");
}

TEST(DecodeWithoutFile, OemRecordsReportMissingTexts) {
    MappingHost h("", false);
    const uint8_t e0[10] = {};
    const uint8_t e1[13] = {};
    char out[512] = {};
    EXPECT_NE(h.mapping.GetOEMxE0(h.cb(), e0, out, sizeof out), 0);
    EXPECT_NE(h.mapping.GetOEMxE1(h.cb(), e1, out, sizeof out), 0);
    char gen[256] = {};
    EXPECT_NE(h.mapping.GetGenericOffset(h.cb(), 0, 0, 0, 3, 0, 0, gen, sizeof gen), 0);
    EXPECT_TRUE(h.capture.hasLog(SevFailure, "Can't open ipmisel INI file."));
}

TEST(DecodeWithoutFile, MissingSeverityTextHasItsOwnLogLine) {
    MappingHost h("250=Internal error\n");
    char out[256] = {};
    h.mapping.GetSensorOffset(h.cb(), 0x07, 0x80, 0x20, 0, 0x6F, out, sizeof out, "CPU1", 0x30);
    EXPECT_STREQ(out, "Internal error. . . ");
    EXPECT_TRUE(h.capture.hasLog(SevError, "Error in obtaining severity string for OEM Byte 2."));
    EXPECT_TRUE(h.capture.hasLog(SevError, "Error in obtaining OEM string for Byte 2."));
}

} // namespace
} // namespace ipmisel::test
