// The three output formats on hand-made instances, and the text helpers that
// keep the table inside its columns.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>
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

// What the table shows of a log record, in the plug-in's order.
Instance logRecord(const std::string& id, const std::string& message,
                   const std::string& sensor = "CPU1 Status") {
    return Instance{"OXASG_IPMILogRecord",
                    {text("RecordID", id), when("MessageTimestamp", "20240301120005.000000+060"),
                     text("SensorType", "Processor"), text("SensorInformation", sensor),
                     text("Message", message), text("SourceNode", "1"),
                     bytes("RawData", {0x01, 0x00, 0x02, 0xFF})}};
}

std::vector<std::string> lines(const std::string& s) {
    std::vector<std::string> out;
    std::istringstream in(s);
    for (std::string l; std::getline(in, l);) {
        out.push_back(l);
    }
    return out;
}

TEST(TextHelpers, EdgesOfFoldingWidthsAndWrapping) {
    EXPECT_EQ(foldWhitespace("  a\r\n\t b  "), "a b");
    EXPECT_EQ(foldWhitespace("bell\x07here\x7f"), "bell?here?");
    EXPECT_EQ(foldWhitespace("caf\xC3\xA9 \xFF"), "caf\xC3\xA9 \xFF"); // 8-bit left to the terminal
    EXPECT_EQ(displayWidth("caf\xC3\xA9"), 4u);
    EXPECT_EQ(fitWidth("abcdefg", 2), "ab"); // no room for the ellipsis
    // A two-byte character is never cut in half, by a fit or by a wrap.
    EXPECT_EQ(fitWidth("\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9", 4), "\xC3\xA9...");
    EXPECT_EQ(wrapText("\xC3\xA9\xC3\xA9\xC3\xA9", 2, 0),
              (std::vector<std::string>{"\xC3\xA9\xC3\xA9", "\xC3\xA9"}));
    // An indent as wide as the line is dropped rather than looping forever.
    EXPECT_EQ(wrapText("abcd", 2, 2), (std::vector<std::string>{"ab", "cd"}));
    EXPECT_EQ(csvField("cr\r"), "\"cr\r\"");
}

TEST(Jsonl, OneObjectPerInstanceInPluginOrder) {
    std::ostringstream out;
    JsonlWriter w(out);
    // Deliberately not alphabetical: the order is the plug-in's. Bytes that
    // are not UTF-8 are replaced, not allowed to kill the line.
    w.write(Instance{"OXASG_IPMIFRU",
                     {text("Zeta", "two\nlines \"q\""), when("When", "20240301120005.000000+060"),
                      bytes("Raw", {1, 0, 9, 10, 99, 100, 199, 200, 255}), bytes("None", {}),
                      text("Bad", "\xFF")}});
    w.write(Instance{"OXASG_IPMILogRecord", {}});
    EXPECT_EQ(out.str(),
              R"({"class":"OXASG_IPMIFRU","properties":{"Zeta":"two\nlines \"q\"",)"
              R"("When":"20240301120005.000000+060","Raw":[1,0,9,10,99,100,199,200,255],"None":[],)"
              "\"Bad\":\"\xEF\xBF\xBD\"}}\n"
              R"({"class":"OXASG_IPMILogRecord","properties":{}})"
              "\n");
}

