// The request frame: completion-code texts and response rendering at its
// limits. How a request is logged and sent, and how an error is composed
// from a code's text, shows in the storage request tests.
#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "ipmi/IPMIRequestFrame.h"

namespace ipmisel {
namespace {

TEST(CompletionCodes, TableEdgesShortTextsAndTheSELOnlyCode) {
    const std::pair<uint8_t, const char*> cases[] = {
        {0x81, "Unknown error\n"}, // SEL commands only, below
        {0xBF, "Unknown error\n"},
        {0xC0, "Node Busy."},
        {0xC5, "Reservation Canceled or Invalid Reservation ID."},
        {0xC7, "Request data length"},
        {0xC8, "Request data field length"},
        {0xCC, "Invalid data field in Request"},
        {0xD2, "Command response could not be provided. BMC initialization or initialization agent "
               "in progress"},
        {0xD5, "Cannot execute command. Command, or request parameter(s), not supported in "
               "present state."},
        {0xD6, "Unknown error\n"},
    };
    for (const auto& [code, text] : cases) {
        EXPECT_STREQ(text, CompletionCodeText(code)) << int{code};
        if (code != 0x81) {
            EXPECT_STREQ(text, SELCompletionCodeText(code)) << int{code};
        }
    }
    EXPECT_STREQ("Cannot execute command, SEL erase in progress.\n", SELCompletionCodeText(0x81));
}

TEST(RenderResponse, CutAt255AndNeverPastTheBuffer) {
    std::vector<uint8_t> buf(256);
    for (size_t i = 0; i < buf.size(); ++i) {
        buf[i] = static_cast<uint8_t>(i);
    }
    // Response length -> text size; 84 bytes fill 252 characters and the "\n" still fits.
    for (auto [length, size] : {std::pair<int32_t, size_t>{83, 253}, {84, 255}, {INT32_MAX, 255}}) {
        const std::string text = RenderResponse(buf.data(), buf.size(), length);
        EXPECT_EQ(size, text.size()) << length;
        EXPECT_EQ(size < 255, text.back() == '\n') << length;
        EXPECT_EQ(0u, text.rfind("08 09 0A ", 0));
    }
    // A buffer exactly as long as its bytes (the sanitizer build sees a read past it).
    const std::vector<uint8_t> small{0, 1, 2, 3, 4, 5, 6, 7, 0xAA, 0xBB};
    EXPECT_EQ("AA \n", RenderResponse(small.data(), small.size(), 0)); // the completion code alone
    EXPECT_EQ("AA BB \n", RenderResponse(small.data(), small.size(), 2)); // one past its end
    EXPECT_EQ("\n", RenderResponse(small.data(), 8, 5));
    EXPECT_EQ("\n", RenderResponse(small.data(), small.size(), INT32_MIN));
    EXPECT_EQ("\n", RenderResponse(nullptr, 256, 3));
    // A later start keeps the end.
    EXPECT_EQ("27 28 \n", RenderResponseFrom(buf.data(), buf.size(), 39, 32));
    EXPECT_EQ("\n", RenderResponseFrom(buf.data(), buf.size(), 300, 10));
}

} // namespace
} // namespace ipmisel
