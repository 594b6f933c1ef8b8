#include <gtest/gtest.h>

#include "auxlog/AuxLog.h"
#include "tests/auxlog/AuxTestSupport.h"

namespace ipmisel::test {
namespace {

std::vector<AuxLogRecord> Parse(const std::vector<s_AuxLog_entry>& slots) {
    std::vector<AuxLogRecord> records;
    ParseExtendedSELData(records, slots.data(), static_cast<uint32_t>(slots.size()));
    return records;
}

AuxLogRecord ParseOne(const StatusCode& code, uint16_t recordID = 1) {
    auto records = Parse({AuxSlot(recordID, code)});
    EXPECT_EQ(records.size(), 1u);
    return records.empty() ? AuxLogRecord() : records.front();
}

TEST(AuxLogRecord, StartsNotSet) {
    AuxLogRecord r;
    for (const auto& text :
         {r.GetTypeName(), r.GetSeverityName(), r.GetOperationText(), r.GetSubClassName(),
          r.GetClassName(), r.GetInstanceText(), r.GetCallerIDText()}) {
        EXPECT_EQ(text, "Not set");
    }
    EXPECT_EQ(r.GetExtendedData(), "");
    EXPECT_EQ(r.GetRecordID(), 0);
}

TEST(AuxLogRecord, TypeAndSeverityNames) {
    const std::pair<uint8_t, const char*> types[] = {
        {1, "PROGRESS_CODE"}, {2, "ERROR_CODE"}, {3, "DEBUG_CODE"}, {0x80, "PLATFORM_P80_CODE"},
        {0, "Unknown"},       {4, "Unknown"},    {0x81, "Unknown"},
    };
    for (auto [value, name] : types) {
        AuxLogRecord r;
        r.SetType(value);
        EXPECT_EQ(r.GetTypeName(), name) << int(value);
    }
    const std::pair<uint8_t, const char*> severities[] = {
        {0x40, "OXA_ERROR_INFO"},  {0x80, "OXA_ERROR_WARNING"}, {0x90, "OXA_ERROR_FATAL"},
        {0xA0, "OXA_ERROR_FATAL"}, {0x20, "Unknown"},           {0x00, "Unknown"},
        {0xC0, "Unknown"},         {0x41, "Unknown"},
    };
    for (auto [value, name] : severities) {
        AuxLogRecord r;
        r.SetSeverity(value);
        EXPECT_EQ(r.GetSeverityName(), name) << int(value);
    }
}

TEST(AuxLogRecord, ClassAndSubClassNamesWithGaps) {
    struct Case {
        uint8_t cls, sub;
        const char* className;
        const char* subName;
    };
    const Case cases[] = {
        {0, 0, "Computing", "Undefined"},
        {0, 6, "Computing", "Chipset"},
        {0, 7, "Computing", "Unknown"},
        {1, 8, "Peripheral", "Removable Media"},
        {1, 9, "Peripheral", "Spec Reserved"},
        {1, 11, "Peripheral", "Spec Reserved"},
        {1, 12, "Peripheral", "Network"},
        {1, 13, "Peripheral", "Unknown"},
        {2, 2, "I/O BUS", "USB"},
        {2, 3, "I/O BUS", "Unknown"},
        {2, 5, "I/O BUS", "Unknown"},
        {2, 6, "I/O BUS", "LPC"},
        {2, 8, "I/O BUS", "ATAPI"},
        {2, 9, "I/O BUS", "Unknown"},
        {2, 10, "I/O BUS", "Unknown"},
        {2, 11, "I/O BUS", "SMBUS"},
        {2, 12, "I/O BUS", "I2C"},
        {2, 13, "I/O BUS", "Unknown"},
        {3, 8, "Software", "uEFI Application"},
        {3, 9, "Software", "OS Loader"},
        {3, 10, "Software", "Unknown"},
        {3, 11, "Software", "Unknown"},
        {3, 12, "Software", "EBC Exception"},
        {3, 13, "Software", "X86 Exception"},
        {3, 14, "Software", "Unknown"},
        {3, 15, "Software", "PEI Service"},
        {3, 18, "Software", "DXE Service"},
        {3, 19, "Software", "Unknown"},
        {3, 255, "Software", "Unknown"},
    };
    for (const auto& c : cases) {
        AuxLogRecord r;
        r.SetSubClass(c.sub);
        r.SetClass(c.cls);
        EXPECT_EQ(r.GetClassName(), c.className) << int(c.cls) << "/" << int(c.sub);
        EXPECT_EQ(r.GetSubClassName(), c.subName) << int(c.cls) << "/" << int(c.sub);
    }
}

TEST(ParseExtendedSELData, HexTextsKeepStoredOrder) {
    StatusCode code;
    code.operation[0] = 0x01;
    code.operation[1] = 0x10;
    const uint8_t instance[4] = {0x01, 0x02, 0x03, 0x04};
    std::memcpy(code.instance, instance, 4);
    auto r = ParseOne(code, 0x1234);
    EXPECT_EQ(r.GetOperationText(), "0x0110");
    EXPECT_EQ(r.GetInstanceText(), "0x01020304");
    EXPECT_EQ(r.GetCallerIDText(), "0x0A0B0C0D0E0F10111213");
    EXPECT_EQ(r.GetRecordID(), 0x1234); // byte 5 low, byte 6 high
    EXPECT_EQ(r.GetTypeName(), "DEBUG_CODE");
    EXPECT_EQ(r.GetClassName(), "Software");
    EXPECT_EQ(r.GetSubClassName(), "SEC");
}

TEST(ParseExtendedSELData, ExtendedDataTextAndTrace) {
    struct Case {
        std::vector<uint8_t> extended;
        const char* text;
        const char* trace;
    };
    const Case cases[] = {
        {{}, "", "recordsize = 22\n\n x = 0"},
        {{0xAA}, "AA ", "recordsize = 23\n 170 t = AA\n\n x = 1"},
        {{0xAA, 0xBB, 0x0C},
         "AA BB 0C ",
         "recordsize = 25\n 170 t = AA\n 187 t = BB 12 t = 0C\n x = 3"},
    };
    for (const auto& c : cases) {
        HostCapture host;
        StatusCode code;
        code.extended = c.extended;
        auto r = ParseOne(code);
        EXPECT_EQ(r.GetExtendedData(), c.text);
        EXPECT_TRUE(host.hasLog(3, c.trace)) << c.trace;
        EXPECT_TRUE(host.hasLog(3, c.text));
    }
    // Eleven bytes: the line breaks after byte 0 and byte 10.
    HostCapture host;
    StatusCode code;
    code.extended = CountingBody(11);
    ParseOne(code);
    EXPECT_TRUE(host.logContains(" 10 t = 0A 11 t = 0B\n\n x = 11"));
}

TEST(ParseExtendedSELData, BodyShorterThanFixedPartHasNoExtendedData) {
    HostCapture host;
    auto slot = AuxSlot(AuxHeader(5, 1, false), CountingBody(30));
    auto records = Parse({slot});
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].GetExtendedData(), "");
    EXPECT_TRUE(host.hasLog(3, "recordsize = 5\n\n x = 0"));
}

