// The SEL export against hand-made records and sensor records: what reaches
// the framework, in which order, and which failures cost what.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "export/ExportConfig.h"
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

// 1704164645 = 2024-01-02 03:04:05 UTC = 65937D25h, least significant byte first.
#define STAMP 0x25, 0x7D, 0x93, 0x65

// A threshold event of sensor 30h: reading 30, threshold 28.
IPMISELEntry Threshold(uint16_t id, uint8_t generator = 0x20) {
    return Record({uint8_t(id & 0xFF), uint8_t(id >> 8), 0x02, STAMP, generator, 0x00, 0x04, 0x01,
                   0x30, 0x01, 0x52, 30, 28});
}

// A standard record whose event text is empty (OEM event/reading type 70h has
// no decoder), so the message is the export's own composition alone.
IPMISELEntry Event(uint16_t id, uint8_t sensorType, uint8_t number, bool deassertion) {
    return Record({uint8_t(id & 0xFF), uint8_t(id >> 8), 0x02, STAMP, 0x20, 0x00, 0x04, sensorType,
                   number, uint8_t(deassertion ? 0xF0 : 0x70), 0x00, 0xFF, 0xFF});
}

IPMISDREntry* Sensor(uint8_t number, uint8_t entity, uint8_t instance, const char* name) {
    auto* s = new IPMISDREntry();
    s->RecordIDLow = number;
    s->SDRVersion = 0x51;
    s->RecordType = 1;
    s->SensorNumber = number;
    s->EntityID = entity;
    s->EntityInstance = instance;
    s->BaseUnit = 1;
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
                return test::ok({STAMP});
            }
            return test::cc(0xC1);
        });
        host.setNodes({bmc, bmc});
    }
    void TearDown() override {
        DeleteSDRCache(cache);
        g_driveNumberingFlag = false;
    }

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

    // Points the message-file lookup at a folder of its own holding `content`
    // as the message file.
    void UseMessageFile(const std::string& content) {
        const std::string dir = test::makeTempDir("export");
        std::ofstream(dir + "/ipmisel.INI", std::ios::binary) << content;
        host.config().pluginPath = dir + "/ipmisel.so";
    }
};

