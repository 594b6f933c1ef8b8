#include <gtest/gtest.h>

#include "auxlog/AuxLog.h"
#include "host/runtime.h"
#include "tests/auxlog/AuxTestSupport.h"

namespace ipmisel::test {
namespace {

using Bytes = std::vector<uint8_t>;
constexpr const char* kClass = "OXASG_VTXAuxDebugRecord";

IPMISELEntry SELRecord(uint16_t id, uint32_t time) {
    IPMISELEntry e;
    e.bytes[0] = static_cast<uint8_t>(id >> 8);
    e.bytes[1] = static_cast<uint8_t>(id & 0xFF);
    e.bytes[2] = 0x02;
    for (int i = 0; i < 4; ++i) {
        e.bytes[3 + i] = static_cast<uint8_t>(time >> (8 * i));
    }
    return e;
}

std::string StampOf(IPMISELEntry e) {
    char text[512] = {};
    e.GetTimestamp(text, sizeof text, NOXAQSV20::TCIMDateTime(), true, true);
    return text;
}

class AuxExportTest : public ::testing::Test {
  protected:
    HostCapture host;
    bool clockAnswers = true;
    std::shared_ptr<FakeTransport> transport;
    std::vector<IPMISELEntry> sel = {SELRecord(1, 0x60000000), SELRecord(2, 0x61000000),
                                     SELRecord(2, 0x62000000), SELRecord(300, 0x63000000)};

    void SetUp() override {
        transport = std::make_shared<FakeTransport>([this](const host::IpmiRequest& r) {
            if (clockAnswers && r.netfn == 0x0A && r.cmd == 0x48) {
                return ok({0x00, 0x00, 0x00, 0x60});
            }
            return notSent();
        });
        host.setNodes({transport});
    }

    void Export(const std::vector<s_AuxLog_entry>& slots) {
        ExportAuxDebugLog(NOXAQSV20::SPLibrary::GetSplibraryInstance(0), host::outputHandle(),
                          slots.data(), static_cast<uint32_t>(slots.size()), sel.data(),
                          static_cast<uint32_t>(sel.size()));
    }

    static s_AuxLog_entry Debug(uint16_t recordID, size_t extended = 0) {
        StatusCode code;
        code.extended = CountingBody(extended, 0x40);
        return AuxSlot(recordID, code);
    }
};

TEST_F(AuxExportTest, OneInstancePerMatchedDebugEntry) {
    Export({Debug(300, 3), Debug(1)});
    auto out = host.instancesOf(kClass);
    ASSERT_EQ(out.size(), 2u);

    std::vector<std::string> names;
    for (const auto& p : out[0].properties) {
        names.push_back(p.name);
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{"MessageTimestamp", "CreationClassName",
                                        "LogCreationClassName", "LogName", "RecordID", "RawData"}));
    for (const char* p : {"CreationClassName", "LogCreationClassName", "LogName"}) {
        EXPECT_EQ(out[0].get(p), kClass);
    }
    // The slot's position, not the BMC's record ID.
    EXPECT_EQ(out[0].get("RecordID"), "0");
    EXPECT_EQ(out[1].get("RecordID"), "1");
    EXPECT_EQ(out[0].get("MessageTimestamp"), StampOf(sel[3]));
    EXPECT_EQ(out[1].get("MessageTimestamp"), StampOf(sel[0]));

    Bytes raw = StatusCode().Body();
    raw.insert(raw.end(), {0x40, 0x41, 0x42});
    ASSERT_NE(out[0].find("RawData"), nullptr);
    EXPECT_EQ(out[0].find("RawData")->bytes, raw);
    EXPECT_TRUE(host.hasLog(3, "RecordSize= 25"));
    EXPECT_EQ(host.countLog("Exporting array element."), 25u + 22u);
    EXPECT_TRUE(host.hasLog(3, "selid is 300"));
    EXPECT_TRUE(host.hasLog("ExportAuxDebugLog() function exited."));
}

TEST_F(AuxExportTest, FirstOfTwoSELRecordsWithTheSameIDWins) {
    ASSERT_NE(StampOf(sel[1]), StampOf(sel[2]));
    Export({Debug(2)});
    auto out = host.instancesOf(kClass);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].get("MessageTimestamp"), StampOf(sel[1]));
    // The walk stops at the match.
    EXPECT_EQ(host.countLog("selid is 2"), 1u);
}

TEST_F(AuxExportTest, OnlyOwnDebugCodesAreExported) {
    const uint8_t otherMaker[3] = {0x00, 0xA3, 0xC1}; // the ID the wrong way round
    StatusCode progress;
    progress.type = 1;
    StatusCode error;
    error.type = 2;
    StatusCode debug;
    auto foreign = AuxSlot(AuxHeader(22, 1, false, otherMaker), debug.Body());
    Export({AuxSlot(1, progress), AuxSlot(1, error), foreign, s_AuxLog_entry{}, Debug(1)});
    auto out = host.instancesOf(kClass);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].get("RecordID"), "4");
    EXPECT_EQ(host.countLog("Found corresponding SEL Record Entry."), 1u);
    EXPECT_EQ(host.countLog("No corresponding SEL Record found."), 0u);
}

TEST_F(AuxExportTest, UnmatchedEntriesAndAnUnreadableClock) {
    clockAnswers = false;
    Export({Debug(7), Debug(1)});
    EXPECT_TRUE(host.hasLog(2, "Not synchronizing BMC time with OS time."));
    EXPECT_TRUE(host.hasLog(1, "No corresponding SEL Record found."));
    ASSERT_EQ(host.instancesOf(kClass).size(), 1u);
    EXPECT_EQ(host.instancesOf(kClass)[0].get("RecordID"), "1");
}

TEST_F(AuxExportTest, PropertyFailureDropsOnlyThatInstance) {
    for (const char* property : {"MessageTimestamp", "CreationClassName", "LogCreationClassName",
                                 "LogName", "RecordID", "RawData"}) {
        host::configure(host::config()); // restart the instance numbering
        host.clear();
        host.config().failProperty = [&](uint64_t instance, const std::string& name) {
            return instance == 0 && name == property;
        };
        Export({Debug(1), Debug(300)});
        auto out = host.instancesOf(kClass);
        ASSERT_EQ(out.size(), 1u) << property;
        EXPECT_EQ(out[0].get("RecordID"), "1");
        const std::string expected = std::string(property) == "RawData"
                                         ? "Failed to add array property."
                                         : "Error adding " + std::string(property) + ".";
        EXPECT_TRUE(host.hasLog(1, expected)) << expected;
        EXPECT_TRUE(host.hasLog("ExportAuxDebugLog() function exited."));
    }
}

TEST_F(AuxExportTest, RawDataIsCutToWhatTheSlotKeeps) {
    // A stated length of 255 or with its high byte set cannot reach past the slot.
    for (uint32_t stated : {255u, 0x1234u}) {
        host.clear();
        auto slot = AuxSlot(AuxHeader(stated, 1, false), CountingBody(300));
        slot.data[10] = 3; // a debug code
        Export({slot});
        auto out = host.instancesOf(kClass);
        ASSERT_EQ(out.size(), 1u);
        const auto& raw = out[0].find("RawData")->bytes;
        ASSERT_EQ(raw.size(), 246u);
        EXPECT_EQ(raw.back(), 246);
    }
}

} // namespace
} // namespace ipmisel::test
