// Reading scenario files: what is accepted, and that every mistake is refused
// with one line that names the file, the place and the problem.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <thread>

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
        // A recording's entries are read on a shorter path; its mistakes are
        // told as any other.
        {R"({"nodes": [{"transcript": [{"netfn": 6, "cmd": 1}, {"netfn": "0x40", "cmd": 1}]}]})",
         "bad.json: nodes[0].transcript[1].netfn: 0x40 is out of range 0..63"},
        {R"({"nodes": [{"transcript": [{"netfn": 6, "cmd": 256}]}]})",
         "bad.json: nodes[0].transcript[0].cmd: 256 is out of range 0..255"},
        {R"({"nodes": [{"transcript": [{"netfn": 6, "cmd": 1, "lun": 4}]}]})",
         "bad.json: nodes[0].transcript[0].lun: 4 is out of range 0..3"},
        {R"({"nodes": [{"transcript": [{"netfn": 6, "cmd": 1, "fail": false}]}]})",
         "bad.json: nodes[0].transcript[0].fail: can only be true (leave it out otherwise)"},
        {R"({"nodes": [{"transcript": [{"netfn": 6, "cmd": 1, "data": "0G"}]}]})",
         "bad.json: nodes[0].transcript[0].data: not hex bytes: 'G' is not a hex digit"},
        {R"({"nodes": [{"transcript": [{"netfn": 6, "cmd": 1, "response": "00", "fail": true}]}]})",
         "bad.json: nodes[0].transcript[0]: a failed send has no \"cc\" or \"response\""},
        {R"({"nodes": [{"transcript": [{"cmd": 1, "cc": 0}]}]})",
         "bad.json: nodes[0].transcript[0]: needs \"netfn\" and \"cmd\""},
        {R"({"nodes": [{"transcript": [{"netfn": 6, "cmd": 1, "resp": "00"}]}]})",
         "bad.json: nodes[0].transcript[0]: unknown key \"resp\""},
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
    // Texts that are not JSON although a lenient reader would take them: a
    // lone surrogate, and a byte that is not UTF-8 wherever it stands.
    std::vector<std::string> bad = {R"({"machineType": "\udc00"})"};
    for (size_t pad = 0; pad < 8; ++pad) {
        bad.push_back("{\"machineType\": \"" + std::string(pad, ' ') + "\xFF\"}");
    }
    for (const std::string& text : bad) {
        got = errorOf(text);
        EXPECT_EQ(got.rfind("bad.json: parse error at line 1, column ", 0), 0u) << got;
    }
    // A number no double holds is refused the same way, not thrown as
    // another kind of error (a fuzzed input once did).
    EXPECT_EQ(errorOf(R"({"nodes": [{"latencyMs": 1e400}]})"),
              "bad.json: number overflow parsing '1e400'");
    EXPECT_EQ(errorOf("444.44e444.4"), "bad.json: number overflow parsing '444.44e444'");
    try {
        loadScenarioFile("/nonexistent/dir/x.json");
        FAIL() << "accepted";
    } catch (const ScenarioError& e) {
        EXPECT_EQ(std::string(e.what()).rfind("/nonexistent/dir/x.json: cannot open: ", 0), 0u);
    }
}

TEST(ScenarioParse, LoadsLargeFilesAndPipesWhole) {
    // Larger than any first guess of the size, and through a pipe, whose size
    // is not known before it is read.
    const std::string text =
        "{\"comment\": \"" + std::string(300000, 'x') + "\", \"nodes\": [{\"name\": \"end\"}]}";
    const std::string path = test::makeTempDir("scenarioload") + "/big.json";
    std::ofstream(path, std::ios::binary) << text;
    EXPECT_EQ(loadScenarioFile(path).nodes.at(0).name, "end");

    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    std::thread writer([&] {
        for (size_t at = 0; at < text.size();) {
            ssize_t n = ::write(fds[1], text.data() + at, text.size() - at);
            if (n <= 0) {
                break;
            }
            at += static_cast<size_t>(n);
        }
        ::close(fds[1]);
    });
    Scenario piped = loadScenarioFile("/proc/self/fd/" + std::to_string(fds[0]));
    writer.join();
    ::close(fds[0]);
    EXPECT_EQ(piped.nodes.at(0).name, "end");
}

