// The buffer contract of SPLibrary::sendIPMICommand against the simulated BMC:
// what the BMC sees, what is written back and that nothing lands at or past
// the capacity.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "host/framework.h"
#include "tests/support/HostFixture.h"

using namespace NOXAQSV20;
using Frame = std::array<uint8_t, 320>; // 64 canary bytes past the largest capacity

namespace {

constexpr uint8_t kCanary = 0x5A;

// A request for netfn 3Ah `cmd` with data-length bytes 5..8, canaries after it.
Frame frame(uint8_t cmd, std::array<uint8_t, 4> len = {0, 0, 0, 0}) {
    Frame b;
    b.fill(kCanary);
    const uint8_t head[] = {0x01, 0x20, 0x3A, 0x00, cmd, len[0], len[1], len[2], len[3]};
    std::copy(std::begin(head), std::end(head), b.begin());
    return b;
}

class SendCommand : public ::testing::Test {
  protected:
    void SetUp() override {
        // Command 1 answers three bytes, 3 more than any buffer, 4 fails, 2 is unknown (C1h).
        bmc = host.useScenario(R"({"nodes": [{"oem": [
            {"netfn": "0x3A", "cmd": 1, "prefix": true, "response": "11 22 33"},
            {"netfn": "0x3A", "cmd": 4, "prefix": true, "fail": true},
            {"netfn": "0x3A", "cmd": 3, "prefix": true, "response": ")" +
                               std::string(2000, 'E') + R"("}]}]})")[0];
    }
    bool send(Frame& b, int32_t capacity = 256, int node = 0) {
        length = 256;
        return SPLibrary::GetSplibraryInstance(node)->sendIPMICommand(b.data(), &length, capacity,
                                                                      true);
    }

    ipmisel::test::HostCapture host;
    std::shared_ptr<ipmisel::sim::SimBmc> bmc;
    int32_t length = 256;
};

} // namespace

TEST_F(SendCommand, RequestAndAnswerKeepTheFrameLayoutWithinTheCapacity) {
    Frame b = frame(1, {3});
    b[3] = 0x01, b[9] = 0xAA, b[10] = 0xBB, b[11] = 0xCC;
    ASSERT_TRUE(send(b));
    const auto& r = bmc->received().at(0);
    EXPECT_EQ(std::make_tuple(r.netfn, r.lun, r.cmd), std::make_tuple(0x3A, 0x01, 0x01));
    EXPECT_EQ(r.data, (std::vector<uint8_t>{0xAA, 0xBB, 0xCC}));

    // Command, data-length bytes (little endian), capacity, request data bytes
    // sent, response data bytes stored, completion code.
    const std::tuple<uint8_t, std::array<uint8_t, 4>, int32_t, size_t, int32_t, uint8_t> cases[] = {
        {1, {4, 0, 0, 0}, 256, 4, 3, 0x00}, // read big-endian it would be huge
        {1, {0xFF, 0xFF, 0xFF, 0xFF}, 256, 247, 3, 0x00},
        {2, {5, 0, 0, 0}, 256, 5, 0, 0xC1}, // a completion code alone
        {3, {5, 0x77, 0x66, 0}, 256, 247, 247, 0x00},
        {3, {5, 0, 0, 0}, 100, 5, 91, 0x00},
        {3, {5, 0, 0, 0}, 12, 3, 3, 0x00},
        {3, {0, 0, 0, 1}, 10, 1, 1, 0x00},
        {3, {5, 0, 0, 0}, 9, 0, 0, 0x00},
    };
    for (const auto& [cmd, len, capacity, sent, stored, cc] : cases) {
        SCOPED_TRACE(testing::Message() << "cmd " << int(cmd) << " capacity " << capacity);
        b = frame(cmd, len);
        ASSERT_TRUE(send(b, capacity));
        EXPECT_EQ(bmc->received().back().data.size(), sent);
        ASSERT_EQ(length, stored);
        // Bytes 5..7 stay; the completion code lands at 4 and 8, the data from 9.
        const std::vector<uint8_t> head = {0x01, 0x20, 0x3A, 0x00, cc, len[0], len[1], len[2], cc};
        EXPECT_EQ(std::vector<uint8_t>(b.begin(), b.begin() + 9), head);
        const auto want = cmd == 1 ? std::vector<uint8_t>{0x11, 0x22, 0x33}
                                   : std::vector<uint8_t>(static_cast<size_t>(stored), 0xEE);
        EXPECT_EQ(std::vector<uint8_t>(b.begin() + 9, b.begin() + 9 + stored), want);
        EXPECT_TRUE(
            std::all_of(b.begin() + 9 + stored, b.end(), [](uint8_t x) { return x == kCanary; }));
    }
}

TEST_F(SendCommand, FailuresLeaveTheBufferAsItWas) {
    // Capacities that cannot hold the request header are refused before sending.
    for (int32_t capacity : {-1, 0, 8}) {
        Frame b = frame(1);
        EXPECT_FALSE(send(b, capacity));
        EXPECT_EQ(b, frame(1));
        EXPECT_EQ(length, 256);
    }
    EXPECT_TRUE(bmc->received().empty());
    Frame b = frame(4);
    EXPECT_FALSE(send(b));
    EXPECT_FALSE(send(b, 256, 1)); // a node without a transport
    EXPECT_EQ(b, frame(4));
    EXPECT_FALSE(SPLibrary::GetSplibraryInstance(0)->sendIPMICommand(nullptr, &length, 256, true));
    EXPECT_FALSE(SPLibrary::GetSplibraryInstance(0)->sendIPMICommand(b.data(), nullptr, 256, true));
    // A transport that throws is a failed send, never an exception in the plug-in.
    host.setNodes({std::make_shared<ipmisel::test::FakeTransport>(
        [](const auto&) -> ipmisel::host::IpmiResponse { throw std::runtime_error("down"); })});
    EXPECT_FALSE(send(b));
    EXPECT_EQ(b, frame(4));
}
