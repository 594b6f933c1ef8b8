// The request frame: completion-code texts, error composition, the request
// bytes as the library receives them, and response rendering at its limits.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <vector>

#include "ipmi/IPMIRequestFrame.h"
#include "plugin/text.h"
#include "tests/support/HostFixture.h"

namespace ipmisel {
namespace {

using test::FakeTransport;
using test::HostCapture;

struct CodeCase {
    uint8_t code;
    const char* any; // CompletionCodeText
    const char* sel; // SELCompletionCodeText
};

TEST(CompletionCodes, TextsAtTheEdgesOfTheTable) {
    const CodeCase cases[] = {
        {0x00, "Unknown error\n", "Unknown error\n"},
        {0x81, "Unknown error\n", "Cannot execute command, SEL erase in progress.\n"},
        {0xBF, "Unknown error\n", "Unknown error\n"},
        {0xC0, "Node Busy.", "Node Busy."},
        {0xC7, "Request data length", "Request data length"},
        {0xC8, "Request data field length", "Request data field length"},
        {0xCA, "Cannot return number of requested data bytes.",
         "Cannot return number of requested data bytes."},
        {0xCC, "Invalid data field in Request", "Invalid data field in Request"},
        {0xD2,
         "Command response could not be provided. BMC initialization or initialization agent in "
         "progress",
         "Command response could not be provided. BMC initialization or initialization agent in "
         "progress"},
        {0xD5,
         "Cannot execute command. Command, or request parameter(s), not supported in present "
         "state.",
         "Cannot execute command. Command, or request parameter(s), not supported in present "
         "state."},
        {0xD6, "Unknown error\n", "Unknown error\n"},
        {0xFF, "Unknown error\n", "Unknown error\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        EXPECT_STREQ(c.any, CompletionCodeText(c.code));
        EXPECT_STREQ(c.sel, SELCompletionCodeText(c.code));
    }
    // Only the fallback texts end in "\n"; the table's never do.
    for (unsigned code = 0xC0; code <= 0xD5; ++code) {
        EXPECT_EQ(nullptr, std::strchr(g_CompletionCodeText[code - 0xC0], '\n'));
    }
}

TEST(CompletionCodes, ComposedMessage) {
    EXPECT_EQ("IPMI error in obtaining system event log info: Request data field length",
              ComposeIPMIError("system event log info", CompletionCodeText(0xC8)));
    EXPECT_EQ("IPMI error in obtaining system event log entry: Cannot execute command, SEL erase "
              "in progress.\n",
              ComposeIPMIError("system event log entry", SELCompletionCodeText(0x81)));
}

// ---- rendering -------------------------------------------------------------------

std::vector<uint8_t> patterned(size_t size) {
    std::vector<uint8_t> b(size);
    for (size_t i = 0; i < size; ++i) {
        b[i] = static_cast<uint8_t>(i);
    }
    return b;
}

TEST(RenderResponse, CutAt255Characters) {
    auto buf = patterned(256);
    struct Case {
        int32_t length;
        size_t size;
        bool newline;
    };
    const Case cases[] = {
        {82, 83 * 3 + 1, true},  // 249 + "\n"
        {83, 84 * 3 + 1, true},  // 252 + "\n" = 253
        {84, 255, false},        // 85 bytes fill the text, the "\n" is cut
        {85, 255, false},        // the 86th byte does not fit at all
        {247, 255, false},       // bytes up to the last of the buffer
        {248, 255, false},       // one past the buffer
        {INT32_MAX, 255, false}, // absurd
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.length);
        const std::string text = RenderResponse(buf.data(), buf.size(), c.length);
        EXPECT_EQ(c.size, text.size());
        EXPECT_EQ(c.newline, text.back() == '\n');
        EXPECT_EQ(0u, text.rfind("08 09 0A ", 0));
    }
}

TEST(RenderResponse, ShortAndAbsurdLengths) {
    // A buffer exactly as long as the bytes it holds: with a length that
    // reaches further only what is there is rendered (the sanitizer build
    // catches a read past it).
    std::vector<uint8_t> small{0, 1, 2, 3, 4, 5, 6, 7, 0xAA, 0xBB};
    EXPECT_EQ("AA \n", RenderResponse(small.data(), small.size(), 0)); // the completion code alone
    EXPECT_EQ("AA BB \n", RenderResponse(small.data(), small.size(), 100));
    EXPECT_EQ("AA BB \n", RenderResponse(small.data(), small.size(), INT32_MAX));
    EXPECT_EQ("\n", RenderResponse(small.data(), 8, 5));
    EXPECT_EQ("\n", RenderResponse(small.data(), small.size(), -1));
    EXPECT_EQ("\n", RenderResponse(small.data(), small.size(), INT32_MIN));
    EXPECT_EQ("\n", RenderResponse(nullptr, 256, 3));
}

TEST(RenderResponse, FromALaterStartKeepsTheEnd) {
    auto buf = patterned(256);
    EXPECT_EQ("27 28 \n", RenderResponseFrom(buf.data(), buf.size(), 39, 32)); // 39..40
    EXPECT_EQ("27 \n", RenderResponseFrom(buf.data(), buf.size(), 39, 31));
    EXPECT_EQ("\n", RenderResponseFrom(buf.data(), buf.size(), 39, 30)); // end before start
    EXPECT_EQ("\n", RenderResponseFrom(buf.data(), buf.size(), 300, 10));
}

// ---- the request on its way ------------------------------------------------------

TEST(RequestFrame, TemplateLogAndWhatTheBMCReceives) {
    HostCapture cap;
    auto fake = std::make_shared<FakeTransport>([](const host::IpmiRequest&) {
        return test::ok({0x12, 0x34});
    });
    cap.setNodes({fake});
    IPMIRequestFrame frame(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));

    const uint8_t data[6] = {0x00, 0x00, 0x34, 0x12, 0x00, 0xFF};
    frame.Prepare(0x0A, 0x43, data, sizeof data);
    const uint8_t expected[15] = {1, 0x20, 0x0A, 0,    0x43, 6, 0,   0,
                                  0, 0x00, 0x00, 0x34, 0x12, 0, 0xFF};
    EXPECT_EQ(0, std::memcmp(expected, frame.reqTemplate, 15));
    EXPECT_EQ(0, std::memcmp(expected, frame.transfer, 15));
    EXPECT_EQ(256, frame.Length());

    frame.LogRequest();
    ASSERT_EQ(2u, cap.logs.size());
    EXPECT_EQ("Contents of buffer to send (rspBuf):", cap.logs[0].text);
    EXPECT_EQ("\n\t1 32 10 0 67 \n\t6 0 0 0 0 \n\t0 52 18 0 255 ", cap.logs[1].text);
    EXPECT_EQ(4, cap.logs[1].severity);

    ASSERT_TRUE(frame.Send());
    ASSERT_EQ(1u, fake->received.size());
    EXPECT_EQ(0x0A, fake->received[0].netfn);
    EXPECT_EQ(0x43, fake->received[0].cmd);
    EXPECT_EQ((std::vector<uint8_t>{0x00, 0x00, 0x34, 0x12, 0x00, 0xFF}), fake->received[0].data);
    EXPECT_EQ(0, frame.CompletionCode());
    EXPECT_EQ(2, frame.Length());
    EXPECT_EQ("00 12 34 \n", frame.ResponseText());
}

} // namespace
} // namespace ipmisel
