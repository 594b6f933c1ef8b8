#include <gtest/gtest.h>

#include <memory>

#include "auxlog/AuxLog.h"
#include "tests/auxlog/AuxTestSupport.h"

namespace ipmisel::test {
namespace {

using Bytes = std::vector<uint8_t>;

class AuxRequestTest : public ::testing::Test {
  protected:
    HostCapture host;
    AuxBmc bmc;
    std::shared_ptr<FakeTransport> transport;
    // Lets a test replace single answers (by request number, 0-based).
    std::function<std::optional<host::IpmiResponse>(size_t, const host::IpmiRequest&)> override_;

    void SetUp() override {
        transport = std::make_shared<FakeTransport>([this](const host::IpmiRequest& r) {
            if (override_) {
                if (auto answer = override_(transport->received.size() - 1, r)) {
                    return *answer;
                }
            }
            return bmc.Answer(r);
        });
        host.setNodes({transport});
    }

    IPMIRequestAuxLog Request() {
        return IPMIRequestAuxLog(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));
    }

    void AddEntry(Bytes body, uint16_t recordID = 0, bool last = false) {
        bmc.entries.push_back(
            {AuxHeader(static_cast<uint32_t>(body.size()), recordID, last), std::move(body)});
    }

    // (entry number, offset, read length) of every read request.
    std::vector<std::tuple<int, int, int>> Reads() const {
        std::vector<std::tuple<int, int, int>> out;
        for (const auto& r : transport->received) {
            if (r.netfn == 0x2E && r.cmd == 0x93) {
                out.emplace_back(r.data[3] | (r.data[4] << 8), r.data[5], r.data[7]);
            }
        }
        return out;
    }