TEST(Jsonl, TextsKeepTheirBytesAndEscapesThroughEitherWritingPath) {
    // Plain ASCII and the short escapes go one way, control characters and
    // 8-bit texts another; both must give the bytes our users already parse.
    const std::pair<const char*, const char*> cases[] = {
        {"tab\there\\ \b\f\r/", R"("tab\there\\ \b\f\r/")"},
        {"eight ok \"q\\", R"("eight ok \"q\\")"}, // escapes only in the last bytes
        {"del\x7f esc\x1b", "\"del\x7f esc\\u001b\""},
        {"us \x1f and more", R"("us \u001f and more")"},
        {"caf\xC3\xA9 \xE2\x82\xAC", "\"caf\xC3\xA9 \xE2\x82\xAC\""},
        // Invalid UTF-8: one U+FFFD per broken sequence, and a byte that
        // broke a sequence is read again on its own.
        {"a\xC3(", "\"a\xEF\xBF\xBD(\""},
        {"cut \xE2\x82", "\"cut \xEF\xBF\xBD\""},
        {"\xC0\xAF", "\"\xEF\xBF\xBD\xEF\xBF\xBD\""},
    };
    for (const auto& [value, json] : cases) {
        std::ostringstream out;
        JsonlWriter(out).write(Instance{"C", {text("T", value)}});
        EXPECT_EQ(out.str(), std::string(R"({"class":"C","properties":{"T":)") + json + "}}\n")
            << value;
    }
    // A name given twice keeps its first place and takes its last value, and
    // an odd name is written like an odd value.
    std::ostringstream out;
    JsonlWriter(out).write(
        Instance{"C", {text("A", "1"), bytes("B", {2}), text("A", "3"), text("\x1f", "4")}});
    EXPECT_EQ(out.str(), R"({"class":"C","properties":{"A":"3","B":[2],"\u001f":"4"}})"
                         "\n");
}

TEST(Jsonl, EveryLengthAndPlaceOfAnEscapeGivesTheJsonLibrarysBytes) {
    // The writer scans 16, then 8 bytes at a time and the last bytes as the
    // end of an overlapping block: a byte that needs a look must be found
    // wherever it sits, in texts of every length around those sizes.
    const std::string specials[] = {"\"", "\\", "\t", "\x1b", "\xC3\xA9", "\xFF", "\x7f"};
    for (size_t length = 0; length <= 40; ++length) {
        std::string plain;
        for (size_t i = 0; i < length; ++i) {
            plain += static_cast<char>('a' + i % 26);
        }
        std::vector<std::string> texts{plain};
        for (const std::string& special : specials) {
            for (size_t at = 0; at < length; ++at) {
                texts.push_back(plain.substr(0, at) + special + plain.substr(at + 1));
            }
        }
        for (const std::string& value : texts) {
            std::ostringstream out;
            JsonlWriter(out).write(Instance{"C", {text("T", value)}});
            const std::string json = nlohmann::json(value).dump(
                -1, ' ', false, nlohmann::json::error_handler_t::replace);
            ASSERT_EQ(out.str(), R"({"class":"C","properties":{"T":)" + json + "}}\n") << value;
        }
    }
}

// Texts written before are taken from what the writer remembers; a long
// stream of instances must still give, line for line, what a fresh writer
// gives for each instance alone. Places whose texts repeat, places whose
// texts never do (and so rest), empty texts, texts alike but for their length
// or one byte, odd texts, names that change, host layouts kept and dropped.
TEST(Jsonl, RepeatedTextsGiveWhatAFreshWriterGives) {
    std::mt19937 rng(3);
    const std::string pool[] = {"",
                                "a",
                                "b",
                                "ab",
                                "a\nb",
                                "a\nc",
                                "\xFF",
                                "caf\xC3\xA9",
                                "x\x1by",
                                "Processor 1 (Temperature)",
                                "Processor 1 (Temperature))"};
    std::ostringstream together;
    JsonlWriter writer(together);
    std::string apart;
    uint64_t layout = 1;
    std::vector<std::string> names = {"RecordID", "Message", "Source", "Raw"};
    for (int i = 0; i < 5000; ++i) {
        // Instances from elsewhere (layout 0) may bring other names any time.
        const bool known = rng() % 8 != 0;
        if (rng() % (known ? 64 : 4) == 0) {
            names[1 + rng() % 2] = rng() % 2 ? "Message" : "Entity";
            ++layout;
        }
        Instance instance{"OXASG_IPMILogRecord",
                          {text(names[0], std::to_string(i)),
                           text(names[1], pool[rng() % (i < 2500 ? 11 : 4)]),
                           text(names[2], pool[rng() % 11] + pool[rng() % 3]),
                           bytes(names[3], {uint8_t(i), uint8_t(rng())})},
                          known ? layout : 0};
        writer.write(instance);
        std::ostringstream alone;
        JsonlWriter(alone).write(instance);
        apart += alone.str();
    }
    const std::vector<std::string> got = lines(together.str());
    const std::vector<std::string> want = lines(apart);
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) {
        ASSERT_EQ(got[i], want[i]) << "line " << i;
    }
}

