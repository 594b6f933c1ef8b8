#include "ipmi/IPMIRequestSDR.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "base/log.h"
#include "base/text.h"
#include "ipmi/IpmiConfig.h"
#include "ipmi/SeenRecordIDs.h"

namespace ipmisel {

namespace {

constexpr uint8_t kNetFnStorage = 0x0A;
constexpr uint8_t kCmdGetSDRInfo = 0x20;
constexpr uint8_t kCmdReserveSDR = 0x22;
constexpr uint8_t kCmdGetSDR = 0x23;

// Get SDR offsets and counts of the three pieces of a sensor record.
constexpr uint8_t kHeaderOffset = 0x00;
constexpr uint8_t kUnitsOffset = 0x14;
constexpr uint8_t kPieceCount = 10;
constexpr uint8_t kFullStringOffset = 0x2F;
constexpr uint8_t kCompactStringOffset = 0x1F;
constexpr uint8_t kRestOfRecord = 0xFF;

constexpr uint8_t kFullSensor = 1;
constexpr uint8_t kCompactSensor = 2;
constexpr uint8_t kEndMark = 0xFF;

enum Operation { Info, Reserve, Header, Units, String, OperationCount };

struct OperationTexts {
    const char* name;
    const char* sendFailure;
    const char* errorPrefix;
    int errorSeverity;
};

// Reserving is the one whose completion-code error is logged as an error,
// not as lost data.
const OperationTexts kOperations[OperationCount] = {
    {"IPMIGetSDRInfo", "Failure in sending command to obtain SDR info.",
     "IPMI error in obtaining sensor data record info: ", SevFailure},
    {"IPMIReserveSDR", "Failure in sending command to reserve SDR.",
     "IPMI error in reserving sensor data record: ", SevError},
    {"IPMIGetSDRHeader", "Failure in sending command to obtain SDR Header.",
     "IPMI error in obtaining sensor data record header: ", SevFailure},
    {"IPMIGetSDRUnits", "Failure in sending command to obtain SDR Units.",
     "IPMI error in obtaining sensor data record units: ", SevFailure},
    {"IPMIGetSDRString", "Failure in sending command to obtain SDR String.",
     "IPMI error in obtaining sensor data record string: ", SevFailure},
};

// Entered line, request, send and completion code, common to every request.
int Exchange(IPMIRequestSDR& request, Operation op, uint8_t cmd, const uint8_t* data,
             uint8_t count) {
    const OperationTexts& texts = kOperations[op];
    LogF(SevTrace, "IPMIRequestSDR::%s() entered.", texts.name);
    request.Prepare(kNetFnStorage, cmd, data, count);
    request.LogRequest();
    if (!request.Send()) {
        Log(SevError, texts.sendFailure);
        return 1;
    }
    if (request.CompletionCode() != 0) {
        std::string message = texts.errorPrefix;
        message += CompletionCodeText(request.CompletionCode());
        Log(texts.errorSeverity, message);
        return 1;
    }
    return 0;
}

void LogCompleted(Operation op) {
    LogF(SevTrace, "IPMIRequestSDR::%s() completed.", kOperations[op].name);
}

// (length + 1) * 3 characters of the text, at most the piece's width, with
// strncpy's rules; the rest of the piece is zeros. The "\n" after the hex
// text is past that count and so never lands in the piece.
void CopyPiece(char* piece, size_t width, const std::string& text, int32_t length) {
    std::memset(piece, 0, width);
    const int64_t wanted = (static_cast<int64_t>(length) + 1) * 3;
    if (wanted <= 0) {
        return;
    }
    const size_t count = wanted < static_cast<int64_t>(width) ? static_cast<size_t>(wanted) : width;
    CopyOut(piece, count, text.c_str());
}

} // namespace

int IPMIRequestSDR::IPMIGetSDRInfo(char* info) {
    if (Exchange(*this, Info, kCmdGetSDRInfo, nullptr, 0) != 0) {
        return 1;
    }
    if (info != nullptr) {
        CopyPiece(info, SDRInfoTextSize, ResponseText(), Length());
    }
    LogCompleted(Info);
    return 0;
}

int IPMIRequestSDR::IPMIReserveSDR() {
    if (Exchange(*this, Reserve, kCmdReserveSDR, nullptr, 0) != 0) {
        return 1;
    }
    unsigned cc = 0, low = 0, high = 0;
    std::sscanf(ResponseText().c_str(), "%x %x %x", &cc, &low, &high);
    reservationID[0] = static_cast<uint8_t>(high);
    reservationID[1] = static_cast<uint8_t>(low);
    LogCompleted(Reserve);
    return 0;
}

int IPMIRequestSDR::IPMIGetSDRHeader(SDRTextBlock& block) {
    const uint8_t data[6] = {reservationID[1],   reservationID[0], currentRecordID[1],
                             currentRecordID[0], kHeaderOffset,    kPieceCount};
    if (Exchange(*this, Header, kCmdGetSDR, data, sizeof data) != 0) {
        return 1;
    }
    const std::string text = ResponseText();
    // cc, next record ID low/high, then record bytes 0..3: ID low/high,
    // version, type. An answer too short for the next record ID reads as the
    // end of the repository; one too short for the type is no sensor.
    unsigned cc = 0, nextLow = kEndMark, nextHigh = kEndMark, idLow = 0, idHigh = 0, version = 0,
             type = 0;
    std::sscanf(text.c_str(), "%x %x %x %x %x %x %x", &cc, &nextLow, &nextHigh, &idLow, &idHigh,
                &version, &type);
    nextRecordID[0] = static_cast<uint8_t>(nextHigh);
    nextRecordID[1] = static_cast<uint8_t>(nextLow);
    recordType = static_cast<uint8_t>(type);
    headerRecordID[0] = static_cast<uint8_t>(idHigh);
    headerRecordID[1] = static_cast<uint8_t>(idLow);
    if (recordType != kFullSensor && recordType != kCompactSensor) {
        return 0; // stepped over: no text, no completed line
    }
    CopyPiece(block.text + SDRHeaderOffset, SDRHeaderTextSize, text, Length());
    LogCompleted(Header);
    return 0;
}

int IPMIRequestSDR::IPMIGetSDRUnits(SDRTextBlock& block) {
    const uint8_t data[6] = {reservationID[1],   reservationID[0], currentRecordID[1],
                             currentRecordID[0], kUnitsOffset,     kPieceCount};
    if (Exchange(*this, Units, kCmdGetSDR, data, sizeof data) != 0) {
        return 1;
    }
    CopyPiece(block.text + SDRUnitsOffset, SDRUnitsTextSize, ResponseText(), Length());
    LogCompleted(Units);
    return 0;
}

int IPMIRequestSDR::IPMIGetSDRString(SDRTextBlock& block) {
    const uint8_t offset = recordType == kFullSensor ? kFullStringOffset : kCompactStringOffset;
    const uint8_t data[6] = {reservationID[1],   reservationID[0], currentRecordID[1],
                             currentRecordID[0], offset,           kRestOfRecord};
    if (Exchange(*this, String, kCmdGetSDR, data, sizeof data) != 0) {
        return 1;
    }
    // One machine's BMC answers with bytes of its own ahead of the string;
    // its text starts later, the end and the width stay.
    const bool shifted = NOXAQSV20::TOSSpecific::GetMachineType() == kShiftedSDRStringMachineType;
    const size_t first = shifted ? kShiftedSDRStringStart : kResponseTextStart;
    const std::string text = RenderResponseFrom(transfer, sizeof transfer, first, Length());
    CopyPiece(block.text + SDRStringOffset, SDRStringTextSize, text, Length());
    LogCompleted(String);
    return 0;
}

int IPMIRequestSDR::IPMIGetSDREntry(std::vector<SDRTextBlock>& blocks, char* info) {
    if (IPMIGetSDRInfo(info) != 0) {
        return 1;
    }
    if (IPMIReserveSDR() != 0) {
        return 1;
    }

    // Every walk reads the repository from its first record.
    currentRecordID[0] = 0;
    currentRecordID[1] = 0;
    SeenRecordIDs seen;
    SDRTextBlock block;
    // Either byte at FFh ends the walk, not only FFFFh.
    while (currentRecordID[0] != kEndMark && currentRecordID[1] != kEndMark) {
        const uint16_t id = SeenRecordIDs::Join(currentRecordID[0], currentRecordID[1]);
        if (seen.Mark(id)) {
            LogF(SevFailure, "SDR walk stopped: record ID %04Xh was already read.", id);
            return 1;
        }
        std::memset(block.text, 0, sizeof block.text);
        if (IPMIGetSDRHeader(block) != 0) {
            return 1;
        }
        // The first answer comes for ID 0000h: its own ID is marked too, so
        // a repository pointing back at it is caught before it is read twice.
        // Later records are known by the ID they were asked for.
        if (id == 0x0000) {
            seen.Mark(SeenRecordIDs::Join(headerRecordID[0], headerRecordID[1]));
        }
        if (recordType == kFullSensor || recordType == kCompactSensor) {
            if (IPMIGetSDRUnits(block) != 0 || IPMIGetSDRString(block) != 0) {
                return 1;
            }
            blocks.push_back(block);
        }
        currentRecordID[0] = nextRecordID[0];
        currentRecordID[1] = nextRecordID[1];
    }

    Log(SevTrace, "IPMIRequestSDR::IPMIGetSDREntry() completed.");
    return 0;
}

} // namespace ipmisel
