// Reading scenario files: what is accepted, and that every mistake is refused
// with one line that names the file, the place and the problem.
#include <gtest/gtest.h>

#include "host/sim/Builders.h"
#include "host/sim/SimBmc.h"
#include "tests/support/HostFixture.h"

namespace ipmisel::sim {
namespace {

std::string errorOf(const std::string& json) {
    try {
        parseScenario(json, "bad.json");
    } catch (const ScenarioError& e) {
        return e.what();
    }
    return "(accepted)";
}

struct BadCase {
    const char* json;
    const char* message;
};

TEST(ScenarioParse, RefusesMistakesWithOneLineNamingFileAndPlace) {
    const BadCase cases[] = {
        {R"({"nodes": [{"sel": {"records": ["00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F",
            "01 00 02 00 00 00 00 20 00 04 01 02 03 04 05"]}}]})",
         "bad.json: nodes[0].sel.records[1]: 15 bytes, a SEL record has 16"},
        {R"({"nodes": [{"sel": {"recrods": []}}]})",
         "bad.json: nodes[0].sel: unknown key \"recrods\""},
        {R"({"machineTyp": "1234"})", "bad.json: unknown key \"machineTyp\""},
        {R"({"nodes": [{"sel": {"version": "0x1FF"}}]})",
         "bad.json: nodes[0].sel.version: 0x1FF is out of range 0..255"},
        {R"({"nodes": [{"sel": {"version": "five"}}]})",
         "bad.json: nodes[0].sel.version: \"five\" is not a number (write 31, \"31\" or \"0x1F\")"},
        {R"({"nodes": [{"sel": {"version": 1.5}}]})",
         "bad.json: nodes[0].sel.version: expected a number, got a fraction"},
        {R"({"driverPresent": "yes"})",
         "bad.json: driverPresent: expected true or false, got a string"},
        {R"([1, 2])", "bad.json: expected a JSON object at the top, got a list"},
        {R"({"nodes": [{"deviceId": "20 0"}]})",
         "bad.json: nodes[0].deviceId: not hex bytes: odd number of hex digits"},
        {R"({"nodes": [{"deviceId": [1, 300]}]})",
         "bad.json: nodes[0].deviceId[1]: 300 is out of range 0..255"},
        {R"({"nodes": [{"sel": {"records": [{"id": 3}, {"id": 3}]}}]})",
         "bad.json: nodes[0].sel.records[1]: record ID 0003h is already used by [0]"},
        {R"({"nodes": [{"sel": {"records": [{"id": "0xFFFF"}]}}]})",
         "bad.json: nodes[0].sel.records[0]: record ID FFFFh is reserved (0000h asks for the "
         "first record, FFFFh for the last)"},
        {R"({"nodes": [{"sel": {"records": [{"type": "0xC1", "oem": "01 02"}]}}]})",
         "bad.json: nodes[0].sel.records[0].oem: 2 OEM bytes, a record of type C1h carries 9"},
        {R"({"nodes": [{"sel": {"records": [{"type": "0xE0", "timestamp": 5,
            "oem": "00 00 00 00 00 00 00 00 00 00 00 00 00"}]}}]})",
         "bad.json: nodes[0].sel.records[0].timestamp: a record of type E0h-FFh has no time "
         "stamp"},
        {R"({"nodes": [{"sel": {"records": [{"type": "0xD0", "sensorType": 1}]}}]})",
         "bad.json: nodes[0].sel.records[0].type: an OEM record type: give the record's OEM "
         "bytes in \"oem\""},
        {R"({"nodes": [{"sel": {"records": [{"data": "01 02 03 04"}]}}]})",
         "bad.json: nodes[0].sel.records[0].data: 4 bytes, event data is 1 to 3 bytes"},
        {R"({"nodes": [{"sel": {"time": "2024-13-01"}}]})",
         "bad.json: nodes[0].sel.time: \"2024-13-01\" is not a UTC date and time like "
         "\"2024-03-01T12:00:00Z\""},
        {R"({"nodes": [{"sdr": {"records": [{"full": {"m": 1024}}]}}]})",
         "bad.json: nodes[0].sdr.records[0].full.m: 1024 is out of range -512..1023"},
        {R"({"nodes": [{"sdr": {"records": [{"compact": {"name": "ABCDEFGHIJKLMNOPQ"}}]}}]})",
         "bad.json: nodes[0].sdr.records[0].compact.name: 17 bytes, an ID string holds at most "
         "16"},
        {R"({"nodes": [{"sdr": {"records": [{"full": {}, "compact": {}}]}}]})",
         "bad.json: nodes[0].sdr.records[0]: give exactly one of \"full\", \"compact\" or "
         "\"fruLocator\""},
        {R"({"nodes": [{"sdr": {"records": ["01 00 51"]}}]})",
         "bad.json: nodes[0].sdr.records[0]: 3 bytes, an SDR record has a 5-byte header at "
         "least"},
        {R"({"nodes": [{"sdr": {"maxReadCount": 0}}]})",
         "bad.json: nodes[0].sdr.maxReadCount: 0 is out of range 1..255"},
        {R"({"nodes": [{"fru": {"0x100": "00"}}]})",
         "bad.json: nodes[0].fru[\"0x100\"]: 0x100 is out of range 0..255"},
        {R"({"nodes": [{"auxlog": [{"callerId": "01 02"}]}]})",
         "bad.json: nodes[0].auxlog[0].callerId: 2 bytes, a caller ID has 10"},
        {R"({"nodes": [{"auxlog": ["C1 A3 00 00"]}]})",
         "bad.json: nodes[0].auxlog[0]: 4 bytes, an entry starts with a 10-byte header"},
        {R"({"nodes": [{"faults": [{"netfn": 10, "cmd": 64}]}]})",
         "bad.json: nodes[0].faults[0]: give exactly one of \"cc\", \"fail\" or \"truncate\""},
        {R"({"nodes": [{"faults": [{"netfn": 10, "cmd": 64, "cc": 192, "nth": 0}]}]})",
         "bad.json: nodes[0].faults[0].nth: 0 is out of range 1..4294967295"},
        {R"({"nodes": [{"oem": [{"cmd": 1}]}]})",
         "bad.json: nodes[0].oem[0]: needs \"netfn\" and \"cmd\""},
        {R"({"nodes": [{"transcript": [], "sel": {}}]})",
         "bad.json: nodes[0].sel: a node with a \"transcript\" answers from it alone; leave "
         "\"sel\" out"},
        {R"({"nodes": [{"i2c": [{"bus": 1, "address": 192}, {"bus": 1, "address": "0xC0"}]}]})",
         "bad.json: nodes[0].i2c[1]: the device on this bus and address is given twice"},
        {R"({"smbios": ["01 04 00 00 00"]})",
         "bad.json: smbios[0]: not a whole SMBIOS structure (header, formatted area, string set)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json);
        EXPECT_EQ(errorOf(c.json), c.message);
    }
}

