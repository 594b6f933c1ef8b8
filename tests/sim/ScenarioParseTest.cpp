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

TEST(ScenarioParse, RefusesEveryMistakeWithOneLineNamingFilePlaceAndProblem) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"nodes": [{"sel": {"records": ["00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F",
            "01 00 02 00 00 00 00 20 00 04 01 02 03 04 05"]}}]})",
         "bad.json: nodes[0].sel.records[1]: 15 bytes, a SEL record has 16"},
        {R"({"nodes": [{"sel": {"recrods": []}}]})",
         "bad.json: nodes[0].sel: unknown key \"recrods\""},
        {R"({"nodes": [{"sel": {"version": "0x1FF"}}]})",
         "bad.json: nodes[0].sel.version: 0x1FF is out of range 0..255"},
        {R"({"nodes": [{"sel": {"records": [{"id": 3}, {"id": 3}]}}]})",
         "bad.json: nodes[0].sel.records[1]: record ID 0003h is already used by [0]"},
        {R"({"nodes": [{"sel": {"time": "2024-13-01"}}]})",
         "bad.json: nodes[0].sel.time: \"2024-13-01\" is not a UTC date and time like "
         "\"2024-03-01T12:00:00Z\""},
        {R"({"nodes": [{"sdr": {"records": [{"full": {}, "compact": {}}]}}]})",
         "bad.json: nodes[0].sdr.records[0]: give exactly one of \"full\", \"compact\" or "
         "\"fruLocator\""},
        // One mistake per section and per kind of check: the place names the
        // key or the item, the text is the section's own, and of two mistakes
        // in one object the first key read is the one reported.
        {R"({"lan": "yes"})", "bad.json: lan: expected true or false, got a string"},
        {R"({"smbios": [{"type": 1, "uuid": "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E"}]})",
         "bad.json: smbios[0].uuid: 15 bytes, a UUID has 16"},
        {R"({"smbios": [{"handle": 1}]})", "bad.json: smbios[0]: needs \"type\""},
        {R"({"nodes": [{"sel": {"records": [{"evmRev": -1, "generator": 256}]}}]})",
         "bad.json: nodes[0].sel.records[0].generator: 256 is out of range 0..255"},
        {R"({"nodes": [{"sel": {"records": [{"type": "0xC1", "oem": "01 02"}]}}]})",
         "bad.json: nodes[0].sel.records[0].oem: 2 OEM bytes, a record of type C1h carries 9"},
        {R"({"nodes": [{"sdr": {"records": [{"full": {"units1": {"rate": 8}}}]}}]})",
         "bad.json: nodes[0].sdr.records[0].full.units1.rate: 8 is out of range 0..7"},
        {R"({"nodes": [{"sdr": {"records": [{"compact": {"nominal": 1}}]}}]})",
         "bad.json: nodes[0].sdr.records[0].compact: unknown key \"nominal\""},
        {R"({"nodes": [{"fru": {"1": "00", "0x01": "00"}}]})",
         // Keys are read in sorted order: "0x01" before "1".
         "bad.json: nodes[0].fru[\"1\"]: FRU device 1 is given twice"},
        {R"({"nodes": [{"fru": {"one": "00"}}]})",
         "bad.json: nodes[0].fru[\"one\"]: \"one\" is not a number (write 31, \"31\" or \"0x1F\")"},
        {R"({"nodes": [{"auxlog": ["C1 A3 00"]}]})",
         "bad.json: nodes[0].auxlog[0]: 3 bytes, an entry starts with a 10-byte header"},
        {R"({"nodes": [{"i2c": [{"bus": 1, "address": 2, "registers": {"0xFF": "01 02"}}]}]})",
         "bad.json: nodes[0].i2c[0].registers[\"0xFF\"]: runs past register FFh"},
        {R"({"nodes": [{"oem": [{"netfn": 6}]}]})",
         "bad.json: nodes[0].oem[0]: needs \"netfn\" and \"cmd\""},
        {R"({"nodes": [{"oem": [{"netfn": 6, "cmd": 1, "resp": "00"}]}]})",
         "bad.json: nodes[0].oem[0]: unknown key \"resp\""},
        {R"({"nodes": [{"faults": [{"netfn": 6, "cmd": 1, "fail": false}]}]})",
         "bad.json: nodes[0].faults[0].fail: can only be true (leave it out otherwise)"},
        {R"({"nodes": [{"faults": [{"netfn": 6, "cmd": 1, "oversize": 1025}]}]})",
         "bad.json: nodes[0].faults[0].oversize: 1025 is out of range 1..1024"},
        {R"({"nodes": [{"faults": [{"netfn": 6, "cmd": 1, "truncate": 2, "oversize": 2}]}]})",
         "bad.json: nodes[0].faults[0]: give exactly one of \"cc\", \"fail\", \"truncate\" or "
         "\"oversize\""},
        {R"({"nodes": [{"transcript": [{"netfn": 6, "cmd": 1, "fail": true, "cc": 0}]}]})",
         "bad.json: nodes[0].transcript[0]: a failed send has no \"cc\" or \"response\""},
        {R"({"nodes": [{"sel": {}, "transcript": []}]})",
         "bad.json: nodes[0].sel: a node with a \"transcript\" answers from it alone; leave "
         "\"sel\" out"},
    };
    for (const auto& [json, message] : cases) {
        EXPECT_EQ(errorOf(json), message) << json;
    }
}