std::string ShippedMessageFile() {
    std::ifstream in(test::binDir() + "/ipmisel.INI", std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

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
    EXPECT_EQ(i.get("LogCreationClassName"), "OXASG_IPMILog");
    EXPECT_EQ(i.get("LogName"), "IPMILogEntry");
    EXPECT_EQ(i.get("RecordID"), "107");
    EXPECT_EQ(i.get("MessageTimestamp"), "20240102030405.000000+000");
    EXPECT_EQ(i.get("CreationTimeStamp"), "20240102030405.000000+000");
    EXPECT_EQ(i.get("EventType"), "Assertion, Threshold.");
    EXPECT_EQ(i.get("AuxLog"), "No Extended Data");
    EXPECT_EQ(i.get("SourceNode"), "1");
    const std::string message = i.get("Message");
    EXPECT_EQ(message.rfind("Processor 1 (Temperature - CPU1 Temp): Assertion: ", 0), 0u)
        << message;
    EXPECT_NE(message.find("Trigger threshold value: 28.00"), std::string::npos) << message;
    EXPECT_NE(message.find("Trigger reading: 30.00"), std::string::npos) << message;
    const auto* raw = i.find("RawData");
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(raw->bytes, (std::vector<uint8_t>{7, 0, 0x02, 0x25, 0x7D, 0x93, 0x65, 0x20, 0x00,
                                                0x04, 0x01, 0x30, 0x01, 0x52, 30, 28}));
}

TEST_F(ExportFixture, WithoutSensorRecordOrBmcClockTheRecordIsStillWhole) {
    // A BMC whose clock cannot be read: reported once, stamps unaffected.
    bmc = std::make_shared<test::FakeTransport>(
        [](const host::IpmiRequest&) { return test::cc(0xC0); });
    host.setNodes({bmc});
    auto out = Export({Threshold(1)});
    ASSERT_EQ(out.size(), 1u);
    // Empty entity, blank, empty instance, then " (" and the sensor type.
    EXPECT_EQ(out[0].get("Message").rfind("  (Temperature - ): Assertion: ", 0), 0u);
    EXPECT_TRUE(host.hasLog("SDR cache is empty."));
    EXPECT_TRUE(host.hasLog(2, "Not synchronizing BMC time with OS time."));
    EXPECT_EQ(out[0].get("MessageTimestamp"), "20240102030405.000000+000");
}

// How a standard record's message is put together from its sensor record:
// entity names, the drive number, the adjustments and their order.
TEST_F(ExportFixture, StandardMessageRules) {
    // The shipped file names no entity "Cannot ..."; entity 01h does here.
    std::string file = ShippedMessageFile();
    const size_t other = file.find("\n1001=Other");
    ASSERT_NE(other, std::string::npos);
    file.replace(other, 11, "\n1001=Cannot be determined");
    UseMessageFile(file);

    struct Row {
        uint8_t sensorType, number;
        bool deassertion;
        uint8_t entity, instance;
        const char* name; // nullptr: no sensor record with this number
        const char* sensorTypeProperty;
        const char* entityProperty;
        const char* instanceProperty;
        const char* message;
    };
    const Row rows[] = {
        // Entity names: the message file below 29h (1000 + ID); none above 34h.
        {0x07, 0x01, false, 0x03, 1, "CPU1 Status", "Processor", "Processor", "1",
         "Processor 1 (Processor - CPU1 Status): Assertion: "},
        {0x07, 0x02, true, 0x03, 1, "CPU1 Status", "Processor", "Processor", "1",
         "Processor 1 (Processor - CPU1 Status): Deassertion: "},
        {0x29, 0x03, false, 0x28, 2, "CMOS Battery", "Battery", "Battery", "2",
         "Battery 2 (Battery - CMOS Battery): Assertion: "},
        {0x07, 0x10, false, 0x35, 0, "S", "Processor", "", "0", " 0 (Processor - S): Assertion: "},
        {0x07, 0x11, false, 0, 0, nullptr, "Processor", "", "", "  (Processor - ): Assertion: "},

        // Memory in the sensor type: no instance in the message, the property keeps it.
        {0x0C, 0x20, false, 0x20, 2, "DIMM A1", "Memory", "Memory device", "2",
         "Memory device  (Memory - DIMM A1): Assertion: "},
        {0x0E, 0x21, false, 0x20, 3, "Resize", "POST Memory Resize", "Memory device", "3",
         "Memory device  (POST Memory Resize - Resize): Assertion: "},
        // Power supply named VRM: both conditions are needed.
        {0x08, 0x22, false, 0x0A, 1, "CPU VRM 1", "Power Supply", "Power supply", "1",
         "Power supply 1 (Voltage Regulator Module - CPU VRM 1): Assertion: "},
        {0x08, 0x23, false, 0x0A, 1, "PS1 Status", "Power Supply", "Power supply", "1",
         "Power supply 1 (Power Supply - PS1 Status): Assertion: "},
        {0x02, 0x24, false, 0x0A, 1, "VRM Vout", "Voltage", "Power supply", "1",
         "Power supply 1 (Voltage - VRM Vout): Assertion: "},
        // HSDC names the entity, ahead of the unknown-entity rule.
        {0x14, 0x25, false, 0x07, 4, "HSDC Status", "Button", "System board", "4",
         "HS IO Expansion 4 (Button - HSDC Status): Assertion: "},
        {0x14, 0x26, false, 0x00, 4, "HSDC Link", "Button", "Unknown (unspecified entity)", "4",
         "HS IO Expansion 4 (Button - HSDC Link): Assertion: "},
        // An entity that cannot say what it is gives way to the sensor's name.
        {0x14, 0x27, false, 0x00, 5, "Front Btn", "Button", "Unknown (unspecified entity)", "5",
         "Front Btn 5 (Button - Front Btn): Assertion: "},
        {0x14, 0x28, false, 0x02, 6, "Rear Btn", "Button", "Unknown", "6",
         "Rear Btn 6 (Button - Rear Btn): Assertion: "},
        {0x14, 0x29, false, 0x01, 7, "Side Btn", "Button", "Cannot be determined", "7",
         "Side Btn 7 (Button - Side Btn): Assertion: "},
        // "Unknown" leaves the sensor type; the property keeps it.
        {0x00, 0x2A, false, 0x07, 1, "Mystery", "Unknown Sensor Type", "System board", "1",
         "System board 1 ( Sensor Type - Mystery): Assertion: "},
        {0x00, 0x2B, false, 0x00, 1, "Ghost", "Unknown Sensor Type", "Unknown (unspecified entity)",
         "1", "Ghost 1 ( Sensor Type - Ghost): Assertion: "},

        // Drive bays (0Dh, C1h) named "Drive": the digits from the first to the
        // last one, read as a number, stand for the instance.
        {0x0D, 0x2C, false, 0x04, 5, "Drive 12", "Drive Slot (Bay)", "Disk or disk bay", "5",
         "Disk or disk bay 12 (Drive Slot (Bay) - Drive 12): Assertion: "},
        {0xC1, 0x2D, false, 0x04, 5, "Drive 3 Slot 4", "Drive/Slot Status", "Disk or disk bay", "5",
         "Disk or disk bay 3 (Drive/Slot Status - Drive 3 Slot 4): Assertion: "},
        {0xC1, 0x61, false, 0x04, 5, "Drive 07", "Drive Status", "Disk or disk bay", "5",
         "Disk or disk bay 7 (Drive Status - Drive 07): Assertion: "},
        {0x0D, 0x2E, false, 0x04, 5, "HDD 3", "Drive Slot (Bay)", "Disk or disk bay", "5",
         "Disk or disk bay 5 (Drive Slot (Bay) - HDD 3): Assertion: "},
        {0x07, 0x2F, false, 0x04, 5, "Drive 9", "Processor", "Disk or disk bay", "5",
         "Disk or disk bay 5 (Processor - Drive 9): Assertion: "},
        {0x0D, 0x30, false, 0x04, 5, "Drive Bay", "Drive Slot (Bay)", "Disk or disk bay", "5",
         "Disk or disk bay 5 (Drive Slot (Bay) - Drive Bay): Assertion: "},
    };

    std::vector<IPMISELEntry> records;
    for (const Row& r : rows) {
        if (r.name) {
            cache.push_back(Sensor(r.number, r.entity, r.instance, r.name));
        }
        records.push_back(
            Event(uint16_t(records.size() + 1), r.sensorType, r.number, r.deassertion));
    }
    auto out = Export(records);
    ASSERT_EQ(out.size(), std::size(rows));
    for (size_t k = 0; k < out.size(); ++k) {
        const Row& r = rows[k];
        SCOPED_TRACE(r.message);
        EXPECT_EQ(out[k].get("SensorType"), r.sensorTypeProperty);
        EXPECT_EQ(out[k].get("Entity"), r.entityProperty);
        EXPECT_EQ(out[k].get("EntityInstance"), r.instanceProperty);
        EXPECT_EQ(out[k].get("SensorInformation"), r.name ? r.name : "");
        EXPECT_EQ(out[k].get("Message"), r.message);
    }
    EXPECT_EQ(host.countLog("Error retrieving Drive No.."), 1u);

    // With the process-wide switch set, drive bays keep their entity instance.
    g_driveNumberingFlag = true;
    out = Export({Event(1, 0x0D, 0x2C, false)});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].get("Message"),
              "Disk or disk bay 5 (Drive Slot (Bay) - Drive 12): Assertion: ");

    // Entity IDs 29h to 34h are named by the export itself.
    const char* const named[] = {"Processing blade",
                                 "Connectivity switch",
                                 "Processor or memory module",
                                 "IO module",
                                 "Processor or IO module",
                                 "Management Controller Firmware",
                                 "IPMI Channel",
                                 "PCI Bus",
                                 "PCI Express Bus",
                                 "SCSI Bus",
                                 "SATA or SAS bus",
                                 "Processor or front-side bus"};
    DeleteSDRCache(cache);
    records.clear();
    for (uint8_t k = 0; k < std::size(named); ++k) {
        cache.push_back(Sensor(0x40 + k, 0x29 + k, 3, "S"));
        records.push_back(Event(k, 0x07, 0x40 + k, false));
    }
    out = Export(records);
    ASSERT_EQ(out.size(), std::size(named));
    for (size_t k = 0; k < out.size(); ++k) {
        EXPECT_EQ(out[k].get("Entity"), named[k]);
        EXPECT_EQ(out[k].get("Message"), named[k] + std::string(" 3 (Processor - S): Assertion: "));
    }
}

