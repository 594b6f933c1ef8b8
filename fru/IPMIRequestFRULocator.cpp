// The FRU locator walk and Read FRU Data. Like every request, the answers are
// rendered as "%02X " text and scanned back; the dumps in the log are that text.
#include "fru/IPMIRequestFRULocator.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "base/log.h"
#include "base/text.h"
#include "ipmi/SeenRecordIDs.h"

namespace ipmisel {

namespace {

// The FRU inventory sends storage commands (network function 0Ah) only.
enum : uint8_t {
    kNetFnStorage = 0x0A,
    kCmdReadFRUData = 0x11,
    kCmdReserveSDR = 0x22,
    kCmdGetSDR = 0x23
};

// Get SDR pieces of a FRU locator record (type 11h): the 15 fixed bytes, then
// the rest of the record from the ID string's type/length byte on. Record ID
// FFFFh ends the repository.
enum : uint8_t {
    kFRULocatorRecord = 0x11,
    kHeaderPieceSize = 15,
    kStringPieceOffset = 15,
    kRestOfRecord = 0xFF,
    kEndByte = 0xFF,
};

constexpr const char* kRequestHeading = "Contents of buffer to send (fRspBuf):";

// Places in a scanned response: [0] the completion code, then response data
// byte n at [1 + n]. Get SDR answers start with the next record ID, record
// byte k follows at data byte 2 + k; Read FRU Data answers start with the
// count returned.
enum : size_t { kFirstData = 1, kRecordStart = kFirstData + 2, kFRUBytesStart = kFirstData + 1 };

// SDR bytes 2..14 of a FRU locator and where they are kept (byte 9 is
// reserved; bytes 0 and 1, the record ID, are kept high byte first).
constexpr std::pair<uint8_t IPMIFRULocator::*, size_t> kLocatorBytes[] = {
    {&IPMIFRULocator::sdrVersion, 2},          {&IPMIFRULocator::recordType, 3},
    {&IPMIFRULocator::recordLength, 4},        {&IPMIFRULocator::deviceAccessAddress, 5},
    {&IPMIFRULocator::fruDeviceID, 6},         {&IPMIFRULocator::logicalPhysical, 7},
    {&IPMIFRULocator::channelNumber, 8},       {&IPMIFRULocator::deviceType, 10},
    {&IPMIFRULocator::deviceTypeModifier, 11}, {&IPMIFRULocator::fruEntityID, 12},
    {&IPMIFRULocator::fruEntityInstance, 13},  {&IPMIFRULocator::oem, 14},
};

// Values of a rendered response, one per "%x" that scans.
std::vector<uint8_t> ScanResponse(const std::string& text) {
    std::vector<uint8_t> values;
    const char* p = text.c_str();
    unsigned value = 0;
    int used = 0;
    while (std::sscanf(p, "%x%n", &value, &used) == 1) {
        values.push_back(static_cast<uint8_t>(value));
        p += used;
    }
    return values;
}

uint8_t At(const std::vector<uint8_t>& values, size_t i, uint8_t missing = 0) {
    return i < values.size() ? values[i] : missing;
}

} // namespace

bool IPMIRequestFRULocator::SendStorageRequest(uint8_t command, const uint8_t* data, uint8_t count,
                                               const char* sendFailure) {
    Prepare(kNetFnStorage, command, data, count);
    LogRequest(kRequestHeading, true);
    if (Send()) {
        return true;
    }
    Log(SevError, sendFailure);
    return false;
}

bool IPMIRequestFRULocator::CompletionCodeFailed(const char* prefix, int severity) const {
    if (CompletionCode() == 0) {
        return false;
    }
    std::string message = prefix;
    message += CompletionCodeText(CompletionCode());
    Log(severity, message);
    return true;
}

void IPMIRequestFRULocator::LogResponse() const {
    char line[320];
    TextFormat(line, sizeof line, "Response Length = %d\nfRspBuf = %s", static_cast<int>(Length()),
               ResponseText().c_str());
    Log(SevTrace, line);
}

int IPMIRequestFRULocator::IPMIReserveSDR() {
    Log(SevTrace, "IPMIRequestFRULocator::IPMIReserveSDR() entered.");
    if (!SendStorageRequest(kCmdReserveSDR, nullptr, 0,
                            "Failure in sending command to reserve SDR.") ||
        CompletionCodeFailed("IPMI error in reserving sensor data record: ", SevError)) {
        return 1;
    }
    const std::vector<uint8_t> values = ScanResponse(ResponseText());
    reservationID[0] = At(values, kFirstData + 1);
    reservationID[1] = At(values, kFirstData);
    Log(SevTrace, "IPMIRequestFRULocator::IPMIReserveSDR() completed.");
    return 0;
}

int IPMIRequestFRULocator::IPMIGetSDRHeader(IPMIFRULocator& locator) {
    Log(SevTrace, "IPMIRequestFRULocator::IPMIGetSDRHeader() entered.");
    const uint8_t data[6] = {
        reservationID[1], reservationID[0], currentRecordID[1], currentRecordID[0], 0,
        kHeaderPieceSize};
    if (!SendStorageRequest(kCmdGetSDR, data, sizeof data,
                            "Failure in sending command to obtain SDR Header.") ||
        CompletionCodeFailed("IPMI error in obtaining sensor data record header: ", SevDetail)) {
        return kFRUHeaderFailed;
    }
    const std::vector<uint8_t> v = ScanResponse(ResponseText());
    // An answer too short for the next record ID ends the walk; one too short
    // for the record type is no locator.
    nextRecordID[0] = At(v, kFirstData + 1, kEndByte);
    nextRecordID[1] = At(v, kFirstData, kEndByte);
    auto record = [&v](size_t k) { return At(v, kRecordStart + k); };
    headerRecordID_[0] = record(1);
    headerRecordID_[1] = record(0);
    if (record(3) != kFRULocatorRecord) {
        Log(SevTrace,
            "This is not a FRU Locator. Exiting IPMIRequestFRULocator::IPMIGetSDRHeader().");
        return kFRUHeaderNotLocator;
    }
    locator.recordID[0] = record(1);
    locator.recordID[1] = record(0);
    for (const auto& [member, k] : kLocatorBytes) {
        locator.*member = record(k);
    }
    LogResponse();
    Log(SevTrace, "IPMIRequestFRULocator::IPMIGetSDRHeader() completed.");
    return kFRUHeaderRead;
}

int IPMIRequestFRULocator::IPMIGetSDRString(IPMIFRULocator& locator) {
    Log(SevTrace, "IPMIRequestFRULocator::IPMIGetSDRString() entered.");
    const uint8_t data[6] = {reservationID[1],   reservationID[0],   currentRecordID[1],
                             currentRecordID[0], kStringPieceOffset, kRestOfRecord};
    if (!SendStorageRequest(kCmdGetSDR, data, sizeof data,
                            "Failure in sending command to obtain SDR String.") ||
        CompletionCodeFailed("IPMI error in obtaining sensor data record string: ", SevFailure)) {
        return 1;
    }
    const std::vector<uint8_t> v = ScanResponse(ResponseText());
    locator.idStringTypeLength = At(v, kRecordStart);
    // The text runs to the first zero byte (or the end of the answer); the
    // whole type/length byte, type bits included, is its longest length.
    locator.idString.clear();
    for (size_t i = kRecordStart + 1; i < v.size() && v[i] != 0; ++i) {
        if (locator.idString.size() >= locator.idStringTypeLength) {
            break;
        }
        locator.idString.push_back(static_cast<char>(v[i]));
    }
    Log(SevTrace, "IPMIRequestFRULocator::IPMIGetSDRString() completed.");
    return 0;
}

int IPMIRequestFRULocator::IPMIGetSDREntry(std::vector<IPMIFRULocator>& locators) {
    Log(SevTrace, "IPMIRequestFRULocator::IPMIGetSDREntry() entered.");
    if (IPMIReserveSDR() != 0) {
        return 1;
    }
    currentRecordID[0] = 0;
    currentRecordID[1] = 0;
    SeenRecordIDs seen;
    int result = 0;
    // Only FFFFh ends the walk: unlike the sensor walk, 12FFh is read.
    while (currentRecordID[0] != kEndByte || currentRecordID[1] != kEndByte) {
        const uint16_t id = SeenRecordIDs::Join(currentRecordID[0], currentRecordID[1]);
        if (seen.Mark(id)) {
            LogF(SevFailure, "FRU locator walk stopped: record ID %04Xh was already read.", id);
            result = 1;
            break;
        }
        IPMIFRULocator locator;
        const int header = IPMIGetSDRHeader(locator);
        if (header == kFRUHeaderFailed) {
            result = 1;
            break;
        }
        // The first record is asked for as 0000h: its own ID is marked too, so
        // a repository that points back at it is caught before a second read.
        if (id == 0x0000) {
            seen.Mark(SeenRecordIDs::Join(headerRecordID_[0], headerRecordID_[1]));
        }
        if (header == kFRUHeaderRead) {
            if (IPMIGetSDRString(locator) != 0) {
                result = 1;
                break;
            }
            locators.push_back(std::move(locator));
        }
        currentRecordID[0] = nextRecordID[0];
        currentRecordID[1] = nextRecordID[1];
    }
    Log(SevDetail, "Obtained the following FRU Locators.");
    printFRUVector(locators);
    if (result == 0) {
        Log(SevTrace, "IPMIRequestFRULocator::IPMIGetSDREntry() completed.");
    }
    return result;
}

int IPMIRequestFRULocator::IPMIGetFRUData(IPMIFRULocator& locator, bool deviceZero) {
    Log(SevTrace, "IPMIRequestFRULocator::IPMIGetFRUData() entered.");
    const uint8_t device = deviceZero ? 0 : locator.fruDeviceID;
    std::memset(locator.fruData, 0, sizeof locator.fruData);
    for (size_t offset = 0; offset < kFRUDataSize; offset += kFRUReadSize) {
        const uint8_t data[4] = {device, static_cast<uint8_t>(offset & 0xFF),
                                 static_cast<uint8_t>(offset >> 8), kFRUReadSize};
        if (!SendStorageRequest(kCmdReadFRUData, data, sizeof data,
                                "Failure in sending command to obtain FRU Data.")) {
            return 1;
        }
        if (CompletionCode() != 0) {
            // The table's texts, or "Unknown error" without its line end.
            std::string text = CompletionCodeText(CompletionCode());
            if (!text.empty() && text.back() == '\n') {
                text.pop_back();
            }
            LogF(SevDetail, "FRU data not available for Device ID %X (%s)", device, text.c_str());
            return 1;
        }
        LogResponse();
        const std::vector<uint8_t> v = ScanResponse(ResponseText());
        // Length - 1 bytes after the count, as far as the text carried them
        // and never past the 528 bytes kept.
        size_t count = Length() > 1 ? static_cast<size_t>(Length() - 1) : 0;
        count = std::min(count, v.size() > kFRUBytesStart ? v.size() - kFRUBytesStart : 0);
        count = std::min(count, kFRUDataSize - offset);
        std::copy_n(v.begin() + kFRUBytesStart, count, locator.fruData + offset);
    }
    Log(SevTrace, "IPMIRequestFRULocator::IPMIGetFRUData() completed.");
    return 0;
}

void IPMIRequestFRULocator::printFRUVector(const std::vector<IPMIFRULocator>& locators) const {
    Log(SevTrace, "IPMIRequestFRULocator::printFRUVector() entered.");
    LogF(SevDetail, "Number of FRU Locators is %zu", locators.size());
    constexpr size_t kShown = 256;
    constexpr size_t kPerRow = 20;
    for (const IPMIFRULocator& locator : locators) {
        std::string line = "Device ID " + std::to_string(locator.fruDeviceID) + ": " +
                           locator.idString + ".\nFRUData = ";
        for (size_t i = 0; i < kShown; i += kPerRow) {
            line += "\n\t";
            line += HexBytes(locator.fruData + i, std::min(kPerRow, kShown - i));
        }
        Log(SevDetail, line);
    }
    Log(SevTrace, "IPMIRequestFRULocator::printFRUVector() completed.");
}

} // namespace ipmisel
