#include <gtest/gtest.h>

#include "auxlog/AuxLog.h"
#include "tests/auxlog/AuxTestSupport.h"

namespace ipmisel::test {
namespace {

std::vector<AuxLogRecord> Parse(const std::vector<s_AuxLog_entry>& slots) {
    std::vector<AuxLogRecord> records(3); // emptied by the parser
    ParseExtendedSELData(records, slots.data(), static_cast<uint32_t>(slots.size()));
    return records;
}

TEST(AuxLogRecord, NameTablesWithTheirGaps) {
    const std::pair<uint8_t, const char*> types[] = {
        {1, "PROGRESS_CODE"},        {2, "ERROR_CODE"}, {3, "DEBUG_CODE"},
        {0x80, "PLATFORM_P80_CODE"}, {0, "Unknown"},    {0x81, "Unknown"},
    };
    const std::pair<uint8_t, const char*> severities[] = {
        {0x40, "OXA_ERROR_INFO"},  {0x80, "OXA_ERROR_WARNING"}, {0x90, "OXA_ERROR_FATAL"},
        {0xA0, "OXA_ERROR_FATAL"}, {0x20, "Unknown"},           {0xC0, "Unknown"},
    };
    for (auto [value, name] : types) {
        AuxLogRecord r;
        r.SetType(value);
        EXPECT_EQ(r.GetTypeName(), name) << int(value);
    }
    for (auto [value, name] : severities) {
        AuxLogRecord r;
        r.SetSeverity(value);
        EXPECT_EQ(r.GetSeverityName(), name) << int(value);
    }

    struct Case {
        uint8_t cls, sub;
        const char* className;
        const char* subName;
    };
    const Case classes[] = {
        {0, 6, "Computing", "Chipset"},         {0, 7, "Computing", "Unknown"},
        {1, 9, "Peripheral", "Spec Reserved"},  {1, 11, "Peripheral", "Spec Reserved"},
        {1, 12, "Peripheral", "Network"},       {1, 13, "Peripheral", "Unknown"},
        {2, 3, "I/O BUS", "Unknown"},           {2, 6, "I/O BUS", "LPC"},
        {2, 10, "I/O BUS", "Unknown"},          {2, 12, "I/O BUS", "I2C"},
        {3, 8, "Software", "uEFI Application"}, {3, 11, "Software", "Unknown"},
        {3, 13, "Software", "X86 Exception"},   {3, 14, "Software", "Unknown"},
        {3, 18, "Software", "DXE Service"},     {3, 19, "Software", "Unknown"},
    };
    for (const auto& c : classes) {
        AuxLogRecord r;
        r.SetSubClass(c.sub);
        r.SetClass(c.cls);
        EXPECT_EQ(r.GetClassName(), c.className) << int(c.cls) << "/" << int(c.sub);
        EXPECT_EQ(r.GetSubClassName(), c.subName) << int(c.cls) << "/" << int(c.sub);
    }
}

TEST(ParseExtendedSELData, HexTextsKeepStoredOrder) {
    StatusCode code; // operation 01 10, instance 01 02 03 04
    auto records = Parse({AuxSlot(0x1234, code)});
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].GetOperationText(), "0x0110");
    EXPECT_EQ(records[0].GetInstanceText(), "0x01020304");
    EXPECT_EQ(records[0].GetCallerIDText(), "0x0A0B0C0D0E0F10111213");
    EXPECT_EQ(records[0].GetRecordID(), 0x1234); // byte 5 low, byte 6 high
}

