// The buffer contract of SPLibrary::sendIPMICommand: what the transport sees,
// what is written back and that nothing lands at or past the capacity.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "host/framework.h"
#include "tests/support/HostFixture.h"

using namespace NOXAQSV20;
using ipmisel::host::IpmiRequest;
using ipmisel::host::IpmiResponse;
using ipmisel::test::FakeTransport;
using ipmisel::test::HostCapture;

namespace {

constexpr size_t kSlack = 64; // bytes after the capacity that must stay untouched
constexpr uint8_t kCanary = 0x5A;

// A Get SEL Time request followed by canary bytes up to 256 + kSlack.
struct Buffer {
    std::array<uint8_t, 256 + kSlack> bytes;
    Buffer() {
        bytes.fill(kCanary);
        const uint8_t head[] = {0x01, 0x20, 0x0A, 0x00, 0x48, 0x00, 0x00, 0x00, 0x00};
        std::copy(std::begin(head), std::end(head), bytes.begin());
    }
    void setDataLength(uint8_t b5, uint8_t b6 = 0, uint8_t b7 = 0, uint8_t b8 = 0) {
        bytes[5] = b5;
        bytes[6] = b6;
        bytes[7] = b7;
        bytes[8] = b8;
    }
    bool untouchedFrom(size_t from) const {
        return std::all_of(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end(),
                           [](uint8_t b) { return b == kCanary; });
    }
};

class SendCommand : public ::testing::Test {
  protected:
    void SetUp() override {
        fake = std::make_shared<FakeTransport>([this](const IpmiRequest&) { return answer; });
        host.setNodes({fake});
    }
    bool send(Buffer& b, int32_t capacity = 256) {
        length = 256;
        return SPLibrary::GetSplibraryInstance(0)->sendIPMICommand(b.bytes.data(), &length,
                                                                   capacity, true);
    }

    HostCapture host;
    std::shared_ptr<FakeTransport> fake;
    IpmiResponse answer = ipmisel::test::ok({});
    int32_t length = 256;
};

} // namespace

TEST_F(SendCommand, RequestIsReadFromTheFrame) {
    Buffer b;
    b.bytes[2] = 0x2E;
    b.bytes[3] = 0x01;
    b.bytes[4] = 0x99;
    b.setDataLength(3);
    b.bytes[9] = 0xAA;
    b.bytes[10] = 0xBB;
    b.bytes[11] = 0xCC;
    ASSERT_TRUE(send(b));
    ASSERT_EQ(fake->received.size(), 1u);
    const IpmiRequest& r = fake->received[0];
    EXPECT_EQ(r.netfn, 0x2E);
    EXPECT_EQ(r.lun, 0x01);
    EXPECT_EQ(r.cmd, 0x99);
    EXPECT_EQ(r.data, (std::vector<uint8_t>{0xAA, 0xBB, 0xCC}));
}

TEST_F(SendCommand, DataLengthIsLittleEndianAndClampedToTheBuffer) {
    struct Case {
        std::array<uint8_t, 4> lengthBytes;
        int32_t capacity;
        size_t expected;
    } cases[] = {
        {{4, 0, 0, 0}, 256, 4},   // read big-endian it would be huge
        {{0, 1, 0, 0}, 256, 247}, // 256 bytes asked, 247 fit after byte 9
        {{0xFF, 0xFF, 0xFF, 0xFF}, 256, 247},
        {{0, 0, 0, 1}, 256, 247},
        {{5, 0, 0, 0}, 12, 3},
        {{5, 0, 0, 0}, 9, 0},
    };
    for (const auto& c : cases) {
        fake->received.clear();
        Buffer b;
        b.setDataLength(c.lengthBytes[0], c.lengthBytes[1], c.lengthBytes[2], c.lengthBytes[3]);
        ASSERT_TRUE(send(b, c.capacity));
        ASSERT_EQ(fake->received.size(), 1u);
        EXPECT_EQ(fake->received[0].data.size(), c.expected) << "capacity " << c.capacity;
    }
}

TEST_F(SendCommand, ResponseLandsAtFourEightAndNine) {
    answer = ipmisel::test::ok({0x11, 0x22, 0x33});
    Buffer b;
    b.setDataLength(0, 0x77, 0x66, 0x55); // bytes 6 and 7 must survive
    b.bytes[5] = 0;
    ASSERT_TRUE(send(b));
    EXPECT_EQ(length, 3);
    EXPECT_EQ(b.bytes[0], 0x01);
    EXPECT_EQ(b.bytes[1], 0x20);
    EXPECT_EQ(b.bytes[2], 0x0A);
    EXPECT_EQ(b.bytes[3], 0x00);
    EXPECT_EQ(b.bytes[4], 0x00);
    EXPECT_EQ(b.bytes[5], 0x00);
    EXPECT_EQ(b.bytes[6], 0x77);
    EXPECT_EQ(b.bytes[7], 0x66);
    EXPECT_EQ(b.bytes[8], 0x00);
    EXPECT_EQ(b.bytes[9], 0x11);
    EXPECT_EQ(b.bytes[10], 0x22);
    EXPECT_EQ(b.bytes[11], 0x33);
    EXPECT_TRUE(b.untouchedFrom(12));
}

