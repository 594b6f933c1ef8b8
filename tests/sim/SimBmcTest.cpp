// The simulated BMC answers like a controller: walks by next-record ID,
// reservations, read-count limits, aux-log chunks, faults and replays.
#include <gtest/gtest.h>

#include "host/sim/Builders.h"
#include "host/sim/Recording.h"
#include "host/sim/SimBmc.h"
#include "tests/support/HostFixture.h"

namespace ipmisel::sim {
namespace {

host::IpmiResponse send(SimBmc& bmc, uint8_t netfn, uint8_t cmd, std::vector<uint8_t> data = {}) {
    return bmc.send({netfn, 0, cmd, std::move(data)});
}

// Get SEL Entry and Get SDR ask alike; the answer's bytes, or its completion code.
std::string getEntry(SimBmc& bmc, uint8_t cmd, uint16_t res, uint16_t id, uint8_t offset,
                     uint8_t count) {
    auto r = send(bmc, 0x0A, cmd,
                  {uint8_t(res), uint8_t(res >> 8), uint8_t(id), uint8_t(id >> 8), offset, count});
    return r.cc ? "cc " + toHex(std::vector<uint8_t>{r.cc}) : toHex(r.data);
}

SimBmc bmcFrom(const std::string& nodeJson) {
    Scenario s = parseScenario("{\"nodes\": [" + nodeJson + "]}", "t.json");
    return SimBmc(s.nodes.at(0));
}

TEST(SimBmc, SelWalkFollowsNextRecordIdsAndPartialReadsNeedTheReservation) {
    SimBmc bmc = bmcFrom(R"({"sel": {"time": "0x65E1B1C0",
        "records": [{"id": 5, "sensorType": 7}, {"id": 9}, {"id": "0xFF10"}]}})");
    const std::string info = toHex(send(bmc, 0x0A, 0x40).data); // 14 bytes
    EXPECT_EQ(info.substr(0, 8) + " " + std::to_string(info.size()), "51 03 00 41");
    EXPECT_EQ(toHex(send(bmc, 0x0A, 0x48).data), "C0 B1 E1 65");
    // Asked ID, then the next record ID (low byte first) and the record's
    // first bytes: 0000h asks for the first record, FFFFh for the last, and
    // after the last comes FFFFh.
    const std::pair<uint16_t, const char*> steps[] = {{0x0000, "09 00 05 00 02"},
                                                      {0x0009, "10 FF 09 00 02"},
                                                      {0xFF10, "FF FF 10 FF 02"},
                                                      {0xFFFF, "FF FF 10 FF 02"},
                                                      {0x0006, "cc CB"}};
    for (const auto& [id, answer] : steps) {
        EXPECT_EQ(getEntry(bmc, 0x43, 0, id, 0, 0xFF).substr(0, 14), answer) << id;
    }
    EXPECT_EQ(getEntry(bmc, 0x43, 0, 5, 0, 0xFF).size(), 18u * 3 - 1);
    // Bytes 10 and 11 of record 5: whole-record reads need no reservation,
    // partial ones the current one.
    EXPECT_EQ(getEntry(bmc, 0x43, 0, 5, 10, 2), "cc C5");
    auto res = send(bmc, 0x0A, 0x42).data;
    EXPECT_EQ(getEntry(bmc, 0x43, uint16_t(res.at(0) | res.at(1) << 8), 5, 10, 2), "09 00 07 00");
}

