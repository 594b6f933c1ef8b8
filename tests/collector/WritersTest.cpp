// The three output formats on hand-made instances, and the text helpers that
// keep the table inside its columns.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

#include "collector/Writers.h"

using namespace ipmisel::collector;
using ipmisel::host::Instance;
using ipmisel::host::Property;
using ipmisel::host::PropertyKind;

namespace {

Property text(const std::string& name, const std::string& value) {
    return Property{name, PropertyKind::Text, value, {}};
}
Property when(const std::string& name, const std::string& value) {
    return Property{name, PropertyKind::DateTime, value, {}};
}
Property bytes(const std::string& name, std::vector<uint8_t> value) {
    return Property{name, PropertyKind::Bytes, "", std::move(value)};
}

Instance logRecord(const std::string& id, const std::string& message,
                   const std::string& sensor = "CPU1 Status") {
    Instance i;
    i.className = "OXASG_IPMILogRecord";
    i.properties = {text("CreationClassName", "OXASG_IPMILog"),
                    text("LogCreationClassName", "OXASG_IPMILog"),
                    text("LogName", "IPMILogEntry"),
                    text("RecordID", id),
                    when("MessageTimestamp", "20240301120005.000000+060"),
                    when("CreationTimeStamp", "20240301120005.000000+060"),
                    text("Source", "BMC"),
                    text("SensorType", "Processor"),
                    text("EventType", "Sensor-specific"),
                    text("Entity", "Processor"),
                    text("EntityInstance", "1"),
                    text("SensorInformation", sensor),
                    text("Message", message),
                    text("AuxLog", "No Extended Data"),
                    text("SourceNode", "1"),
                    bytes("RawData", {0x01, 0x00, 0x02, 0xFF})};
    return i;
}

std::vector<std::string> lines(const std::string& s) {
    std::vector<std::string> out;
    std::istringstream in(s);
    for (std::string l; std::getline(in, l);) {
        out.push_back(l);
    }
    return out;
}

TEST(TextHelpers, FoldWhitespace) {
    struct Case {
        const char* in;
        const char* out;
    };
    const Case cases[] = {
        {"", ""},
        {"   ", ""},
        {"a", "a"},
        {"  a  b  ", "a b"},
        {"Unknown log type. Raw Data:\n01 02\r\n\t03", "Unknown log type. Raw Data: 01 02 03"},
        {"bell\x07here\x7f", "bell?here?"},
        {"caf\xC3\xA9 \xFF", "caf\xC3\xA9 \xFF"}, // 8-bit bytes are left to the terminal
    };
    for (const Case& c : cases) {
        EXPECT_EQ(foldWhitespace(c.in), c.out) << c.in;
    }
}

TEST(TextHelpers, FitAndColumnCountColumnsNotBytes) {
    EXPECT_EQ(displayWidth("caf\xC3\xA9"), 4u);
    EXPECT_EQ(fitWidth("abcdef", 6), "abcdef");
    EXPECT_EQ(fitWidth("abcdefg", 6), "abc...");
    EXPECT_EQ(fitWidth("abcdefg", 2), "ab"); // no room for the ellipsis
    EXPECT_EQ(fitWidth("abc", 0), "");
    // A two-byte character is never cut in half.
    EXPECT_EQ(fitWidth("\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9", 4), "\xC3\xA9...");
    EXPECT_EQ(column("ab", 4), "ab  ");
    EXPECT_EQ(column("ab", 4, true), "  ab");
    EXPECT_EQ(column("\xC3\xA9", 3), "\xC3\xA9  ");
    EXPECT_EQ(column("abcdef", 5), "ab...");
}

TEST(TextHelpers, Wrap) {
    EXPECT_EQ(wrapText("", 10, 2), (std::vector<std::string>{""}));
    EXPECT_EQ(wrapText("aa bb cc", 5, 2), (std::vector<std::string>{"aa bb", "  cc"}));
    // Every line, indent included, stays within the width; long words are cut.
    auto w = wrapText("0123456789ABCDEF x", 8, 2);
    EXPECT_EQ(w, (std::vector<std::string>{"01234567", "  89ABCD", "  EF x"}));
    for (const auto& line : wrapText("a bb ccc dddd eeeee ffffff ggggggg", 9, 4)) {
        EXPECT_LE(displayWidth(line), 9u) << line;
    }
    // An indent as wide as the line is dropped rather than looping forever.
    EXPECT_EQ(wrapText("abcd", 2, 2), (std::vector<std::string>{"ab", "cd"}));
}

TEST(TextHelpers, TimestampsHexAndCsvFields) {
    EXPECT_EQ(displayTimestamp("20240301120005.000000+060"), "2024-03-01 12:00:05");
    EXPECT_EQ(displayTimestamp("19700101000000.000000+000"), "1970-01-01 00:00:00");
    EXPECT_EQ(displayTimestamp("2024030112000"), "2024030112000");
    EXPECT_EQ(displayTimestamp("2024-03-01 12:00:05"), "2024-03-01 12:00:05");
    EXPECT_EQ(hexBytes({}), "");
    EXPECT_EQ(hexBytes({0x00, 0x0A, 0xFF}), "00 0A FF");
    EXPECT_EQ(csvField("plain text"), "plain text");
    EXPECT_EQ(csvField(""), "");
    EXPECT_EQ(csvField("a,b"), "\"a,b\"");
    EXPECT_EQ(csvField("say \"hi\""), "\"say \"\"hi\"\"\"");
    EXPECT_EQ(csvField("two\nlines"), "\"two\nlines\"");
    EXPECT_EQ(csvField("cr\r"), "\"cr\r\"");
}

TEST(Jsonl, OneObjectPerInstanceInPluginOrder) {
    std::ostringstream out;
    JsonlWriter w(out);
    Instance fru;
    fru.className = "OXASG_IPMIFRU";
    // Deliberately not alphabetical: the order is the plug-in's.
    fru.properties = {text("Zeta", "z"), text("Alpha", "caf\xC3\xA9"), bytes("Raw", {}),
                      text("Bad", "\xFF\xFE")};
    w.write(logRecord("7", "two\nlines \"quoted\""));
    w.write(fru);
    auto ls = lines(out.str());
    ASSERT_EQ(ls.size(), 2u);

    auto first = nlohmann::ordered_json::parse(ls[0]);
    EXPECT_EQ(first.begin().key(), "class");
    EXPECT_EQ(first["class"], "OXASG_IPMILogRecord");
    auto& props = first["properties"];
    std::vector<std::string> names;
    for (auto it = props.begin(); it != props.end(); ++it) {
        names.push_back(it.key());
    }
    ASSERT_EQ(names.size(), 16u);
    EXPECT_EQ(names[3], "RecordID");
    EXPECT_EQ(names.back(), "RawData");
    EXPECT_EQ(props["RecordID"], "7");
    EXPECT_EQ(props["MessageTimestamp"], "20240301120005.000000+060");
    EXPECT_EQ(props["Message"], "two\nlines \"quoted\"");
    EXPECT_EQ(props["RawData"], nlohmann::json::array({1, 0, 2, 255}));

    auto second = nlohmann::ordered_json::parse(ls[1]);
    EXPECT_EQ(second["properties"].begin().key(), "Zeta");
    EXPECT_EQ(second["properties"]["Alpha"], "caf\xC3\xA9");
    EXPECT_TRUE(second["properties"]["Raw"].is_array());
    EXPECT_TRUE(second["properties"]["Raw"].empty());
    // Bytes that are not UTF-8 are replaced, not allowed to kill the line.
    EXPECT_EQ(second["properties"]["Bad"], "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Table, LogRecordsAlignedAndWrappedWithinTheirColumns) {
    std::ostringstream out;
    TableWriter w(out, 120);
    std::string longMessage = "IERR   and\n a very long tail that cannot possibly fit into what "
                              "is left of a line of one hundred and twenty columns";
    w.write(logRecord("1", "short"));
    w.write(logRecord("65535", longMessage, "A sensor name longer than sixteen"));
    Instance wideId = logRecord("1234567", "m");
    w.write(wideId);
    auto ls = lines(out.str());
    ASSERT_EQ(ls.size(), 6u);
    EXPECT_EQ(ls[0], "Node | Record | Time stamp          | Sensor type        | Sensor           "
                     "| Message");
    EXPECT_EQ(ls[1], "   1 |      1 | 2024-03-01 12:00:05 | Processor          | CPU1 Status      "
                     "| short");
    // Every separator at the same place on every line, continuation lines too.
    for (size_t i = 0; i < 5; ++i) {
        const auto& l = ls[i];
        EXPECT_EQ(l.find(" | "), 4u) << l;
        EXPECT_EQ(l.find(" | ", 5), 13u) << l;
        EXPECT_EQ(l.find(" | ", 14), 35u) << l;
        EXPECT_EQ(l.find(" | ", 36), 56u) << l;
        EXPECT_EQ(l.find(" | ", 57), 75u) << l;
        EXPECT_LE(l.size(), 120u) << l;
    }
    // Folded (the new line and the run of blanks became single spaces) and
    // wrapped at word boundaries: nothing of the message or the name is lost.
    EXPECT_NE(ls[2].find("| A sensor name    | IERR and a very long tail that cannot"),
              std::string::npos)
        << ls[2];
    EXPECT_EQ(
        ls[3].rfind("     |        |                     |                    | longer than", 0),
        0u)
        << ls[3];
    std::string joined;
    for (size_t i = 2; i <= 4; ++i) {
        joined += ls[i].substr(78) + " ";
    }
    EXPECT_NE(joined.find("possibly fit into what is left of a line of one hundred and twenty "
                          "columns"),
              std::string::npos)
        << joined;
    EXPECT_NE(ls[4].find("sixteen"), std::string::npos);
    // A record ID wider than its column is shown whole, not cut.
    EXPECT_NE(ls[5].find("| 1234567 |"), std::string::npos) << ls[5];
}

TEST(Table, MessageLosesOnlyWhatTheColumnsRepeat) {
    Instance r = logRecord("1", "Processor 1 (Processor - CPU1 Status): Assertion:  IERR\n");
    EXPECT_EQ(tableMessage(r), "Processor 1: Assertion: IERR");
    // No SDR: empty entity, instance and sensor.
    r.properties = {text("SensorType", "Processor"), text("Entity", ""), text("EntityInstance", ""),
                    text("SensorInformation", ""),
                    text("Message", "  (Processor - ): Assertion: IERR")};
    EXPECT_EQ(tableMessage(r), "Assertion: IERR");
    // The message's entity instance may differ from the property (memory).
    r.properties = {text("SensorType", "Memory"), text("EntityInstance", "6"),
                    text("SensorInformation", "DIMM B2"),
                    text("Message", "Memory device  (Memory - DIMM B2): Assertion: x")};
    EXPECT_EQ(tableMessage(r), "Memory device: Assertion: x");
    // Anything else, OEM texts included, is shown whole.
    for (const char* m :
         {"Processor 1 (Memory - CPU1 Status): x", "(Boot Time): 2024",
          "Processor 1 (Processor - CPU1 Status) no colon", "Unknown log type. Raw Data:\n01"}) {
        r = logRecord("1", m);
        EXPECT_EQ(tableMessage(r), foldWhitespace(m)) << m;
    }
}

TEST(Table, NarrowAndWideTerminals) {
    std::ostringstream narrow;
    TableWriter(narrow, 60).write(logRecord("3", std::string(200, 'x')));
    auto ls = lines(narrow.str());
    // The fixed columns stay; the message keeps a minimum readable width and
    // a word longer than that is cut into pieces of it.
    EXPECT_EQ(ls[1].size(), 78u + TableWriter::kMinMessageWidth);
    EXPECT_EQ(ls.size(),
              1u + (200 + TableWriter::kMinMessageWidth - 1) / TableWriter::kMinMessageWidth);

    std::ostringstream wide;
    TableWriter(wide, 200).write(logRecord("3", std::string(200, 'x')));
    ls = lines(wide.str());
    EXPECT_EQ(ls[1].size(), 200u);
    EXPECT_EQ(ls.size(), 3u);
}

TEST(Table, OtherClassesAsWrappedNameValueLines) {
    std::ostringstream out;
    TableWriter w(out, 40);
    Instance aux;
    aux.className = "OXASG_VTXAuxDebugRecord";
    aux.properties = {when("MessageTimestamp", "20240301120005.000000+000"),
                      text("CreationClassName", "OXASG_VTXAuxDebugRecord"),
                      text("LogName", "OXASG_VTXAuxDebugRecord"),
                      text("RecordID", "0"),
                      text("Empty", ""),
                      bytes("RawData", {0xDE, 0xAD, 0xBE, 0xEF, 0x00, 0x01})};
    w.write(logRecord("1", "m"));
    w.write(aux);
    w.write(logRecord("2", "m"));
    auto ls = lines(out.str());
    ASSERT_EQ(ls.size(), 10u);
    EXPECT_TRUE(ls[0].starts_with("Node | Record"));
    EXPECT_EQ(ls[2], "");
    EXPECT_EQ(ls[3], "OXASG_VTXAuxDebugRecord:");
    // A value longer than a line is cut where the line ends.
    EXPECT_EQ(ls[4], "    MessageTimestamp=20240301120005.0000");
    EXPECT_EQ(ls[5], "    00+000, RecordID=0, RawData=DE AD BE");
    EXPECT_EQ(ls[6], "    EF 00 01");
    // Back to log records: a blank line and the header again.
    EXPECT_EQ(ls[7], "");
    EXPECT_TRUE(ls[8].starts_with("Node | Record"));
    for (size_t i = 3; i <= 6; ++i) {
        EXPECT_LE(ls[i].size(), 40u);
    }
}

TEST(Csv, HeaderPerClassQuotingAndBytes) {
    std::ostringstream out;
    CsvWriter w(out);
    Instance oem = logRecord("9", "OEM, \"quoted\"\nsecond line");
    // An OEM record lacks the sensor columns: the full log-record header is
    // still used and its missing cells stay empty.
    std::erase_if(oem.properties, [](const Property& p) {
        return p.name == "Source" || p.name == "EventType" || p.name == "Entity";
    });
    w.write(oem);
    w.write(logRecord("10", "plain"));
    Instance fru;
    fru.className = "OXASG_IPMIFRU";
    fru.properties = {text("Serial", "S1"), text("Part", "P,1")};
    w.write(fru);
    std::string s = out.str();
    const std::string header =
        "CreationClassName,LogCreationClassName,LogName,RecordID,MessageTimestamp,"
        "CreationTimeStamp,Source,SensorType,EventType,Entity,EntityInstance,SensorInformation,"
        "Message,AuxLog,SourceNode,RawData\r\n";
    const std::string row9 =
        "OXASG_IPMILog,OXASG_IPMILog,IPMILogEntry,9,20240301120005.000000+060,"
        "20240301120005.000000+060,,Processor,,,1,CPU1 Status,\"OEM, \"\"quoted\"\"\nsecond "
        "line\",No Extended Data,1,01 00 02 FF\r\n";
    const std::string row10 =
        "OXASG_IPMILog,OXASG_IPMILog,IPMILogEntry,10,20240301120005.000000+060,"
        "20240301120005.000000+060,BMC,Processor,Sensor-specific,Processor,1,CPU1 Status,plain,"
        "No Extended Data,1,01 00 02 FF\r\n";
    EXPECT_EQ(s, header + row9 + row10 + "\r\nSerial,Part\r\nS1,\"P,1\"\r\n");
}

TEST(Csv, NewPropertyWidensTheHeaderInANewSection) {
    std::ostringstream out;
    CsvWriter w(out);
    Instance a;
    a.className = "OXASG_IPMIFirmwareElement";
    a.properties = {text("Name", "BMC"), text("Version", "1.2")};
    Instance b = a;
    b.properties = {text("Version", "2.0"), text("Build", "7"), text("Name", "CPLD")};
    w.write(a);
    w.write(b);
    w.write(a);
    EXPECT_EQ(out.str(), "Name,Version\r\nBMC,1.2\r\n"
                         "\r\nName,Version,Build\r\nCPLD,2.0,7\r\nBMC,1.2,\r\n");
}

} // namespace
