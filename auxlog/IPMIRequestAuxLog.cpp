// Reading the auxiliary debug log: the status request for the number of
// entries, then every entry as a header request followed by body chunks.
#include <algorithm>
#include <cstring>
#include <string>

#include "auxlog/AuxLog.h"
#include "base/log.h"
#include "base/text.h"
#include "ipmi/IPMIRequestFrame.h"

using namespace NOXAQSV20;

namespace ipmisel {

namespace {

constexpr uint8_t kNetFnStorage = 0x0A;
constexpr uint8_t kCmdAuxLogStatus = 0x5A;
constexpr uint8_t kNetFnOEMGroup = 0x2E;
constexpr uint8_t kCmdReadExtendedData = 0x93;
constexpr uint32_t kBufferSize = 256;
constexpr uint32_t kDataStart = 9;     // response data byte 0 in the buffer
constexpr uint32_t kEchoedIDSize = 3;  // later chunks start with the maker's ID again
constexpr uint32_t kResponseStart = 8; // completion code as the message's first byte

// The IPMI errors of both requests have always been reported with the SEL's
// wording; scripts that scan the log look for it.
constexpr const char* kErrorSubject = "system event log info";
constexpr const char* kReadSendFailure =
    "Failure in sending command to obtain AUX Log Read Extended Data.";

} // namespace

bool IsOwnAuxEntry(const s_AuxLog_entry& slot) {
    return std::memcmp(slot.data, kAuxManufacturerID, sizeof kAuxManufacturerID) == 0;
}

uint32_t AuxBodyLength(const s_AuxLog_entry& slot) {
    return slot.data[3] + 256u * slot.data[4];
}

uint16_t AuxRecordID(const s_AuxLog_entry& slot) {
    return static_cast<uint16_t>(slot.data[5] + 256u * slot.data[6]);
}

IPMIRequestAuxLog::IPMIRequestAuxLog(SPLibrary* library) : library_(library) {
    Log(SevDetail, "IPMIRequestAuxLog::IPMIRequestAuxLog() Constructor entered.\n");
    netFn_ = lun_ = cmd_ = 0;
    length_ = kBufferSize;
    std::memset(template_, 0, sizeof template_);
    std::memset(buffer_, 0, sizeof buffer_);
    Log(SevDetail, "IPMIRequestAuxLog::IPMIRequestAuxLog() Constructor exited.\n");
}

void IPMIRequestAuxLog::Build(uint8_t netFn, uint8_t cmd, const uint8_t* data, uint8_t count) {
    netFn_ = netFn;
    lun_ = 0;
    cmd_ = cmd;
    count = std::min<uint8_t>(count, sizeof template_ - kDataStart);
    // Cleared each time so that a short request never shows (or sends) bytes
    // of the longer one before it.
    std::memset(template_, 0, sizeof template_);
    template_[0] = 0x01;
    template_[1] = 0x20; // the BMC
    template_[2] = netFn_;
    template_[3] = lun_;
    template_[4] = cmd_;
    template_[5] = count; // 32-bit little endian; a count fits the low byte
    std::memcpy(template_ + kDataStart, data, count);
    std::memcpy(buffer_, template_, sizeof template_);
    length_ = kBufferSize;
}

void IPMIRequestAuxLog::BuildRead(uint32_t entry, uint8_t offset, uint8_t readLength) {
    const uint8_t data[9] = {kAuxManufacturerID[0],
                             kAuxManufacturerID[1],
                             kAuxManufacturerID[2],
                             static_cast<uint8_t>(entry & 0xFF),
                             static_cast<uint8_t>((entry >> 8) & 0xFF),
                             offset,
                             0,
                             readLength,
                             0};
    Build(kNetFnOEMGroup, kCmdReadExtendedData, data, sizeof data);
}

bool IPMIRequestAuxLog::Send() {
    if (library_ == nullptr) {
        return false;
    }
    return library_->sendIPMICommand(buffer_, &length_, kBufferSize, true);
}

uint32_t IPMIRequestAuxLog::DataLength() const {
    if (length_ <= 0) {
        return 0;
    }
    return std::min<uint32_t>(static_cast<uint32_t>(length_), kBufferSize - kDataStart);
}

uint8_t IPMIRequestAuxLog::Data(uint32_t n) const {
    return n < DataLength() ? buffer_[kDataStart + n] : 0;
}

void IPMIRequestAuxLog::LogRequest(uint32_t bytes, const char* suffix) const {
    Log(SevTrace, "Contents of buffer to send (rspBuf):");
    std::string text;
    char piece[8];
    for (uint32_t i = 0; i < bytes && i < kBufferSize; ++i) {
        if (i % 5 == 0) {
            text += "\n\t";
        }
        TextFormat(piece, sizeof piece, "%02X ", buffer_[i]);
        text += piece;
    }
    text += suffix;
    Log(SevTrace, text);
}

void IPMIRequestAuxLog::LogResponse(const char* label) const {
    char head[96];
    TextFormat(head, sizeof head, "%s%d\nrspBuf = ", label, length_);
    // Completion code and the data bytes, as far as the buffer reaches.
    Log(SevDetail, head + HexBytes(buffer_ + kResponseStart, DataLength() + 1));
}

void IPMIRequestAuxLog::LogCompletionCode() const {
    Log(SevFailure, ComposeIPMIError(kErrorSubject, CompletionCodeText(buffer_[4])));
}

int IPMIRequestAuxLog::IPMIGetAuxLogStatus(uint32_t& count) {
    Log(SevDetail, "IPMIRequestAuxLog::IPMIGetAuxLogStatus() entered.\n");
    count = 0;
    const uint8_t data[1] = {0x01};
    Build(kNetFnStorage, kCmdAuxLogStatus, data, sizeof data);
    LogRequest(15, "");
    if (!Send()) {
        Log(SevError, "Failure in sending command to obtain AUX Log Status.");
        return 1;
    }
    if (buffer_[4] != 0) {
        LogCompletionCode();
        return 1;
    }
    LogResponse("IPMIRequestAuxLog::Response Length = ");
    count = Data(7) + 256u * Data(8);
    Log(SevDetail, "IPMIRequestAuxLog::IPMIGetAuxLogStatus() exited.\n");
    return 0;
}

int IPMIRequestAuxLog::IPMIReadExtendedData(s_AuxLog_entry* slots, uint32_t count) {
    Log(SevDetail, "IPMIRequestAuxLog::IPMIReadExtendedData() entered.\n");
    if (slots == nullptr) {
        count = 0;
    }
    // 64-bit so that a count of 2^32 - 1 cannot wrap the loop.
    for (uint64_t n = 1; n <= count; ++n) {
        const uint32_t entry = static_cast<uint32_t>(n);
        uint8_t* slot = slots[n - 1].data;
        std::memset(slot, 0, kAuxSlotSize);

        BuildRead(entry, 0, 0);
        if (!Send()) {
            Log(SevError, kReadSendFailure);
            continue;
        }
        if (buffer_[4] != 0) {
            LogCompletionCode();
            return 1;
        }
        LogResponse("Response Length = ");

        const uint32_t total = Data(3);
        if (Data(4) != 0) {
            // The slot was sized for one byte of length; the rest cannot be kept.
            LogF(SevError,
                 "The length(%u%u) of raw data exceed the limitation of struct "
                 "s_AuxLog_entry.data?",
                 Data(4), Data(3));
        }

        uint32_t remaining = total;
        uint32_t readLength = kChunkSize;
        uint32_t position = 0; // where the next chunk lands in the slot
        bool first = true;
        // Length of the last answer that arrived; the end-of-log test needs the
        // header to have come with the first chunk.
        uint32_t lastLength = DataLength();
        while (remaining > 0) {
            readLength = std::min(readLength, remaining);
            const uint32_t offset = total - remaining;
            LogF(SevDetail, "incompletelen = %u readlen =%u offset = %u", remaining, readLength,
                 offset);
            BuildRead(entry, static_cast<uint8_t>(offset), static_cast<uint8_t>(readLength));
            char suffix[64];
            TextFormat(suffix, sizeof suffix, "\n read byte = %02X\n offset = %02X", readLength,
                       offset);
            LogRequest(18, suffix);
            if (!Send()) {
                Log(SevError, kReadSendFailure);
                break; // this entry stays partly filled
            }
            if (buffer_[4] != 0) {
                LogCompletionCode();
                return 1;
            }
            LogResponse("Response Length = ");
            lastLength = DataLength();

            // The first answer carries the whole header before its body bytes;
            // later ones repeat only the maker's ID, which is dropped. Only the
            // bytes the BMC sent are copied, and nothing past the slot's end.
            const uint32_t skip = first ? 0 : kEchoedIDSize;
            if (lastLength > skip && position < kAuxSlotSize) {
                const uint32_t bytes = std::min(lastLength - skip, kAuxSlotSize - position);
                std::memcpy(slot + position, buffer_ + kDataStart + skip, bytes);
            }
            position += first ? readLength + kAuxHeaderSize : readLength;
            first = false;
            remaining -= readLength;
        }

        char dumpHead[48];
        TextFormat(dumpHead, sizeof dumpHead, "buffer[%u].data:\n", entry - 1);
        std::string dump = dumpHead;
        const uint32_t shown = std::min<uint32_t>(total + kAuxHeaderSize, kAuxSlotSize);
        char piece[8];
        for (uint32_t i = 0; i < shown; ++i) {
            TextFormat(piece, sizeof piece, "%u ", slot[i]);
            dump += piece;
            if (i % 10 == 0) {
                dump += "\n";
            }
        }
        Log(SevDetail, dump);

        // FFh FFh where the next entry's number would be: this was the last one.
        if (lastLength > 6 && slot[7] == 0xFF && slot[8] == 0xFF) {
            break;
        }
    }
    Log(SevDetail, "IPMIRequestAuxLog::IPMIReadExtendedData() exited.\n");
    return 0;
}

} // namespace ipmisel
