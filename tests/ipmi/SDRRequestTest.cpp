// The SDR repository walk against a fake repository: which records become
// blocks, where the walk ends, what each piece of text holds.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "ipmi/IPMIRequestSDR.h"
#include "ipmi/IpmiConfig.h"
#include "plugin/text.h"
#include "tests/ipmi/FakeStorage.h"

namespace ipmisel {
namespace {

using namespace test;

class SDRRequest : public ::testing::Test {
  protected:
    void SetUp() override { cap.setNodes({transportFor(repo)}); }
    IPMIRequestSDR make() { return IPMIRequestSDR(NOXAQSV20::SPLibrary::GetSplibraryInstance(0)); }
    std::vector<host::IpmiRequest>& received() {
        return static_cast<FakeTransport&>(*cap.config().nodes[0]).received;
    }
    int walk() {
        auto sdr = make();
        std::memset(info, 0, sizeof info);
        return sdr.IPMIGetSDREntry(blocks, info);
    }
    // Get SDR requests for one record ID.
    size_t getSDRsFor(uint16_t id) {
        size_t n = 0;
        for (const auto& r : received()) {
            if (r.cmd == 0x23 && r.data.size() == 6 && (r.data[3] << 8 | r.data[2]) == id) {
                ++n;
            }
        }
        return n;
    }

