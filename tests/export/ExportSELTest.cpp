// The SEL export against hand-made records and sensor records: what reaches
// the framework, in which order, and which failures cost what.
#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "export/ExportSEL.h"
#include "tests/support/HostFixture.h"

using namespace ipmisel;
using ipmisel::test::HostCapture;

namespace {

IPMISELEntry Record(std::initializer_list<uint8_t> wire) {
    // Wire order: record ID low byte first; the entry keeps it high byte first.
    std::vector<uint8_t> b(wire);
    b.resize(16);
    IPMISELEntry e;
    e.bytes[0] = b[1];
    e.bytes[1] = b[0];
    for (int i = 2; i < 16; ++i) {
        e.bytes[i] = b[i];
    }
    return e;
}

// A threshold event of sensor 30h stamped 2024-01-02 03:04:05 UTC (6593807Dh... see below).
IPMISELEntry Threshold(uint16_t id, uint8_t generator = 0x20) {
    // 1704164645 = 2024-01-02 03:04:05 UTC = 0x65937D25
    return Record({uint8_t(id & 0xFF), uint8_t(id >> 8), 0x02, 0x25, 0x7D, 0x93, 0x65, generator,
                   0x00, 0x04, 0x01, 0x30, 0x01, 0x52, 30, 28});
}

IPMISDREntry* Sensor(uint8_t number, uint8_t entity, uint8_t instance, const char* name,
                     uint8_t sensorUnits1 = 0, uint8_t baseUnit = 1) {
    auto* s = new IPMISDREntry();
    s->RecordIDLow = number;
    s->SDRVersion = 0x51;
    s->RecordType = 1;
    s->SensorNumber = number;
    s->EntityID = entity;
    s->EntityInstance = instance;
    s->SensorUnits1 = sensorUnits1;
    s->BaseUnit = baseUnit;
    s->M = 1;
    std::strncpy(s->IDString, name, 16);
    return s;
}

struct ExportFixture : ::testing::Test {
    HostCapture host;
    SDRCache cache;
    std::vector<AuxLogRecord> aux;
    std::shared_ptr<test::FakeTransport> bmc;

    void SetUp() override {
        // Get SEL Time answers 2024-01-02 03:04:05; everything else C1h.
        bmc = std::make_shared<test::FakeTransport>([](const host::IpmiRequest& r) {
            if (r.netfn == 0x0A && r.cmd == 0x48) {
                return test::ok({0x25, 0x7D, 0x93, 0x65});
            }
            return test::cc(0xC1);
        });
        host.setNodes({bmc, bmc});
    }
    void TearDown() override { DeleteSDRCache(cache); }

    std::vector<host::Instance> Export(std::vector<IPMISELEntry> records, int32_t node = 0,
                                       int32_t offset = 0) {
        host.clear();
        // Start the instance count afresh, so failure hooks count from 0 per export.
        host::configure(host::config());
        int rc = ExportSEL(node, host::hostCallbacks(), host::outputHandle(), cache, records.data(),
                           static_cast<uint32_t>(records.size()), offset, aux,
                           NOXAQSV20::SPLibrary::GetSplibraryInstance(node));
        EXPECT_EQ(rc, 0);
        return host.instancesOf("OXASG_IPMILogRecord");
    }
};

std::vector<std::string> Names(const host::Instance& i) {
    std::vector<std::string> names;
    for (const auto& p : i.properties) {
        names.push_back(p.name);
    }
    return names;
}

} // namespace

