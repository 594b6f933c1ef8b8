#include "ipmi/IPMIRequestFrame.h"

#include <cstring>

#include "base/format.h"
#include "base/log.h"
#include "base/text.h"

namespace ipmisel {

const char* const g_CompletionCodeText[22] = {
    "Node Busy.",                                      // C0h
    "Invalid Command.",                                // C1h
    "Command invalid for given LUN.",                  // C2h
    "Timeout while processing command.",               // C3h
    "Out of space.",                                   // C4h
    "Reservation Canceled or Invalid Reservation ID.", // C5h
    "Request data truncated.",                         // C6h
    "Request data length",                             // C7h: the short text is the one printed
    "Request data field length",                       // C8h: likewise
    "Parameter out of range.",                         // C9h
    "Cannot return number of requested data bytes.",   // CAh
    "Requested Sensor, data, or record not present.",  // CBh
    "Invalid data field in Request",                   // CCh
    "Command illegal for specified sensor or record type.",                    // CDh
    "Command response could not be provided.",                                 // CEh
    "Cannot execute duplicated request.",                                      // CFh
    "Command response could not be provided. SDR Repository in update mode.",  // D0h
    "Command response could not be provided. Device in firmware update mode.", // D1h
    "Command response could not be provided. BMC initialization or initialization agent in "
    "progress",                                              // D2h
    "Destination unavailable.",                              // D3h
    "Cannot execute command. Insufficient privilege level.", // D4h
    "Cannot execute command. Command, or request parameter(s), not supported in present "
    "state.", // D5h
};

namespace {

constexpr uint8_t kFirstTableCode = 0xC0;
constexpr size_t kTableSize = sizeof g_CompletionCodeText / sizeof g_CompletionCodeText[0];
constexpr const char* kUnknownError = "Unknown error\n";
constexpr uint8_t kSELEraseInProgress = 0x81;
constexpr const char* kSELEraseText = "Cannot execute command, SEL erase in progress.\n";

// Bytes every request carries: byte 0 is always 1, byte 1 the BMC's address.
constexpr uint8_t kRequestMark = 0x01;
constexpr uint8_t kBMCAddress = 0x20;
constexpr size_t kTemplateSize = 15;
constexpr size_t kDataStart = 9;
constexpr size_t kMaxData = kTemplateSize - kDataStart;

// The rendered text lives in 256 bytes: 255 characters and the terminator.
constexpr size_t kTextSize = kResponseTextSize;
constexpr size_t kResponseStart = 8;

} // namespace

const char* CompletionCodeText(uint8_t cc) {
    if (cc >= kFirstTableCode && static_cast<size_t>(cc - kFirstTableCode) < kTableSize) {
        return g_CompletionCodeText[cc - kFirstTableCode];
    }
    return kUnknownError;
}

const char* SELCompletionCodeText(uint8_t cc) {
    if (cc >= kFirstTableCode && static_cast<size_t>(cc - kFirstTableCode) < kTableSize) {
        return g_CompletionCodeText[cc - kFirstTableCode];
    }
    if (cc == kSELEraseInProgress) {
        return kSELEraseText;
    }
    return kUnknownError;
}

std::string ComposeIPMIError(const char* subject, const char* ccText) {
    std::string message = "IPMI error in obtaining ";
    message += subject ? subject : "";
    message += ": ";
    message += ccText ? ccText : "";
    return message;
}

template <size_t Capacity>
void BasicRequestFrame<Capacity>::Prepare(uint8_t netFnIn, uint8_t cmdIn, const uint8_t* data,
                                          uint8_t count) {
    if (count > kMaxData) {
        count = kMaxData;
    }
    if (data == nullptr) {
        count = 0;
    }
    length_ = static_cast<int32_t>(Capacity);
    netFn = netFnIn;
    lun = 0;
    cmd = cmdIn;
    reqTemplate[0] = kRequestMark;
    reqTemplate[1] = kBMCAddress;
    reqTemplate[2] = netFn;
    reqTemplate[3] = lun;
    reqTemplate[4] = cmd;
    reqTemplate[5] = count;
    // Bytes 6..8 stay as creation left them (zero): with byte 5 they are the
    // data length the library reads as one 32-bit number.
    std::memset(reqTemplate + kDataStart, 0, kMaxData);
    if (count > 0) {
        std::memcpy(reqTemplate + kDataStart, data, count);
    }
    std::memcpy(transfer, reqTemplate, kTemplateSize);
}

template <size_t Capacity>
void BasicRequestFrame<Capacity>::LogRequest(const char* heading, bool hex) const {
    Log(SevTrace, heading);
    char line[128] = "";
    TextBuilder text(line, sizeof line);
    for (size_t i = 0; i < kTemplateSize; ++i) {
        if (i == 0 || i == 5 || i == 10) {
            text.Add("\n\t");
        }
        text.Add(hex ? HexByte(transfer[i]) : Decimal(transfer[i])).Add(" ");
    }
    Log(SevTrace, line);
}

template <size_t Capacity> bool BasicRequestFrame<Capacity>::Send() {
    length_ = static_cast<int32_t>(Capacity);
    if (library_ == nullptr) {
        return false;
    }
    return library_->sendIPMICommand(transfer, &length_, static_cast<int32_t>(Capacity), true);
}

template <size_t Capacity> std::string BasicRequestFrame<Capacity>::ResponseText() const {
    return RenderResponse(transfer, sizeof transfer, length_);
}

template <size_t Capacity>
size_t BasicRequestFrame<Capacity>::ResponseText(char (&text)[kResponseTextSize]) const {
    return RenderResponseInto(text, transfer, sizeof transfer, kResponseStart, length_);
}

template class BasicRequestFrame<256>;
template class BasicRequestFrame<312>;

size_t RenderResponseInto(char* text, const uint8_t* buf, size_t capacity, size_t first,
                          int32_t length) {
    size_t used = 0;
    // The last byte is 8 + length, wherever the rendering starts; a length
    // that is negative or reaches past the buffer is held to what the buffer
    // really has.
    if (buf != nullptr && length >= 0 && capacity > first) {
        size_t last = kResponseStart + static_cast<size_t>(length);
        if (last > capacity - 1) {
            last = capacity - 1;
        }
        // "%02X " per byte from the table: this runs for every response of a
        // 65,535-entry SEL, and a formatted print per byte dominated it.
        // 255 characters are 85 whole pieces: the cut never splits one.
        static_assert((kTextSize - 1) % 3 == 0);
        for (size_t i = first; i <= last && used < kTextSize - 1; ++i, used += 3) {
            std::memcpy(text + used, kHexByteText[buf[i]].data(), 3);
        }
    }
    if (used < kTextSize - 1) {
        text[used++] = '\n';
    }
    text[used] = '\0';
    return used;
}

std::string RenderResponseFrom(const uint8_t* buf, size_t capacity, size_t first, int32_t length) {
    char text[kTextSize];
    const size_t n = RenderResponseInto(text, buf, capacity, first, length);
    return std::string(text, n);
}

std::string RenderResponse(const uint8_t* buf, size_t capacity, int32_t length) {
    return RenderResponseFrom(buf, capacity, kResponseStart, length);
}

} // namespace ipmisel
