// The FRU locator walk and Read FRU Data against the simulated BMC.
#include <gtest/gtest.h>

#include <memory>
#include <tuple>

#include "fru/IPMIRequestFRULocator.h"
#include "host/sim/SimBmc.h"
#include "tests/fru/FRUTestSupport.h"

namespace ipmisel::test {
namespace {

using Get = std::tuple<int, int, int>; // record ID asked, offset, count

class LocatorRequest : public ::testing::Test {
  protected:
    std::shared_ptr<sim::SimBmc> Node(sim::NodeSetup setup) {
        bmc = std::make_shared<sim::SimBmc>(std::move(setup));
        host.setNodes({bmc});
        return bmc;
    }
    std::vector<IPMIFRULocator> Walk(int expected = 0) {
        std::vector<IPMIFRULocator> found;
        IPMIRequestFRULocator request(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));
        EXPECT_EQ(expected, request.IPMIGetSDREntry(found));
        return found;
    }
    std::vector<std::string> Names(const std::vector<IPMIFRULocator>& locators) {
        std::vector<std::string> names;
        for (const auto& l : locators) {
            names.push_back(l.idString);
        }
        return names;
    }
    std::vector<Get> SDRGets() const {
        std::vector<Get> out;
        for (const auto& r : bmc->received()) {
            if (r.netfn == 0x0A && r.cmd == 0x23) {
                EXPECT_EQ(0x0001, r.data[0] | r.data[1] << 8); // the reservation, low byte first
                out.emplace_back(r.data[2] | r.data[3] << 8, r.data[4], r.data[5]);
            }
        }
        return out;
    }