TEST_F(ExportFixture, DeviceRelativeInstancesOnTheirMachineType) {
    cache.push_back(Sensor(0x01, 0x07, 0x5F, "A"));
    cache.push_back(Sensor(0x02, 0x07, 0x60, "B"));
    cache.push_back(Sensor(0x03, 0x07, 0x61, "C"));
    std::vector<IPMISELEntry> records = {Event(1, 0x07, 1, false), Event(2, 0x07, 2, false),
                                         Event(3, 0x07, 3, false)};
    auto instances = [&] {
        std::vector<std::string> got;
        for (const auto& i : Export(records)) {
            got.push_back(i.get("EntityInstance"));
        }
        return got;
    };
    EXPECT_EQ(instances(), (std::vector<std::string>{"95", "96", "97"}));
    host.config().machineTypeFromID = "8877";
    EXPECT_EQ(instances(), (std::vector<std::string>{"95", "0", "1"}));
    // The machine type the machine reports otherwise does not choose it.
    host.config().machineTypeFromID = "0000";
    host.config().machineType = "8877";
    EXPECT_EQ(instances(), (std::vector<std::string>{"95", "96", "97"}));
}

TEST_F(ExportFixture, FirstNodeKeepsOnlyItsOwnGenerators) {
    // Generator byte: 7-bit address or software ID in bits 7:1. Node 0 keeps
    // 00h..10h and 26h.
    const uint8_t generators[] = {0x01, 0x20, 0x21, 0x22, 0x4A, 0x4C, 0x4D, 0x4E, 0x41, 0xFF};
    std::vector<IPMISELEntry> records;
    for (uint8_t g : generators) {
        records.push_back(Threshold(g, g));
    }
    std::vector<std::string> ids;
    for (const auto& i : Export(records, 0)) {
        ids.push_back(i.get("RecordID"));
    }
    EXPECT_EQ(ids, (std::vector<std::string>{"1", "32", "33", "76", "77"}));
    // Other nodes report every generator.
    EXPECT_EQ(Export(records, 1, 10).size(), std::size(generators));
    EXPECT_EQ(host.instances.front().get("RecordID"), "11");
    EXPECT_EQ(host.instances.front().get("SourceNode"), "2");
}