TEST(ScenarioParse, PlainAndEightBitTextsAreReadAlike) {
    // Plain ASCII text and text with 8-bit bytes or \u escapes are read by
    // different parsers; a "comment" holding an 8-bit character sends a
    // document the other way without changing what it says.
    const std::pair<std::string, std::string> cases[] = {
        // A repeated key: its last value counts.
        {R"("nodes": [{"fruMaxReadCount": 0, "fruMaxReadCount": 5}])", "read 5"},
        {R"("nodes": [{"fruMaxReadCount": 5, "fruMaxReadCount": 0}])",
         "bad.json: nodes[0].fruMaxReadCount: 0 is out of range 1..255"},
        // Of several unknown keys the first in byte order is named.
        {R"("nodes": [{"zz": 1, "ab": 2, "Ab": 3, "ab": 4}])",
         "bad.json: nodes[0]: unknown key \"Ab\""},
        // Numbered keys in sorted order, a repeated one by its last value.
        {R"("nodes": [{"fru": {"1": "AA ZZ", "2": "CC", "1": "BB"}}])", "read 255, FRU 1=BB 2=CC"},
        {R"("nodes": [{"fru": {"2": "AA", "0x02": "BB"}}])",
         "bad.json: nodes[0].fru[\"2\"]: FRU device 2 is given twice"},
        // Integers of either sign and width, and what is not an integer.
        {R"("nodes": [{"fruMaxReadCount": -0}])",
         "bad.json: nodes[0].fruMaxReadCount: 0 is out of range 1..255"},
        {R"("nodes": [{"fruMaxReadCount": 18446744073709551615}])",
         "bad.json: nodes[0].fruMaxReadCount: 18446744073709551615 is out of range 1..255"},
        {R"("nodes": [{"fruMaxReadCount": -9223372036854775808}])",
         "bad.json: nodes[0].fruMaxReadCount: -9223372036854775808 is out of range 1..255"},
        {R"("nodes": [{"fruMaxReadCount": 18446744073709551616}])",
         "bad.json: nodes[0].fruMaxReadCount: expected a number, got a fraction"},
        {R"("nodes": [{"fruMaxReadCount": 1e2}])",
         "bad.json: nodes[0].fruMaxReadCount: expected a number, got a fraction"},
        // A list nested far below anything read is still only a list.
        {R"("nodes": [{"deviceId": [)" + std::string(100, '[') + std::string(100, ']') + "]}]",
         "bad.json: nodes[0].deviceId[0]: expected a number, got a list"},
    };
    auto outcome = [](const std::string& json) {
        try {
            const NodeSetup node = parseScenario(json, "bad.json").nodes.at(0);
            std::string s = "read " + std::to_string(node.fruMaxReadCount);
            for (const auto& [id, bytes] : node.fru) {
                s += (id == node.fru.begin()->first ? ", FRU " : " ") + std::to_string(id) + "=" +
                     toHex(bytes);
            }
            return s;
        } catch (const ScenarioError& e) {
            return std::string(e.what());
        }
    };
    for (const auto& [body, expected] : cases) {
        const std::string plain = "{" + body + "}";
        const std::string eightBit = "{\"comment\": \"caf\xC3\xA9\", " + body + "}";
        const std::string escaped = "{\"comment\": \"\\u00e9\", " + body + "}";
        EXPECT_EQ(outcome(plain), expected) << plain;
        EXPECT_EQ(outcome(eightBit), expected) << eightBit;
        EXPECT_EQ(outcome(escaped), expected) << escaped;
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