TEST(ParseExtendedSELData, StatedLengthBeyondTheSlotIsCut) {
    // FFFFh stated, the slot holds 224 bytes of extended data.
    auto slot = AuxSlot(AuxHeader(0xFFFF, 1, false), CountingBody(246));
    auto records = Parse({slot});
    ASSERT_EQ(records.size(), 1u);
    const std::string text = records[0].GetExtendedData();
    EXPECT_EQ(text.size(), 224u * 3);
    EXPECT_EQ(text.substr(text.size() - 3), "F6 "); // slot byte 255 = body byte 245
}

TEST(ParseExtendedSELData, WorkingRecordCarriesOverBetweenEntries) {
    StatusCode first; // Software / SEC
    StatusCode unknownClass;
    unknownClass.cls = 5;
    unknownClass.subClass = 2;
    unknownClass.type = 1;

    auto records = Parse({AuxSlot(1, first), AuxSlot(2, unknownClass)});
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[1].GetClassName(), "Unknown");
    EXPECT_EQ(records[1].GetSubClassName(), "SEC"); // the previous entry's name
    EXPECT_EQ(records[1].GetTypeName(), "PROGRESS_CODE");
    EXPECT_EQ(records[0].GetSubClassName(), "SEC");

    // First decoded entry of the pass with an unknown class: nothing to carry.
    records = Parse({AuxSlot(3, unknownClass)});
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].GetSubClassName(), "Not set");
}

TEST(ParseExtendedSELData, OtherMakersAreSkippedAndOutputReplaced) {
    HostCapture host;
    const uint8_t otherMaker[3] = {0xC1, 0xA3, 0x01};
    StatusCode code;
    auto body = code.Body();
    std::vector<s_AuxLog_entry> slots = {
        AuxSlot(AuxHeader(22, 1, false, otherMaker), body), AuxSlot(2, code),
        s_AuxLog_entry{}, // a slot a failed read left clear
    };
    std::vector<AuxLogRecord> records(5);
    ParseExtendedSELData(records, slots.data(), 3);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].GetRecordID(), 2);

    ParseExtendedSELData(records, slots.data(), 0);
    EXPECT_TRUE(records.empty());
    EXPECT_EQ(host.countLog("Entering ParseExtendedSELData."), 2u);
    EXPECT_EQ(host.countLog("Leaving ParseExtendedSELData."), 2u);
}

} // namespace
} // namespace ipmisel::test
