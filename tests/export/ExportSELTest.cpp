// The SEL export against hand-made records and sensor records: what reaches
// the framework, in which order, and which failures cost what.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
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
    IPMISELEntry e;
    std::copy(wire.begin(), wire.end(), e.bytes);
    std::swap(e.bytes[0], e.bytes[1]);
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
IPMISELEntry Event(uint16_t id, uint8_t sensorType, uint8_t number, bool deassertion = false) {
    return Record({uint8_t(id & 0xFF), uint8_t(id >> 8), 0x02, STAMP, 0x20, 0x00, 0x04, sensorType,
                   number, uint8_t(deassertion ? 0xF0 : 0x70), 0x00, 0xFF, 0xFF});
}

IPMISDREntry* Sensor(uint8_t number, uint8_t entity, uint8_t instance, const char* name) {
    auto* s = new IPMISDREntry();
    s->RecordIDLow = s->SensorNumber = number;
    s->SDRVersion = 0x51;
    s->RecordType = s->BaseUnit = s->M = 1;
    s->EntityID = entity;
    s->EntityInstance = instance;
    std::strncpy(s->IDString, name, 16);
    return s;
}

struct ExportFixture : ::testing::Test {
    HostCapture host;
    SDRCache cache;
    std::vector<AuxLogRecord> aux;
    // Get SEL Time answers 2024-01-02 03:04:05; everything else C1h.
    std::shared_ptr<test::FakeTransport> bmc =
        std::make_shared<test::FakeTransport>([](const host::IpmiRequest& r) {
            return r.netfn == 0x0A && r.cmd == 0x48 ? test::ok({STAMP}) : test::cc(0xC1);
        });

    void SetUp() override { host.setNodes({bmc, bmc}); }
    void TearDown() override {
        DeleteSDRCache(cache);
        g_driveNumberingFlag = false;
    }

    std::vector<host::Instance> Export(std::vector<IPMISELEntry> records, int32_t node = 0,
                                       int32_t offset = 0) {
        host.clear();
        // Start the instance count afresh, so failure hooks count from 0 per export.
        host::configure(host::config());
        EXPECT_EQ(ExportSEL(node, host::hostCallbacks(), host::outputHandle(), cache,
                            records.data(), static_cast<uint32_t>(records.size()), offset, aux,
                            NOXAQSV20::SPLibrary::GetSplibraryInstance(node)),
                  0);
        return host.instancesOf("OXASG_IPMILogRecord");
    }
};

} // namespace

TEST_F(ExportFixture, StandardRecordWithSensorWritesEveryPropertyInOrder) {
    cache.push_back(Sensor(0x30, 0x03, 0x01, "CPU1 Temp"));
    auto out = Export({Threshold(7)}, 0, 100);
    ASSERT_EQ(out.size(), 1u);
    std::string all;
    for (const auto& p : out[0].properties) {
        all += p.name + "=" + out[0].get(p.name) + "\n";
    }
    // The record ID moved on by the offset; generator 20h is slave address
    // 10h; the threshold text's own lines are indented by 15 blanks.
    EXPECT_EQ(all, "CreationClassName=OXASG_IPMILog\n"
                   "LogCreationClassName=OXASG_IPMILog\n"
                   "LogName=IPMILogEntry\n"
                   "RecordID=107\n"
                   "MessageTimestamp=20240102030405.000000+000\n"
                   "CreationTimeStamp=20240102030405.000000+000\n"
                   "Source=16 (address). LUN 0. Channel 0.\n"
                   "SensorType=Temperature\n"
                   "EventType=Assertion, Threshold.\n"
                   "Entity=Processor\n"
                   "EntityInstance=1\n"
                   "SensorInformation=CPU1 Temp\n"
                   "Message=Processor 1 (Temperature - CPU1 Temp): Assertion: Lower critical "
                   "threshold crossed while the reading was falling. \n"
                   "               Trigger threshold value: 28.00 degrees C. \n"
                   "               Trigger reading: 30.00 degrees C.\n"
                   "AuxLog=No Extended Data\n"
                   "SourceNode=1\n"
                   "RawData=\n");
    EXPECT_EQ(out[0].find("RawData")->bytes,
              (std::vector<uint8_t>{7, 0, 0x02, 0x25, 0x7D, 0x93, 0x65, 0x20, 0x00, 0x04, 0x01,
                                    0x30, 0x01, 0x52, 30, 28}));
}