TEST(ScenarioParse, FlagsCommentsAndRawNeighboursAreTakenAsWritten) {
    Scenario s = parseScenario(R"({"driverPresent": false, "libraryAvailable": false,
        "iBMC": true, "machineTypeFromID": "7X13", "nodes": [{
        "fru": {"comment": "the board", "0x02": "AA"},
        "oem": [{"netfn": 6, "cmd": 1, "prefix": true, "fail": true}],
        "auxlog": [{}, "C1 A3 00 00 00 09 01 FF FF 00", {"recordId": 7, "extendedData": "AA BB"},
            {"callerId": "00 01 02 03 04 05 06 07 08 09"}]}]})",
                               "x.json");
    EXPECT_FALSE(s.driverPresent);
    EXPECT_FALSE(s.libraryAvailable);
    EXPECT_TRUE(s.iBMC);
    EXPECT_EQ(s.machineTypeFromID, "7X13");
    const NodeSetup& node = s.nodes.at(0);
    ASSERT_EQ(node.fru.size(), 1u);
    EXPECT_EQ(toHex(node.fru.at(2)), "AA");
    ASSERT_EQ(node.canned.size(), 1u);
    EXPECT_TRUE(node.canned[0].prefix && node.canned[0].sendFailure);
    // Header: manufacturer, body length, record ID, successor, 0. An entry
    // given by fields takes its successor from the entry after it, raw or
    // not; the last one has FFFFh. Record IDs count on from the last one.
    const auto& log = node.auxLog;
    ASSERT_EQ(log.size(), 4u);
    EXPECT_EQ(toHex(std::span(log[0].bytes).first(10)), "C1 A3 00 16 00 01 00 09 01 00");
    EXPECT_EQ(toHex(std::span(log[2].bytes).first(10)), "C1 A3 00 18 00 07 00 08 00 00");
    EXPECT_EQ(toHex(std::span(log[3].bytes).first(10)), "C1 A3 00 16 00 08 00 FF FF 00");
    EXPECT_EQ(log[2].bytes.size(), 10u + 24u);
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

TEST(ScenarioParse, ApplyScenarioFillsTheHostConfiguration) {
    Scenario s = parseScenario(R"({"machineType": "7X12", "biosID": "B1", "lan": false,
        "smbios": [{"type": 38}, {"type": 11, "strings": ["OXA Torvik Adapter"]}],
        "nodes": [{}, {"name": "spare"}]})",
                               "x.json");
    host::Config config;
    ASSERT_EQ(applyScenario(s, config).size(), 2u);
    ASSERT_EQ(config.nodes.size(), 2u);
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