TEST_F(ExportFixture, StandardRecordWithSensorWritesEveryPropertyInOrder) {
    cache.push_back(Sensor(0x30, 0x03, 0x01, "CPU1 Temp"));
    auto out = Export({Threshold(7)}, 0, 100);
    ASSERT_EQ(out.size(), 1u);
    const auto& i = out[0];
    EXPECT_EQ(Names(i), (std::vector<std::string>{
                            "CreationClassName", "LogCreationClassName", "LogName", "RecordID",
                            "MessageTimestamp", "CreationTimeStamp", "Source", "SensorType",
                            "EventType", "Entity", "EntityInstance", "SensorInformation", "Message",
                            "AuxLog", "SourceNode", "RawData"}));
    EXPECT_EQ(i.get("CreationClassName"), "OXASG_IPMILog");
    EXPECT_EQ(i.get("LogName"), "IPMILogEntry");
    EXPECT_EQ(i.get("RecordID"), "107");
    EXPECT_EQ(i.get("MessageTimestamp"), "20240102030405.000000+000");
    EXPECT_EQ(i.get("CreationTimeStamp"), i.get("MessageTimestamp"));
    EXPECT_EQ(i.get("SensorType"), "Temperature");
    EXPECT_EQ(i.get("EventType"), "Assertion, Threshold.");
    EXPECT_EQ(i.get("EntityInstance"), "1");
    EXPECT_EQ(i.get("SensorInformation"), "CPU1 Temp");
    EXPECT_EQ(i.get("AuxLog"), "No Extended Data");
    EXPECT_EQ(i.get("SourceNode"), "1");
    const std::string message = i.get("Message");
    EXPECT_EQ(message.rfind(i.get("Entity") + " 1 (Temperature - CPU1 Temp): Assertion: ", 0), 0u)
        << message;
    EXPECT_NE(message.find("Trigger threshold value: 28.00"), std::string::npos) << message;
    EXPECT_NE(message.find("Trigger reading: 30.00"), std::string::npos) << message;
    const auto* raw = i.find("RawData");
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(raw->bytes, (std::vector<uint8_t>{7, 0, 0x02, 0x25, 0x7D, 0x93, 0x65, 0x20, 0x00,
                                                0x04, 0x01, 0x30, 0x01, 0x52, 30, 28}));
    EXPECT_TRUE(host.hasLog("Found matching SDR for this SEL."));
}

TEST_F(ExportFixture, WithoutSensorRecordOrBmcClockTheRecordIsStillWhole) {
    // A BMC whose clock cannot be read: reported once, stamps unaffected.
    bmc = std::make_shared<test::FakeTransport>(
        [](const host::IpmiRequest&) { return test::cc(0xC0); });
    host.setNodes({bmc});
    auto out = Export({Threshold(1)});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].get("Entity"), "");
    EXPECT_EQ(out[0].get("EntityInstance"), "");
    EXPECT_EQ(out[0].get("SensorInformation"), "");
    // Empty entity, blank, empty instance, then " (" and the sensor type.
    EXPECT_EQ(out[0].get("Message").rfind("  (Temperature - ): Assertion: ", 0), 0u);
    EXPECT_TRUE(host.hasLog("SDR cache is empty."));
    EXPECT_TRUE(host.hasLog("No matching SDR for this SEL."));
    EXPECT_TRUE(host.hasLog(2, "Not synchronizing BMC time with OS time."));
    EXPECT_EQ(out[0].get("MessageTimestamp"), "20240102030405.000000+000");
}

TEST_F(ExportFixture, FirstNodeKeepsOnlyItsOwnGenerators) {
    std::vector<IPMISELEntry> records = {Threshold(1, 0x20), Threshold(2, 0x41), Threshold(3, 0x4C),
                                         Threshold(4, 0x22)};
    auto first = Export(records, 0);
    std::vector<std::string> ids;
    for (const auto& i : first) {
        ids.push_back(i.get("RecordID"));
    }
    EXPECT_EQ(ids, (std::vector<std::string>{"1", "3"}));
    // Other nodes report every generator.
    EXPECT_EQ(Export(records, 1, 10).size(), 4u);
    EXPECT_EQ(host.instances.front().get("RecordID"), "11");
    EXPECT_EQ(host.instances.front().get("SourceNode"), "2");
}