TEST(Table, LogRecordsAlignedAndWrappedWithinTheirColumns) {
    std::ostringstream out;
    TableWriter w(out, 120);
    w.write(logRecord("65535",
                      "IERR   and\n a very long tail that cannot possibly fit into what is left "
                      "of a line of one hundred and twenty columns",
                      "A sensor name longer than sixteen"));
    w.write(logRecord("1234567", "m"));
    auto ls = lines(out.str());
    ASSERT_EQ(ls.size(), 5u);
    // Folded (the new line and the run of blanks became single spaces) and
    // wrapped at word boundaries, every separator at its place on every line:
    // nothing of the message or the name is lost.
    EXPECT_EQ(ls[1], "   1 |  65535 | 2024-03-01 12:00:05 | Processor          | A sensor name    "
                     "| IERR and a very long tail that cannot");
    EXPECT_EQ(ls[2], "     |        |                     |                    | longer than      "
                     "| possibly fit into what is left of a line");
    EXPECT_EQ(ls[3], "     |        |                     |                    | sixteen          "
                     "| of one hundred and twenty columns");
    // A record ID wider than its column is shown whole, not cut.
    EXPECT_NE(ls[4].find("| 1234567 |"), std::string::npos) << ls[4];

    // On a narrow terminal the fixed columns stay and the message keeps a
    // minimum readable width; a longer word is cut into pieces of it.
    std::ostringstream narrow;
    TableWriter(narrow, 60).write(logRecord("3", std::string(40, 'x')));
    ls = lines(narrow.str());
    ASSERT_EQ(ls.size(), 4u);
    EXPECT_EQ(ls[1].size(), 78u + TableWriter::kMinMessageWidth);
    EXPECT_TRUE(ls[3].ends_with("| " + std::string(40 - 2 * TableWriter::kMinMessageWidth, 'x')));
}

TEST(Table, MessageLosesOnlyWhatTheColumnsRepeat) {
    struct Case {
        const char *type, *sensor, *message, *shown;
    } cases[] = {
        {"Processor", "CPU1 Status", "Processor 1 (Processor - CPU1 Status): Assertion:  IERR\n",
         "Processor 1: Assertion: IERR"},
        // No SDR: empty entity, instance and sensor.
        {"Processor", "", "  (Processor - ): Assertion: IERR", "Assertion: IERR"},
        // The message's entity instance may differ from the property (memory).
        {"Memory", "DIMM B2", "Memory device  (Memory - DIMM B2): Assertion: x",
         "Memory device: Assertion: x"},
        // Anything else, OEM texts included, is shown whole.
        {"Processor", "CPU1 Status", "Processor 1 (Memory - CPU1 Status): x",
         "Processor 1 (Memory - CPU1 Status): x"},
    };
    for (const Case& c : cases) {
        Instance r{"OXASG_IPMILogRecord",
                   {text("SensorType", c.type), text("SensorInformation", c.sensor),
                    text("Message", c.message)}};
        EXPECT_EQ(tableMessage(r), c.shown) << c.message;
    }
}