    static Bytes SlotBytes(const s_AuxLog_entry& slot, size_t n) {
        return Bytes(slot.data, slot.data + n);
    }
};

TEST_F(AuxRequestTest, StatusRequestAndCountByteOrder) {
    struct Case {
        Bytes data;
        uint32_t count;
    };
    // One request object for all: later short answers must not pick up the
    // bytes an earlier, longer answer left in the buffer.
    const Case cases[] = {
        {{0, 0, 0, 0, 0, 0, 0, 0x34, 0x12}, 0x1234}, // byte 7 low, byte 8 high
        {{9, 9, 9, 9, 9, 9, 9, 0x00, 0x01}, 256},
        {{0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0x77}, 0xFFFF},
        {{0, 0, 0, 0, 0, 0, 0, 0x05}, 5}, // byte 8 not sent
        {{0, 0, 0}, 0},
    };
    auto request = Request();
    for (const auto& c : cases) {
        bmc.statusData = c.data;
        uint32_t count = 99;
        EXPECT_EQ(request.IPMIGetAuxLogStatus(count), 0);
        EXPECT_EQ(count, c.count);
    }
    const auto& r = transport->received.front();
    EXPECT_EQ(r.netfn, 0x0A);
    EXPECT_EQ(r.cmd, 0x5A);
    EXPECT_EQ(r.data, Bytes{0x01});
    EXPECT_TRUE(host.hasLog(3, "IPMIRequestAuxLog::Response Length = 9\nrspBuf = 00 00 00 00 "
                               "00 00 00 00 34 12 "));
}

TEST_F(AuxRequestTest, StatusFailures) {
    struct Case {
        host::IpmiResponse answer;
        int severity;
        std::string line;
    };
    const Case cases[] = {
        {notSent(), 0, "Failure in sending command to obtain AUX Log Status."},
        {cc(0xC7), 1, "IPMI error in obtaining system event log info: Request data length"},
        {cc(0x81), 1, "IPMI error in obtaining system event log info: Unknown error\n"},
        {cc(0xD5), 1,
         "IPMI error in obtaining system event log info: Cannot execute command. Command, or "
         "request parameter(s), not supported in present state."},
    };
    for (const auto& c : cases) {
        host.clear();
        override_ = [&](size_t, const host::IpmiRequest&) {
            return std::optional<host::IpmiResponse>(c.answer);
        };
        auto request = Request();
        uint32_t count = 7;
        EXPECT_EQ(request.IPMIGetAuxLogStatus(count), 1);
        EXPECT_EQ(count, 0u);
        EXPECT_TRUE(host.hasLog(c.severity, c.line)) << c.line;
        EXPECT_FALSE(host.hasLog("IPMIRequestAuxLog::IPMIGetAuxLogStatus() exited.\n"));
    }
}

TEST_F(AuxRequestTest, NoEntriesMeansNoReadRequest) {
    auto request = Request();
    uint32_t count = 5;
    ASSERT_EQ(request.IPMIGetAuxLogStatus(count), 0);
    ASSERT_EQ(count, 0u);
    EXPECT_EQ(request.IPMIReadExtendedData(nullptr, count), 0);
    EXPECT_EQ(transport->received.size(), 1u);
    EXPECT_TRUE(host.hasLog("IPMIRequestAuxLog::IPMIReadExtendedData() exited.\n"));
}

TEST_F(AuxRequestTest, SixtyByteBodyIsReadInChunksOfTwentyFive) {
    AddEntry(CountingBody(60), 0x0102);
    s_AuxLog_entry slot;
    std::memset(slot.data, 0xEE, sizeof slot.data);
    EXPECT_EQ(Request().IPMIReadExtendedData(&slot, 1), 0);

    using R = std::tuple<int, int, int>;
    EXPECT_EQ(Reads(), (std::vector<R>{{1, 0, 0}, {1, 0, 25}, {1, 25, 25}, {1, 50, 10}}));
    // Every read names the maker first and leaves bytes 6 and 8 clear.
    for (const auto& r : transport->received) {
        ASSERT_EQ(r.data.size(), 9u);
        EXPECT_EQ(Bytes(r.data.begin(), r.data.begin() + 3), (Bytes{0xC1, 0xA3, 0x00}));
        EXPECT_EQ(r.data[6], 0);
        EXPECT_EQ(r.data[8], 0);
    }

    Bytes expected = AuxHeader(60, 0x0102, false);
    auto body = CountingBody(60);
    expected.insert(expected.end(), body.begin(), body.end());
    EXPECT_EQ(SlotBytes(slot, 70), expected);
    // The slot was cleared first; no stray bytes follow the body.
    EXPECT_EQ(Bytes(slot.data + 70, slot.data + 256), Bytes(186, 0));

    EXPECT_TRUE(host.hasLog(3, "incompletelen = 60 readlen =25 offset = 0"));
    EXPECT_TRUE(host.hasLog(3, "incompletelen = 35 readlen =25 offset = 25"));
    EXPECT_TRUE(host.hasLog(3, "incompletelen = 10 readlen =10 offset = 50"));
    EXPECT_TRUE(host.logContains("buffer[0].data:\n193 \n163 0 60 0 2 1 0 1 0 1 \n2 "));
}

TEST_F(AuxRequestTest, EntryNumbersAreOneBasedSlotsZeroBased) {
    AddEntry(CountingBody(3, 0x10), 0x0011);
    AddEntry(CountingBody(3, 0x20), 0x0022);
    AddEntry(CountingBody(3, 0x30), 0x0033);
    s_AuxLog_entry slots[3];
    EXPECT_EQ(Request().IPMIReadExtendedData(slots, 3), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(AuxRecordID(slots[i]), 0x11 * (i + 1));
        EXPECT_EQ(slots[i].data[10], 0x10 * (i + 1));
    }
    EXPECT_EQ(std::get<0>(Reads().front()), 1);
    EXPECT_EQ(std::get<0>(Reads().back()), 3);
}

TEST_F(AuxRequestTest, LengthHighByteIsReportedAndOnlyTheLowByteRead) {
    // 300 = 012Ch: the slot's one length byte keeps 2Ch = 44.
    AddEntry(CountingBody(300), 7);
    s_AuxLog_entry slot;
    EXPECT_EQ(Request().IPMIReadExtendedData(&slot, 1), 0);
    EXPECT_TRUE(host.hasLog(
        0, "The length(144) of raw data exceed the limitation of struct s_AuxLog_entry.data?"));
    using R = std::tuple<int, int, int>;
    EXPECT_EQ(Reads(), (std::vector<R>{{1, 0, 0}, {1, 0, 25}, {1, 25, 19}}));
    EXPECT_EQ(slot.data[10 + 43], 44);
    EXPECT_EQ(slot.data[10 + 44], 0);
}

TEST_F(AuxRequestTest, LastEntryMarkEndsThePass) {
    AddEntry(CountingBody(30), 1);
    AddEntry(CountingBody(5), 2, /*last=*/true);
    AddEntry(CountingBody(5), 3);
    s_AuxLog_entry slots[3];
    std::memset(slots, 0xEE, sizeof slots);
    EXPECT_EQ(Request().IPMIReadExtendedData(slots, 3), 0);
    for (const auto& r : Reads()) {
        EXPECT_NE(std::get<0>(r), 3);
    }
    EXPECT_EQ(slots[1].data[7], 0xFF);
    EXPECT_EQ(slots[2].data[0], 0xEE); // never touched
    EXPECT_TRUE(host.hasLog("IPMIRequestAuxLog::IPMIReadExtendedData() exited.\n"));
}

TEST_F(AuxRequestTest, EmptyBodyLeavesTheSlotClearAndCannotEndThePass) {
    AddEntry({}, 1, /*last=*/true);
    AddEntry(CountingBody(4), 2);
    s_AuxLog_entry slots[2];
    std::memset(slots, 0xEE, sizeof slots);
    EXPECT_EQ(Request().IPMIReadExtendedData(slots, 2), 0);
    EXPECT_EQ(SlotBytes(slots[0], 256), Bytes(256, 0));
    EXPECT_EQ(AuxRecordID(slots[1]), 2);
}

TEST_F(AuxRequestTest, SendFailureSkipsOnlyThatEntry) {
    AddEntry(CountingBody(60), 1);
    AddEntry(CountingBody(60), 2);
    AddEntry(CountingBody(4), 3);
    // Request 0: header of entry 1 fails. Request 3: entry 2's second chunk fails.
    override_ = [](size_t n, const host::IpmiRequest&) -> std::optional<host::IpmiResponse> {
        if (n == 0 || n == 3) {
            return notSent();
        }
        return std::nullopt;
    };
    s_AuxLog_entry slots[3];
    std::memset(slots, 0xEE, sizeof slots);
    EXPECT_EQ(Request().IPMIReadExtendedData(slots, 3), 0);
    EXPECT_EQ(host.countLog("Failure in sending command to obtain AUX Log Read Extended Data."),
              2u);
    EXPECT_EQ(SlotBytes(slots[0], 256), Bytes(256, 0));
    // Entry 2 kept its header and first chunk, nothing after.
    EXPECT_EQ(AuxRecordID(slots[1]), 2);
    EXPECT_EQ(slots[1].data[10 + 24], 25);
    EXPECT_EQ(slots[1].data[10 + 25], 0);
    EXPECT_EQ(AuxRecordID(slots[2]), 3);
    EXPECT_EQ(std::get<0>(Reads().back()), 3);
}

TEST_F(AuxRequestTest, CompletionCodeEndsThePassWithFailure) {
    for (size_t failing : {size_t{0}, size_t{2}}) { // the header, then a later chunk
        transport->received.clear();
        host.clear();
        bmc.entries.clear();
        AddEntry(CountingBody(60), 1);
        AddEntry(CountingBody(60), 2);
        override_ = [failing](size_t n, const host::IpmiRequest&) {
            return n == failing ? std::optional<host::IpmiResponse>(cc(0xC0)) : std::nullopt;
        };
        s_AuxLog_entry slots[2];
        EXPECT_EQ(Request().IPMIReadExtendedData(slots, 2), 1);
        EXPECT_EQ(transport->received.size(), failing + 1);
        EXPECT_TRUE(host.hasLog(1, "IPMI error in obtaining system event log info: Node Busy."));
        EXPECT_FALSE(host.hasLog("IPMIRequestAuxLog::IPMIReadExtendedData() exited.\n"));
    }
}

TEST_F(AuxRequestTest, LongestBodyIsCutAtTheSlotEnd) {
    // 255 body bytes do not fit beside the header: the slot keeps 246 of them,
    // and the BMC is still asked for the whole body.
    AddEntry(CountingBody(255), 9, /*last=*/true);
    s_AuxLog_entry slots[2]; // the second slot stays untouched
    std::memset(slots, 0xEE, sizeof slots);
    EXPECT_EQ(Request().IPMIReadExtendedData(slots, 2), 0);
    EXPECT_EQ(std::get<1>(Reads().back()), 250);
    EXPECT_EQ(std::get<2>(Reads().back()), 5);
    EXPECT_EQ(slots[0].data[255], 246);
    EXPECT_EQ(slots[1].data[0], 0xEE);
}

TEST_F(AuxRequestTest, OversizedAndShortAnswersStayInsideTheSlot) {
    // Answers far longer than asked: later chunks overwrite the surplus.
    bmc.padding = 230;
    AddEntry(CountingBody(60), 4);
    s_AuxLog_entry slots[2];
    std::memset(slots, 0xEE, sizeof slots);
    EXPECT_EQ(Request().IPMIReadExtendedData(slots, 1), 0);
    EXPECT_EQ(slots[0].data[10 + 59], 60);
    EXPECT_EQ(slots[1].data[0], 0xEE);

    // A header answer cut to 4 bytes: no length byte arrived, nothing is read.
    transport->received.clear();
    bmc.padding = 0;
    override_ = [](size_t n, const host::IpmiRequest&) -> std::optional<host::IpmiResponse> {
        if (n == 0) {
            return ok({0xC1, 0xA3, 0x00, 0x3C});
        }
        return std::nullopt;
    };
    EXPECT_EQ(Request().IPMIReadExtendedData(slots, 1), 0);
    using R = std::tuple<int, int, int>;
    EXPECT_EQ(Reads(), (std::vector<R>{{1, 0, 0}, {1, 0, 25}, {1, 25, 25}, {1, 50, 10}}));

    // Chunks that come back short leave gaps, never stale bytes.
    transport->received.clear();
    override_ = [](size_t n, const host::IpmiRequest&) -> std::optional<host::IpmiResponse> {
        if (n == 2) {
            return ok({0xC1, 0xA3});
        }
        return std::nullopt;
    };
    EXPECT_EQ(Request().IPMIReadExtendedData(slots, 1), 0);
    EXPECT_EQ(Bytes(slots[0].data + 35, slots[0].data + 60), Bytes(25, 0));
    EXPECT_EQ(slots[0].data[60], 51);
}

TEST(AuxRequestNoLibrary, EverySendFails) {
    HostCapture host;
    IPMIRequestAuxLog request(nullptr);
    uint32_t count = 3;
    EXPECT_EQ(request.IPMIGetAuxLogStatus(count), 1);
    s_AuxLog_entry slot;
    EXPECT_EQ(request.IPMIReadExtendedData(&slot, 1), 0);
    EXPECT_TRUE(host.hasLog(0, "Failure in sending command to obtain AUX Log Read Extended Data."));
    EXPECT_TRUE(host.hasLog(3, "IPMIRequestAuxLog::IPMIRequestAuxLog() Constructor exited.\n"));
}

} // namespace
} // namespace ipmisel::test