TEST_F(ExportFixture, SpecialKindsCarryTheirOwnSensorTypeAndMessage) {
    auto unknown = Record({9, 0, 0x03, 1, 2, 3, 4, 0x20, 0, 4, 1, 2, 3, 4, 5, 6});
    auto boot =
        Record({10, 0, 0xDC, 0x25, 0x7D, 0x93, 0x65, 0x20, 0, 4, 0, 0, 0, 0x00, 0x00, 0x00});
    // Boot moment in bytes 11..14: 1000000000 = 3B9ACA00h = 2001-09-09 01:46:40.
    boot.bytes[11] = 0x00;
    boot.bytes[12] = 0xCA;
    boot.bytes[13] = 0x9A;
    boot.bytes[14] = 0x3B;
    auto shutdown =
        Record({11, 0, 0xDD, 0x25, 0x7D, 0x93, 0x65, 0x20, 0, 4, 0, 'A', 0, 'B', 'C', 0});
    auto c0 = Record({12, 0, 0xC0, 0x25, 0x7D, 0x93, 0x65, 0x01, 0x02, 0x00, 1, 0, 0, 0, 0, 0});
    auto e1 = Record({13, 0, 0xE1, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13});
    auto out = Export({unknown, boot, shutdown, c0, e1}, 1);
    ASSERT_EQ(out.size(), 5u);

    EXPECT_EQ(out[0].find("SensorType"), nullptr);
    EXPECT_EQ(out[0].get("MessageTimestamp"), "19700101000000.000000+000");
    EXPECT_EQ(out[0].get("Message"), "Unknown log type. Raw Data:\n09 00 03 01 02 03 04 20 00 "
                                     "04 01 02 03 04 05 06");
    EXPECT_TRUE(host.hasLog("This SEL entry (ID 9) has an unknown type (0x3).\n"));

    EXPECT_EQ(out[1].get("SensorType"), "Boot Time");
    EXPECT_EQ(out[1].get("MessageTimestamp"), "20010909014640.000000+000");
    EXPECT_EQ(out[1].get("Message"), "(Boot Time): 20010909014640.000000+000");

    EXPECT_EQ(out[2].get("SensorType"), "Shutdown Event");
    EXPECT_EQ(out[2].get("Message"), "(Shutdown Event): Comment String Part 0: ABC");

    EXPECT_EQ(out[3].get("SensorType"), "OEM POST with Time Stamp");
    EXPECT_NE(out[3].get("Message").find(" 513. "), std::string::npos) << out[3].get("Message");

    EXPECT_EQ(out[4].get("SensorType"), "OEM SMI No Time Stamp");
    EXPECT_FALSE(out[4].get("Message").empty());
    for (const auto& i : out) {
        EXPECT_EQ(i.find("Source"), nullptr);
        EXPECT_EQ(i.find("EventType"), nullptr);
        ASSERT_NE(i.find("RawData"), nullptr);
    }
}

TEST_F(ExportFixture, MessageAdjustmentsLeaveThePropertiesAsDecoded) {
    // 0Ch memory: no instance in the message.
    cache.push_back(Sensor(0x40, 0x20, 2, "DIMM A1"));
    // 08h power supply with a VRM name.
    cache.push_back(Sensor(0x41, 0x0A, 3, "CPU VRM 1"));
    // HSDC in the name overrides the entity.
    cache.push_back(Sensor(0x42, 0x07, 4, "HSDC Status"));
    // 0Dh drive slot: the number in the name becomes the instance.
    cache.push_back(Sensor(0x43, 0x04, 5, "Drive 12"));
    auto event = [](uint16_t id, uint8_t sensorType, uint8_t number) {
        return Record({uint8_t(id), 0, 0x02, 0x25, 0x7D, 0x93, 0x65, 0x20, 0, 4, sensorType, number,
                       0x6F, 0x01, 0xFF, 0xFF});
    };
    auto out = Export(
        {event(1, 0x0C, 0x40), event(2, 0x08, 0x41), event(3, 0x14, 0x42), event(4, 0x0D, 0x43)});
    ASSERT_EQ(out.size(), 4u);
    EXPECT_EQ(out[0].get("EntityInstance"), "2");
    EXPECT_NE(out[0].get("Message").find(" (Memory - DIMM A1): "), std::string::npos);
    EXPECT_EQ(out[0].get("Message").find(" 2 ("), std::string::npos);

    EXPECT_EQ(out[1].get("SensorType"), "Power Supply");
    EXPECT_NE(out[1].get("Message").find("(Voltage Regulator Module - CPU VRM 1): "),
              std::string::npos);

    EXPECT_EQ(out[2].get("Message").rfind("HS IO Expansion 4 (Button - HSDC Status): ", 0), 0u)
        << out[2].get("Message");

    EXPECT_EQ(out[3].get("EntityInstance"), "5");
    EXPECT_NE(out[3].get("Message").find(" 12 (Drive Slot (Bay) - Drive 12): Assertion: Drive "
                                         "Fault"),
              std::string::npos)
        << out[3].get("Message");
}

