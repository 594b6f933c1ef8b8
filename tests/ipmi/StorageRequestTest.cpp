// The storage requests against the simulated BMC: Get SEL Info and the Get
// SEL Entry walk into slots, the SDR repository walk into text blocks.
// Faults and canned answers stand for what a well-behaved BMC never sends.
// The simulated BMC's first SDR reservation is 0001h: Get SDR data starts "01 00".
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "base/text.h"
#include "ipmi/IPMIRequestSDR.h"
#include "ipmi/IPMIRequestSEL.h"
#include "ipmi/IpmiConfig.h"
#include "tests/support/HostFixture.h"

namespace ipmisel {
namespace {

std::string hexRun(size_t n, uint8_t byte) {
    return HexBytes(std::vector<uint8_t>(n, byte).data(), n);
}
std::string piece(const char* text, size_t width) {
    return std::string(text, strnlen(text, width));
}
// A fault on netfn 0Ah `cmd`: "what" is "cc": .. or "fail": true, maybe "nth".
std::string fault(int cmd, const std::string& what) {
    return R"("faults": [{"netfn": 10, "cmd": )" + std::to_string(cmd) + ", " + what + "}]";
}
// A canned answer to netfn 0Ah `cmd` with exactly this data.
std::string canned(int cmd, const std::string& data, const std::string& response) {
    return R"({"netfn": 10, "cmd": )" + std::to_string(cmd) + R"(, "data": ")" + data +
           R"(", "response": ")" + response + "\"}";
}

class Storage : public ::testing::Test {
  protected:
    // Node 0 answers from this node's JSON.
    void use(const std::string& node) {
        cap.clear();
        bmc = cap.useScenario(R"({"nodes": [{)" + node + "}]}")[0];
    }
    IPMIRequestSEL sel() { return IPMIRequestSEL(NOXAQSV20::SPLibrary::GetSplibraryInstance(0)); }
    // Slot i: cc, next record ID, the 16 bytes, no "\n".
    std::string slot(size_t i) {
        const auto& r = bmc->setup().selRecords;
        const uint8_t head[3] = {0, r[i + 1][0], r[i + 1][1]};
        return HexBytes(head, 3) + HexBytes(r[i].data(), 16);
    }
    int walkSDR() {
        blocks.clear();
        IPMIRequestSDR sdr(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));
        return sdr.IPMIGetSDREntry(blocks, info);
    }
    uint32_t getSDRs() { return bmc->requestCount(0x0A, 0x23); }
    test::HostCapture cap;
    std::shared_ptr<sim::SimBmc> bmc;
    std::vector<SDRTextBlock> blocks;
    char info[SDRInfoTextSize] = {};
};

// ---- SEL -------------------------------------------------------------------------

TEST_F(Storage, SELInfoAndAWalkPastTheSlotsUntilANextIDWithHighByteFF) {
    use(R"("sel": {"reportedCount": 4660, "records": [{"id": "0x0102"}, {"id": "0x0A0B"},
                                                     {"id": 3}, {"id": "0xFF10"}]})");
    uint32_t count = 7;
    ASSERT_EQ(0, sel().IPMIGetSELInfo(count));
    EXPECT_EQ(0x1234u, count);
    EXPECT_TRUE(
        cap.hasLog(4, "IPMIGetSELInfo::tempbuf = 00 51 34 12 B0 FF 00 00 00 00 00 00 00 00 02 \n"));
    // Two slots on the heap: a store past them shows in the sanitizer build.
    auto slots = std::make_unique<SELEntryText[]>(2);
    ASSERT_EQ(0, sel().IPMIGetSELEntry(slots.get(), 2));
    ASSERT_EQ(4u, bmc->received().size());
    EXPECT_EQ(slot(0), slots[0].text); // 57 characters, the "\n" fell off the slot
    EXPECT_EQ(slot(1), slots[1].text);
    EXPECT_TRUE(cap.hasLog(4, "buffer[2].data = " + slot(2))); // read and logged, not stored
    // No reservation, record ID low then high, offset 0, the whole record.
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 0x00, 0x00, 0, 0xFF}), bmc->received()[1].data);
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 0x0B, 0x0A, 0, 0xFF}), bmc->received()[2].data);
    // No slot array at all (Get SEL Info said empty): read and logged only.
    EXPECT_EQ(0, sel().IPMIGetSELEntry(nullptr, 5));
}