TEST(ScenarioParse, InvalidJsonOrAMissingFileIsOneLine) {
    std::string got = errorOf("{\n  \"nodes\": [\n    {\"sel\": }\n  ]\n}");
    EXPECT_EQ(got.rfind("bad.json: parse error at line 3, column 13: ", 0), 0u) << got;
    EXPECT_EQ(got.find('\n'), std::string::npos);
    try {
        loadScenarioFile("/nonexistent/dir/x.json");
        FAIL() << "accepted";
    } catch (const ScenarioError& e) {
        EXPECT_EQ(std::string(e.what()).rfind("/nonexistent/dir/x.json: cannot open: ", 0), 0u);
    }
}

TEST(ScenarioParse, NumbersAsTextAndRecordIdsCountOnFromTheLastOne) {
    Scenario s = parseScenario(R"({"nodes": [{"sel": {"records": [
        {"sensorType": "0x07", "sensorNumber": "12", "eventType": 111, "data": [1]},
        "34 12 02 00 00 00 00 20 00 04 01 02 03 04 05 06",
        {"deassertion": true, "eventType": 1, "timestamp": "1970-01-02T00:00:01Z"},
        {"type": "0xE1", "oem": "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D"}
    ]}}]})",
                               "x.json");
    const auto& r = s.nodes.at(0).selRecords;
    ASSERT_EQ(r.size(), 4u);
    EXPECT_EQ(toHex(r[0]), "01 00 02 00 00 00 00 20 00 04 07 0C 6F 01 FF FF");
    EXPECT_EQ(toHex(r[2]), "35 12 02 81 51 01 00 20 00 04 00 00 81 00 FF FF");
    EXPECT_EQ(toHex(r[3]), "36 12 E1 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D");
}

TEST(ScenarioParse, AuxLogSuccessorsLinkEntriesAndMarkTheLast) {
    Scenario s = parseScenario(R"({"nodes": [{"auxlog": [
        {"recordId": 7, "extendedData": "AA BB"},
        {"callerId": "00 01 02 03 04 05 06 07 08 09"}
    ]}]})",
                               "x.json");
    const auto& log = s.nodes.at(0).auxLog;
    ASSERT_EQ(log.size(), 2u);
    // Header: manufacturer, body length, record ID, successor, 0.
    EXPECT_EQ(toHex(std::span(log[0].bytes).first(10)), "C1 A3 00 18 00 07 00 08 00 00");
    EXPECT_EQ(toHex(std::span(log[1].bytes).first(10)), "C1 A3 00 16 00 08 00 FF FF 00");
    EXPECT_EQ(log[0].bytes.size(), 10u + 24u);
}

TEST(ScenarioParse, ApplyScenarioFillsTheHostConfiguration) {
    Scenario s = parseScenario(R"({"machineType": "7X12", "biosID": "B1", "lan": false,
        "smbios": [{"type": 38}, {"type": 11, "strings": ["OXA Torvik Adapter"]}],
        "nodes": [{}, {"name": "spare"}]})",
                               "x.json");
    host::Config config;
    ASSERT_EQ(applyScenario(s, config).size(), 2u);
    ASSERT_EQ(config.nodes.size(), 2u);
    EXPECT_EQ(config.nodes[0]->describe() + "/" + config.nodes[1]->describe(),
              "simulated BMC node 1/spare");
    EXPECT_EQ(config.machineType + config.machineTypeFromID + config.biosID, "7X127X12B1");
    EXPECT_EQ(config.lan, std::optional<bool>(false));
    ASSERT_TRUE(config.smbios);
    EXPECT_EQ(config.smbios->structures().value_or(std::vector<std::vector<uint8_t>>{}).size(), 2u);
    s.smbiosReadable = false;
    applyScenario(s, config);
    EXPECT_FALSE(config.smbios);
}

} // namespace
} // namespace ipmisel::sim
