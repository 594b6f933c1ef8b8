// Get SEL Info and the Get SEL Entry walk against small fake BMCs.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "ipmi/IPMIRequestSEL.h"
#include "plugin/text.h"
#include "tests/ipmi/FakeStorage.h"

namespace ipmisel {
namespace {

using namespace test;

class SELRequest : public ::testing::Test {
  protected:
    void SetUp() override { cap.setNodes({transportFor(bmc)}); }
    IPMIRequestSEL make() { return IPMIRequestSEL(NOXAQSV20::SPLibrary::GetSplibraryInstance(0)); }
    const host::IpmiRequest& request(size_t i) {
        return static_cast<FakeTransport&>(*cap.config().nodes[0]).received.at(i);
    }
    size_t requestCount() {
        return static_cast<FakeTransport&>(*cap.config().nodes[0]).received.size();
    }

    HostCapture cap;
    FakeSel bmc;
};

// The slot text of one record: cc, next ID, 16 bytes, no "\n".
std::string slotText(const SelRecord& r) {
    const uint8_t head[3] = {0x00, static_cast<uint8_t>(r.next & 0xFF),
                             static_cast<uint8_t>(r.next >> 8)};
    return HexBytes(head, 3) + HexBytes(r.bytes.data(), r.bytes.size());
}

TEST_F(SELRequest, InfoCountIsLowByteFirst) {
    bmc.reportedCount = 0x1234;
    auto sel = make();
    uint32_t count = 7;
    ASSERT_EQ(0, sel.IPMIGetSELInfo(count));
    EXPECT_EQ(0x1234u, count);
    EXPECT_TRUE(cap.hasLog(4, "IPMIGetSELInfo::num_SELentries = 4660"));
    EXPECT_TRUE(
        cap.hasLog(4, "IPMIGetSELInfo::tempbuf = 00 51 34 12 00 10 11 12 13 14 21 22 23 24 0F \n"));
    // The request is logged before it is sent, and the operation brackets it.
    const size_t entered = cap.findLog("IPMIRequestSEL::IPMIGetSELInfo() entered.");
    const size_t dump = cap.findLog("Contents of buffer to send (rspBuf):");
    ASSERT_NE(std::string::npos, entered);
    ASSERT_NE(std::string::npos, dump);
    EXPECT_LT(entered, dump);
    EXPECT_EQ("\n\t1 32 10 0 64 \n\t0 0 0 0 0 \n\t0 0 0 0 0 ", cap.logs[dump + 1].text);
    EXPECT_EQ("IPMIRequestSEL::IPMIGetSELInfo() completed.", cap.logs.back().text);
    EXPECT_EQ(0x40, request(0).cmd);
    EXPECT_TRUE(request(0).data.empty());
}

TEST_F(SELRequest, InfoFailures) {
    struct Case {
        const char* name;
        std::function<host::IpmiResponse()> answer;
        int severity;
        const char* line;
    };
    const Case cases[] = {
        {"version 02h",
         [] {
             return ok({0x02, 0x05, 0x00});
         },
         0, "The SEL Version does not match the Current IPMI Version\n"},
        {"not sent", [] { return notSent(); }, 0, "Failure in sending command to obtain SEL info."},
        {"erase in progress", [] { return cc(0x81); }, 1,
         "IPMI error in obtaining system event log info: Cannot execute command, SEL erase in "
         "progress.\n"},
        {"C7h", [] { return cc(0xC7); }, 1,
         "IPMI error in obtaining system event log info: Request data length"},
        {"unknown", [] { return cc(0x90); }, 1,
         "IPMI error in obtaining system event log info: Unknown error\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        cap.clear();
        cap.setNodes({std::make_shared<FakeTransport>(
            [&c](const host::IpmiRequest&) { return c.answer(); })});
        auto sel = make();
        uint32_t count = 99;
        EXPECT_EQ(1, sel.IPMIGetSELInfo(count));
        EXPECT_TRUE(cap.hasLog(c.severity, c.line));
        EXPECT_FALSE(cap.hasLog("IPMIRequestSEL::IPMIGetSELInfo() completed."));
    }
}

TEST_F(SELRequest, WalkEndsOnAnyNextIDWithHighByteFF) {
    bmc.records = {selRecord(0x0102, 0x0A0B), selRecord(0x0A0B, 0xFF10), selRecord(0xFF10, 0xFFFF)};
    std::vector<SELEntryText> slots(3);
    auto sel = make();
    ASSERT_EQ(0, sel.IPMIGetSELEntry(slots.data(), 3));
    EXPECT_EQ(2u, requestCount());
    EXPECT_EQ(slotText(bmc.records[0]), slots[0].text);
    EXPECT_EQ(slotText(bmc.records[1]), slots[1].text);
    EXPECT_EQ(57u, std::strlen(slots[0].text)); // the "\n" fell off the slot
    EXPECT_EQ('\0', slots[2].text[0]);
    EXPECT_TRUE(cap.hasLog(4, "buffer[0].data = " + slotText(bmc.records[0])));
    EXPECT_TRUE(cap.hasLog(4, "buffer[1].data = " + slotText(bmc.records[1])));
    EXPECT_EQ("IPMIRequestSEL::IPMIGetSELEntry() completed.", cap.logs.back().text);
    EXPECT_EQ(0xFF, sel.nextRecordID[0]);
    EXPECT_EQ(0x10, sel.nextRecordID[1]);
    // No reservation, record ID low then high, offset 0, the whole record.
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 0x00, 0x00, 0, 0xFF}), request(0).data);
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 0x0B, 0x0A, 0, 0xFF}), request(1).data);
}

