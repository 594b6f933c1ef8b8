// The message-file lookup: how lines match, how their ends are stripped, the
// failure texts, and that the in-memory copy answers as a fresh scan would.
#include <filesystem>
#include <gtest/gtest.h>

#include "tests/mapping/MappingTestSupport.h"

namespace ipmisel::test {
namespace {

TEST(MessageFile, TextAsAScanWouldCutIt) {
    const char* kEmpty = "Can't find data id '105'";
    const struct {
        std::string file;
        const char* key;
        int32_t size;
        int result;
        std::string text;
        const char* error; // the one line logged; null: nothing logged
    } cases[] = {
        {"104=x\n105=Upper limit\n106=y\n", "105", 256, 0, "Upper limit", nullptr},
        {"104=x\r\n105=Upper limit\r\n", "105", 256, 0, "Upper limit", nullptr},
        // Without a line end the last character is taken for one, whatever it is.
        {"104=x\n105=Upper limit", "105", 256, 0, "Upper limi", nullptr},
        {"105=Upper\rlimit\n", "105", 256, 0, "Upper\rlimit", nullptr},
        // At most size characters are copied, then the "line end" goes.
        {"105=Upper limit\n", "105", 6, 0, "Upper", nullptr},
        {"105=Upper\n", "105", 6, 0, "Upper", nullptr},
        {"105=Upper limit\n", "105", 1, 1, "", kEmpty},
        // Substring over the whole line: the first line holding the digits wins.
        {"105=Upper limit\n5=five\n", "5", 256, 0, "Upper limit", nullptr},
        {"105=a=b\n", "105", 256, 0, "a=b", nullptr},
        // A NUL ends what is seen of a line.
        {std::string("105=ab\0cd\n", 10), "105", 256, 0, "a", nullptr},
        // A miss is silent; an empty text is a failure with its own line.
        {"104=x\n", "105", 256, 1, "", nullptr},
        {"105=\n", "105", 256, 1, "", kEmpty},
        {"105 without equals\n", "105", 256, 1, "", kEmpty},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        MappingHost h(c.file);
        int result = -1;
        EXPECT_EQ(h.lookup(c.key, &result, c.size), c.text);
        EXPECT_EQ(result, c.result);
        if (c.error) {
            EXPECT_TRUE(h.capture.hasLog(SevError, c.error));
        } else {
            EXPECT_TRUE(h.capture.logs.empty());
        }
    }
}

TEST(MessageFile, PathRuleAndItsFailures) {
    MappingHost h("105=beside\n");
    // Everything from the first "ipmisel" on is replaced, whatever follows it.
    h.capture.config().pluginPath = h.folder + "/ipmisel_debug.so";
    EXPECT_EQ(h.text(105), "beside");
    h.capture.config().pluginPath = h.folder + "/collector.so";
    int result = -1;
    h.lookup("105", &result);
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(h.capture.hasLog(SevFailure, "Path not found for ipmisel INI file."));
    char out[16] = "keep";
    EXPECT_EQ(h.mapping.GetINIString(nullptr, "105", out, sizeof out), 1);
    EXPECT_STREQ(out, "");
    EXPECT_TRUE(h.capture.hasLog(SevError, "fdrGetPluginPath failed."));
}

TEST(MessageFile, LongLinesArriveInPiecesOf511) {
    // 511 characters make one piece; the key written across the cut is not
    // seen, and the second piece answers on its own.
    std::string first = "100=" + std::string(507, 'a');
    MappingHost h(first + "9=tail\n");
    EXPECT_EQ(h.text(1009), "");
    EXPECT_EQ(h.lookup("100", nullptr, 512), std::string(506, 'a')); // last one taken as line end
    EXPECT_EQ(h.text(9), "tail");
    // A line of exactly 511 characters: its line end is a piece of its own.
    MappingHost h2(first + "\n101=next\n");
    EXPECT_EQ(h2.text(101), "next");
}

TEST(MessageFile, EveryLookupSeesTheFileAsItIsNow) {
    MappingHost h("105=old\n");
    EXPECT_EQ(h.text(105), "old");
    h.writeFile("105=new text\n");
    EXPECT_EQ(h.text(105), "new text");
    // Read and at once rewritten with the same size: size, inode and (on a
    // coarse file-system clock) the times can all stay the same.
    for (char c = '0'; c <= '9'; ++c) {
        h.writeFile(std::string("105=first ") + c + "\n");
        EXPECT_EQ(h.text(105), std::string("first ") + c);
        h.writeFile(std::string("105=again ") + c + "\n");
        EXPECT_EQ(h.text(105), std::string("again ") + c);
    }
    std::remove((h.folder + "/ipmisel.INI").c_str());
    // Without a file every lookup fails.
    int result = -1;
    h.lookup("105", &result);
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(h.capture.hasLog(SevFailure, "Can't open ipmisel INI file."));
    char out[512] = {};
    EXPECT_NE(h.mapping.GetGenericOffset(h.cb(), 0, 0, 0, 3, 0, 0, out, sizeof out), 0);
}

TEST(MessageFile, APassLooksAtTheFileOnceAtItsFirstLookup) {
    MappingHost h("105=old\n");
    auto byId = [&h](int32_t id) {
        char out[64] = {};
        h.mapping.GetINIStringById(h.cb(), id, out, sizeof out);
        return std::string(out);
    };
    {
        const message::Pass pass;
        EXPECT_EQ(byId(105), "old");
        h.writeFile("105=new text\n");
        EXPECT_EQ(byId(105), "old");
        EXPECT_EQ(h.text(105), "old");
        {
            const message::Pass inner; // nested: the outer pass still decides
            EXPECT_EQ(byId(105), "old");
        }
        EXPECT_EQ(byId(105), "old");
    }
    // Outside a pass, and at the first lookup of the next one, the file as it is.
    EXPECT_EQ(byId(105), "new text");
    h.writeFile("105=third\n");
    const message::Pass next;
    EXPECT_EQ(byId(105), "third");
    std::remove((h.folder + "/ipmisel.INI").c_str());
    EXPECT_EQ(byId(105), "third");
}

TEST(MessageFile, LookupsByIdAnswerAsLookupsByText) {
    // Ids remembered by number and ids beyond them, the substring rule
    // included: 5 and -5 find the first line holding those characters.
    MappingHost h("105=Upper\n2050=high\n7=a -5 b\n106=\n");
    auto byId = [&h](int32_t id, int* result) {
        char out[64];
        std::memset(out, 'x', sizeof out);
        *result = h.mapping.GetINIStringById(h.cb(), id, out, sizeof out);
        return std::string(out, strnlen(out, sizeof out));
    };
    auto logText = [&h](size_t from, size_t to) {
        std::string all;
        for (size_t i = from; i < to; ++i) {
            all += std::to_string(h.capture.logs[i].severity) + h.capture.logs[i].text + "|";
        }
        return all;
    };
    for (int32_t id : {105, 5, 2050, 50, -5, 106, 999}) {
        const size_t before = h.capture.logs.size();
        int textResult = -1;
        const std::string text = h.lookup(std::to_string(id), &textResult, 64);
        const size_t between = h.capture.logs.size();
        int idResult = -2;
        EXPECT_EQ(byId(id, &idResult), text) << id;
        EXPECT_EQ(idResult, textResult) << id;
        EXPECT_EQ(logText(between, h.capture.logs.size()), logText(before, between)) << id;
    }
    EXPECT_TRUE(h.capture.hasLog(SevError, "Can't find data id '106'"));
    int result = -1;
    // What is remembered by id goes with the text it came from.
    h.writeFile("1=one\n5=five\n105=Upper\n");
    EXPECT_EQ(byId(5, &result), "five");
}

size_t openDescriptors() {
    auto fds = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(fds), end(fds)));
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
    // Anything but one integer conversion is appended, not used as a format.
    const std::pair<const char*, const char*> cases[] = {
        {"Memory module %d.", "Memory module 7."},
        {"%02x%%", "07%"},
        {"%hhd", "7"},
        {"%d and %d", "%d and %d 7"},
        {"%s", "%s 7"},
        {"%*d", "%*d 7"},
        {"%999d", "%999d 7"},
    };
    for (const auto& [format, text] : cases) {
        char out[64];
        message::FormatOneNumber(out, sizeof out, format, 7);
        EXPECT_STREQ(out, text) << format;
    }
}

} // namespace
} // namespace ipmisel::test
