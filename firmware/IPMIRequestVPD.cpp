#include "firmware/IPMIRequestVPD.h"

#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "base/text.h"

namespace ipmisel {

namespace {

constexpr uint8_t kNetFnApp = 0x06;
constexpr uint8_t kNetFnOEM = 0x3A;      // the maker's own commands
constexpr uint8_t kNetFnOEMGroup = 0x2E; // commands keyed by an enterprise number

constexpr uint8_t kCmdGetDeviceID = 0x01;
constexpr uint8_t kCmdMasterWriteRead = 0x52;
constexpr uint8_t kCmdDeviceVersion = 0x6B; // CPLD and FPGA alike
constexpr uint8_t kCmdFPGARevisions = 0x90;
constexpr uint8_t kCmdBuildInfo = 0x50;
constexpr uint8_t kCmdOEMGroupBuildInfo = 0x00;
constexpr uint8_t kCmdProperty = 0xC4;
constexpr uint8_t kCmdVPDData = 0x0B;

// The enterprise number the OEM-group build-information request carries,
// least significant byte first.
constexpr uint8_t kBuildInfoEnterprise[3] = {0xD0, 0x51, 0x00};
// What the fallback answer holds: seven bytes from data byte 6.
constexpr size_t kOEMGroupBuildStart = 6;
constexpr size_t kOEMGroupBuildCount = 7;
// The maker's answer: the nine bytes from data byte 9 are handed on apart.
constexpr size_t kBuildIDStart = 9;

constexpr uint8_t kNoRevisions = 0xFF;

// Backplane controller: where it answers and what it says.
constexpr uint8_t kBackplaneSelectSlave = 0xC0;
constexpr uint8_t kBackplaneIdRegister = 0x63;
constexpr uint8_t kBackplanePresent = 0x4D;
constexpr uint8_t kBackplaneVersionSlave = 0x40;
constexpr uint8_t kBackplaneVPDSlave = 0xA0;
constexpr uint8_t kBackplaneVersionCount = 14;
constexpr uint8_t kBackplaneVPDCount = 15;

// Master Write-Read carries bus, slave and read count before what it writes;
// the frame's template holds six data bytes.
constexpr uint8_t kMaxAMIWrite = 3;

// The property request: three zero bytes, then the path length with bit 7 set,
// then the path. Its value starts at answer byte 4.
constexpr size_t kPropertyHeader = 4;
constexpr size_t kMaxPathLength = 0x7F;
constexpr int32_t kPropertyMinLength = 5; // the answer must be longer than this

// Request data fits between byte 9 and the end of the transfer buffer.
constexpr size_t kDataStart = 9;
constexpr size_t kResponseStart = 8;

void Entered(const char* op) {
    LogF(SevTrace, "IPMIRequestVPD::%s() entered.", op);
}

void Completed(const char* op) {
    LogF(SevTrace, "IPMIRequestVPD::%s() completed.", op);
}

// "%u " per byte, for the dumps whose labels say they are decimal.
std::string DecimalBytes(const uint8_t* bytes, size_t count) {
    std::string out;
    char piece[8];
    for (size_t i = 0; i < count; ++i) {
        TextFormat(piece, sizeof piece, "%u ", static_cast<unsigned>(bytes[i]));
        out += piece;
    }
    return out;
}

// A label that ends in ": " followed by the text on the same line.
void LogLabelled(const char* label, const std::string& text) {
    std::string line = label;
    line += text;
    if (!line.empty() && line.back() == '\n') {
        line.pop_back();
    }
    Log(SevTrace, line);
}

} // namespace

// ---- the shared steps ----------------------------------------------------------

void IPMIRequestVPD::PrepareLong(uint8_t netFnIn, uint8_t cmdIn, const uint8_t* data,
                                 size_t count) {
    const size_t room = sizeof transfer - kDataStart;
    if (count > room) {
        count = room;
    }
    const uint8_t inTemplate = static_cast<uint8_t>(count < 6 ? count : 6);
    Prepare(netFnIn, cmdIn, data, inTemplate);
    // The template holds six data bytes; a longer request goes on in the
    // transfer buffer, with its whole length in bytes 5..8.
    if (count > inTemplate && data != nullptr) {
        std::memcpy(transfer + kDataStart, data, count);
        transfer[5] = static_cast<uint8_t>(count);
        reqTemplate[5] = transfer[5];
    }
}

bool IPMIRequestVPD::SendLogged(const std::string& sendFailure) {
    LogRequest("Contents of buffer to send (rspBuf):", true);
    lastCompletionCode_ = 0;
    lastSent_ = Send();
    if (!lastSent_) {
        Log(SevError, sendFailure);
        return false;
    }
    lastCompletionCode_ = CompletionCode();
    return true;
}

bool IPMIRequestVPD::CompletedOK(const std::string& errorPrefix) {
    if (CompletionCode() == 0) {
        return true;
    }
    // Most BMCs that are not the maker's do not know its OEM commands: that
    // is a feature absent, not data lost, and is logged as a notice.
    const bool oem = netFn == kNetFnOEM || netFn == kNetFnOEMGroup;
    const int severity = oem && CompletionCode() == kInvalidCommand ? SevNotice : SevFailure;
    Log(severity, errorPrefix + CompletionCodeText(CompletionCode()));
    return false;
}

size_t IPMIRequestVPD::ScanData(uint8_t* out, size_t max) const {
    // The answer passes through its "%02X " text like every other answer;
    // the first value is the completion code.
    const std::string text = ResponseText();
    const char* p = text.c_str();
    unsigned value = 0;
    int used = 0;
    if (std::sscanf(p, "%x%n", &value, &used) != 1) {
        return 0;
    }
    p += used;
    const size_t limit = Length() > 0 ? static_cast<size_t>(Length()) : 0;
    size_t n = 0;
    while (n < max && n < limit && std::sscanf(p, "%x%n", &value, &used) == 1) {
        out[n++] = static_cast<uint8_t>(value);
        p += used;
    }
    return n;
}

// ---- Get Device ID ---------------------------------------------------------------

int IPMIRequestVPD::IPMIGetFirmwareVersion(uint8_t* data, size_t size, size_t& count) {
    count = 0;
    Entered("IPMIGetFirmwareVersion");
    Prepare(kNetFnApp, kCmdGetDeviceID, nullptr, 0);
    if (!SendLogged("Failure in sending command to obtain Firmware version.") ||
        !CompletedOK("IPMI Error in obtaining Firmware: ")) {
        return 1;
    }
    const int32_t length = Length();
    if (length < static_cast<int32_t>(kDeviceIDMin) ||
        length > static_cast<int32_t>(kDeviceIDMax) || data == nullptr ||
        static_cast<size_t>(length) > size) {
        Log(SevFailure, "Response length isn't 11 to 15 in getting Firmware version.");
        return 1;
    }
    count = ScanData(data, static_cast<size_t>(length));
    Log(SevTrace, "Final Firmware_datap:");
    Log(SevTrace, HexBytes(data, count));
    Completed("IPMIGetFirmwareVersion");
    return 0;
}

// ---- CPLD and FPGA -----------------------------------------------------------------

int IPMIRequestVPD::IPMIGetCPLDVersion(uint8_t selector, uint8_t& version) {
    Entered("IPMIGetCPLDVersion");
    const uint8_t data[1] = {selector};
    Prepare(kNetFnOEM, kCmdDeviceVersion, data, sizeof data);
    if (!SendLogged("Failure in sending command to obtain CPLD version.") ||
        !CompletedOK("IPMI Error in obtaining CPLD Firmware: ")) {
        return 1;
    }
    uint8_t byte = 0;
    if (Length() != 1 || ScanData(&byte, 1) != 1) {
        Log(SevFailure, "Response length isn't 1 in getting CPLD Version.");
        return 1;
    }
    version = byte;
    Log(SevTrace, "Final CPLD_datap:");
    Log(SevTrace, HexBytes(&version, 1));
    Completed("IPMIGetCPLDVersion");
    return 0;
}

int IPMIRequestVPD::IPMIGetFPGAVersion(uint8_t selector, uint8_t* version) {
    const uint8_t data[1] = {selector};
    return GetFPGA("IPMIGetFPGAVersion", kCmdDeviceVersion, data, sizeof data, version);
}

int IPMIRequestVPD::IPMIGetFPGARevisions_SPI(uint8_t selector, uint8_t* revisions) {
    const uint8_t data[3] = {selector, 0x00, 0x04};
    return GetFPGA("IPMIGetFPGARevisions_SPI", kCmdFPGARevisions, data, sizeof data, revisions);
}

int IPMIRequestVPD::GetFPGA(const char* op, uint8_t command, const uint8_t* data, uint8_t count,
                            uint8_t* out) {
    Entered(op);
    const bool revisions = command == kCmdFPGARevisions;
    Prepare(kNetFnOEM, command, data, count);
    LogRequest("\nFor getting FPGA Version, the command to be sent out is : ", true);
    if (!SendLogged("Failure in sending command to obtain FPGA version.") ||
        !CompletedOK("IPMI Error in obtaining FPGA Firmware: ")) {
        return 1;
    }
    // Both messages keep the two spaces log readers search for.
    if (Length() != static_cast<int32_t>(kFPGAVersionSize)) {
        Log(SevError, revisions ? "Response length isn't  4 in getting FPGA Revision."
                                : "Response length isn't  4 in getting FPGA Version.");
        return 1;
    }
    if (transfer[kResponseStart] != 0) {
        Log(SevError, "Completion code isn't 0x00 in getting FPGA Version.");
        return 1;
    }
    uint8_t answer[kFPGAVersionSize] = {};
    if (ScanData(answer, sizeof answer) != sizeof answer || out == nullptr) {
        return 1;
    }
    if (revisions && answer[0] == kNoRevisions) {
        Log(SevDetail, "The FPGA gives no SPI revisions (FFh).");
        return 1;
    }
    std::memcpy(out, answer, sizeof answer);
    LogF(SevTrace, "For getting FPGA Version, response length is : %d", static_cast<int>(Length()));
    LogLabelled("\nIncluding completion code, received response data (in decimal) for getting "
                "FPGA Version is : ",
                DecimalBytes(transfer + kResponseStart, 1 + kFPGAVersionSize));
    Completed(op);
    return 0;
}

// ---- build information ------------------------------------------------------------

int IPMIRequestVPD::IPMIGetBMCBuildInfo(BMCBuildInfo& info) {
    info = BMCBuildInfo{};
    Entered("IPMIGetBMCBuildInfo");
    const char* sendFailure = "Failure in sending command to obtain BMC build information.";
    const char* errorPrefix = "IPMI Error in obtaining BMC BuildInfo: ";
    const char* tooShort = "Response length is too short in getting BMC build information.";
    Prepare(kNetFnOEM, kCmdBuildInfo, nullptr, 0);
    if (SendLogged(sendFailure)) {
        if (!CompletedOK(errorPrefix)) {
            return 1;
        }
        if (Length() < static_cast<int32_t>(kBuildIDStart + sizeof info.buildID)) {
            Log(SevFailure, tooShort);
            return 1;
        }
        info.dataCount = ScanData(info.data, sizeof info.data);
        std::memcpy(info.buildID, info.data + kBuildIDStart, sizeof info.buildID);
        info.buildIDCount = sizeof info.buildID;
    } else {
        // Firmware that cannot take the maker's request is asked through the
        // OEM group, keyed by the enterprise number.
        Prepare(kNetFnOEMGroup, kCmdOEMGroupBuildInfo, kBuildInfoEnterprise,
                sizeof kBuildInfoEnterprise);
        if (!SendLogged(sendFailure) || !CompletedOK(errorPrefix)) {
            return 1;
        }
        const size_t needed = kOEMGroupBuildStart + kOEMGroupBuildCount;
        uint8_t answer[kOEMGroupBuildStart + kOEMGroupBuildCount] = {};
        if (Length() < static_cast<int32_t>(needed) || ScanData(answer, needed) != needed) {
            Log(SevFailure, tooShort);
            return 1;
        }
        std::memcpy(info.data, answer + kOEMGroupBuildStart, kOEMGroupBuildCount);
        info.dataCount = kOEMGroupBuildCount;
        info.fromOEMGroup = true;
    }
    Log(SevTrace, "Final buildinfo_datap:");
    Log(SevTrace, HexBytes(info.data, 1));
    Completed("IPMIGetBMCBuildInfo");
    return 0;
}

// ---- named properties ---------------------------------------------------------------

int IPMIRequestVPD::IPMIPropertyCMD(const char* path, char* value, size_t size) {
    Log(SevTrace, "entering IPMIRequestVPD::IPMIPropertyCMD()");
    if (value != nullptr && size > 0) {
        value[0] = '\0';
    }
    const std::string name = path != nullptr ? path : "";
    const std::string illegal = "Can't get " + name + " because of illegal parameters!";
    if (name.empty() || name.size() > kMaxPathLength || value == nullptr || size == 0) {
        lastSent_ = false;
        Log(SevNotice, illegal);
        return 1;
    }
    uint8_t data[kPropertyHeader + kMaxPathLength] = {0x00, 0x00, 0x00};
    data[3] = static_cast<uint8_t>(0x80 | name.size());
    std::memcpy(data + kPropertyHeader, name.data(), name.size());
    const size_t count = kPropertyHeader + name.size();
    PrepareLong(kNetFnOEM, kCmdProperty, data, count);
    Log(SevTrace, "\nIPMIPropertyCMD, the command to be sent out is : ");
    Log(SevTrace, DecimalBytes(transfer, kDataStart + count));
    if (!SendLogged("Failure in sending command to obtain " + name) ||
        !CompletedOK("IPMI Error in obtaining " + name + ": ")) {
        return 1;
    }
    uint8_t answer[256] = {};
    const size_t scanned = ScanData(answer, sizeof answer);
    if (scanned == 0 || answer[0] != 0 || Length() <= kPropertyMinLength ||
        scanned <= kPropertyHeader) {
        Log(SevNotice, illegal);
        return 1;
    }
    // The value is what follows the four leading bytes, ended with a zero.
    const size_t valueLength = scanned - kPropertyHeader;
    std::string text(reinterpret_cast<const char*>(answer + kPropertyHeader), valueLength);
    TextCopy(value, size, text.c_str());
    Log(SevTrace, "leaving IPMIRequestVPD::IPMIPropertyCMD().");
    return 0;
}

// ---- backplane controller ----------------------------------------------------------

int IPMIRequestVPD::IPMISendAMICmd(uint8_t busID, uint8_t slave, uint8_t readCount,
                                   const uint8_t* write, uint8_t writeCount, uint8_t* read) {
    Entered("IPMISendAMICmd");
    if (writeCount > kMaxAMIWrite || (writeCount > 0 && write == nullptr) ||
        (readCount > 0 && read == nullptr)) {
        lastSent_ = false;
        Log(SevError, "Failure in sending AMI command.");
        return 1;
    }
    uint8_t data[3 + kMaxAMIWrite] = {busID, slave, readCount};
    if (writeCount > 0) {
        std::memcpy(data + 3, write, writeCount);
    }
    Prepare(kNetFnApp, kCmdMasterWriteRead, data, static_cast<uint8_t>(3 + writeCount));
    LogRequest("\nFor getting AMI Version, the command to be sent out is : ", true);
    if (!SendLogged("Failure in sending AMI command.")) {
        return 1;
    }
    LogF(SevTrace, "For sending AMI command, response length is : %d", static_cast<int>(Length()));
    LogLabelled("\nIncluding completion code, received response data (in hex) for sending AMI "
                "command is : ",
                ResponseText());
    if (!CompletedOK("IPMI Error in send AMI command: ")) {
        return 1;
    }
    if (Length() != readCount) {
        Log(SevFailure, "Response length is wrong in sending AMI command.");
        return 1;
    }
    if (transfer[kResponseStart] != 0) {
        Log(SevFailure, "Completion code isn't 0x00 in select AMI REG.");
        return 1;
    }
    if (readCount > 0 && ScanData(read, readCount) != readCount) {
        Log(SevFailure, "Response length is wrong in sending AMI command.");
        return 1;
    }
    Completed("IPMISendAMICmd");
    return 0;
}

int IPMIRequestVPD::IPMIGetAMIVersion(uint8_t busID, AMIBackplaneVersion& out) {
    out = AMIBackplaneVersion{};
    Entered("IPMIGetAMIVersion");
    const unsigned bus = busID;
    const uint8_t idRegister[1] = {kBackplaneIdRegister};
    if (IPMISendAMICmd(busID, kBackplaneSelectSlave, 0, idRegister, 1, nullptr) != 0) {
        LogF(SevFailure, "IPMIGetAMIVersion: Failure in selecting REG 0x63 for BusID[%u]", bus);
        return 1;
    }
    uint8_t mark = 0;
    if (IPMISendAMICmd(busID, kBackplaneSelectSlave, 1, nullptr, 0, &mark) != 0) {
        LogF(SevFailure, "IPMIGetAMIVersion: Failure in read one Byte for BusID[%u]", bus);
        return 1;
    }
    if (mark != kBackplanePresent) {
        // An empty bus is an ordinary thing on a machine with fewer backplanes
        // than bus IDs.
        LogF(SevDetail, "IPMIGetAMIVersion: AMI backplane isn't installed in BusID[%u]", bus);
        return 1;
    }
    if (IPMISendAMICmd(busID, kBackplaneVersionSlave, kBackplaneVersionCount, nullptr, 0,
                       out.versionData) != 0) {
        LogF(SevFailure, "IPMIGetAMIVersion: Failure to get version for BusID[%u]", bus);
        return 1;
    }
    out.version = out.versionData[0];
    LogF(SevDetail, "IPMIGetAMIVersion: get version for BusID[%u]", bus);
    const uint8_t vpdStart[1] = {0x00};
    if (IPMISendAMICmd(busID, kBackplaneVPDSlave, kBackplaneVPDCount, vpdStart, 1, out.vpdData) !=
        0) {
        LogF(SevFailure, "IPMIGetAMIVersion: Failure to get VPD ID and POS ID for BusID[%u]", bus);
        return 1;
    }
    LogF(SevDetail, "IPMIGetAMIVersion: get VPD ID for BusID[%u]", bus);
    LogF(SevDetail, "IPMIGetAMIVersion: get POS ID for BusID[%u]", bus);
    Completed("IPMIGetAMIVersion");
    return 0;
}

// ---- VPD blocks ------------------------------------------------------------------------

int IPMIRequestVPD::IPMIGetVPDEntryData(uint8_t device, uint8_t* vpd) {
    Entered("IPMIGetVPDEntryData");
    if (vpd == nullptr) {
        return 1;
    }
    bool whole = true;
    size_t offset = 0;
    uint8_t count = kVPDChunk;
    while (offset < kVPDSize) {
        if (kVPDSize - offset < kVPDChunk) {
            count = static_cast<uint8_t>(kVPDSize - offset);
        }
        LogF(SevTrace, "current_offset = %zu, counts_to_read = %u", offset,
             static_cast<unsigned>(count));
        const uint8_t data[4] = {static_cast<uint8_t>(offset), static_cast<uint8_t>(offset >> 8),
                                 device, count};
        Prepare(kNetFnOEM, kCmdVPDData, data, sizeof data);
        if (!SendLogged("Failure in sending command to obtain VPD Entry data.\n")) {
            return 1;
        }
        LogF(SevTrace, "Completion code = 0x%02X", static_cast<unsigned>(CompletionCode()));
        char prefix[96];
        TextFormat(prefix, sizeof prefix,
                   "IPMI error in obtaining vital product data for Device %u: ",
                   static_cast<unsigned>(device));
        if (!CompletedOK(prefix)) {
            return 1;
        }
        if (Length() != count) {
            LogF(SevFailure,
                 "Incorrect count returned when sending command to obtain vital product "
                 "data.\nDevice %u, Offset %zu, Counts returned: %d, Counts expected: %u",
                 static_cast<unsigned>(device), offset, static_cast<int>(Length()),
                 static_cast<unsigned>(count));
            whole = false;
        }
        // Never more than the chunk asked for: a longer answer must not run
        // into the next chunk or past the block.
        ScanData(vpd + offset, count);
        offset += count;
    }
    Log(SevTrace, "Final VPD_datap:");
    Log(SevTrace, HexBytes(vpd, kVPDSize));
    if (!whole) {
        return 1;
    }
    Log(SevTrace, "IPMIRequestVPD::IPMIGetVPDEntryData() completed.\n");
    return 0;
}

} // namespace ipmisel