TEST(ParseExtendedSELData, ExtendedDataTextAndTrace) {
    struct Case {
        uint32_t stated; // body length in the header
        std::vector<uint8_t> extended;
        const char* text;
        const char* trace;
    };
    const Case cases[] = {
        {5, {0xAA}, "", "recordsize = 5\n\n x = 0"},
        {22, {}, "", "recordsize = 22\n\n x = 0"},
        {25,
         {0xAA, 0xBB, 0x0C},
         "AA BB 0C ",
         "recordsize = 25\n 170 t = AA\n 187 t = BB 12 t = 0C\n x = 3"},
    };
    for (const auto& c : cases) {
        HostCapture host;
        StatusCode code;
        code.extended = c.extended;
        auto records = Parse({AuxSlot(AuxHeader(c.stated, 1, false), code.Body())});
        ASSERT_EQ(records.size(), 1u);
        EXPECT_EQ(records[0].GetExtendedData(), c.text);
        EXPECT_TRUE(host.hasLog(3, c.trace)) << c.trace;
    }

    // A stated length far past the slot: only what the slot holds is read.
    auto records = Parse({AuxSlot(AuxHeader(0xFFFF, 1, false), CountingBody(246))});
    ASSERT_EQ(records.size(), 1u);
    const std::string text = records[0].GetExtendedData();
    EXPECT_EQ(text.size(), 224u * 3);
    EXPECT_EQ(text.substr(text.size() - 3), "F6 "); // slot byte 255
}

TEST(ParseExtendedSELData, WorkingRecordCarriesOverAndOtherMakersAreSkipped) {
    StatusCode software; // Software / SEC
    StatusCode unknownClass;
    unknownClass.cls = 5;
    unknownClass.subClass = 2;
    const uint8_t otherMaker[3] = {0xC1, 0xA3, 0x01};
    StatusCode foreign;
    foreign.subClass = 4; // would name "DXE Core" if it were decoded

    auto records =
        Parse({AuxSlot(1, software), AuxSlot(AuxHeader(22, 9, false, otherMaker), foreign.Body()),
               s_AuxLog_entry{}, AuxSlot(2, unknownClass)});
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[1].GetRecordID(), 2);
    EXPECT_EQ(records[1].GetClassName(), "Unknown");
    EXPECT_EQ(records[1].GetSubClassName(), "SEC"); // the previous entry's name

    records = Parse({AuxSlot(3, unknownClass)}); // nothing to carry over yet
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].GetSubClassName(), "Not set");

    EXPECT_TRUE(Parse({}).empty());
}

} // namespace
} // namespace ipmisel::test

namespace ipmisel::test {
namespace {

// The whole road against the simulated BMC: status, chunked reads, decoding.
TEST(AuxLogWithSimulatedBMC, ReadAndDecode) {
    HostCapture host;
    host.useScenario(R"({"nodes": [{"auxlog": [
        {"recordId": 5, "type": 2, "severity": "0xA0", "class": 2, "subClass": 12,
         "operation": "0x1001", "extendedData":
         "DEADBEEF000102030405060708090A0B0C0D0E0F10111213141516171819"},
        {"recordId": 6, "manufacturer": "0x00A3C2"}]}]})");
    IPMIRequestAuxLog request(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));
    uint32_t count = 0;
    ASSERT_EQ(request.IPMIGetAuxLogStatus(count), 0);
    ASSERT_EQ(count, 2u);
    std::vector<s_AuxLog_entry> slots(count);
    ASSERT_EQ(request.IPMIReadExtendedData(slots.data(), count), 0);
    std::vector<AuxLogRecord> records;
    ParseExtendedSELData(records, slots.data(), count);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].GetRecordID(), 5);
    EXPECT_EQ(records[0].GetTypeName(), "ERROR_CODE");
    EXPECT_EQ(records[0].GetSeverityName(), "OXA_ERROR_FATAL");
    EXPECT_EQ(records[0].GetSubClassName(), "I2C");
    EXPECT_EQ(records[0].GetOperationText(), "0x0110");
    const std::string extended = records[0].GetExtendedData();
    EXPECT_EQ(extended.size(), 30u * 3);
    EXPECT_EQ(extended.substr(extended.size() - 6), "18 19 ");
}

} // namespace
} // namespace ipmisel::test