TEST_F(SELRequest, MoreEntriesThanSlotsAreReadButNotKept) {
    for (uint16_t id = 1; id <= 5; ++id) {
        bmc.records.push_back(selRecord(id, id == 5 ? 0xFFFF : id + 1, static_cast<uint8_t>(id)));
    }
    // Exactly two slots on the heap: a store past them shows in the sanitizer build.
    auto slots = std::make_unique<SELEntryText[]>(2);
    auto sel = make();
    ASSERT_EQ(0, sel.IPMIGetSELEntry(slots.get(), 2));
    EXPECT_EQ(5u, requestCount());
    EXPECT_EQ(slotText(bmc.records[0]), slots[0].text);
    EXPECT_EQ(slotText(bmc.records[1]), slots[1].text);
    // The passes past the slots log the text just read.
    for (int i = 2; i < 5; ++i) {
        EXPECT_TRUE(cap.hasLog(4, "buffer[" + std::to_string(i) +
                                      "].data = " + slotText(bmc.records[static_cast<size_t>(i)])));
    }
    // No slot array at all (Get SEL Info said empty): read, logged, nothing written.
    auto none = make();
    EXPECT_EQ(0, none.IPMIGetSELEntry(nullptr, 5));
}

TEST_F(SELRequest, EmptySELAnswersCBh) {
    auto sel = make();
    uint32_t count = 9;
    ASSERT_EQ(0, sel.IPMIGetSELInfo(count));
    EXPECT_EQ(0u, count);
    EXPECT_EQ(1, sel.IPMIGetSELEntry(nullptr, 0));
    EXPECT_EQ(1, bmc.entryRequests);
    EXPECT_TRUE(cap.hasLog(1, "IPMI error in obtaining system event log entry: Requested Sensor, "
                              "data, or record not present."));
    EXPECT_FALSE(cap.hasLog("IPMIRequestSEL::IPMIGetSELEntry() completed."));

    bmc.hook = [](const host::IpmiRequest&, int) -> std::optional<host::IpmiResponse> {
        return notSent();
    };
    EXPECT_EQ(1, sel.IPMIGetSELEntry(nullptr, 0));
    EXPECT_TRUE(cap.hasLog(0, "Failure in sending command to obtain SEL Entry."));
}