// How a standard record's message is put together from its sensor record:
// entity names, the drive number, the adjustments and their order.
TEST_F(ExportFixture, StandardMessageRules) {
    // The shipped file names no entity "Cannot ..."; entity 01h does here.
    std::stringstream shipped;
    shipped << std::ifstream(test::binDir() + "/ipmisel.INI", std::ios::binary).rdbuf();
    std::string file = shipped.str();
    file.replace(file.find("\n1001=Other"), 11, "\n1001=Cannot be determined");
    const std::string dir = test::makeTempDir("export");
    std::ofstream(dir + "/ipmisel.INI", std::ios::binary) << file;
    host.config().pluginPath = dir + "/ipmisel.so";

    // Sensor type, deassertion, the sensor record's entity, instance and name
    // (sensor number: the row's position + 1), then "SensorType|Entity|
    // EntityInstance" and the message up to its ": Assertion: ".
    struct Row {
        uint8_t sensorType, deassertion, entity, instance;
        const char* name; // nullptr: no sensor record with this number
        const char *properties, *message;
    };
    const Row rows[] = {
        // Entity names: the message file below 29h (1000 + ID); none above 34h.
        {0x07, 0, 0x03, 1, "CPU1", "Processor|Processor|1", "Processor 1 (Processor - CPU1)"},
        {0x07, 1, 0x03, 1, "CPU1", "Processor|Processor|1", "Processor 1 (Processor - CPU1)"},
        {0x29, 0, 0x28, 2, "CMOS", "Battery|Battery|2", "Battery 2 (Battery - CMOS)"},
        {0x07, 0, 0x35, 0, "S", "Processor||0", " 0 (Processor - S)"},
        // Empty entity, blank, empty instance, then " (" and the sensor type.
        {0x07, 0, 0, 0, nullptr, "Processor||", "  (Processor - )"},
        // Memory in the sensor type: no instance in the message, the property keeps it.
        {0x0E, 0, 0x20, 3, "Resize", "POST Memory Resize|Memory device|3",
         "Memory device  (POST Memory Resize - Resize)"},
        // Power supply named VRM: both conditions are needed.
        {0x08, 0, 0x0A, 1, "CPU VRM 1", "Power Supply|Power supply|1",
         "Power supply 1 (Voltage Regulator Module - CPU VRM 1)"},
        {0x08, 0, 0x0A, 1, "PS1", "Power Supply|Power supply|1",
         "Power supply 1 (Power Supply - PS1)"},
        {0x02, 0, 0x0A, 1, "VRM", "Voltage|Power supply|1", "Power supply 1 (Voltage - VRM)"},
        // HSDC names the entity, ahead of the unknown-entity rule.
        {0x14, 0, 0x00, 4, "HSDC", "Button|Unknown (unspecified entity)|4",
         "HS IO Expansion 4 (Button - HSDC)"},
        // An entity that cannot say what it is gives way to the sensor's name.
        {0x14, 0, 0x00, 5, "B", "Button|Unknown (unspecified entity)|5", "B 5 (Button - B)"},
        {0x14, 0, 0x02, 6, "Rear", "Button|Unknown|6", "Rear 6 (Button - Rear)"},
        {0x14, 0, 0x01, 7, "Side", "Button|Cannot be determined|7", "Side 7 (Button - Side)"},
        // "Unknown" leaves the sensor type; the property keeps it.
        {0x00, 0, 0x07, 1, "M", "Unknown Sensor Type|System board|1",
         "System board 1 ( Sensor Type - M)"},
        // Drive bays (0Dh, C1h) named "Drive": the digits from the first to the
        // last one, read as a number, stand for the instance.
        {0x0D, 0, 0x04, 5, "Drive 12", "Drive Slot (Bay)|Disk or disk bay|5",
         "Disk or disk bay 12 (Drive Slot (Bay) - Drive 12)"},
        {0xC1, 0, 0x04, 5, "Drive 3 Slot 4", "Drive/Slot Status|Disk or disk bay|5",
         "Disk or disk bay 3 (Drive/Slot Status - Drive 3 Slot 4)"},
        {0x0D, 0, 0x04, 5, "HDD 3", "Drive Slot (Bay)|Disk or disk bay|5",
         "Disk or disk bay 5 (Drive Slot (Bay) - HDD 3)"},
        {0x07, 0, 0x04, 5, "Drive 9", "Processor|Disk or disk bay|5",
         "Disk or disk bay 5 (Processor - Drive 9)"},
        {0x0D, 0, 0x04, 5, "Drive", "Drive Slot (Bay)|Disk or disk bay|5",
         "Disk or disk bay 5 (Drive Slot (Bay) - Drive)"},
        // Entity IDs 29h to 34h are named by the export itself.
        {0x04, 0, 0x29, 3, "S", "Fan|Processing blade|3", "Processing blade 3 (Fan - S)"},
        {0x04, 0, 0x2A, 3, "S", "Fan|Connectivity switch|3", "Connectivity switch 3 (Fan - S)"},
        {0x04, 0, 0x2B, 3, "S", "Fan|Processor or memory module|3",
         "Processor or memory module 3 (Fan - S)"},
        {0x04, 0, 0x2C, 3, "S", "Fan|IO module|3", "IO module 3 (Fan - S)"},
        {0x04, 0, 0x2D, 3, "S", "Fan|Processor or IO module|3",
         "Processor or IO module 3 (Fan - S)"},
        {0x04, 0, 0x2E, 3, "S", "Fan|Management Controller Firmware|3",
         "Management Controller Firmware 3 (Fan - S)"},
        {0x04, 0, 0x2F, 3, "S", "Fan|IPMI Channel|3", "IPMI Channel 3 (Fan - S)"},
        {0x04, 0, 0x30, 3, "S", "Fan|PCI Bus|3", "PCI Bus 3 (Fan - S)"},
        {0x04, 0, 0x31, 3, "S", "Fan|PCI Express Bus|3", "PCI Express Bus 3 (Fan - S)"},
        {0x04, 0, 0x32, 3, "S", "Fan|SCSI Bus|3", "SCSI Bus 3 (Fan - S)"},
        {0x04, 0, 0x33, 3, "S", "Fan|SATA or SAS bus|3", "SATA or SAS bus 3 (Fan - S)"},
        {0x04, 0, 0x34, 3, "S", "Fan|Processor or front-side bus|3",
         "Processor or front-side bus 3 (Fan - S)"},
    };

    std::vector<IPMISELEntry> records;
    for (const Row& r : rows) {
        const uint8_t number = uint8_t(records.size() + 1);
        if (r.name) {
            cache.push_back(Sensor(number, r.entity, r.instance, r.name));
        }
        records.push_back(Event(number, r.sensorType, number, r.deassertion));
    }
    auto out = Export(records);
    ASSERT_EQ(out.size(), records.size());
    for (size_t k = 0; k < std::size(rows); ++k) {
        const Row& r = rows[k];
        EXPECT_EQ(out[k].get("SensorType") + "|" + out[k].get("Entity") + "|" +
                      out[k].get("EntityInstance"),
                  r.properties);
        EXPECT_EQ(out[k].get("SensorInformation"), r.name ? r.name : "");
        EXPECT_EQ(out[k].get("Message"),
                  r.message + std::string(r.deassertion ? ": Deassertion: " : ": Assertion: "));
    }
    EXPECT_EQ(host.countLog("Error retrieving Drive No.."), 1u);

    // With the process-wide switch set, drive bays keep their entity instance.
    g_driveNumberingFlag = true;
    EXPECT_EQ(Export({Event(1, 0x0D, 15)}).at(0).get("Message"), // sensor 15: "Drive 12"
              "Disk or disk bay 5 (Drive Slot (Bay) - Drive 12): Assertion: ");
}

