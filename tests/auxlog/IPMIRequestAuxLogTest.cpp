// The read pass against a BMC that lays its answers out the way real firmware
// does: the whole header before the first chunk, only the maker's ID before
// later ones.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <tuple>

#include "tests/auxlog/AuxTestSupport.h"

namespace ipmisel::test {
namespace {

using Read = std::tuple<int, int, int>; // entry number, offset, read length

class AuxRequest : public ::testing::Test {
  protected:
    void SetUp() override { host.setNodes({bmc}); }

    host::IpmiResponse Answer(const host::IpmiRequest& r) {
        if (auto it = replace.find(bmc->received.size() - 1); it != replace.end()) {
            return it->second;
        }
        if (r.netfn == 0x0A && r.cmd == 0x5A) {
            return ok({0, 0, 0, 0, 0, 0, 0, uint8_t(entries.size()), 0});
        }
        const auto& [header, body] = entries.at(r.data.at(3) + 256u * r.data.at(4) - 1);
        const size_t offset = r.data.at(5), length = r.data.at(7);
        Bytes d(header.begin(), header.begin() + (offset == 0 ? header.size() : 3));
        for (size_t i = offset; i < offset + length && i < body.size(); ++i) {
            d.push_back(body[i]);
        }
        return ok(d);
    }

    std::vector<Read> Reads() const {
        std::vector<Read> out;
        for (const auto& r : bmc->received) {
            if (r.netfn == 0x2E && r.cmd == 0x93) {
                EXPECT_EQ(Bytes({0xC1, 0xA3, 0x00}), Bytes(r.data.begin(), r.data.begin() + 3));
                out.emplace_back(r.data[3] | r.data[4] << 8, r.data[5], r.data[7]);
            }
        }
        return out;
    }

    int ReadAll(s_AuxLog_entry* slots, uint32_t count) {
        bmc->received.clear();
        return IPMIRequestAuxLog(Library()).IPMIReadExtendedData(slots, count);
    }
    static NOXAQSV20::SPLibrary* Library() { return NOXAQSV20::SPLibrary::GetSplibraryInstance(0); }

    HostCapture host;
    std::vector<std::pair<Bytes, Bytes>> entries; // header, whole body
    std::map<size_t, host::IpmiResponse> replace; // answers by request number
    std::shared_ptr<FakeTransport> bmc =
        std::make_shared<FakeTransport>([this](const host::IpmiRequest& r) { return Answer(r); });
};

TEST_F(AuxRequest, StatusCount) {
    IPMIRequestAuxLog request(Library());
    uint32_t count = 5;
    ASSERT_EQ(0, request.IPMIGetAuxLogStatus(count));
    EXPECT_EQ(0, request.IPMIReadExtendedData(nullptr, count)); // no entries: no read request
    ASSERT_EQ(1u, bmc->received.size());
    EXPECT_EQ(0x0A5A, bmc->received[0].netfn << 8 | bmc->received[0].cmd);
    EXPECT_EQ(Bytes{0x01}, bmc->received[0].data);

    // Bytes 7 (low) and 8, through one object: a short answer must not pick
    // up what a longer one left. Failures set the count to 0.
    const std::tuple<host::IpmiResponse, uint32_t, int, std::string> cases[] = {
        {ok({0, 0, 0, 0, 0, 0, 0, 0x34, 0x12}), 0x1234, 0, ""},
        {ok({0, 0, 0, 0, 0, 0, 0, 5}), 5, 0, ""},
        {notSent(), 0, 0, "Failure in sending command to obtain AUX Log Status."},
        {cc(0xC7), 0, 1, "IPMI error in obtaining system event log info: Request data length"},
    };
    for (const auto& [answer, expected, severity, failure] : cases) {
        bmc->received.clear();
        replace = {{0, answer}};
        EXPECT_EQ(failure.empty() ? 0 : 1, request.IPMIGetAuxLogStatus(count));
        EXPECT_EQ(expected, count);
        EXPECT_TRUE(failure.empty() || host.hasLog(severity, failure)) << failure;
    }
}

TEST_F(AuxRequest, BodiesAreReadInChunksIntoTheSlotUpToTheLastEntry) {
    // Stated body length, body bytes the slot keeps, the number of reads (the
    // header's, then 25-byte chunks) and the last one. A length with its high
    // byte set is read by its low byte (012Ch: 44); 255 body bytes are all
    // asked for, but beside the header the slot keeps 246.
    const std::tuple<uint32_t, size_t, size_t, Read> cases[] = {
        {60, 60, 4, {1, 50, 10}},
        {300, 44, 3, {1, 25, 19}},
        {255, 246, 12, {1, 250, 5}},
    };
    for (const auto& [length, kept, count, last] : cases) {
        // FFh FFh: the pass ends after this entry whatever the count says.
        entries = {{AuxHeader(length, 9, true), Counting(length)}};
        s_AuxLog_entry slots[2];
        std::memset(slots, 0xEE, sizeof slots);
        EXPECT_EQ(0, ReadAll(slots, 2));
        const auto reads = Reads();
        EXPECT_EQ(count, reads.size()) << length;
        EXPECT_EQ(Read(1, 0, 0), reads.front());
        EXPECT_EQ(last, reads.back()) << length;
        EXPECT_EQ(Of(AuxSlot(AuxHeader(length, 9, true), Counting(kept))), Of(slots[0])) << length;
        EXPECT_EQ(0xEE, slots[1].data[0]) << length;
    }
    EXPECT_TRUE(host.hasLog(
        0, "The length(144) of raw data exceed the limitation of struct s_AuxLog_entry.data?"));
}

TEST_F(AuxRequest, FailuresSkipAnEntryOrEndThePass) {
    // Entry 1 has no body, so nothing is copied and its FFh FFh cannot end
    // the pass. Entry 2's header and entry 3's second chunk are lost; entry
    // 4's second chunk comes back short, which leaves a gap, not stale bytes.
    entries = {{AuxHeader(0, 1, true), {}},
               {AuxHeader(60, 2), Counting(60)},
               {AuxHeader(60, 3), Counting(60)},
               {AuxHeader(30, 4), Counting(30)}};
    replace = {{1, notSent()}, {4, notSent()}, {7, ok({0xC1, 0xA3})}};
    s_AuxLog_entry slots[4];
    EXPECT_EQ(0, ReadAll(slots, 4));
    EXPECT_EQ(2u,
              host.countLog("Failure in sending command to obtain AUX Log Read Extended Data."));
    EXPECT_EQ(Bytes(256, 0), Of(slots[0]));
    EXPECT_EQ(Bytes(256, 0), Of(slots[1]));
    EXPECT_EQ(Of(AuxSlot(AuxHeader(60, 3), Counting(25))), Of(slots[2]));
    EXPECT_EQ(Of(AuxSlot(AuxHeader(30, 4), Counting(25))), Of(slots[3]));

    replace = {{2, cc(0xC0)}};
    EXPECT_EQ(1, ReadAll(slots, 4));
    EXPECT_EQ(3u, bmc->received.size());
    EXPECT_TRUE(host.hasLog(1, "IPMI error in obtaining system event log info: Node Busy."));
}

} // namespace
} // namespace ipmisel::test
