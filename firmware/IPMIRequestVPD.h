// Firmware levels and vital product data of one BMC node: Get Device ID, the
// maker's OEM requests for CPLD and FPGA versions, build information, named
// controller properties and VPD blocks, and the backplane controller reached
// through Master Write-Read. Each operation sends one request (or a short
// sequence) through the shared frame and hands the answer bytes to its caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "ipmi/IPMIRequestFrame.h"

namespace ipmisel {

// What IPMIGetBMCBuildInfo hands back. `data` is the first buffer: the whole
// build-information answer, or the seven bytes the OEM-group fallback gives.
// `buildID` is the second: the nine answer bytes from data byte 9, given by
// the maker's own request only (buildIDCount 0 after the fallback).
struct BMCBuildInfo {
    uint8_t data[256] = {};
    size_t dataCount = 0;
    uint8_t buildID[9] = {};
    size_t buildIDCount = 0;
    bool fromOEMGroup = false; // the fallback request answered
};

// What IPMIGetAMIVersion reads from one backplane: the version (first byte of
// the 14-byte version read) and the two reads whose layout is the
// controller's own, kept whole.
struct AMIBackplaneVersion {
    uint8_t version = 0;
    uint8_t versionData[14] = {};
    uint8_t vpdData[15] = {}; // VPD ID and position ID, as the controller sends them
};

class IPMIRequestVPD : public IPMIRequestFrame {
  public:
    // Sizes of the answers the callers receive.
    static constexpr size_t kDeviceIDMin = 11; // Get Device ID without auxiliary revision
    static constexpr size_t kDeviceIDMax = 15; // with it
    static constexpr size_t kFPGAVersionSize = 4;
    static constexpr size_t kVPDSize = 255; // bytes 0..254 of a device
    static constexpr uint8_t kVPDChunk = 25;

    explicit IPMIRequestVPD(NOXAQSV20::SPLibrary* library) : IPMIRequestFrame(library) {}

    // Every operation answers 0 on success and 1 on failure (logged); on
    // failure the caller's buffers hold nothing it may use.

    // Get Device ID: the response data (11 to 15 bytes) into data[size].
    int IPMIGetFirmwareVersion(uint8_t* data, size_t size, size_t& count);
    // The one-byte version of the CPLD behind `selector`.
    int IPMIGetCPLDVersion(uint8_t selector, uint8_t& version);
    // The four version bytes of the FPGA behind `selector`.
    int IPMIGetFPGAVersion(uint8_t selector, uint8_t* version);
    // The four revision bytes of the FPGA's SPI images; 1 as well when the
    // FPGA answers FFh in the first byte (no revisions to give).
    int IPMIGetFPGARevisions_SPI(uint8_t selector, uint8_t* revisions);
    // The maker's build-information request; when it cannot be sent, the
    // OEM-group request in its place.
    int IPMIGetBMCBuildInfo(BMCBuildInfo& info);
    // The value of a controller property (path at most 127 characters) as
    // text into value[size], cut and terminated.
    int IPMIPropertyCMD(const char* path, char* value, size_t size);
    // Master Write-Read: write `writeCount` bytes (at most 3) to `slave` on
    // `busID`, then read `readCount` bytes into `read`.
    int IPMISendAMICmd(uint8_t busID, uint8_t slave, uint8_t readCount, const uint8_t* write,
                       uint8_t writeCount, uint8_t* read);
    // The backplane controller on `busID`: present mark, version, VPD.
    int IPMIGetAMIVersion(uint8_t busID, AMIBackplaneVersion& out);
    // Bytes 0..254 of VPD device `device` into vpd[kVPDSize], in 25-byte
    // chunks. 1 when a chunk was refused or came back with another count than
    // asked (the block is then incomplete).
    int IPMIGetVPDEntryData(uint8_t device, uint8_t* vpd);

    // Completion code of the last answer; 0 after a request that could not
    // be sent.
    uint8_t LastCompletionCode() const { return lastCompletionCode_; }
    // True when the last answer said the BMC does not know the command (C1h).
    bool LastRefused() const { return lastSent_ && lastCompletionCode_ == kInvalidCommand; }
    // True when the last request reached the BMC and an answer came back.
    bool LastSent() const { return lastSent_; }

    static constexpr uint8_t kInvalidCommand = 0xC1;

  private:
    // Sends what Prepare laid out, after "Contents of buffer to send
    // (rspBuf):" and the request bytes in hexadecimal. False (after logging
    // `sendFailure` at severity 0) when it could not be sent.
    bool SendLogged(const std::string& sendFailure);
    // True when the answer's completion code is 0; otherwise logs
    // errorPrefix + the completion-code text and answers false.
    bool CompletedOK(const std::string& errorPrefix);
    // Lays out a request of any data length up to what the buffer holds.
    void PrepareLong(uint8_t netFn, uint8_t cmd, const uint8_t* data, size_t count);
    // Response data bytes scanned back from the rendered response text, at
    // most `max`; answers how many the text held.
    size_t ScanData(uint8_t* out, size_t max) const;
    // The steps both FPGA requests share.
    int GetFPGA(const char* op, uint8_t command, const uint8_t* data, uint8_t count, uint8_t* out);

    uint8_t lastCompletionCode_ = 0;
    bool lastSent_ = false;
};

} // namespace ipmisel