TEST_F(ExportFixture, DeviceRelativeInstancesOnTheirMachineType) {
    std::vector<IPMISELEntry> records;
    for (uint8_t k = 0; k < 3; ++k) {
        cache.push_back(Sensor(k, 0x07, 0x5F + k, "A"));
        records.push_back(Event(k, 0x07, k));
    }
    // Machine type from the ID, the one reported, the instances written.
    const std::array<const char*, 3> cases[] = {
        {"", "", "95 96 97 "}, {"8877", "", "95 0 1 "}, {"0000", "8877", "95 96 97 "}};
    for (const auto& [fromID, reported, expected] : cases) {
        host.config().machineTypeFromID = fromID;
        host.config().machineType = reported;
        std::string got;
        for (const auto& i : Export(records)) {
            got += i.get("EntityInstance") + " ";
        }
        EXPECT_EQ(got, expected) << fromID << "/" << reported;
    }
}

TEST_F(ExportFixture, FirstNodeKeepsOnlyItsOwnGenerators) {
    // Generator byte: 7-bit address or software ID in bits 7:1. Node 0 keeps
    // 00h..10h and 26h.
    const uint8_t generators[] = {0x01, 0x20, 0x21, 0x22, 0x4A, 0x4C, 0x4D, 0x4E, 0x41, 0xFF};
    std::vector<IPMISELEntry> records;
    for (uint8_t g : generators) {
        records.push_back(Threshold(g, g));
    }
    std::string ids;
    for (const auto& i : Export(records, 0)) {
        ids += i.get("RecordID") + " ";
    }
    EXPECT_EQ(ids, "1 32 33 76 77 ");
    // Other nodes report every generator.
    EXPECT_EQ(Export(records, 1, 10).size(), std::size(generators));
    EXPECT_EQ(host.instances.front().get("RecordID"), "11");
    EXPECT_EQ(host.instances.front().get("SourceNode"), "2");
}