TEST_F(Storage, SELFailuresAndOddAnswers) {
    const std::string four = R"("sel": {"records": [{}, {}, {}, {}]}, )";
    const std::string info = "IPMI error in obtaining system event log info: ";
    const std::string entry = "IPMI error in obtaining system event log entry: ";
    const std::string erasing = "Cannot execute command, SEL erase in progress.\n";
    const struct {
        std::string node;
        bool info; // Get SEL Info, else the walk into four slots
        int rc, severity;
        std::string line;
        size_t stored;
    } cases[] = {
        {R"("sel": {"version": 2})", true, 1, 0,
         "The SEL Version does not match the Current IPMI Version\n", 0},
        {fault(64, R"("fail": true)"), true, 1, 0, "Failure in sending command to obtain SEL info.",
         0},
        {fault(64, R"("cc": 129)"), true, 1, 1, info + erasing, 0},
        {R"("sel": {})", false, 1, 1, entry + "Requested Sensor, data, or record not present.", 0},
        {four + fault(67, R"("fail": true)"), false, 1, 0,
         "Failure in sending command to obtain SEL Entry.", 0},
        {four + fault(67, R"("nth": 3, "cc": 129)"), false, 1, 1, entry + erasing, 2},
        // A send that fails later ends the walk quietly as a success.
        {four + fault(67, R"("nth": 3, "fail": true)"), false, 0, 4,
         "Failure in sending command to obtain SEL entry.\n", 2},
        // Too short to carry a next record ID: the walk ends, the text keeps its "\n".
        {four + fault(67, R"("truncate": 1)"), false, 0, 4, "buffer[0].data = 00 02 \n", 1},
        // Record 2 points back at record 1.
        {four + R"("oem": [)" + canned(67, "00 00 02 00 00 FF", "01 00 02 00") + "]", false, 0, 1,
         "SEL walk stopped: record ID 0001h was already read.", 2},
        // Far longer than a record: cut to its slot, the next slot untouched.
        {R"("oem": [)" + canned(67, "00 00 00 00 00 FF", hexRun(200, 0xFF)) + "]", false, 0, 4,
         "buffer[0].data = 00 " + hexRun(18, 0xFF), 1},
    };
    for (const auto& c : cases) {
        use(c.node);
        std::vector<SELEntryText> slots(4, SELEntryText{});
        uint32_t count = 0;
        EXPECT_EQ(c.rc,
                  c.info ? sel().IPMIGetSELInfo(count) : sel().IPMIGetSELEntry(slots.data(), 4))
            << c.line;
        EXPECT_TRUE(cap.hasLog(c.severity, c.line)) << c.line;
        EXPECT_EQ(c.rc == 0, cap.logContains("() completed.")) << c.line;
        for (size_t i = 0; i < 4; ++i) {
            EXPECT_EQ(i < c.stored, slots[i].text[0] != '\0') << c.line << i;
        }
    }
}

TEST(SELSlotBytes, NeverOverflows) {
    const uint64_t most = SIZE_MAX / 58;
    EXPECT_EQ(static_cast<size_t>(most) * 58, SELSlotBytes(most));
    EXPECT_EQ(SIZE_MAX, SELSlotBytes(most + 1));
}

// ---- SDR -------------------------------------------------------------------------

TEST_F(Storage, SDRWalkEndsOnEitherByteFFOrARecordReadBefore) {
    const std::string first = R"("sdr": {"records": [{"full": {}})";
    const struct {
        std::string node;
        int rc;
        size_t blocks;
    } cases[] = {
        {first + "]}", 0, 1},
        {first + R"(, {"full": {"id": "0x12FF"}}]})", 0, 1},
        {first + R"(, {"full": {"id": "0xFF12"}}]})", 0, 1},
        // Record 2's header points back at record 1.
        {first + R"(, {"full": {}}]}, "oem": [)" +
             canned(35, "01 00 02 00 00 0A", "01 00 02 00 51 01 00 00 00 00 00 00") + "]",
         1, 2},
    };
    for (const auto& c : cases) {
        use(c.node);
        EXPECT_EQ(c.rc, walkSDR()) << c.node;
        EXPECT_EQ(c.blocks, blocks.size()) << c.node;
        EXPECT_EQ(3 * c.blocks, getSDRs()); // nothing asked of a record ID with an FFh byte
        EXPECT_EQ(c.rc == 1, cap.hasLog(1, "SDR walk stopped: record ID 0001h was already read."));
    }
}