TEST_F(ExportFixture, PropertyFailuresDropTheRecordOnlyWhenCommonOnesFail) {
    std::vector<IPMISELEntry> records = {Threshold(1), Threshold(2), Threshold(3)};
    // Instances are counted from 0 in the order they are opened.
    host.config().failProperty = [](uint64_t instance, const std::string& name) {
        return instance == 1 && name == "MessageTimestamp";
    };
    auto out = Export(records);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0].get("RecordID"), "1");
    EXPECT_EQ(out[1].get("RecordID"), "3");
    EXPECT_TRUE(host.hasLog(1, "Error adding MessageTimestamp."));

    host.config().failProperty = [](uint64_t instance, const std::string& name) {
        return instance == 1 && name == "Message";
    };
    out = Export(records);
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(out[1].find("Message"), nullptr);
    EXPECT_NE(out[1].find("AuxLog"), nullptr);
    EXPECT_TRUE(host.hasLog(1, "Error adding Message."));
}

TEST_F(ExportFixture, AuxiliaryLogTextJoinsTheRecordWithTheSameID) {
    AuxLogRecord a;
    a.SetRecordID(2, 0);
    a.SetType(3);
    a.SetSeverity(0x90);
    uint8_t op[2] = {0x01, 0x10};
    a.SetOperation(op[0], op[1]);
    a.SetSubClass(1);
    a.SetClass(0);
    uint8_t inst[4] = {1, 2, 3, 4};
    a.SetInstance(inst);
    uint8_t caller[10] = {0xAA, 0xBB, 0, 0, 0, 0, 0, 0, 0, 0x01};
    a.SetCallerID(caller);
    a.SetExtendedData("DE AD ");
    aux.push_back(a);
    auto out = Export({Threshold(1), Threshold(2)});
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0].get("AuxLog"), "No Extended Data");
    EXPECT_EQ(out[1].get("AuxLog"),
              "Type: DEBUG_CODE Sev: OXA_ERROR_FATAL Class: Computing Sub-Class: Host Processor "
              "Instance: 0x01020304 GUID: 0xAABB0000000000000001 Extended Data: DE AD ");
}

TEST(FillSELArray, ScansEverySlotAndStopsAtTheFirstEmptyOne) {
    HostCapture host;
    const char* line = "00 02 00 01 00 02 25 7D 93 65 20 00 04 01 30 01 52 1E 1C ";
    std::vector<char> text(58 * 3, '\0');
    std::memcpy(text.data(), line, std::strlen(line));
    std::memcpy(text.data() + 58, line, std::strlen(line));
    IPMISELEntry records[3];
    EXPECT_EQ(FillSELArray(nullptr, text.data(), records, 2), 0);
    EXPECT_EQ(records[1].RecordID(), 1);
    EXPECT_EQ(records[1].bytes[15], 0x1C);
    EXPECT_EQ(FillSELArray(nullptr, text.data(), records, 3), 1);
    EXPECT_TRUE(host.hasLog(1, "Could not open process all SELs."));
    EXPECT_EQ(FillSELArray(nullptr, text.data(), records, 0), 0);
}