TEST_F(ExportFixture, EachRecordKindHasItsSensorTypeAndMessage) {
    // C0h with the detailed POST layout, whose texts do not come from the file.
    host.config().biosID = "QSVX3";
    const std::vector<IPMISELEntry> records = {
        Record({9, 0, 0x03, 1, 2, 3, 4, 0x20, 0, 4, 1, 2, 3, 4, 5, 6}),
        Record({10, 0, 0xC2, STAMP, 0x20, 0, 4, 1, 2, 3, 4, 5, 6}),
        // Boot moment in bytes 11..14: 1000000000 = 3B9ACA00h = 2001-09-09 01:46:40.
        Record({11, 0, 0xDC, STAMP, 0x20, 0, 4, 0, 0x00, 0xCA, 0x9A, 0x3B, 0}),
        Record({12, 0, 0xDD, STAMP, 0x20, 0, 4, 0, 'A', 0, 'B', 'C', 0}),
        // Multi-bit ECC error (01h) on DIMM 3.
        Record({13, 0, 0xC0, STAMP, 0x01, 0x02, 0x00, 0x01, 3, 0, 0, 0, 0}),
        // Scalability link (03h), chassis 2, link down.
        Record({14, 0, 0xC1, STAMP, 0x01, 0x02, 0x00, 0x03, 0, 2, 0, 0}),
        Record({15, 0, 0xE0, 0x01, 0x02, 0x00, 0x02, 3, 1, 0x01, 0x02, 7, 8, 9, 10}),
        Record({16, 0, 0xE1, 0x01, 0x02, 0x00, 0x02, 3, 1, 0x01, 0x02, 7, 8, 9, 10})};
    auto out = Export(records, 1);
    ASSERT_EQ(out.size(), records.size());
    // Sensor type (or none), then the message: for the second and the last
    // three, how it begins (C1h's end is checked below).
    const std::pair<const char*, std::string> kinds[] = {
        {nullptr, "Unknown log type. Raw Data:\n09 00 03 01 02 03 04 20 00 04 01 02 03 04 05 06"},
        {nullptr, "Unknown log type. Raw Data:\n0a 00 c2 "},
        {"Boot Time", "(Boot Time): 20010909014640.000000+000"},
        {"Shutdown Event", "(Shutdown Event): Comment String Part 0: ABC"},
        {"OEM POST with Time Stamp", "DIMM 3:Multi-Bit ECC error occurred."},
        {"OEM SMI Handler with Time Stamp", ""},
        {"OEM POST No Time Stamp", "OEM POST details: "},
        {"OEM SMI No Time Stamp", "OEM SMI handler details: "},
    };
    for (size_t k = 0; k < out.size(); ++k) {
        const auto& [type, message] = kinds[k];
        SCOPED_TRACE(message);
        EXPECT_EQ(out[k].find("SensorType") ? out[k].get("SensorType") : "", type ? type : "");
        const std::string got = out[k].get("Message");
        EXPECT_EQ(k == 1 || k >= 5 ? got.substr(0, message.size()) : got, message);
        EXPECT_FALSE(out[k].find("Source") || out[k].find("Entity"));
    }
    EXPECT_TRUE(host.hasLog("This SEL entry (ID 9) has an unknown type (0x3).\n"));
    EXPECT_EQ(out[0].get("MessageTimestamp"), "19700101000000.000000+000");
    EXPECT_EQ(out[1].get("CreationTimeStamp"), "19700101000000.000000+000");
    EXPECT_EQ(out[2].get("MessageTimestamp"), "20010909014640.000000+000");
    const std::string c1 = out[5].get("Message"),
                      tail = "Chassis Number 2. Scalability Link Down. ";
    EXPECT_EQ(c1.substr(c1.size() - std::min(c1.size(), tail.size())), tail);

    // What "Message" says when an OEM decoder reports a failure: none of the
    // records above makes one fail, so the texts are checked on their own.
    EXPECT_STREQ(OEMDecoderFailureText(0xC0), "Error in obtaining OEMxC0");
    EXPECT_STREQ(OEMDecoderFailureText(0xC1), "Error in obtaining OEMxC1");
    EXPECT_STREQ(OEMDecoderFailureText(0xE0), "Error in obtaining OEMxE0");
    EXPECT_STREQ(OEMDecoderFailureText(0xE1), "Error in obtaining OEMxE1");
    EXPECT_EQ(OEMDecoderFailureText(0x02), nullptr);
    EXPECT_EQ(OEMDecoderFailureText(0xDD), nullptr);
}