TEST_F(Storage, SDRPiecesOfEachRecordType) {
    use(R"("sdr": {"records": [{"full": {"id": 7, "number": 48, "name": "CPU 1 Temp"}},
        {"fruLocator": {"name": "Board"}}, {"compact": {"number": 65, "name": "Fan 2"}}]})");
    ASSERT_EQ(0, walkSDR());
    ASSERT_EQ(2u, blocks.size());
    EXPECT_EQ(7u, getSDRs());                        // the locator's header only
    EXPECT_EQ(45u, piece(info, sizeof info).size()); // info: 15 bytes, no "\n"
    // After cc and next record ID: record bytes 0..9 (39 characters), 20..29
    // and the rest from the ID string's type/length byte, 47 (full) or 31
    // (compact). Reservation and record IDs go low byte first, or the BMC
    // refuses them.
    const auto& full = bmc->setup().sdrRecords[0];
    const auto& compact = bmc->setup().sdrRecords[2];
    EXPECT_EQ("00 08 00 " + HexBytes(full.data(), 10), piece(blocks[0].Header(), 64));
    EXPECT_EQ("00 08 00 " + HexBytes(full.data() + 20, 10), piece(blocks[0].Units(), 96));
    EXPECT_EQ("00 08 00 " + HexBytes(full.data() + 47, full.size() - 47),
              piece(blocks[0].String(), 64));
    EXPECT_EQ("00 FF FF " + HexBytes(compact.data(), 10), piece(blocks[1].Header(), 64));
    EXPECT_EQ("00 FF FF " + HexBytes(compact.data() + 31, compact.size() - 31),
              piece(blocks[1].String(), 64));
}

TEST_F(Storage, SDRLongAnswersAreCutToTheirPiecesAndTheShiftedString) {
    // 40 bytes for the units; for the string 28 bytes of the BMC's own
    // (response bytes 11..38) ahead of the string text.
    const std::string node =
        R"("sdr": {"records": [{"full": {}}]}, "oem": [)" +
        canned(35, "01 00 00 00 14 0A", "FF FF " + hexRun(38, 0xAB)) + "," +
        canned(35, "01 00 00 00 2F FF", "FF FF " + hexRun(28, 0xE0) + "00 FF FF C3 46 61 6E") + "]";
    use(node);
    ASSERT_EQ(0, walkSDR());
    ASSERT_EQ(1u, blocks.size());
    // Units fill all 96 characters and stop right where the string piece starts.
    EXPECT_EQ("00 FF FF AB ", std::string(blocks[0].Units(), 12));
    EXPECT_EQ("AB ", std::string(blocks[0].Units() + 93, 3));
    EXPECT_EQ("00 FF FF E0 ", std::string(blocks[0].String(), 12));
    EXPECT_EQ(64u, strnlen(blocks[0].String(), 64)); // the last piece too fills its width
    // The machine that shifts the string: the count of characters copied still
    // follows the whole answer, so the shorter text arrives with its "\n".
    use(node);
    cap.config().machineType = kShiftedSDRStringMachineType;
    ASSERT_EQ(0, walkSDR());
    EXPECT_EQ("00 FF FF C3 46 61 6E \n", piece(blocks[0].String(), 64));
}

TEST_F(Storage, SDRFailureTextsOfEachRequest) {
    // Get SDR data to fail on, what the sending failure names, what the
    // completion-code error names, its severity.
    const struct {
        int cmd;
        const char *data, *notSent, *subject;
        int severity;
    } cases[] = {
        {0x20, "", "obtain SDR info.", "obtaining sensor data record info", 1},
        {0x22, "", "reserve SDR.", "reserving sensor data record", 0},
        {0x23, "01 00 00 00 00", "obtain SDR Header.", "obtaining sensor data record header", 1},
        {0x23, "01 00 00 00 14", "obtain SDR Units.", "obtaining sensor data record units", 1},
        {0x23, "01 00 00 00 2F", "obtain SDR String.", "obtaining sensor data record string", 1},
    };
    for (const auto& c : cases) {
        for (bool sent : {false, true}) {
            use(R"("sdr": {"records": [{"full": {}}]}, )" +
                fault(c.cmd, R"("data": ")" + std::string(c.data) +
                                 (sent ? R"(", "cc": "0xC0")" : R"(", "fail": true)")));
            EXPECT_EQ(1, walkSDR());
            EXPECT_TRUE(blocks.empty());
            EXPECT_TRUE(
                sent ? cap.hasLog(c.severity,
                                  "IPMI error in " + std::string(c.subject) + ": Node Busy.")
                     : cap.hasLog(0, "Failure in sending command to " + std::string(c.notSent)))
                << c.subject << sent;
        }
    }
}

} // namespace
} // namespace ipmisel