TEST(SimBmc, GetSdrOffsetsCountsLimitsAndReservations) {
    SimBmc bmc = bmcFrom(R"({"sdr": {"maxReadCount": 20, "records": [
        {"full": {"number": 1, "name": "CPU 1 Temp"}},
        {"compact": {"id": "0x12FF", "number": 2, "name": "PSU"}}]}})");
    const std::string info = toHex(send(bmc, 0x0A, 0x20).data); // 14 bytes
    EXPECT_EQ(info.substr(0, 8) + " " + std::to_string(info.size()), "51 02 00 41");
    auto reserve = [&] {
        auto d = send(bmc, 0x0A, 0x22).data;
        return static_cast<uint16_t>(d.at(0) | d.at(1) << 8);
    };
    const uint16_t res = reserve();
    // Record ID, offset, count, answer (next record ID first). Reads from
    // offset 0 go without a reservation, which they do not need.
    const std::tuple<uint16_t, uint8_t, uint8_t, const char*> cases[] = {
        // Header of the first record: next ID 12FFh, then bytes 0..9.
        {0x0000, 0, 10, "FF 12 01 00 51 01 35 20 00 01 00 01"},
        // The ID string of the full record from byte 47, "rest of record".
        {0x0001, 47, 0xFF, "FF 12 CA 43 50 55 20 31 20 54 65 6D 70"},
        {0xFFFF, 31, 0xFF, "FF FF C3 50 53 55"},
        {0x0001, 0, 21, "cc CA"},                                   // above the BMC's limit
        {0x0001, 47, 20, "FF 12 CA 43 50 55 20 31 20 54 65 6D 70"}, // at it: what is left
        {0x0001, 20, 0xFF, "cc CA"}, // the rest (38 bytes) is above it too
        {0x0001, 58, 0xFF, "FF 12"},
        {0x0001, 59, 1, "cc C9"}, // past the end
    };
    for (const auto& [id, offset, count, answer] : cases) {
        EXPECT_EQ(getEntry(bmc, 0x23, offset ? res : 0, id, offset, count), answer)
            << id << "/" << int(offset) << "/" << int(count);
    }
    // A partial read needs the newest reservation.
    EXPECT_EQ(getEntry(bmc, 0x23, 0, 0, 20, 10), "cc C5");
    const uint16_t newer = reserve();
    EXPECT_NE(newer, res);
    EXPECT_EQ(getEntry(bmc, 0x23, res, 1, 20, 10), "cc C5");
    EXPECT_EQ(getEntry(bmc, 0x23, newer, 1, 20, 10).size(), 12u * 3 - 1);
}

TEST(SimBmc, SdrReservationLivesForSoManyReads) {
    SimBmc bmc = bmcFrom(R"({"sdr": {"reservationLifetime": 2, "records": [
        {"full": {"name": "A"}}]}})");
    const uint16_t res = send(bmc, 0x0A, 0x22).data.at(0);
    EXPECT_NE(getEntry(bmc, 0x23, res, 1, 20, 10), "cc C5");
    EXPECT_NE(getEntry(bmc, 0x23, res, 1, 20, 10), "cc C5");
    EXPECT_EQ(getEntry(bmc, 0x23, res, 1, 20, 10), "cc C5"); // cancelled after two
    EXPECT_NE(getEntry(bmc, 0x23, send(bmc, 0x0A, 0x22).data.at(0), 1, 47, 0xFF), "cc C5");
}

TEST(SimBmc, AuxLogStatusAndChunkedReads) {
    // 22 fixed body bytes and 38 of extended data: a 60-byte body.
    Scenario s = parseScenario(R"({"nodes": [{"auxlog": [{"recordId": 3, "extendedData": ")" +
                                   std::string(76, '7') + R"("}, {"recordId": 4}]}]})",
                               "t.json");
    SimBmc bmc(s.nodes.at(0));
    EXPECT_EQ(toHex(send(bmc, 0x0A, 0x5A, {0x01}).data), "C1 A3 00 00 00 00 00 02 00");
    const std::vector<uint8_t>& entry = s.nodes[0].auxLog.at(0).bytes;
    ASSERT_EQ(entry.size(), 70u);
    EXPECT_EQ(entry[3], 60);
    auto read = [&](uint8_t number, uint8_t offset, uint8_t length) {
        return send(bmc, 0x2E, 0x93, {0xC1, 0xA3, 0x00, number, 0, offset, 0, length, 0});
    };
    auto part = [&](std::vector<uint8_t> head, size_t from, size_t n) {
        head.insert(head.end(), entry.begin() + long(from), entry.begin() + long(from + n));
        return head;
    };
    // The header alone, then 25, 25 and 10: the first chunk carries the header,
    // later ones the manufacturer ID.
    EXPECT_EQ(read(1, 0, 0).data, part({}, 0, 10));
    EXPECT_EQ(read(1, 0, 25).data, part({}, 0, 35));
    EXPECT_EQ(read(1, 25, 25).data, part({0xC1, 0xA3, 0x00}, 35, 25));
    EXPECT_EQ(read(1, 50, 25).data, part({0xC1, 0xA3, 0x00}, 60, 10));
    EXPECT_EQ(read(2, 0, 22).data, s.nodes[0].auxLog.at(1).bytes);
    EXPECT_EQ(read(3, 0, 0).cc, 0xCB);
    EXPECT_EQ(read(1, 61, 1).cc, 0xC9);
    EXPECT_EQ(send(bmc, 0x2E, 0x93, {0x01, 0xA3, 0x00, 1, 0, 0, 0, 0, 0}).cc, 0xCC);
}

