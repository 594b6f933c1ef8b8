// The request/response frame every request class is built on, and the
// completion-code texts. A response is never read as raw bytes: it is rendered
// as "%02X " text and scanned back with "%x" formats, the same text the SEL
// slots keep and the record parsers read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/framework.h"

namespace ipmisel {

// Texts of completion codes C0h..D5h, indexed by code - 0xC0. C7h and C8h are
// the short texts the system has always printed.
extern const char* const g_CompletionCodeText[22];

// A rendered response: at most 255 characters and the terminator.
constexpr size_t kResponseTextSize = 256;

// C0h..D5h from the table, anything else "Unknown error\n".
const char* CompletionCodeText(uint8_t cc);
// As above, and 81h "Cannot execute command, SEL erase in progress.\n": only
// the SEL commands know that code.
const char* SELCompletionCodeText(uint8_t cc);
// "IPMI error in obtaining " + subject + ": " + text.
std::string ComposeIPMIError(const char* subject, const char* ccText);

// The frame every request class embeds. Most requests travel in a 256-byte
// buffer; the FRU locator requests use 312 bytes. Both sizes share this one
// implementation (instantiated in IPMIRequestFrame.cpp).
template <size_t Capacity> class BasicRequestFrame {
  public:
    static constexpr size_t kCapacity = Capacity;

    uint8_t netFn = 0;
    uint8_t lun = 0;
    uint8_t cmd = 0;
    uint8_t unused = 0;
    uint8_t reqTemplate[15] = {};
    uint8_t transfer[Capacity] = {};

    explicit BasicRequestFrame(NOXAQSV20::SPLibrary* library) : library_(library) {}

    // Fill the template (01 20 netfn 00 cmd n 00 00 00 data...) for up to six
    // data bytes, copy it into the transfer buffer and set length to the
    // capacity.
    void Prepare(uint8_t netFn, uint8_t cmd, const uint8_t* data, uint8_t count);
    // "Contents of buffer to send (rspBuf):" and the 15 bytes in decimal, with
    // "\n\t" in front of bytes 0, 5 and 10 (severity 4).
    void LogRequest() const { LogRequest("Contents of buffer to send (rspBuf):", false); }
    // The same with another heading, the bytes in decimal ("%u ") or in
    // hexadecimal ("%02X ").
    void LogRequest(const char* heading, bool hex) const;
    // Hand the transfer buffer to the library. False when it could not be sent
    // (or there is no library).
    bool Send();
    uint8_t CompletionCode() const { return transfer[4]; }
    int32_t Length() const { return length_; }
    // Bytes 8 .. 8 + length as "%02X " into a 256-byte text (cut at 255), then
    // "\n" appended under the same limit. A length that would reach outside
    // the transfer buffer renders only what the buffer holds.
    std::string ResponseText() const;
    // The same text into a caller's buffer, without an allocation; returns
    // its length.
    size_t ResponseText(char (&text)[kResponseTextSize]) const;
    NOXAQSV20::SPLibrary* Library() const { return library_; }

  protected:
    int32_t length_ = static_cast<int32_t>(Capacity);
    NOXAQSV20::SPLibrary* library_;
};

extern template class BasicRequestFrame<256>;
extern template class BasicRequestFrame<312>;

using IPMIRequestFrame = BasicRequestFrame<256>;

// Rendering used by every request class: "%02X " per byte of buf[8 .. 8 + length]
// (clamped to the buffer's capacity), cut at 255 characters, then "\n" under
// the same limit.
std::string RenderResponse(const uint8_t* buf, size_t capacity, int32_t length);
// The same from byte `first` instead of byte 8; the end (8 + length) does not
// move, so a start past the end renders nothing but the "\n".
std::string RenderResponseFrom(const uint8_t* buf, size_t capacity, size_t first, int32_t length);
// RenderResponseFrom into text[kResponseTextSize]; returns the text's length.
size_t RenderResponseInto(char* text, const uint8_t* buf, size_t capacity, size_t first,
                          int32_t length);

} // namespace ipmisel
