// A BMC that stops answering in the middle of the SEL walk: OpenIPMI's
// ipmi_sim behind a UDP relay in this test that passes a set number of Get
// SEL Entry answers and then drops every packet, as a BMC that hangs or a
// network that goes away does. The node must end within one --timeout (the
// transport's retransmits happen inside it), with one error line, and what
// was read before must still be reported.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <thread>

#include "host/sim/Builders.h"
#include "tests/e2e/Processes.h"

namespace ipmisel::resources {
namespace {

using Clock = std::chrono::steady_clock;
using e2e::Bytes;
using e2e::IpmiSim;
using e2e::json;

// Passes UDP packets between the collector and a BMC on 127.0.0.1. With
// `stopAfter` set, once that many Get SEL Entry answers have gone to the
// collector, nothing more goes either way. The session must use cipher suite
// 0 (no encryption), so that the relay can read which command an answer is.
class Relay {
  public:
    explicit Relay(uint16_t bmcPort, std::optional<int> stopAfter = std::nullopt)
        : stopAfter_(stopAfter) {
        front_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        back_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in a{
            .sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(0x7F000001)}, .sin_zero = {}};
        socklen_t size = sizeof a;
        if (::bind(front_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
            ::getsockname(front_, reinterpret_cast<sockaddr*>(&a), &size) != 0) {
            throw std::runtime_error("relay: no port");
        }
        port_ = ntohs(a.sin_port);
        a.sin_port = htons(bmcPort);
        if (::connect(back_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
            throw std::runtime_error("relay: cannot reach the BMC");
        }
        thread_ = std::thread([this] { run(); });
    }
    ~Relay() {
        quit_ = true;
        thread_.join();
        ::close(front_);
        ::close(back_);
    }
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    std::string hostArg() const { return "127.0.0.1:" + std::to_string(port_); }
    // When the first packet was dropped.
    std::optional<Clock::time_point> firstDrop() const {
        std::lock_guard lock(mutex_);
        return firstDrop_;
    }
    // When the collector sent its first packet at or after `t`.
    std::optional<Clock::time_point> firstRequestFrom(Clock::time_point t) const {
        std::lock_guard lock(mutex_);
        auto it = std::lower_bound(requests_.begin(), requests_.end(), t);
        return it == requests_.end() ? std::nullopt : std::optional(*it);
    }

  private:
    // An IPMI 2.0 session packet, not encrypted, carrying a Get SEL Entry
    // answer with completion code 00h: RMCP header (4 bytes), authentication
    // type 06h, payload type 00h, session ID, sequence number, payload
    // length (10 bytes), then the message: requester's address, netfn 0Bh
    // (storage response) with the LUN, checksum, responder's address,
    // sequence, command 43h, completion code.
    static bool isSelEntryAnswer(const uint8_t* p, ssize_t n) {
        return n > 22 && p[4] == 0x06 && p[5] == 0x00 && (p[17] >> 2) == 0x0B && p[21] == 0x43 &&
               p[22] == 0x00;
    }
    void run() {
        sockaddr_in client{};
        socklen_t clientSize = 0;
        uint8_t packet[2048];
        pollfd fds[2] = {{front_, POLLIN, 0}, {back_, POLLIN, 0}};
        while (!quit_) {
            if (::poll(fds, 2, 20) <= 0) {
                continue;
            }
            const auto now = Clock::now();
            if (fds[0].revents & POLLIN) {
                clientSize = sizeof client;
                ssize_t n = ::recvfrom(front_, packet, sizeof packet, 0,
                                       reinterpret_cast<sockaddr*>(&client), &clientSize);
                std::lock_guard lock(mutex_);
                requests_.push_back(now);
                if (stopped_) {
                    firstDrop_ = firstDrop_.value_or(now);
                } else if (n > 0) {
                    ::send(back_, packet, static_cast<size_t>(n), 0);
                }
            }
            if (fds[1].revents & POLLIN) {
                ssize_t n = ::recv(back_, packet, sizeof packet, 0);
                if (n > 0 && !stopped_ && clientSize > 0) {
                    ::sendto(front_, packet, static_cast<size_t>(n), 0,
                             reinterpret_cast<sockaddr*>(&client), clientSize);
                    answers_ += isSelEntryAnswer(packet, n);
                    stopped_ = stopAfter_ && answers_ >= *stopAfter_;
                }
            }
        }
    }

    std::optional<int> stopAfter_;
    int front_ = -1, back_ = -1;
    uint16_t port_ = 0;
    int answers_ = 0;
    bool stopped_ = false;
    std::atomic<bool> quit_ = false;
    mutable std::mutex mutex_;
    std::optional<Clock::time_point> firstDrop_;
    std::vector<Clock::time_point> requests_;
    std::thread thread_;
};

// Records 1..n, a minute apart, cycling through events of the sensors in
// tests/e2e/bmc/bmc.emu; all from the BMC (generator 20h), so all are kept.
std::vector<Bytes> selOf(int n) {
    constexpr uint32_t kT0 = 1718092800; // 2024-06-11 08:00:00 UTC
    struct Event {
        uint8_t sensorType, number, eventType;
        std::array<uint8_t, 3> data;
    };
    const Event events[] = {{0x01, 0x30, 0x01, {0x59, 92, 90}},
                            {0x04, 0x20, 0x01, {0x52, 8, 10}},
                            {0x08, 0x50, 0x6F, {1, 255, 255}},
                            {0x0C, 0x52, 0x6F, {0, 255, 255}}};
    std::vector<Bytes> sel;
    for (int id = 1; id <= n; ++id) {
        const Event& e = events[id % 4];
        sel.push_back(sim::selRecord({.id = static_cast<uint16_t>(id),
                                      .timestamp = kT0 + 60u * static_cast<uint32_t>(id),
                                      .sensorType = e.sensorType,
                                      .sensorNumber = e.number,
                                      .eventType = e.eventType,
                                      .data = e.data}));
    }
    return sel;
}

struct Patience {
    int timeoutSeconds, retries;
};

class StalledBmc : public ::testing::TestWithParam<Patience> {};

TEST_P(StalledBmc, EndsTheNodeWithinOneTimeoutAndKeepsWhatWasRead) {
    if (std::string why = e2e::missingTool({"ipmi_sim"}); !why.empty()) {
        GTEST_SKIP() << why;
    }
    constexpr int kRecords = 300, kAnswered = 120;
    const int timeoutSeconds = GetParam().timeoutSeconds;
    const std::vector<Bytes> sel = selOf(kRecords);
    IpmiSim sim(sel);
    // Node 1 stops answering after 120 entries; node 2 is the same BMC
    // through a relay that passes everything, and its first packet after the
    // stop tells when the collector gave node 1 up.
    Relay stalling(sim.port(), kAnswered), passing(sim.port());
    const e2e::RunResult run =
        e2e::runProgram({e2e::kCollector, "--host", stalling.hostArg(), "--host", passing.hostArg(),
                         "--user", IpmiSim::kUser, "--password-file",
                         test::writeTempFile("pw", std::string(IpmiSim::kPassword) + "\n"),
                         "--cipher-suite", "0", "--timeout", std::to_string(timeoutSeconds),
                         "--retries", std::to_string(GetParam().retries), "--class",
                         "OXASG_IPMILogRecord", "--format", "jsonl"});

    EXPECT_EQ(run.code, 6) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    EXPECT_TRUE(run.err.starts_with("ipmisel-collect: node 1 (lanplus " + stalling.hostArg() +
                                    "): the BMC stopped answering"))
        << run.err;

    // One timeout from the first lost packet to node 2's first one: the
    // request's resends lie within it, and no later request to node 1 waits
    // again; nor does it give up before the time the user allowed. The
    // slack covers a busy machine. A second wait takes 4 s with either
    // setting, and so does libfreeipmi handed the timeout and timeout / 3
    // for two retries (4/3 of the timeout).
    const auto stop = stalling.firstDrop();
    ASSERT_TRUE(stop) << "the relay dropped nothing";
    const auto next = passing.firstRequestFrom(*stop);
    ASSERT_TRUE(next) << "node 2 was never asked";
    const double waited = std::chrono::duration<double>(*next - *stop).count();
    EXPECT_GE(waited, timeoutSeconds - 0.1);
    EXPECT_LE(waited, timeoutSeconds + 0.75);

    // Node 1's records up to the stop, node 2's all, each with its bytes.
    std::vector<Bytes> nodeOne, nodeTwo;
    for (const json& record : e2e::instancesOf(run.out, "OXASG_IPMILogRecord")) {
        (record["SourceNode"] == "1" ? nodeOne : nodeTwo).push_back(record["RawData"].get<Bytes>());
    }
    ASSERT_EQ(nodeOne.size(), size_t{kAnswered});
    ASSERT_EQ(nodeTwo.size(), size_t{kRecords});
    EXPECT_EQ(nodeOne, std::vector<Bytes>(sel.begin(), sel.begin() + kAnswered));
    EXPECT_EQ(nodeTwo, sel);
}

INSTANTIATE_TEST_SUITE_P(Settings, StalledBmc, ::testing::Values(Patience{2, 1}, Patience{3, 2}),
                         [](const ::testing::TestParamInfo<Patience>& p) {
                             return std::to_string(p.param.timeoutSeconds) + "sWith" +
                                    std::to_string(p.param.retries) + "Retries";
                         });

} // namespace
} // namespace ipmisel::resources