    HostCapture host;
    std::shared_ptr<sim::SimBmc> bmc;
};

TEST_F(LocatorRequest, WalkKeepsEveryFRULocatorInRepositoryOrder) {
    sim::NodeSetup setup;
    setup.sdrRecords = {Sensor(1, "Temp"), Locator(2, 3, "Mainboard"),
                        Locator(3, 0x12, "PSU", false), Sensor(4, "Fan"), Locator(5, 0, "CPU")};
    Node(setup);
    const auto found = Walk();
    ASSERT_EQ((std::vector<std::string>{"Mainboard", "PSU", "CPU"}), Names(found));
    EXPECT_EQ(3, found[0].fruDeviceID);
    EXPECT_EQ(0x80, found[0].logicalPhysical);
    EXPECT_EQ(0x00, found[1].logicalPhysical);
    EXPECT_EQ(0x12, found[1].fruDeviceID);
    EXPECT_EQ(0xC9, found[0].idStringTypeLength);
    EXPECT_EQ(0x11, found[0].recordType);
    EXPECT_EQ(0x10, found[0].deviceType);
    EXPECT_EQ(0x02, found[0].recordID[1]);
    // Sensor records are stepped over after their header piece.
    EXPECT_EQ((std::vector<Get>{{0, 0, 15},
                                {2, 0, 15},
                                {2, 15, 255},
                                {3, 0, 15},
                                {3, 15, 255},
                                {4, 0, 15},
                                {5, 0, 15},
                                {5, 15, 255}}),
              SDRGets());
    EXPECT_TRUE(host.hasLog(3, "Number of FRU Locators is 3"));
    std::string dump = "Device ID 0: CPU.\nFRUData = ";
    for (int row = 0; row < 13; ++row) {
        dump += "\n\t";
        for (int i = 0; i < (row < 12 ? 20 : 16); ++i) {
            dump += "00 ";
        }
    }
    EXPECT_TRUE(host.hasLog(3, dump));
    EXPECT_TRUE(host.hasLog("IPMIRequestFRULocator::IPMIGetSDREntry() completed."));
}

TEST_F(LocatorRequest, OnlyFFFFhEndsTheWalkAndARepeatedIDStopsIt) {
    sim::NodeSetup setup;
    setup.sdrRecords = {Locator(1, 1, "A"), Locator(0x12FF, 2, "B"), Locator(0xFF12, 3, "C")};
    Node(setup);
    EXPECT_EQ((std::vector<std::string>{"A", "B", "C"}), Names(Walk()));

    // Record 2 points back at record 1, which was asked for as 0000h.
    auto fake = std::make_shared<FakeTransport>([](const host::IpmiRequest& r) {
        if (r.cmd == 0x22) {
            return ok({0x01, 0x00});
        }
        const int id = r.data[2] | r.data[3] << 8;
        const uint16_t self = id == 2 ? 2 : 1;
        const Bytes rec = Locator(self, uint8_t(self), self == 1 ? "A" : "B");
        Bytes answer{uint8_t(self == 1 ? 2 : 1), 0};
        answer.insert(answer.end(), rec.begin() + r.data[4], rec.end());
        return ok(answer);
    });
    host.setNodes({fake});
    EXPECT_EQ((std::vector<std::string>{"A", "B"}), Names(Walk(1)));
    EXPECT_TRUE(host.hasLog(1, "FRU locator walk stopped: record ID 0001h was already read."));
}

TEST_F(LocatorRequest, IDStringEndsAtAZeroByteOrItsTypeLengthValue) {
    const std::tuple<Bytes, uint8_t, std::string> cases[] = {
        {{'A', 'B', 0, 'C', 'D'}, 0xC5, "AB"},
        {{'A', 'B', 'C', 'D', 'E', 'F'}, 0x03, "ABC"},
        {{'D', 'I', 'M', 'M'}, 0xC4, "DIMM"},
    };
    for (const auto& [name, typeLength, expected] : cases) {
        sim::FruLocatorFields f;
        f.name = sim::SdrName(name);
        Bytes record = sim::buildFruLocatorRecord(f);
        record[15] = typeLength;
        sim::NodeSetup setup;
        setup.sdrRecords = {record};
        Node(setup);
        const auto found = Walk();
        ASSERT_EQ(1u, found.size());
        EXPECT_EQ(expected, found[0].idString);
        EXPECT_EQ(typeLength, found[0].idStringTypeLength);
    }
}

TEST_F(LocatorRequest, AFailedRequestEndsTheWalkKeepingWhatWasFound) {
    using Action = sim::Fault::Action;
    struct Case {
        uint8_t cmd;
        uint32_t nth;
        Action action;
        uint8_t cc;
        size_t kept;
        int severity;
        std::string line;
    };
    const Case cases[] = {
        {0x22, 1, Action::SendFailure, 0, 0, 0, "Failure in sending command to reserve SDR."},
        {0x22, 1, Action::CompletionCode, 0xC0, 0, 0,
         "IPMI error in reserving sensor data record: Node Busy."},
        {0x23, 3, Action::CompletionCode, 0xC0, 1, 3,
         "IPMI error in obtaining sensor data record header: Node Busy."},
        {0x23, 3, Action::SendFailure, 0, 1, 0, "Failure in sending command to obtain SDR Header."},
        {0x23, 2, Action::CompletionCode, 0x99, 0, 1,
         "IPMI error in obtaining sensor data record string: Unknown error\n"},
        {0x23, 2, Action::SendFailure, 0, 0, 0, "Failure in sending command to obtain SDR String."},
    };
    for (const Case& c : cases) {
        sim::NodeSetup setup;
        setup.sdrRecords = {Locator(1, 1, "A"), Locator(2, 2, "B")};
        sim::Fault fault;
        fault.netfn = 0x0A;
        fault.cmd = c.cmd;
        fault.nth = c.nth;
        fault.action = c.action;
        fault.cc = c.cc;
        setup.faults = {fault};
        Node(setup);
        host.clear();
        EXPECT_EQ(c.kept, Walk(1).size()) << c.line;
        EXPECT_TRUE(host.hasLog(c.severity, c.line)) << c.line;
    }
    // A repository with nothing in it answers CBh to the first header.
    Node(sim::NodeSetup{});
    EXPECT_TRUE(Walk(1).empty());
    EXPECT_TRUE(host.hasLog("Number of FRU Locators is 0"));
}

TEST_F(LocatorRequest, FRUDataIsReadIn33ReadsOf16BytesUpTo528) {
    sim::NodeSetup setup;
    Bytes device(600);
    for (size_t i = 0; i < device.size(); ++i) {
        device[i] = uint8_t(i * 7 + 1);
    }
    setup.fru = {{0x1A, device}, {0, Bytes(40, 0x55)}};
    Node(setup);
    IPMIRequestFRULocator request(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));
    IPMIFRULocator locator;
    locator.fruDeviceID = 0x1A;
    EXPECT_EQ(0, request.IPMIGetFRUData(locator, false));
    EXPECT_EQ(Bytes(device.begin(), device.begin() + 528),
              Bytes(locator.fruData, locator.fruData + 528));
    std::vector<Get> reads;
    for (const auto& r : bmc->received()) {
        reads.emplace_back(r.data[0], r.data[1] | r.data[2] << 8, r.data[3]);
    }
    ASSERT_EQ(33u, reads.size());
    EXPECT_EQ(Get(0x1A, 0x000, 16), reads.front());
    EXPECT_EQ(Get(0x1A, 0x1F0, 16), reads[31]);
    EXPECT_EQ(Get(0x1A, 0x200, 16), reads.back());