TEST_F(ExportFixture, FailuresCostOnlyWhatTheyMust) {
    // A BMC whose clock cannot be read and no sensor records: reported once,
    // and the records are written all the same.
    host.setNodes({std::make_shared<test::FakeTransport>(
        [](const host::IpmiRequest&) { return test::cc(0xC0); })});
    std::vector<IPMISELEntry> records = {Threshold(1), Threshold(2), Threshold(3)};
    ASSERT_EQ(Export(records).size(), 3u);
    EXPECT_TRUE(host.hasLog("SDR cache is empty."));
    EXPECT_TRUE(host.hasLog(2, "Not synchronizing BMC time with OS time."));
    // A common property failing drops the record; instances are counted from
    // 0 in the order they are opened.
    host.config().failProperty = [](uint64_t instance, const std::string& name) {
        return instance == 1 && name == "MessageTimestamp";
    };
    auto out = Export(records);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0].get("RecordID") + out[1].get("RecordID"), "13");
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
    aux = {entry(2, "DE AD "), entry(3, fits), entry(4, std::string(365, 'O') + "X")};
    auto out = Export({Threshold(1), Threshold(2), Threshold(3), Threshold(4)});
    ASSERT_EQ(out.size(), 4u);
    EXPECT_EQ(out[0].get("AuxLog"), "No Extended Data");
    EXPECT_EQ(out[1].get("AuxLog"), head + "DE AD ");
    EXPECT_EQ(out[2].get("AuxLog"), head + fits);
    EXPECT_EQ(out[3].get("AuxLog"), head + std::string(365, 'O'));
}

TEST(FillSELArray, ScansEverySlotAndStopsAtTheFirstEmptyOne) {
    HostCapture host;
    // Two slots of 58 characters, then an empty one.
    const std::string line = "00 02 00 01 00 02 25 7D 93 65 20 00 04 01 30 01 52 1E 1C ";
    std::string text = line + std::string(58 - line.size(), '\0') + line;
    text.resize(58 * 3, '\0');
    IPMISELEntry records[3];
    EXPECT_EQ(FillSELArray(nullptr, text.data(), records, 2), 0);
    EXPECT_EQ(records[1].RecordID(), 1);
    EXPECT_EQ(records[1].bytes[15], 0x1C);
    EXPECT_EQ(FillSELArray(nullptr, text.data(), records, 3), 1);
    EXPECT_TRUE(host.hasLog(1, "Could not open process all SELs."));
    EXPECT_EQ(FillSELArray(nullptr, text.data(), records, 0), 0);
}