    HostCapture cap;
    FakeRepository repo;
    std::vector<SDRTextBlock> blocks;
    char info[SDRInfoTextSize];
};

std::string piece(const char* text, size_t width) {
    return std::string(text, strnlen(text, width));
}

TEST_F(SDRRequest, SingleRecordWithNextFFFF) {
    repo.records = {fullSensor(0x0001)};
    ASSERT_EQ(0, walk());
    ASSERT_EQ(1u, blocks.size());
    EXPECT_EQ("IPMIRequestSDR::IPMIGetSDREntry() completed.", cap.logs.back().text);
    // Info is 15 bytes, no "\n".
    EXPECT_EQ(HexBytes(std::vector<uint8_t>{0x00}.data(), 1) +
                  HexBytes(repo.infoData().data(), repo.infoData().size()),
              piece(info, sizeof info));

    // The same repository with a record that is no sensor: the header is
    // read, nothing is kept.
    blocks.clear();
    repo.records = {otherRecord(0x0001, 0x12)};
    ASSERT_EQ(0, walk());
    EXPECT_TRUE(blocks.empty());
}

TEST_F(SDRRequest, EitherByteFFEndsTheWalk) {
    struct Case {
        uint16_t next;
        size_t blocks;
    };
    for (Case c : {Case{0x12FF, 1}, Case{0xFF12, 1}, Case{0xFFFF, 1}, Case{0x0002, 2}}) {
        SCOPED_TRACE(c.next);
        blocks.clear();
        repo.records = {fullSensor(0x0001), fullSensor(0x0002), fullSensor(0x12FF),
                        fullSensor(0xFF12)};
        repo.nextOverride = {{0x0001, c.next}, {0x0002, 0xFFFF}};
        ASSERT_EQ(0, walk());
        EXPECT_EQ(c.blocks, blocks.size());
        EXPECT_EQ(0u, getSDRsFor(0x12FF));
        EXPECT_EQ(0u, getSDRsFor(0xFF12));
    }
}

TEST_F(SDRRequest, OtherRecordTypesAreSteppedOver) {
    repo.records = {fullSensor(0x0001), otherRecord(0x0002, 0x11), otherRecord(0x0003, 0xC0),
                    compactSensor(0x0004, {.sensor = 0x41, .name = "Fan 2"})};
    ASSERT_EQ(0, walk());
    ASSERT_EQ(2u, blocks.size());
    EXPECT_EQ(1u, getSDRsFor(0x0002));
    EXPECT_EQ(1u, getSDRsFor(0x0003));
    EXPECT_EQ(3u, getSDRsFor(0x0004));
    // The compact record's sensor number is record byte 7, header value 11.
    EXPECT_EQ(0u, piece(blocks[1].Header(), 64).rfind("00 FF FF 04 00 51 02 ", 0));
}

TEST_F(SDRRequest, RequestBytesOfEachPiece) {
    repo.records = {fullSensor(0x0001), compactSensor(0x0002)};
    ASSERT_EQ(0, walk());
    std::vector<std::vector<uint8_t>> gets;
    for (const auto& r : received()) {
        if (r.cmd == 0x23) {
            gets.push_back(r.data);
        }
    }
    // Reservation 1234h low byte first, record ID low first, then offset and
    // count: header 0/10, units 14h/10, string 2Fh (full) or 1Fh (compact)/FFh.
    const std::vector<std::vector<uint8_t>> expected = {
        {0x34, 0x12, 0x00, 0x00, 0x00, 10},   {0x34, 0x12, 0x00, 0x00, 0x14, 10},
        {0x34, 0x12, 0x00, 0x00, 0x2F, 0xFF}, {0x34, 0x12, 0x02, 0x00, 0x00, 10},
        {0x34, 0x12, 0x02, 0x00, 0x14, 10},   {0x34, 0x12, 0x02, 0x00, 0x1F, 0xFF},
    };
    EXPECT_EQ(expected, gets);
    EXPECT_EQ(0x20, received()[0].cmd);
    EXPECT_EQ(0x22, received()[1].cmd);
}

TEST_F(SDRRequest, PiecesOfAFullRecord) {
    repo.records = {fullSensor(0x0007, {.name = "CPU 1 Temp"})};
    ASSERT_EQ(0, walk());
    ASSERT_EQ(1u, blocks.size());
    const auto& bytes = repo.records[0].bytes;
    // 13 bytes: cc, next ID, record bytes 0..9: 39 characters, the "\n" is
    // not copied.
    const std::string header = "00 FF FF " + HexBytes(bytes.data(), 10);
    EXPECT_EQ(39u, header.size());
    EXPECT_EQ(header, piece(blocks[0].Header(), 64));
    EXPECT_EQ("00 FF FF " + HexBytes(bytes.data() + 20, 10), piece(blocks[0].Units(), 96));
    EXPECT_EQ("00 FF FF " + HexBytes(bytes.data() + 47, bytes.size() - 47),
              piece(blocks[0].String(), 64));
    EXPECT_TRUE(cap.hasLog(4, "IPMIRequestSDR::IPMIGetSDRString() completed."));
    EXPECT_EQ(5u, cap.countLog("Contents of buffer to send (rspBuf):"));
}

TEST_F(SDRRequest, LongAnswersAreCutToTheirPieces) {
    repo.records = {fullSensor(0x0001)};
    // 40 data bytes after the completion code for units and string.
    repo.hook = [](const host::IpmiRequest& r, int) -> std::optional<host::IpmiResponse> {
        if (r.cmd == 0x23 && r.data[4] != 0x00) {
            std::vector<uint8_t> data(40, r.data[4] == 0x14 ? 0xAB : 0xCD);
            data[0] = 0xFF;
            data[1] = 0xFF;
            return ok(data);
        }
        return std::nullopt;
    };
    ASSERT_EQ(0, walk());
    ASSERT_EQ(1u, blocks.size());
    const SDRTextBlock& b = blocks[0];
    // Units fill all 96 characters and stop right where the string piece starts.
    EXPECT_EQ(96u, strnlen(b.Units(), 96));
    EXPECT_EQ("00 FF FF AB ", std::string(b.Units(), 12));
    EXPECT_EQ("AB ", std::string(b.Units() + 93, 3));
    EXPECT_EQ("00 FF FF CD ", std::string(b.String(), 12));
    EXPECT_EQ(64u, strnlen(b.String(), 64)); // the last piece too fills its width
    EXPECT_EQ("CD C", std::string(b.String() + 60, 4));
}

TEST_F(SDRRequest, StringShiftedOnTheConfiguredMachine) {
    repo.records = {fullSensor(0x0001)};
    std::vector<uint8_t> answer{0xFF, 0xFF};
    for (uint8_t i = 0; i < 28; ++i) {
        answer.push_back(0xE0); // the BMC's own bytes, response bytes 11..38
    }
    for (uint8_t v : {0x00, 0xFF, 0xFF, 0xC3, 0x46, 0x61, 0x6E}) {
        answer.push_back(v);
    }
    repo.hook = [&answer](const host::IpmiRequest& r, int) -> std::optional<host::IpmiResponse> {
        if (r.cmd == 0x23 && r.data[5] == 0xFF) {
            return ok(answer);
        }
        return std::nullopt;
    };

    cap.config().machineType = kShiftedSDRStringMachineType;
    ASSERT_EQ(0, walk());
    ASSERT_EQ(1u, blocks.size());
    // The count of characters copied still follows the whole answer, so the
    // shorter text arrives with its "\n".
    EXPECT_EQ("00 FF FF C3 46 61 6E \n", piece(blocks[0].String(), 64));

    // Elsewhere the same answer is text from byte 8, cut at the piece.
    cap.config().machineType = "0000";
    blocks.clear();
    ASSERT_EQ(0, walk());
    EXPECT_EQ("00 FF FF E0 E0 ", piece(blocks[0].String(), 64).substr(0, 15));
    EXPECT_EQ(64u, strnlen(blocks[0].String(), 64));
}

TEST_F(SDRRequest, FailureOnTheThirdOfFiveKeepsTwo) {
    for (uint16_t id = 1; id <= 5; ++id) {
        repo.records.push_back(fullSensor(id, {.sensor = static_cast<uint8_t>(0x30 + id)}));
    }
    repo.hook = [](const host::IpmiRequest& r, int) -> std::optional<host::IpmiResponse> {
        if (r.cmd == 0x23 && r.data[2] == 3 && r.data[4] == 0x14) {
            return cc(0xC5);
        }
        return std::nullopt;
    };
    EXPECT_EQ(1, walk());
    EXPECT_EQ(2u, blocks.size());
    EXPECT_TRUE(cap.hasLog(1, "IPMI error in obtaining sensor data record units: Reservation "
                              "Canceled or Invalid Reservation ID."));
    EXPECT_EQ(0u, getSDRsFor(4));
    EXPECT_FALSE(cap.hasLog("IPMIRequestSDR::IPMIGetSDREntry() completed."));
}

TEST_F(SDRRequest, FailureTextsOfEachRequest) {
    struct Case {
        uint8_t cmd;
        int offset; // Get SDR offset, -1 for the other commands
        const char* notSentLine;
        const char* ccLine;
        int ccSeverity;
    };
    const Case cases[] = {
        {0x20, -1, "Failure in sending command to obtain SDR info.",
         "IPMI error in obtaining sensor data record info: Node Busy.", 1},
        {0x22, -1, "Failure in sending command to reserve SDR.",
         "IPMI error in reserving sensor data record: Node Busy.", 0},
        {0x23, 0x00, "Failure in sending command to obtain SDR Header.",
         "IPMI error in obtaining sensor data record header: Node Busy.", 1},
        {0x23, 0x14, "Failure in sending command to obtain SDR Units.",
         "IPMI error in obtaining sensor data record units: Node Busy.", 1},
        {0x23, 0x2F, "Failure in sending command to obtain SDR String.",
         "IPMI error in obtaining sensor data record string: Node Busy.", 1},
    };
    repo.records = {fullSensor(0x0001)};
    for (const auto& c : cases) {
        for (bool sent : {false, true}) {
            SCOPED_TRACE(std::to_string(c.cmd) + "/" + std::to_string(c.offset) + "/" +
                         std::to_string(sent));
            cap.clear();
            blocks.clear();
            repo.hook = [&c, sent](const host::IpmiRequest& r,
                                   int) -> std::optional<host::IpmiResponse> {
                if (r.cmd == c.cmd && (c.offset < 0 || r.data[4] == c.offset)) {
                    return sent ? cc(0xC0) : notSent();
                }
                return std::nullopt;
            };
            EXPECT_EQ(1, walk());
            EXPECT_TRUE(blocks.empty());
            if (sent) {
                EXPECT_TRUE(cap.hasLog(c.ccSeverity, c.ccLine));
            } else {
                EXPECT_TRUE(cap.hasLog(0, c.notSentLine));
            }
        }
    }
}

TEST_F(SDRRequest, CircularRepositoryEndsTheWalk) {
    repo.records = {fullSensor(0x0001), fullSensor(0x0002)};
    repo.nextOverride = {{0x0002, 0x0001}};
    EXPECT_EQ(1, walk());
    EXPECT_EQ(2u, blocks.size());
    EXPECT_TRUE(cap.hasLog(1, "SDR walk stopped: record ID 0001h was already read."));
}

} // namespace
} // namespace ipmisel