TEST_F(SELRequest, LaterFailures) {
    for (uint16_t id = 1; id <= 4; ++id) {
        bmc.records.push_back(selRecord(id, id == 4 ? 0xFFFF : id + 1));
    }
    std::vector<SELEntryText> slots(4);

    // A completion code on the third request fails the walk; what was
    // stored stays.
    bmc.hook = [](const host::IpmiRequest&, int n) -> std::optional<host::IpmiResponse> {
        if (n == 3) {
            return cc(0xC5);
        }
        return std::nullopt;
    };
    auto sel = make();
    EXPECT_EQ(1, sel.IPMIGetSELEntry(slots.data(), 4));
    EXPECT_EQ(slotText(bmc.records[1]), slots[1].text);
    EXPECT_EQ('\0', slots[2].text[0]);
    EXPECT_TRUE(cap.hasLog(1, "IPMI error in obtaining system event log entry: Reservation "
                              "Canceled or Invalid Reservation ID."));

    // A send that fails later ends the walk quietly as a success.
    cap.clear();
    bmc.entryRequests = 0;
    bmc.hook = [](const host::IpmiRequest&, int n) -> std::optional<host::IpmiResponse> {
        if (n == 3) {
            return notSent();
        }
        return std::nullopt;
    };
    auto again = make();
    EXPECT_EQ(0, again.IPMIGetSELEntry(slots.data(), 4));
    EXPECT_TRUE(cap.hasLog(4, "Failure in sending command to obtain SEL entry.\n"));
    EXPECT_TRUE(cap.hasLog("IPMIRequestSEL::IPMIGetSELEntry() completed."));
    EXPECT_EQ(3, bmc.entryRequests);
}

TEST_F(SELRequest, CircularNextIDsEndTheWalk) {
    bmc.records = {selRecord(0x0001, 0x0002), selRecord(0x0002, 0x0001)};
    std::vector<SELEntryText> slots(2);
    auto sel = make();
    EXPECT_EQ(0, sel.IPMIGetSELEntry(slots.data(), 2));
    EXPECT_EQ(2, bmc.entryRequests);
    EXPECT_TRUE(cap.hasLog(1, "SEL walk stopped: record ID 0001h was already read."));
}

TEST_F(SELRequest, AnswersOfOddLengths) {
    bmc.hook = [](const host::IpmiRequest&, int) -> std::optional<host::IpmiResponse> {
        std::vector<uint8_t> data(200, 0xEE);
        data[0] = 0xFF;
        data[1] = 0xFF;
        return ok(data);
    };
    SELEntryText slots[2] = {};
    std::memset(slots[1].text, 'x', sizeof slots[1].text);
    auto sel = make();
    EXPECT_EQ(0, sel.IPMIGetSELEntry(slots, 1));
    EXPECT_EQ(57u, std::strlen(slots[0].text));
    EXPECT_EQ('x', slots[1].text[0]);

    // Too short to carry a next record ID: the walk ends there, and a short
    // text keeps its "\n".
    bmc.hook = [](const host::IpmiRequest&, int) -> std::optional<host::IpmiResponse> {
        return ok({0x05});
    };
    bmc.entryRequests = 0;
    auto again = make();
    EXPECT_EQ(0, again.IPMIGetSELEntry(slots, 1));
    EXPECT_EQ(1, bmc.entryRequests);
    EXPECT_STREQ("00 05 \n", slots[0].text);
}

TEST(SELSlotBytes, NeverOverflows) {
    EXPECT_EQ(0u, SELSlotBytes(0));
    EXPECT_EQ(58u, SELSlotBytes(1));
    EXPECT_EQ(58u * 65535u, SELSlotBytes(65535));
    const uint64_t most = SIZE_MAX / 58;
    EXPECT_EQ(static_cast<size_t>(most) * 58, SELSlotBytes(most));
    EXPECT_EQ(SIZE_MAX, SELSlotBytes(most + 1));
    EXPECT_EQ(SIZE_MAX, SELSlotBytes(UINT64_MAX));
}

} // namespace
} // namespace ipmisel