TEST(SimBmc, FruChunksI2cRegisterPointersCannedAnswersAndUnknownCommands) {
    SimBmc bmc = bmcFrom(R"({"deviceId": "20 81 05 10 02", "fruMaxReadCount": 16,
        "fru": {"2": "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 13"},
        "i2c": [{"bus": 3, "address": "0xC0", "registers": {"comment": "ID", "0x63": "4D"}},
                {"bus": 3, "address": "0xA0", "registers": "10 11 12"}],
        "oem": [{"netfn": "0x3A", "cmd": "0x6B", "data": "01", "response": "42"},
        {"netfn": "0x3A", "cmd": "0xC4", "data": "00 00 00", "prefix": true, "cc": "0xD5"},
        {"netfn": "0x3A", "cmd": "0x50", "fail": true}]})");
    // FRU: size, reads cut at the end, an offset of 100h, one byte above the limit.
    EXPECT_EQ(toHex(send(bmc, 0x0A, 0x10, {2}).data), "14 00 00");
    EXPECT_EQ(toHex(send(bmc, 0x0A, 0x11, {2, 0x00, 0x00, 4}).data), "04 00 01 02 03");
    EXPECT_EQ(toHex(send(bmc, 0x0A, 0x11, {2, 0x10, 0x00, 16}).data), "04 10 11 12 13");
    EXPECT_EQ(send(bmc, 0x0A, 0x11, {2, 0x00, 0x01, 16}).cc, 0xC9);
    EXPECT_EQ(send(bmc, 0x0A, 0x11, {2, 0x00, 0x00, 17}).cc, 0xCA);
    // Master Write-Read: a write sets the device's register pointer.
    EXPECT_EQ(toHex(send(bmc, 0x06, 0x52, {3, 0xC0, 0, 0x63}).data), "");
    EXPECT_EQ(toHex(send(bmc, 0x06, 0x52, {3, 0xC0, 1}).data), "4D");
    EXPECT_EQ(toHex(send(bmc, 0x06, 0x52, {3, 0xA0, 4, 0x01}).data), "11 12 FF FF");
    EXPECT_EQ(send(bmc, 0x06, 0x52, {3, 0x40, 1}).cc, 0x83);
    // Canned answers by exact data or prefix; anything else is unknown.
    EXPECT_EQ(toHex(send(bmc, 0x06, 0x01).data), "20 81 05 10 02");
    EXPECT_EQ(toHex(send(bmc, 0x3A, 0x6B, {0x01}).data), "42");
    EXPECT_EQ(send(bmc, 0x3A, 0x6B, {0x02}).cc, 0xC1);
    EXPECT_EQ(send(bmc, 0x3A, 0xC4, {0, 0, 0, 0x85, 'a'}).cc, 0xD5);
    EXPECT_FALSE(send(bmc, 0x3A, 0x50).sent);
    EXPECT_EQ(send(bmc, 0x04, 0x2D).cc, 0xC1);
}

TEST(SimBmc, FaultsFireAtTheNthMatchingRequest) {
    SimBmc bmc = bmcFrom(R"({"sel": {"records": [{}, {}]}, "faults": [
        {"netfn": 10, "cmd": "0x40", "nth": 2, "cc": "0xC0"},
        {"netfn": 10, "cmd": "0x43", "data": "00 00 02", "fail": true},
        {"netfn": 10, "cmd": "0x48", "nth": 2, "repeat": true, "truncate": 1},
        {"netfn": 6, "cmd": 1, "oversize": 300}]})");
    EXPECT_EQ(send(bmc, 0x0A, 0x40).cc, 0x00);
    EXPECT_EQ(send(bmc, 0x0A, 0x40).cc, 0xC0);
    EXPECT_EQ(send(bmc, 0x0A, 0x40).cc, 0x00);
    // Only the request for record 2 fails; others pass by.
    EXPECT_TRUE(send(bmc, 0x0A, 0x43, {0, 0, 1, 0, 0, 0xFF}).sent);
    EXPECT_FALSE(send(bmc, 0x0A, 0x43, {0, 0, 2, 0, 0, 0xFF}).sent);
    EXPECT_TRUE(send(bmc, 0x0A, 0x43, {0, 0, 2, 0, 0, 0xFF}).sent);
    EXPECT_EQ(send(bmc, 0x0A, 0x48).data.size(), 4u);
    EXPECT_EQ(send(bmc, 0x0A, 0x48).data.size(), 1u);
    EXPECT_EQ(bmc.requestCount(0x0A, 0x40), 3u);
    // Oversize: the whole answer (15 bytes of Device ID), then 300 bytes
    // counting 00h, 01h, ... and wrapping after FFh.
    auto longer = send(bmc, 0x06, 0x01);
    ASSERT_EQ(longer.data.size(), 315u);
    EXPECT_EQ(toHex(std::span(longer.data).first(16)),
              "20 01 01 00 02 BF C1 A3 00 00 00 00 00 00 00 00");
    EXPECT_EQ(toHex(std::span(longer.data).subspan(269, 4)), "FE FF 00 01");
    EXPECT_EQ(send(bmc, 0x06, 0x01).data.size(), 15u); // the first request only
}

