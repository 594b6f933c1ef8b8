// Exporting debug codes: one instance per entry of our maker whose record ID
// matches a SEL record. No node answers here, so the clock difference cannot
// be measured; time stamps are the BMC's own either way.
#include <gtest/gtest.h>

#include "host/runtime.h"
#include "tests/auxlog/AuxTestSupport.h"

namespace ipmisel::test {
namespace {

const std::string kClass = "OXASG_VTXAuxDebugRecord";

IPMISELEntry SELRecord(uint16_t id, uint32_t time) {
    IPMISELEntry e;
    e.bytes[0] = uint8_t(id >> 8);
    e.bytes[1] = uint8_t(id);
    for (int i = 0; i < 4; ++i) {
        e.bytes[3 + i] = uint8_t(time >> 8 * i);
    }
    return e;
}

class AuxExport : public ::testing::Test {
  protected:
    void Export(std::vector<s_AuxLog_entry> slots) {
        ExportAuxDebugLog(NOXAQSV20::SPLibrary::GetSplibraryInstance(0), host::outputHandle(),
                          slots.data(), uint32_t(slots.size()), sel.data(), uint32_t(sel.size()));
    }
    std::string StampOf(IPMISELEntry e) {
        char text[64] = {};
        e.GetTimestamp(text, sizeof text, NOXAQSV20::TCIMDateTime(), true, true);
        return text;
    }

    HostCapture host;
    std::vector<IPMISELEntry> sel = {SELRecord(1, 0x60000000), SELRecord(2, 0x61000000),
                                     SELRecord(2, 0x62000000), SELRecord(300, 0x63000000)};
};

TEST_F(AuxExport, OneInstancePerOwnDebugCodeWithASELRecord) {
    const Bytes body = StatusCode(3, 0x40, 3, 1, {0x40, 0x41, 0x42});
    auto foreign = AuxSlot(1, body);
    foreign.data[0] = 0x00;                                           // not our maker
    auto oversized = AuxSlot(AuxHeader(0x1234, 1), Counting(300, 3)); // a debug code
    Export({AuxSlot(300, body), AuxSlot(1, StatusCode(1)), foreign, s_AuxLog_entry{},
            AuxSlot(7, body), AuxSlot(2, body), oversized});
    auto out = host.instancesOf(kClass);
    ASSERT_EQ(3u, out.size());
    std::string props;
    for (const auto& p : out[0].properties) {
        props += p.name + "=" + out[0].get(p.name) + " ";
    }
    EXPECT_EQ("MessageTimestamp=" + StampOf(sel[3]) + " CreationClassName=" + kClass +
                  " LogCreationClassName=" + kClass + " LogName=" + kClass +
                  " RecordID=0 RawData= ",
              props);
    // The slot's position, not the BMC's record ID; the first of two SEL
    // records with the same ID gives the time stamp.
    EXPECT_EQ("5 6", out[1].get("RecordID") + " " + out[2].get("RecordID"));
    EXPECT_EQ(StampOf(sel[1]), out[1].get("MessageTimestamp"));
    EXPECT_EQ(body, out[0].find("RawData")->bytes);
    // A stated length past the slot gives what the slot keeps.
    EXPECT_EQ(Counting(246, 3), out[2].find("RawData")->bytes);
    EXPECT_TRUE(host.hasLog(2, "Not synchronizing BMC time with OS time."));
    EXPECT_EQ(1u, host.countLog("No corresponding SEL Record found."));
}

TEST_F(AuxExport, PropertyFailureDropsOnlyThatInstance) {
    for (std::string property : {"MessageTimestamp", "CreationClassName", "LogCreationClassName",
                                 "LogName", "RecordID", "RawData"}) {
        host::configure(host::config()); // restart the instance numbering
        host.clear();
        host.config().failProperty = [&](uint64_t instance, const std::string& name) {
            return instance == 0 && name == property;
        };
        Export({AuxSlot(1, StatusCode()), AuxSlot(300, StatusCode())});
        auto out = host.instancesOf(kClass);
        ASSERT_EQ(1u, out.size()) << property;
        EXPECT_EQ("1", out[0].get("RecordID"));
        const std::string line = property == "RawData" ? "Failed to add array property."
                                                       : "Error adding " + property + ".";
        EXPECT_TRUE(host.hasLog(1, line)) << line;
    }
}

} // namespace
} // namespace ipmisel::test