TEST_F(ExportFixture, EachRecordKindHasItsSensorTypeAndMessage) {
    // C0h with the detailed POST layout, whose texts do not come from the file.
    host.config().biosID = "QSVX3";
    auto unknown = Record({9, 0, 0x03, 1, 2, 3, 4, 0x20, 0, 4, 1, 2, 3, 4, 5, 6});
    auto unknownOem = Record({10, 0, 0xC2, STAMP, 0x20, 0, 4, 1, 2, 3, 4, 5, 6});
    // Boot moment in bytes 11..14: 1000000000 = 3B9ACA00h = 2001-09-09 01:46:40.
    auto boot = Record({11, 0, 0xDC, STAMP, 0x20, 0, 4, 0, 0x00, 0xCA, 0x9A, 0x3B, 0});
    auto shutdown = Record({12, 0, 0xDD, STAMP, 0x20, 0, 4, 0, 'A', 0, 'B', 'C', 0});
    // Multi-bit ECC error (01h) on DIMM 3.
    auto c0 = Record({13, 0, 0xC0, STAMP, 0x01, 0x02, 0x00, 0x01, 3, 0, 0, 0, 0});
    // Scalability link (03h), chassis 2, link down.
    auto c1 = Record({14, 0, 0xC1, STAMP, 0x01, 0x02, 0x00, 0x03, 0, 2, 0, 0});
    auto e0 = Record({15, 0, 0xE0, 0x01, 0x02, 0x00, 0x02, 3, 1, 0x01, 0x02, 7, 8, 9, 10});
    auto e1 = Record({16, 0, 0xE1, 0x01, 0x02, 0x00, 0x02, 3, 1, 0x01, 0x02, 7, 8, 9, 10});
    std::vector<IPMISELEntry> records = {unknown, unknownOem, boot, shutdown, c0, c1, e0, e1};
    auto out = Export(records, 1);
    ASSERT_EQ(out.size(), records.size());

    EXPECT_EQ(out[0].find("SensorType"), nullptr);
    EXPECT_EQ(out[0].get("MessageTimestamp"), "19700101000000.000000+000");
    EXPECT_EQ(out[0].get("Message"), "Unknown log type. Raw Data:\n09 00 03 01 02 03 04 20 00 "
                                     "04 01 02 03 04 05 06");
    EXPECT_TRUE(host.hasLog("This SEL entry (ID 9) has an unknown type (0x3).\n"));
    EXPECT_EQ(out[1].find("SensorType"), nullptr);
    EXPECT_EQ(out[1].get("CreationTimeStamp"), "19700101000000.000000+000");
    EXPECT_EQ(out[1].get("Message").rfind("Unknown log type. Raw Data:\n0a 00 c2 ", 0), 0u);

    EXPECT_EQ(out[2].get("SensorType"), "Boot Time");
    EXPECT_EQ(out[2].get("MessageTimestamp"), "20010909014640.000000+000");
    EXPECT_EQ(out[2].get("Message"), "(Boot Time): 20010909014640.000000+000");

    EXPECT_EQ(out[3].get("SensorType"), "Shutdown Event");
    EXPECT_EQ(out[3].get("Message"), "(Shutdown Event): Comment String Part 0: ABC");

    EXPECT_EQ(out[4].get("SensorType"), "OEM POST with Time Stamp");
    EXPECT_EQ(out[4].get("Message"), "DIMM 3:Multi-Bit ECC error occurred.");

    EXPECT_EQ(out[5].get("SensorType"), "OEM SMI Handler with Time Stamp");
    const std::string c1Message = out[5].get("Message");
    const std::string c1Tail = "Chassis Number 2. Scalability Link Down. ";
    ASSERT_GT(c1Message.size(), c1Tail.size());
    EXPECT_EQ(c1Message.substr(c1Message.size() - c1Tail.size()), c1Tail);

    // The records without time stamp carry their decoder's own text.
    IPMIMapping mapping;
    char text[512];
    EXPECT_EQ(out[6].get("SensorType"), "OEM POST No Time Stamp");
    ASSERT_FALSE(records[6].GetOEMxE0(mapping, host::hostCallbacks(), text, sizeof text));
    EXPECT_EQ(out[6].get("Message"), text);
    EXPECT_EQ(out[7].get("SensorType"), "OEM SMI No Time Stamp");
    ASSERT_FALSE(records[7].GetOEMxE1(mapping, host::hostCallbacks(), text, sizeof text));
    EXPECT_EQ(out[7].get("Message"), text);
    EXPECT_NE(out[6].get("Message"), out[7].get("Message"));

    for (const auto& i : out) {
        EXPECT_EQ(i.find("Source"), nullptr);
        EXPECT_EQ(i.find("EventType"), nullptr);
        EXPECT_EQ(i.find("Entity"), nullptr);
        ASSERT_NE(i.find("RawData"), nullptr);
    }

    // What "Message" says when an OEM decoder reports a failure: none of the
    // records above makes one fail, so the texts are checked on their own.
    EXPECT_STREQ(OEMDecoderFailureText(0xC0), "Error in obtaining OEMxC0");
    EXPECT_STREQ(OEMDecoderFailureText(0xC1), "Error in obtaining OEMxC1");
    EXPECT_STREQ(OEMDecoderFailureText(0xE0), "Error in obtaining OEMxE0");
    EXPECT_STREQ(OEMDecoderFailureText(0xE1), "Error in obtaining OEMxE1");
    EXPECT_EQ(OEMDecoderFailureText(0x02), nullptr);
    EXPECT_EQ(OEMDecoderFailureText(0xDD), nullptr);
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

TEST_F(ExportFixture, AuxiliaryLogTextJoinsTheRecordWithTheSameIDWithin511Characters) {
    auto entry = [](uint8_t id, const std::string& extended) {
        AuxLogRecord a;
        a.SetRecordID(id, 0);
        a.SetType(3);
        a.SetSeverity(0x90);
        a.SetOperation(0x01, 0x10);
        a.SetSubClass(1);
        a.SetClass(0);
        const uint8_t inst[4] = {1, 2, 3, 4};
        a.SetInstance(inst);
        const uint8_t caller[10] = {0xAA, 0xBB, 0, 0, 0, 0, 0, 0, 0, 0x01};
        a.SetCallerID(caller);
        a.SetExtendedData(extended);
        return a;
    };
    const std::string head =
        "Type: DEBUG_CODE Sev: OXA_ERROR_FATAL Class: Computing Sub-Class: Host Processor "
        "Instance: 0x01020304 GUID: 0xAABB0000000000000001 Extended Data: ";
    ASSERT_EQ(head.size(), 146u);
    // 146 + 365 = 511 and 512 characters in all: the first is whole, the second loses its
    // last character.
    const std::string fits(365, 'F');
    const std::string over = std::string(365, 'O') + "X";
    aux = {entry(2, "DE AD "), entry(3, fits), entry(4, over)};
    auto out = Export({Threshold(1), Threshold(2), Threshold(3), Threshold(4)});
    ASSERT_EQ(out.size(), 4u);
    EXPECT_EQ(out[0].get("AuxLog"), "No Extended Data");
    EXPECT_EQ(out[1].get("AuxLog"), head + "DE AD ");
    EXPECT_EQ(out[2].get("AuxLog"), head + fits);
    EXPECT_EQ(out[3].get("AuxLog"), head + std::string(365, 'O'));
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