TEST(SimBmc, RecordingThenReplayGivesTheSameBytesInOrder) {
    Scenario original = loadScenarioFile(test::sourceDir() + "/tests/sim/example.json");
    host::Config config;
    applyScenario(original, config);
    auto recorders = recordNodes(config);
    // Repeated requests and two reservations (different IDs) must replay in order.
    const std::vector<host::IpmiRequest> traffic = {
        {0x0A, 0, 0x43, {0, 0, 0, 0, 0, 0xFF}},
        {0x0A, 0, 0x43, {0, 0, 0, 0, 0, 0xFF}},
        {0x0A, 0, 0x22, {}},
        {0x0A, 0, 0x22, {}},
        {0x2E, 0, 0x93, {0xC1, 0xA3, 0, 1, 0, 0, 0, 0, 0}},
        {0x04, 0, 0x2D, {0x30}},
    };
    std::vector<host::IpmiResponse> live;
    for (const auto& r : traffic) {
        live.push_back(config.nodes.at(0)->send(r));
    }
    std::string path = test::writeTempFile("recorded.json", "");
    writeRecording(path, recorders, &config);

    Scenario replayed = loadScenarioFile(path);
    EXPECT_EQ(replayed.machineType, "7X12");
    EXPECT_EQ(replayed.smbios, original.smbios);
    ASSERT_EQ(replayed.nodes.size(), 1u);
    SimBmc again(replayed.nodes[0]);
    for (size_t i = 0; i < traffic.size(); ++i) {
        auto r = again.send(traffic[i]);
        EXPECT_EQ(std::tie(r.sent, r.cc, r.data), std::tie(live[i].sent, live[i].cc, live[i].data))
            << i;
    }
    EXPECT_NE(live[2].data, live[3].data);
    // Past the recorded answers the last one stands; anything never recorded is
    // unknown, since no simulated parts stand behind a replay.
    EXPECT_EQ(again.send(traffic[0]).data, live[1].data);
    EXPECT_EQ(again.send({0x0A, 0, 0x43, {0, 0, 9, 0, 0, 0xFF}}).cc, 0xC1);
    EXPECT_EQ(again.send({0x0A, 1, 0x43, {0, 0, 0, 0, 0, 0xFF}}).cc, 0xC1); // another LUN
    EXPECT_EQ(again.send({0x0A, 0, 0x43, {0, 0, 0, 0, 0}}).cc, 0xC1);       // a shorter request
}

TEST(SimBmc, ReplayOutOfOrderKeepsEachRequestsOwnSequence) {
    SimBmc bmc = bmcFrom(R"({"transcript": [
        {"netfn": 6, "cmd": 1, "data": "AA", "cc": 0, "response": "01"},
        {"netfn": 6, "cmd": 1, "data": "AA", "cc": 0, "response": "02"},
        {"netfn": 6, "cmd": 2, "cc": 0, "response": "B1"},
        {"netfn": 6, "cmd": 1, "data": "AA", "cc": 0, "response": "03"}]})");
    std::string answers;
    for (auto [cmd, data] : {std::pair<uint8_t, uint8_t>{1, 0xAA},
                             {1, 0xCC},
                             {2, 0},
                             {1, 0xAA},
                             {1, 0xAA},
                             {1, 0xAA}}) {
        auto r = send(bmc, 6, cmd, cmd == 2 ? std::vector<uint8_t>{} : std::vector<uint8_t>{data});
        answers += (r.cc ? "cc " + toHex(std::vector<uint8_t>{r.cc}) : toHex(r.data)) + ", ";
    }
    // The first in order; a request never recorded; the rest each the next
    // answer to its own request, the last one standing.
    EXPECT_EQ(answers, "01, cc C1, B1, 02, 03, 03, ");
}

} // namespace
} // namespace ipmisel::sim
