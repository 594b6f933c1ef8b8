// The message-file lookup: how lines match, how their ends are stripped, the
// failure texts, and that the in-memory copy answers as a fresh scan would.
#include <dirent.h>
#include <gtest/gtest.h>
#include <thread>

#include "tests/mapping/MappingTestSupport.h"

namespace ipmisel::test {
namespace {

struct LineEndCase {
    const char* name;
    std::string file;
    std::string key;
    int32_t size;
    int result;
    std::string text;
};

class LineEnds : public ::testing::TestWithParam<LineEndCase> {};

TEST_P(LineEnds, TextAsAScanWouldCutIt) {
    const LineEndCase& c = GetParam();
    MappingHost h(c.file);
    int result = -1;
    EXPECT_EQ(h.lookup(c.key, &result, c.size), c.text);
    EXPECT_EQ(result, c.result);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LineEnds,
    ::testing::Values(
        LineEndCase{"lf", "104=x\n105=Upper limit\n106=y\n", "105", 256, 0, "Upper limit"},
        LineEndCase{"crlf", "104=x\r\n105=Upper limit\r\n", "105", 256, 0, "Upper limit"},
        // The last line has no line end: its last letter is taken for one.
        LineEndCase{"last_line", "104=x\n105=Upper limit", "105", 256, 0, "Upper limi"},
        // A lone CR is an ordinary last character.
        LineEndCase{"cr_only", "105=Upper limit\r", "105", 256, 0, "Upper limit"},
        LineEndCase{"cr_inside", "105=Upper\rlimit\n", "105", 256, 0, "Upper\rlimit"},
        // At most size characters are copied, then the "line end" goes.
        LineEndCase{"cut_by_size", "105=Upper limit\n", "105", 6, 0, "Upper"},
        LineEndCase{"size_one", "105=Upper limit\n", "105", 1, 1, ""},
        LineEndCase{"exact_fit", "105=Upper\n", "105", 6, 0, "Upper"},
        // Substring over the whole line: the first line holding the digits wins.
        LineEndCase{"shadowed", "105=Upper limit\n5=five\n", "5", 256, 0, "Upper limit"},
        LineEndCase{"text_matches", "100=see 105\n105=Upper limit\n", "105", 256, 0, "see 105"},
        LineEndCase{"second_equals", "105=a=b\n", "105", 256, 0, "a=b"},
        LineEndCase{"no_match", "104=x\n", "105", 256, 1, ""},
        LineEndCase{"empty_file", "", "105", 256, 1, ""},
        // A NUL ends what is seen of a line.
        LineEndCase{"nul", std::string("105=ab\0cd\n", 10), "105", 256, 0, "a"},
        LineEndCase{"nul_hides_key",
                    std::string("1\0"
                                "05=ab\n",
                                7),
                    "105", 256, 1, ""}),
    [](const ::testing::TestParamInfo<LineEndCase>& i) { return std::string(i.param.name); });

TEST(MessageFile, EmptyTextIsAFailureWithItsOwnLogLine) {
    for (const char* file : {"105=\n", "105=", "105=\r\n", "105 without equals\n"}) {
        MappingHost h(file);
        int result = -1;
        EXPECT_EQ(h.lookup("105", &result), "") << file;
        EXPECT_EQ(result, 1) << file;
        EXPECT_TRUE(h.capture.hasLog(SevError, "Can't find data id '105'")) << file;
    }
}

TEST(MessageFile, MissAndFailureTexts) {
    {
        MappingHost h("104=x\n");
        int result = -1;
        h.lookup("105", &result);
        EXPECT_EQ(result, 1);
        EXPECT_TRUE(h.capture.logs.empty()); // a miss is silent
    }
    {
        MappingHost h("", false);
        int result = -1;
        h.lookup("105", &result);
        EXPECT_EQ(result, 1);
        EXPECT_TRUE(h.capture.hasLog(SevFailure, "Can't open ipmisel INI file."));
    }
    {
        MappingHost h("105=x\n");
        h.capture.config().pluginPath = h.folder + "/collector.so";
        int result = -1;
        h.lookup("105", &result);
        EXPECT_EQ(result, 1);
        EXPECT_TRUE(h.capture.hasLog(SevFailure, "Path not found for ipmisel INI file."));
    }
    {
        MappingHost h("105=x\n");
        char out[16] = "keep";
        EXPECT_EQ(h.mapping.GetINIString(nullptr, "105", out, sizeof out), 1);
        EXPECT_STREQ(out, "");
        EXPECT_TRUE(h.capture.hasLog(SevError, "fdrGetPluginPath failed."));
    }
}

TEST(MessageFile, PathIsCutAtTheFirstMarker) {
    MappingHost h("105=beside\n");
    // Everything from the first "ipmisel" on is replaced, whatever follows it.
    h.capture.config().pluginPath = h.folder + "/ipmisel_debug.so";
    EXPECT_EQ(h.text(105), "beside");
}

TEST(MessageFile, LongLinesArriveInPiecesOf511) {
    // 511 characters make one piece; the key written across the cut is not
    // seen, and the second piece answers on its own.
    std::string first = "100=" + std::string(507, 'a');
    ASSERT_EQ(first.size(), 511u);
    std::string file = first + "9=tail\n";
    MappingHost h(file);
    EXPECT_EQ(h.text(1009), "");
    EXPECT_EQ(h.lookup("100", nullptr, 512), std::string(506, 'a')); // last one taken as line end
    EXPECT_EQ(h.text(9), "tail");
    // A line of exactly 511 characters: its line end is a piece of its own.
    MappingHost h2(first + "\n101=next\n");
    EXPECT_EQ(h2.text(101), "next");
}

TEST(MessageFile, RereadWhenTheFileChanges) {
    // The file is looked at again once the last look is 100 ms old.
    auto later = [] { std::this_thread::sleep_for(std::chrono::milliseconds(150)); };
    MappingHost h("105=old\n");
    EXPECT_EQ(h.text(105), "old");
    h.writeFile("105=new text\n");
    later();
    EXPECT_EQ(h.text(105), "new text");
    // Same size, different content: the modification time tells.
    h.writeFile("105=NEW text\n");
    later();
    EXPECT_EQ(h.text(105), "NEW text");
    std::remove((h.folder + "/ipmisel.INI").c_str());
    later();
    int result = -1;
    h.lookup("105", &result);
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(h.capture.hasLog(SevFailure, "Can't open ipmisel INI file."));
}

size_t openDescriptors() {
    size_t n = 0;
    if (DIR* d = opendir("/proc/self/fd")) {
        while (readdir(d) != nullptr) {
            ++n;
        }
        closedir(d);
    }
    return n;
}

TEST(MessageFile, MissesLeaveNoDescriptorOpen) {
    MappingHost h("100=a\n101=b\n");
    int result = 0;
    h.lookup("nothing", &result); // the host may keep a folder handle from now on
    size_t before = openDescriptors();
    for (int i = 0; i < 100000; ++i) {
        h.lookup(i % 2 == 0 ? "nothing" : "zz" + std::to_string(i % 50), &result);
        ASSERT_EQ(result, 1);
    }
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(h.text(101), "b");
    EXPECT_TRUE(h.capture.logs.empty());
}

TEST(MessageFile, OneNumberFormats) {
    struct Case {
        const char* format;
        bool ok;
        const char* text;
    };
    const Case cases[] = {
        {"Memory module %d.", true, "Memory module 7."},
        {"%02x%%", true, "07%"},
        {"%-3u|", true, "7  |"},
        {"%hhd", true, "7"},
        {"no number", false, "no number 7"},
        {"%d and %d", false, "%d and %d 7"},
        {"%s", false, "%s 7"},
        {"%n", false, "%n 7"},
        {"%*d", false, "%*d 7"},
        {"%ld", false, "%ld 7"},
        {"%999d", false, "%999d 7"},
        {"100%", false, "100% 7"},
        {"", false, ""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(message::IsOneNumberFormat(c.format), c.ok) << c.format;
        char out[64];
        message::FormatOneNumber(out, sizeof out, c.format, 7);
        EXPECT_STREQ(out, c.text) << c.format;
    }
}

} // namespace
} // namespace ipmisel::test