TEST_F(SendCommand, CompletionCodeAloneIsAZeroLengthAnswer) {
    answer = ipmisel::test::cc(0xC1);
    Buffer b;
    ASSERT_TRUE(send(b));
    EXPECT_EQ(length, 0);
    EXPECT_EQ(b.bytes[4], 0xC1);
    EXPECT_EQ(b.bytes[8], 0xC1);
    EXPECT_TRUE(b.untouchedFrom(9));
}

TEST_F(SendCommand, OversizedAnswerIsCutAtTheCapacity) {
    struct Case {
        int32_t capacity;
        int32_t expectedLength;
    } cases[] = {{256, 247}, {100, 91}, {10, 1}, {9, 0}};
    answer = ipmisel::test::ok(std::vector<uint8_t>(1000, 0xEE));
    for (const auto& c : cases) {
        Buffer b;
        ASSERT_TRUE(send(b, c.capacity));
        EXPECT_EQ(length, c.expectedLength);
        const auto cap = static_cast<size_t>(c.capacity);
        EXPECT_TRUE(std::all_of(b.bytes.begin() + 9, b.bytes.begin() + static_cast<long>(cap),
                                [](uint8_t x) { return x == 0xEE; }));
        EXPECT_TRUE(b.untouchedFrom(cap)) << "capacity " << c.capacity;
    }
}

TEST_F(SendCommand, FailuresLeaveTheBufferAsItWas) {
    answer = ipmisel::test::ok({1, 2, 3});
    // Capacities that cannot hold the request header are refused before sending.
    for (int32_t capacity : {-256, -1, 0, 5, 8}) {
        Buffer b;
        const auto before = b.bytes;
        EXPECT_FALSE(send(b, capacity));
        EXPECT_EQ(b.bytes, before);
        EXPECT_EQ(length, 256);
    }
    EXPECT_TRUE(fake->received.empty());

    answer = ipmisel::test::notSent();
    Buffer b;
    const auto before = b.bytes;
    EXPECT_FALSE(send(b));
    EXPECT_EQ(b.bytes, before);

    int32_t len = 256;
    EXPECT_FALSE(SPLibrary::GetSplibraryInstance(0)->sendIPMICommand(nullptr, &len, 256, true));
    EXPECT_FALSE(
        SPLibrary::GetSplibraryInstance(0)->sendIPMICommand(b.bytes.data(), nullptr, 256, true));
}

TEST_F(SendCommand, ThrowingTransportIsAFailedSend) {
    host.setNodes({std::make_shared<FakeTransport>(
        [](const IpmiRequest&) -> IpmiResponse { throw std::runtime_error("link down"); })});
    Buffer b;
    EXPECT_FALSE(send(b));
}

TEST(SPLibraryInstances, OnePerNodeAndNodesWithoutTransportFail) {
    HostCapture host;
    host.setNodes({std::make_shared<FakeTransport>(
        [](const IpmiRequest&) { return ipmisel::test::ok({7}); })});
    SPLibrary* node0 = SPLibrary::GetSplibraryInstance(0);
    SPLibrary* node1 = SPLibrary::GetSplibraryInstance(1);
    ASSERT_NE(node0, nullptr);
    ASSERT_NE(node1, nullptr);
    EXPECT_EQ(node0, SPLibrary::GetSplibraryInstance(0));
    EXPECT_NE(node0, node1);
    EXPECT_EQ(node1->Node(), 1);
    EXPECT_EQ(node0->GetNumberBMCNode(), 1);
    EXPECT_EQ(SPLibrary::GetSplibraryInstance(-1), nullptr);

    Buffer b;
    int32_t len = 256;
    EXPECT_TRUE(node0->sendIPMICommand(b.bytes.data(), &len, 256, true));
    EXPECT_FALSE(node1->sendIPMICommand(b.bytes.data(), &len, 256, true));

    host.config().libraryAvailable = false;
    EXPECT_EQ(SPLibrary::GetSplibraryInstance(0), nullptr);
}

TEST(SPLibraryInstances, PlatformFactsComeFromTheConfiguration) {
    HostCapture host;
    host.config().driverPresent = false;
    host.config().iBMC = true;
    SPLibrary* lib = SPLibrary::GetSplibraryInstance(0);
    ASSERT_NE(lib, nullptr);
    EXPECT_FALSE(lib->IsIPMIDriversPresent());
    EXPECT_TRUE(lib->IsiBMCMachine());
    EXPECT_EQ(lib->GetNumberBMCNode(), 0);
}
