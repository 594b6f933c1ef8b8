// Decoding slots into records: names, texts in stored order, the extended
// data and the working record that carries over between entries.
#include <gtest/gtest.h>

#include <tuple>

#include "tests/auxlog/AuxTestSupport.h"

namespace ipmisel::test {
namespace {

std::vector<AuxLogRecord> Parse(const std::vector<s_AuxLog_entry>& slots) {
    std::vector<AuxLogRecord> records(3); // emptied by the parser
    ParseExtendedSELData(records, slots.data(), uint32_t(slots.size()));
    return records;
}

// Everything but the extended data, in one line.
std::string Said(const AuxLogRecord& r) {
    return std::to_string(r.GetRecordID()) + " " + r.GetTypeName() + " " + r.GetSeverityName() +
           " " + r.GetClassName() + "/" + r.GetSubClassName() + " " + r.GetOperationText() + " " +
           r.GetInstanceText() + " " + r.GetCallerIDText();
}

TEST(ParseExtendedSELData, NamesWithTheirSpellingsAndGaps) {
    const std::tuple<uint8_t, uint8_t, uint8_t, uint8_t, std::string> cases[] = {
        // Type, severity, class, sub-class and the names they give.
        {1, 0x90, 0, 6, "PROGRESS_CODE OXA_ERROR_FATAL Computing/Chipset"},
        {0x80, 0xA0, 0, 7, "PLATFORM_P80_CODE OXA_ERROR_FATAL Computing/Unknown"},
        {0x81, 0x80, 1, 9, "Unknown OXA_ERROR_WARNING Peripheral/Spec Reserved"},
        {2, 0x20, 1, 11, "ERROR_CODE Unknown Peripheral/Spec Reserved"},
        {0, 0xC0, 2, 3, "Unknown Unknown I/O BUS/Unknown"},
        {3, 0x40, 2, 12, "DEBUG_CODE OXA_ERROR_INFO I/O BUS/I2C"},
        {3, 0x40, 3, 18, "DEBUG_CODE OXA_ERROR_INFO Software/DXE Service"},
    };
    for (const auto& [type, severity, cls, sub, names] : cases) {
        const std::string said = Said(Parse({AuxSlot(1, StatusCode(type, severity, cls, sub))})[0]);
        EXPECT_NE(std::string::npos, said.find(" " + names + " ")) << said;
    }
}

TEST(ParseExtendedSELData, StoredOrderOwnMakerOnlyAndTheCarryOver) {
    HostCapture host;
    auto foreign = AuxSlot(9, StatusCode(3, 0x40, 3, 4)); // would name "DXE Core"
    foreign.data[2] = 0x01;
    // Texts in stored byte order; a progress code is decoded too; class 5
    // keeps the previous entry's sub-class name, or "Not set" for the first.
    auto records = Parse({AuxSlot(0x1234, StatusCode()), foreign, s_AuxLog_entry{},
                          AuxSlot(2, StatusCode(1, 0x90, 5, 2))});
    ASSERT_EQ(2u, records.size());
    const std::string ids = " 0x0110 0x01020304 0x0A0B0C0D0E0F10111213";
    EXPECT_EQ("4660 DEBUG_CODE OXA_ERROR_INFO Software/SEC" + ids, Said(records[0]));
    EXPECT_EQ("2 PROGRESS_CODE OXA_ERROR_FATAL Unknown/SEC" + ids, Said(records[1]));
    EXPECT_EQ("Not set", Parse({AuxSlot(3, StatusCode(3, 0x40, 5, 2))})[0].GetSubClassName());
    EXPECT_TRUE(Parse({}).empty());
}

TEST(ParseExtendedSELData, ExtendedDataTextAndTrace) {
    // Stated body length, extended text, trace. Lengths up to 22 have none.
    const std::tuple<uint32_t, std::string, std::string> cases[] = {
        {22, "", "recordsize = 22\n\n x = 0"},
        {25, "AA BB 0C ", "recordsize = 25\n 170 t = AA\n 187 t = BB 12 t = 0C\n x = 3"},
    };
    for (const auto& [length, text, trace] : cases) {
        HostCapture host;
        auto records =
            Parse({AuxSlot(AuxHeader(length, 1), StatusCode(3, 0x40, 3, 1, {0xAA, 0xBB, 0x0C}))});
        ASSERT_EQ(1u, records.size());
        EXPECT_EQ(text, records[0].GetExtendedData());
        EXPECT_TRUE(host.hasLog(3, trace)) << trace;
    }
    // A stated length far past the slot: only what the slot holds is read.
    const std::string text =
        Parse({AuxSlot(AuxHeader(0xFFFF, 1), Counting(246))})[0].GetExtendedData();
    EXPECT_EQ(224u * 3, text.size());
    EXPECT_EQ("F6 ", text.substr(text.size() - 3)); // slot byte 255
}

} // namespace
} // namespace ipmisel::test