    // Device 0 instead of the locator's; it ends at 40 bytes (C9h at 48): the
    // bytes read stay, the rest is zeroed even after an earlier full read.
    EXPECT_EQ(1, request.IPMIGetFRUData(locator, true));
    Bytes expected(528, 0);
    std::fill_n(expected.begin(), 40, 0x55);
    EXPECT_EQ(expected, Bytes(locator.fruData, locator.fruData + 528));
    EXPECT_TRUE(host.hasLog(3, "FRU data not available for Device ID 0 (Parameter out of range.)"));
    EXPECT_TRUE(locator.HasFRUData());
}

TEST_F(LocatorRequest, AMissingDeviceLeavesNoData) {
    const std::tuple<sim::Fault::Action, uint8_t, int, std::string> cases[] = {
        {sim::Fault::Action::CompletionCode, 0xCB, 3,
         "FRU data not available for Device ID 5 (Requested Sensor, data, or record not present.)"},
        {sim::Fault::Action::CompletionCode, 0x81, 3,
         "FRU data not available for Device ID 5 (Unknown error)"},
        {sim::Fault::Action::SendFailure, 0, 0, "Failure in sending command to obtain FRU Data."},
    };
    for (const auto& [action, code, severity, line] : cases) {
        sim::NodeSetup setup;
        setup.fru = {{5, Bytes(528, 0xAA)}};
        setup.faults = {sim::Fault{0x0A, 0x11, 1, false, action, code, 0, {}}};
        Node(setup);
        IPMIRequestFRULocator request(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));
        IPMIFRULocator locator;
        locator.fruDeviceID = 5;
        EXPECT_EQ(1, request.IPMIGetFRUData(locator, false));
        EXPECT_EQ(1u, bmc->received().size());
        EXPECT_TRUE(host.hasLog(severity, line)) << line;
        EXPECT_FALSE(locator.HasFRUData());
    }
    EXPECT_TRUE(host.hasLog(3, "FRU Data Not Available for current device."));
}

TEST_F(LocatorRequest, PresenceLooksAtTheFirst101Bytes) {
    IPMIFRULocator locator;
    locator.fruData[100] = 1;
    EXPECT_TRUE(locator.HasFRUData());
    locator.fruData[100] = 0;
    locator.fruData[101] = 1;
    EXPECT_FALSE(locator.HasFRUData());
}

TEST_F(LocatorRequest, ALongerAnswerNeverWritesPast528Bytes) {
    // Every answer carries 40 bytes of the chunk's number, whatever was asked.
    auto fake = std::make_shared<FakeTransport>([](const host::IpmiRequest& r) {
        Bytes answer(41, uint8_t((r.data[1] | r.data[2] << 8) / 16 + 1));
        answer[0] = 40;
        return ok(answer);
    });
    host.setNodes({fake});
    IPMIRequestFRULocator request(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));
    IPMIFRULocator locator;
    EXPECT_EQ(0, request.IPMIGetFRUData(locator, false));
    EXPECT_EQ(32, locator.fruData[511]);
    EXPECT_EQ(33, locator.fruData[527]);
    EXPECT_TRUE(locator.boardFields.empty());
}

} // namespace
} // namespace ipmisel::test
