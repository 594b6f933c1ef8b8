#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <tuple>

#include "auxlog/AuxLog.h"
#include "tests/auxlog/AuxTestSupport.h"

namespace ipmisel::test {
namespace {

using Bytes = std::vector<uint8_t>;
using Read = std::tuple<int, int, int>; // entry number, offset, read length

class AuxRequestTest : public ::testing::Test {
  protected:
    HostCapture host;
    AuxBmc bmc;
    std::shared_ptr<FakeTransport> transport;
    // Replaces single answers, by request number counted from 0.
    std::function<std::optional<host::IpmiResponse>(size_t)> replace;

    void SetUp() override {
        transport = std::make_shared<FakeTransport>([this](const host::IpmiRequest& r) {
            auto answer = replace ? replace(transport->received.size() - 1) : std::nullopt;
            return answer ? *answer : bmc.Answer(r);
        });
        host.setNodes({transport});
    }

    IPMIRequestAuxLog Request() {
        return IPMIRequestAuxLog(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));
    }

    void AddEntry(Bytes body, uint16_t recordID, bool last = false) {
        bmc.entries.push_back(
            {AuxHeader(static_cast<uint32_t>(body.size()), recordID, last), std::move(body)});
    }

    std::vector<Read> Reads() const {
        std::vector<Read> out;
        for (const auto& r : transport->received) {
            if (r.netfn == 0x2E && r.cmd == 0x93) {
                EXPECT_EQ(r.data.size(), 9u);
                EXPECT_EQ(Bytes(r.data.begin(), r.data.begin() + 3), (Bytes{0xC1, 0xA3, 0x00}));
                out.emplace_back(r.data[3] | (r.data[4] << 8), r.data[5], r.data[7]);
            }
        }
        return out;
    }
};

TEST_F(AuxRequestTest, StatusCountAndFailures) {
    // One object throughout: a short answer must not pick up bytes a longer
    // earlier answer left in the buffer.
    auto request = Request();
    const std::pair<Bytes, uint32_t> answers[] = {
        {{0, 0, 0, 0, 0, 0, 0, 0x34, 0x12}, 0x1234}, // byte 7 low, byte 8 high
        {{0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0x77}, 0xFFFF},
        {{0, 0, 0, 0, 0, 0, 0, 0x05}, 5}, // byte 8 not sent
        {{0, 0, 0}, 0},
    };
    for (const auto& [data, expected] : answers) {
        bmc.statusData = data;
        uint32_t count = 99;
        EXPECT_EQ(request.IPMIGetAuxLogStatus(count), 0);
        EXPECT_EQ(count, expected);
    }
    EXPECT_EQ(transport->received[0].netfn, 0x0A);
    EXPECT_EQ(transport->received[0].cmd, 0x5A);
    EXPECT_EQ(transport->received[0].data, Bytes{0x01});

    const std::tuple<host::IpmiResponse, int, std::string> failures[] = {
        {notSent(), 0, "Failure in sending command to obtain AUX Log Status."},
        {cc(0xC7), 1, "IPMI error in obtaining system event log info: Request data length"},
        {cc(0x81), 1, "IPMI error in obtaining system event log info: Unknown error\n"},
    };
    for (const auto& [answer, severity, line] : failures) {
        replace = [&](size_t) { return std::optional(answer); };
        uint32_t count = 7;
        EXPECT_EQ(request.IPMIGetAuxLogStatus(count), 1);
        EXPECT_EQ(count, 0u);
        EXPECT_TRUE(host.hasLog(severity, line)) << line;
    }
}

TEST_F(AuxRequestTest, NoEntriesMeansNoReadRequest) {
    auto request = Request();
    uint32_t count = 5;
    ASSERT_EQ(request.IPMIGetAuxLogStatus(count), 0);
    EXPECT_EQ(request.IPMIReadExtendedData(nullptr, count), 0);
    EXPECT_EQ(transport->received.size(), 1u);
}

TEST_F(AuxRequestTest, SixtyByteBodyIsReadInChunksOfTwentyFive) {
    AddEntry(CountingBody(60), 0x0102);
    s_AuxLog_entry slot;
    std::memset(slot.data, 0xEE, sizeof slot.data);
    EXPECT_EQ(Request().IPMIReadExtendedData(&slot, 1), 0);
    EXPECT_EQ(Reads(), (std::vector<Read>{{1, 0, 0}, {1, 0, 25}, {1, 25, 25}, {1, 50, 10}}));

    Bytes expected = AuxHeader(60, 0x0102, false);
    Bytes body = CountingBody(60);
    expected.insert(expected.end(), body.begin(), body.end());
    expected.resize(256, 0); // cleared first, nothing stray after the body
    EXPECT_EQ(Bytes(slot.data, slot.data + 256), expected);

    EXPECT_TRUE(host.hasLog(3, "incompletelen = 35 readlen =25 offset = 25"));
    EXPECT_TRUE(host.logContains("buffer[0].data:\n193 \n163 0 60 0 2 1 0 1 0 1 \n2 "));
}

TEST_F(AuxRequestTest, LengthHighByteIsReportedAndOnlyTheLowByteRead) {
    AddEntry(CountingBody(300), 7); // 012Ch: the low byte says 44
    s_AuxLog_entry slot;
    EXPECT_EQ(Request().IPMIReadExtendedData(&slot, 1), 0);
    EXPECT_TRUE(host.hasLog(
        0, "The length(144) of raw data exceed the limitation of struct s_AuxLog_entry.data?"));
    EXPECT_EQ(Reads(), (std::vector<Read>{{1, 0, 0}, {1, 0, 25}, {1, 25, 19}}));
    EXPECT_EQ(slot.data[10 + 43], 44);
    EXPECT_EQ(slot.data[10 + 44], 0);
}

TEST_F(AuxRequestTest, EntriesAreNumberedFromOneAndTheLastMarkEndsThePass) {
    AddEntry({}, 1, /*last=*/true); // no body: nothing copied, so it cannot end the pass
    AddEntry(CountingBody(5, 0x20), 2, /*last=*/true);
    AddEntry(CountingBody(5, 0x30), 3);
    s_AuxLog_entry slots[3];
    std::memset(slots, 0xEE, sizeof slots);
    EXPECT_EQ(Request().IPMIReadExtendedData(slots, 3), 0);
    EXPECT_EQ(Reads(), (std::vector<Read>{{1, 0, 0}, {2, 0, 0}, {2, 0, 5}}));
    EXPECT_EQ(Bytes(slots[0].data, slots[0].data + 256), Bytes(256, 0));
    EXPECT_EQ(AuxRecordID(slots[1]), 2);
    EXPECT_EQ(slots[1].data[10], 0x20);
    EXPECT_EQ(slots[2].data[0], 0xEE); // never touched
}

TEST_F(AuxRequestTest, SendFailureSkipsTheEntryCompletionCodeEndsThePass) {
    AddEntry(CountingBody(60), 1);
    AddEntry(CountingBody(60), 2);
    AddEntry(CountingBody(4), 3);
    // Entry 1's header and entry 2's second chunk are lost.
    replace = [](size_t n) { return n == 0 || n == 3 ? std::optional(notSent()) : std::nullopt; };
    s_AuxLog_entry slots[3];
    EXPECT_EQ(Request().IPMIReadExtendedData(slots, 3), 0);
    EXPECT_EQ(host.countLog("Failure in sending command to obtain AUX Log Read Extended Data."),
              2u);
    EXPECT_EQ(slots[0].data[0], 0);
    EXPECT_EQ(slots[1].data[10 + 24], 25); // header and first chunk kept
    EXPECT_EQ(slots[1].data[10 + 25], 0);
    EXPECT_EQ(AuxRecordID(slots[2]), 3);

    transport->received.clear();
    replace = [](size_t n) { return n == 2 ? std::optional(cc(0xC0)) : std::nullopt; };
    EXPECT_EQ(Request().IPMIReadExtendedData(slots, 3), 1);
    EXPECT_EQ(transport->received.size(), 3u);
    EXPECT_TRUE(host.hasLog(1, "IPMI error in obtaining system event log info: Node Busy."));
}

TEST_F(AuxRequestTest, NothingLandsOutsideTheSlot) {
    // 255 body bytes beside a 10-byte header: the slot keeps 246, the BMC is
    // still asked for all of them.
    AddEntry(CountingBody(255), 9, /*last=*/true);
    s_AuxLog_entry slots[2];
    std::memset(slots, 0xEE, sizeof slots);
    EXPECT_EQ(Request().IPMIReadExtendedData(slots, 2), 0);
    EXPECT_EQ(Reads().back(), (Read{1, 250, 5}));
    EXPECT_EQ(slots[0].data[255], 246);
    EXPECT_EQ(slots[1].data[0], 0xEE);

    // Answers far longer than asked: the surplus is overwritten or cut.
    bmc.entries.clear();
    AddEntry(CountingBody(60), 4);
    bmc.padding = 230;
    EXPECT_EQ(Request().IPMIReadExtendedData(slots, 1), 0);
    EXPECT_EQ(slots[0].data[10 + 59], 60);
    EXPECT_EQ(slots[1].data[0], 0xEE);

    // A chunk that comes back short leaves a gap, never stale buffer bytes.
    bmc.padding = 0;
    replace = [](size_t n) { return n == 2 ? std::optional(ok({0xC1, 0xA3})) : std::nullopt; };
    transport->received.clear();
    EXPECT_EQ(Request().IPMIReadExtendedData(slots, 1), 0);
    EXPECT_EQ(Bytes(slots[0].data + 35, slots[0].data + 60), Bytes(25, 0));
    EXPECT_EQ(slots[0].data[60], 51);
}

} // namespace
} // namespace ipmisel::test