TEST(Table, OtherClassesInlinePartsAsBlocksAfterTheLog) {
    // Firmware and FRU instances arrive between log records (per node, per
    // class); the log stays one table and the parts follow it, FRUs first.
    std::ostringstream out;
    TableWriter w(out, 50);
    w.write(Instance{"OXASG_IPMIFirmwareElement",
                     {text("ElementName", "Baseboard management controller"),
                      text("VersionString", "2.15"), text("SourceNode", "1")}});
    w.write(logRecord("1", "short"));
    w.write(Instance{"OXASG_IPMIFRU",
                     {text("CreationClassName", "OXASG_IPMIFRU"),
                      text("BoardMfgDateTime", "20240611091200.000000+000"),
                      text("ElementName", "Mainboard"), text("FRUNumber", " "),
                      text("PartNumber", "PN-1"), text("SerialNumber", "2024061109120012345678901"),
                      text("SourceNode", "2"),
                      text("Vendor", "Example Systems International Holdings")}});
    // Other classes inline: boilerplate and empty values left out, a long
    // value cut where the line ends; back to log records, a blank line and the header.
    w.write(Instance{"OXASG_VTXAuxDebugRecord",
                     {text("CreationClassName", "OXASG_VTXAuxDebugRecord"), text("Empty", ""),
                      bytes("RawData", {0xDE, 0xAD, 0xBE, 0xEF, 0, 1, 2, 3, 4, 5, 6, 7, 8})}});
    w.write(logRecord("2", "m"));
    w.write(Instance{"OXASG_CPLDFirmwareElement", {text("CPLD1Version", "0x12")}});
    w.finish();
    auto ls = lines(out.str());
    const std::vector<std::string> expected = {
        "Node | Record | Time stamp          | Sensor type        | Sensor           | Message",
        "   1 |      1 | 2024-03-01 12:00:05 | Processor          | CPU1 Status      | short",
        "",
        "OXASG_VTXAuxDebugRecord: RawData=DE AD BE EF 00 01",
        "    02 03 04 05 06 07 08",
        "",
        "Node | Record | Time stamp          | Sensor type        | Sensor           | Message",
        "   1 |      2 | 2024-03-01 12:00:05 | Processor          | CPU1 Status      | m",
        "",
        // Name and node in the title only; the blank FRU number left out; a
        // date-time shown as one, a 25-digit serial number as it is.
        "FRU  Mainboard (node 2)",
        "    BoardMfgDateTime: 2024-06-11 09:12:00",
        "    PartNumber:       PN-1",
        "    SerialNumber:     2024061109120012345678901",
        "    Vendor:           Example Systems",
        "                      International Holdings",
        "",
        "BMC  Baseboard management controller (node 1)",
        "    VersionString: 2.15",
        "",
        // No name: the class; no node: none.
        "CPLD OXASG_CPLDFirmwareElement",
        "    CPLD1Version: 0x12",
    };
    EXPECT_EQ(ls, expected) << out.str();
}

TEST(Csv, HeaderPerClassQuotingBytesAndWidening) {
    std::ostringstream out;
    CsvWriter w(out);
    // A log record lacking columns (an OEM one) still gets the full log-record
    // header; its missing cells stay empty.
    w.write(Instance{"OXASG_IPMILogRecord",
                     {text("RecordID", "9"), text("Message", "OEM, \"quoted\"\nsecond line"),
                      bytes("RawData", {0x01, 0x00, 0xFF})}});
    // Another class gets its own header; a new property widens it in a new section.
    Instance a{"OXASG_IPMIFRU", {text("Name", "BMC"), text("Part", "P,1")}};
    w.write(a);
    w.write(Instance{a.className, {text("Part", "2"), text("Build", "7"), text("Name", "C")}});
    w.write(a);
    EXPECT_EQ(out.str(), "CreationClassName,LogCreationClassName,LogName,RecordID,MessageTimestamp,"
                         "CreationTimeStamp,Source,SensorType,EventType,Entity,EntityInstance,"
                         "SensorInformation,Message,AuxLog,SourceNode,RawData\r\n"
                         ",,,9,,,,,,,,,\"OEM, \"\"quoted\"\"\nsecond line\",,,01 00 FF\r\n"
                         "\r\nName,Part\r\nBMC,\"P,1\"\r\n"
                         "\r\nName,Part,Build\r\nC,2,7\r\nBMC,\"P,1\",\r\n");
}

} // namespace
