// The FRU locator walk and Read FRU Data against the simulated BMC.
#include <gtest/gtest.h>

#include <memory>
#include <tuple>

#include "fru/IPMIRequestFRULocator.h"
#include "host/sim/SimBmc.h"
#include "tests/fru/FRUTestSupport.h"

namespace ipmisel::test {
namespace {

// The first `nth` request of `cmd` fails: completion code `cc`, or (0) nothing sent.
sim::Fault Fail(uint8_t cmd, uint32_t nth, uint8_t cc) {
    using A = sim::Fault::Action;
    return {0x0A, cmd, nth, false, cc ? A::CompletionCode : A::SendFailure, cc, 0, {}};
}

class LocatorRequest : public ::testing::Test {
  protected:
    void Node(sim::NodeSetup setup) {
        bmc = std::make_shared<sim::SimBmc>(std::move(setup));
        host.setNodes({bmc});
    }
    // The ID strings found, "|"-joined.
    std::string Walk(int expected = 0) {
        found.clear();
        EXPECT_EQ(expected, request.IPMIGetSDREntry(found));
        std::string names;
        for (const auto& l : found) {
            names += (names.empty() ? "" : "|") + l.idString;
        }
        return names;
    }
    // Get SDR requests as " record:offset+count" (all with reservation 0001h,
    // low byte first), Read FRU Data requests as " device:offset+count".
    std::string Requests(uint8_t cmd) const {
        std::string out;
        for (const auto& [netfn, lun, c, d] : bmc->received()) {
            const bool sdr = c == 0x23;
            EXPECT_TRUE(!sdr || (d[0] == 1 && d[1] == 0));
            char text[32];
            if (c == cmd &&
                std::snprintf(text, sizeof text, " %d:%d+%d", sdr ? d[2] | d[3] << 8 : d[0],
                              sdr ? d[4] : d[1] | d[2] << 8, d[sdr ? 5 : 3]) > 0) {
                out += text;
            }
        }
        return out;
    }
    HostCapture host;
    std::shared_ptr<sim::SimBmc> bmc;
    IPMIRequestFRULocator request{NOXAQSV20::SPLibrary::GetSplibraryInstance(0)};
    std::vector<IPMIFRULocator> found;
};

TEST_F(LocatorRequest, WalkKeepsEveryFRULocatorInRepositoryOrder) {
    Node({.sdrRecords = {Sensor(1, "Temp"), Locator(2, 3, "Mainboard"),
                         Locator(3, 0x12, "PSU", false), Sensor(4, "Fan"), Locator(5, 0, "CPU")}});
    ASSERT_EQ("Mainboard|PSU|CPU", Walk());
    EXPECT_EQ((std::vector<int>{3, 0x80, 0x00, 0xC9}),
              (std::vector<int>{found[0].fruDeviceID, found[0].logicalPhysical,
                                found[1].logicalPhysical, found[0].idStringTypeLength}));
    // Sensor records are stepped over after their header piece.
    EXPECT_EQ(" 0:0+15 2:0+15 2:15+255 3:0+15 3:15+255 4:0+15 5:0+15 5:15+255", Requests(0x23));
    EXPECT_TRUE(host.hasLog(3, "Number of FRU Locators is 3"));
    // Device 0's dump: twelve rows of 20 bytes and one of 16.
    const std::string row = "\n\t00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ";
    std::string dump = "Device ID 0: CPU.\nFRUData = ";
    for (int i = 0; i < 12; ++i) {
        dump += row;
    }
    EXPECT_TRUE(host.hasLog(3, dump + row.substr(0, 2 + 16 * 3)));
}

TEST_F(LocatorRequest, OnlyFFFFhEndsTheWalkAndARepeatedIDStopsIt) {
    Node({.sdrRecords = {Locator(1, 1, "A"), Locator(0x12FF, 2, "B"), Locator(0xFF12, 3, "C")}});
    EXPECT_EQ("A|B|C", Walk());

    // Record 2 points back at record 1, which was asked for as 0000h.
    host.setNodes({std::make_shared<FakeTransport>([](const host::IpmiRequest& r) {
        if (r.cmd == 0x22) {
            return ok({0x01, 0x00});
        }
        const uint16_t self = r.data[2] == 2 ? 2 : 1;
        const Bytes rec = Locator(self, uint8_t(self), self == 1 ? "A" : "B");
        Bytes answer{uint8_t(3 - self), 0};
        answer.insert(answer.end(), rec.begin() + r.data[4], rec.end());
        return ok(answer);
    })});
    EXPECT_EQ("A|B", Walk(1));
    EXPECT_TRUE(host.hasLog(1, "FRU locator walk stopped: record ID 0001h was already read."));
}

TEST_F(LocatorRequest, IDStringEndsAtAZeroByteOrItsTypeLengthValue) {
    const std::tuple<Bytes, uint8_t, std::string> cases[] = {
        {{'A', 'B', 0, 'C', 'D'}, 0xC5, "AB"}, {{'A', 'B', 'C', 'D', 'E', 'F'}, 0x03, "ABC"}};
    for (const auto& [name, typeLength, expected] : cases) {
        Node({.sdrRecords = {sim::buildFruLocatorRecord({.name = sim::SdrName(name)})}});
        bmc->setup().sdrRecords[0][15] = typeLength;
        EXPECT_EQ(expected, Walk());
    }
}

TEST_F(LocatorRequest, AFailedRequestEndsTheWalkKeepingWhatWasFound) {
    // Command, which request, completion code, names kept, severity, log line.
    const std::tuple<uint8_t, uint32_t, uint8_t, std::string, int, std::string> cases[] = {
        {0x22, 1, 0, "", 0, "Failure in sending command to reserve SDR."},
        {0x22, 1, 0xC0, "", 0, "IPMI error in reserving sensor data record: Node Busy."},
        {0x23, 3, 0xC0, "A", 3, "IPMI error in obtaining sensor data record header: Node Busy."},
        {0x23, 3, 0, "A", 0, "Failure in sending command to obtain SDR Header."},
        {0x23, 2, 0x99, "", 1,
         "IPMI error in obtaining sensor data record string: Unknown error\n"},
        {0x23, 2, 0, "", 0, "Failure in sending command to obtain SDR String."},
    };
    for (const auto& [cmd, nth, code, kept, severity, line] : cases) {
        Node({.sdrRecords = {Locator(1, 1, "A"), Locator(2, 2, "B")},
              .faults = {Fail(cmd, nth, code)}});
        EXPECT_EQ(kept, Walk(1)) << line;
        EXPECT_TRUE(host.hasLog(severity, line)) << line;
    }
    Node({}); // an empty repository answers CBh to the first header
    EXPECT_EQ("", Walk(1));
    EXPECT_TRUE(host.hasLog("Number of FRU Locators is 0"));
}

TEST_F(LocatorRequest, FRUDataIsReadIn33ReadsOf16BytesUpTo528) {
    Bytes device(600);
    std::generate(device.begin(), device.end(), [i = 0]() mutable { return uint8_t(i++ * 7 + 1); });
    Node({.fru = {{0x1A, device}, {0, Bytes(40, 0x55)}}});
    IPMIFRULocator locator;
    locator.fruDeviceID = 0x1A;
    EXPECT_EQ(0, request.IPMIGetFRUData(locator, false));
    EXPECT_EQ(Bytes(device.begin(), device.begin() + 528),
              Bytes(locator.fruData, locator.fruData + 528));
    std::string reads;
    for (int offset = 0; offset <= 0x200; offset += 16) {
        reads += " 26:" + std::to_string(offset) + "+16";
    }
    EXPECT_EQ(reads, Requests(0x11));

    // Device 0 instead of the locator's; it ends at 40 bytes (C9h at 48): the
    // bytes read stay, the rest is zero even after an earlier full read.
    EXPECT_EQ(1, request.IPMIGetFRUData(locator, true));
    Bytes expected(528, 0);
    std::fill_n(expected.begin(), 40, 0x55);
    EXPECT_EQ(expected, Bytes(locator.fruData, locator.fruData + 528));
    EXPECT_TRUE(host.hasLog(3, "FRU data not available for Device ID 0 (Parameter out of range.)"));
}

TEST_F(LocatorRequest, AMissingDeviceLeavesNoData) {
    const std::tuple<uint8_t, int, std::string> cases[] = {
        {0xCB, 3,
         "FRU data not available for Device ID 5 (Requested Sensor, data, or record not present.)"},
        {0x81, 3, "FRU data not available for Device ID 5 (Unknown error)"},
        {0, 0, "Failure in sending command to obtain FRU Data."},
    };
    for (const auto& [code, severity, line] : cases) {
        Node({.fru = {{5, Bytes(528, 0xAA)}}, .faults = {Fail(0x11, 1, code)}});
        IPMIFRULocator locator;
        locator.fruDeviceID = 5;
        EXPECT_EQ(1, request.IPMIGetFRUData(locator, false));
        EXPECT_EQ(" 5:0+16", Requests(0x11));
        EXPECT_TRUE(host.hasLog(severity, line)) << line;
        EXPECT_FALSE(locator.HasFRUData());
    }
    EXPECT_TRUE(host.hasLog(3, "FRU Data Not Available for current device."));
    IPMIFRULocator locator; // present: any of the first 101 bytes set
    locator.fruData[101] = 1;
    EXPECT_FALSE(locator.HasFRUData());
    locator.fruData[100] = 1;
    EXPECT_TRUE(locator.HasFRUData());
}

TEST_F(LocatorRequest, ALongerAnswerNeverWritesPast528Bytes) {
    // Every answer carries 40 bytes of the read's number, whatever was asked.
    host.setNodes({std::make_shared<FakeTransport>([](const host::IpmiRequest& r) {
        Bytes answer(41, uint8_t((r.data[1] | r.data[2] << 8) / 16 + 1));
        answer[0] = 40;
        return ok(answer);
    })});
    IPMIFRULocator locator;
    EXPECT_EQ(0, request.IPMIGetFRUData(locator, false));
    EXPECT_EQ(32, locator.fruData[511]);
    EXPECT_EQ(33, locator.fruData[527]);
    EXPECT_TRUE(locator.boardFields.empty());
}

} // namespace
} // namespace ipmisel::test
