#include "firmware/FirmwareCollectors.h"

#include <string>

#include "base/log.h"
#include "base/text.h"

using namespace NOXAQSV20;

namespace ipmisel {

namespace {

// Keeps one class's collection from asking a BMC again what it said it does
// not know (C1h). Refused before the BMC recognised any of the class's
// commands, it is not one that knows the maker's commands: the class ends
// there, with the one notice line the request wrote. Refused after that, only
// that command is left out for the rest of the class.
class Refusals {
  public:
    bool Skips(uint8_t netFn, uint8_t cmd) const {
        for (uint16_t k : refused_) {
            if (k == Key(netFn, cmd)) {
                return true;
            }
        }
        return stopped_;
    }
    // After every request: any answer but C1h shows the command is known,
    // whatever else is wrong with it.
    void Note(const IPMIRequestVPD& r) {
        if (!r.LastSent()) {
            return;
        }
        if (!r.LastRefused()) {
            recognised_ = true;
        } else if (!recognised_) {
            stopped_ = true;
        } else {
            refused_.push_back(Key(r.netFn, r.cmd));
        }
    }

  private:
    static uint16_t Key(uint8_t netFn, uint8_t cmd) {
        return static_cast<uint16_t>(netFn << 8 | cmd);
    }
    bool recognised_ = false;
    bool stopped_ = false;
    std::vector<uint16_t> refused_;
};

constexpr uint8_t kNetFnOEM = 0x3A;
constexpr uint8_t kCmdDeviceVersion = 0x6B;
constexpr uint8_t kCmdFPGARevisions = 0x90;
constexpr uint8_t kCmdProperty = 0xC4;
constexpr uint8_t kCmdVPDData = 0x0B;
constexpr uint8_t kNetFnApp = 0x06;
constexpr uint8_t kCmdMasterWriteRead = 0x52;

std::string Numbered(const char* prefix, size_t n, const char* suffix) {
    char name[64];
    TextFormat(name, sizeof name, "%s%zu%s", prefix, n, suffix);
    return name;
}

std::string SourceNode(int32_t node) {
    char text[16];
    TextFormat(text, sizeof text, "%ld", static_cast<long>(node) + 1);
    return text;
}

// Entered and completed lines of one collector.
class Trace {
  public:
    explicit Trace(const char* name) : name_(name) {
        LogF(SevTrace, "%s() function entered.", name_);
    }
    int Done(int result) const {
        if (result == 0) {
            LogF(SevTrace, "%s() function completed.", name_);
        }
        return result;
    }

  private:
    const char* name_;
};

struct NamedValue {
    const char* name;
    std::string value;
};

// Asks every property of `paths` until the BMC shows it does not know the
// property command; the answers in table order.
template <size_t N>
std::vector<NamedValue> ReadProperties(IPMIRequestVPD& request, Refusals& refusals,
                                       const firmware::PropertyPath (&paths)[N]) {
    std::vector<NamedValue> values;
    for (const firmware::PropertyPath& p : paths) {
        if (refusals.Skips(kNetFnOEM, kCmdProperty)) {
            break;
        }
        char value[256];
        const int result = request.IPMIPropertyCMD(p.path, value, sizeof value);
        refusals.Note(request);
        if (result == 0) {
            values.push_back({p.propertyName, value});
        }
    }
    return values;
}

const std::string* Find(const std::vector<NamedValue>& values, const char* name) {
    for (const NamedValue& v : values) {
        if (std::string(v.name) == name) {
            return &v.value;
        }
    }
    return nullptr;
}

} // namespace

FirmwarePlatform DescribeFirmwarePlatform(const firmware::BMCMachineType* row, bool cpld, bool fpga,
                                          bool ami, const std::vector<uint8_t>& smbiosCpldSelectors,
                                          const std::vector<uint8_t>& smbiosFpgaSelectors) {
    FirmwarePlatform p;
    p.cpld = cpld;
    p.fpga = fpga;
    p.ami = ami;
    // The machine's own SMBIOS list knows its devices better than a table
    // written for the machine type.
    if (!smbiosCpldSelectors.empty()) {
        p.cpldSelectors = smbiosCpldSelectors;
    } else if (row != nullptr) {
        p.cpldSelectors.assign(row->cpldSelectors.begin(), row->cpldSelectors.end());
    }
    if (!smbiosFpgaSelectors.empty()) {
        p.fpgaSelectors = smbiosFpgaSelectors;
    } else if (row != nullptr) {
        p.fpgaSelectors.assign(row->fpgaSelectors.begin(), row->fpgaSelectors.end());
    }
    if (row != nullptr) {
        p.backplaneBusIDs.assign(row->backplaneBusIDs.begin(), row->backplaneBusIDs.end());
        p.vpdDevices.assign(row->vpdDevices.begin(), row->vpdDevices.end());
    }
    return p;
}

// ---- BMC -----------------------------------------------------------------------------

int CollectBMCFirmware(IPMIRequestVPD& request, fdriIOHandle* io, int32_t node,
                       const FirmwarePlatform&) {
    Trace trace("CollectBMCFirmware");
    Log(SevDetail, "Getting BMC firmware.");
    FirmwareElement entry;
    uint8_t deviceID[IPMIRequestVPD::kDeviceIDMax] = {};
    size_t count = 0;
    if (request.IPMIGetFirmwareVersion(deviceID, sizeof deviceID, count) != 0) {
        return 1;
    }
    // The build information is the maker's; any other BMC still gets its
    // element from Get Device ID alone.
    BMCBuildInfo build;
    const bool haveBuild = request.IPMIGetBMCBuildInfo(build) == 0;

    entry.AddText("ElementName", "BMC Firmware");
    AddDeviceIDProperties(entry, deviceID, count);
    if (haveBuild) {
        const std::string id = build.fromOEMGroup
                                   ? PrintableText(build.data, build.dataCount)
                                   : PrintableText(build.buildID, build.buildIDCount);
        if (!id.empty()) {
            entry.AddText("BuildID", id);
        }
        entry.AddBytes("BuildInfoRawData", build.data, build.dataCount);
    }
    entry.AddText("SourceNode", SourceNode(node));
    return trace.Done(entry.Export(io, kBMCFirmwareClass));
}

// ---- CPLD ------------------------------------------------------------------------------

int CollectCPLDFirmware(IPMIRequestVPD& request, fdriIOHandle* io, int32_t node,
                        const FirmwarePlatform& platform) {
    Trace trace("CollectCPLDFirmware");
    FirmwareElement entry;
    if (!platform.cpld || platform.cpldSelectors.empty()) {
        Log(SevDetail, "No CPLD known on this machine; no CPLD firmware collected.");
        return 1;
    }
    Log(SevDetail, "Getting CPLD firmware.");
    Refusals refusals;
    std::vector<std::pair<size_t, uint8_t>> versions; // position (from 1), version
    for (size_t i = 0; i < platform.cpldSelectors.size(); ++i) {
        if (refusals.Skips(kNetFnOEM, kCmdDeviceVersion)) {
            break;
        }
        uint8_t version = 0;
        const int result = request.IPMIGetCPLDVersion(platform.cpldSelectors[i], version);
        refusals.Note(request);
        if (result == 0) {
            versions.emplace_back(i + 1, version);
        }
    }
    if (versions.empty()) {
        return 1;
    }
    entry.AddText("ElementName", "CPLD Firmware");
    entry.AddText("VersionString", ByteVersionText(versions.front().second));
    for (const auto& [position, version] : versions) {
        entry.AddText(Numbered("CPLD", position, "Version").c_str(), ByteVersionText(version));
    }
    entry.AddText("SourceNode", SourceNode(node));
    return trace.Done(entry.Export(io, kCPLDFirmwareClass));
}

// ---- FPGA ------------------------------------------------------------------------------

int CollectFPGAFirmware(IPMIRequestVPD& request, fdriIOHandle* io, int32_t node,
                        const FirmwarePlatform& platform) {
    Trace trace("CollectFPGAFirmware");
    FirmwareElement entry;
    if (!platform.fpga) {
        Log(SevDetail, "No FPGA known on this machine; no FPGA firmware collected.");
        return 1;
    }
    Log(SevDetail, "Getting FPGA firmware.");
    Refusals refusals;
    struct FPGA {
        size_t position;
        uint8_t version[IPMIRequestVPD::kFPGAVersionSize];
        bool haveRevisions;
        uint8_t revisions[IPMIRequestVPD::kFPGAVersionSize];
    };
    std::vector<FPGA> fpgas;
    for (size_t i = 0; i < platform.fpgaSelectors.size(); ++i) {
        if (refusals.Skips(kNetFnOEM, kCmdDeviceVersion)) {
            break;
        }
        FPGA f{i + 1, {}, false, {}};
        const uint8_t selector = platform.fpgaSelectors[i];
        const int result = request.IPMIGetFPGAVersion(selector, f.version);
        refusals.Note(request);
        if (result != 0) {
            continue;
        }
        if (!refusals.Skips(kNetFnOEM, kCmdFPGARevisions)) {
            f.haveRevisions = request.IPMIGetFPGARevisions_SPI(selector, f.revisions) == 0;
            refusals.Note(request);
        }
        fpgas.push_back(f);
    }
    const std::vector<NamedValue> build =
        ReadProperties(request, refusals, firmware::kFPGAProperties);
    if (fpgas.empty() && build.empty()) {
        return 1;
    }
    entry.AddText("ElementName", "FPGA Firmware");
    if (!fpgas.empty()) {
        entry.AddText("VersionString", DottedVersionText(fpgas.front().version, 4));
    } else if (const std::string* v = Find(build, "BuildVersion")) {
        entry.AddText("VersionString", *v);
    }
    for (const FPGA& f : fpgas) {
        entry.AddText(Numbered("FPGA", f.position, "Version").c_str(),
                      DottedVersionText(f.version, sizeof f.version));
        if (f.haveRevisions) {
            entry.AddBytes(Numbered("FPGA", f.position, "SPIRevisionsRawData").c_str(), f.revisions,
                           sizeof f.revisions);
        }
    }
    for (const NamedValue& v : build) {
        entry.AddText(v.name, v.value);
    }
    entry.AddText("SourceNode", SourceNode(node));
    return trace.Done(entry.Export(io, kFPGAFirmwareClass));
}

// ---- diagnostics build and VPD -----------------------------------------------------------

int CollectQsvVPD(IPMIRequestVPD& request, fdriIOHandle* io, int32_t node,
                  const FirmwarePlatform& platform) {
    Trace trace("CollectQsvVPD");
    FirmwareElement entry;
    Log(SevDetail, "Getting diagnostics VPD.");
    Refusals refusals;
    const std::vector<NamedValue> build =
        ReadProperties(request, refusals, firmware::kDiagnosticsProperties);
    struct Block {
        uint8_t device;
        uint8_t data[IPMIRequestVPD::kVPDSize];
    };
    std::vector<Block> blocks;
    for (uint8_t device : platform.vpdDevices) {
        if (refusals.Skips(kNetFnOEM, kCmdVPDData)) {
            break;
        }
        Block b{device, {}};
        const int result = request.IPMIGetVPDEntryData(device, b.data);
        refusals.Note(request);
        if (result == 0) {
            blocks.push_back(b);
        }
    }
    if (build.empty() && blocks.empty()) {
        return 1;
    }
    entry.AddText("ElementName", "Diagnostics VPD");
    if (const std::string* v = Find(build, "BuildVersion")) {
        entry.AddText("VersionString", *v);
    }
    for (const NamedValue& v : build) {
        entry.AddText(v.name, v.value);
    }
    for (const Block& b : blocks) {
        entry.AddBytes(Numbered("VPDDevice", b.device, "RawData").c_str(), b.data, sizeof b.data);
    }
    entry.AddText("SourceNode", SourceNode(node));
    return trace.Done(entry.Export(io, kQsvVPDClass));
}

// ---- backplane ----------------------------------------------------------------------------

int CollectAMIFirmware(IPMIRequestVPD& request, fdriIOHandle* io, int32_t node,
                       const FirmwarePlatform& platform) {
    Trace trace("CollectAMIFirmware");
    FirmwareElement entry;
    if (!platform.ami || platform.backplaneBusIDs.empty()) {
        Log(SevDetail, "No AMI backplane known on this machine; no backplane firmware collected.");
        return 1;
    }
    Log(SevDetail, "Getting AMI backplane firmware.");
    Refusals refusals;
    std::vector<std::pair<size_t, AMIBackplaneVersion>> found; // position (from 1), answers
    for (size_t i = 0; i < platform.backplaneBusIDs.size(); ++i) {
        if (refusals.Skips(kNetFnApp, kCmdMasterWriteRead)) {
            break;
        }
        AMIBackplaneVersion v;
        const int result = request.IPMIGetAMIVersion(platform.backplaneBusIDs[i], v);
        refusals.Note(request);
        if (result == 0) {
            found.emplace_back(i + 1, v);
        }
    }
    if (found.empty()) {
        return 1;
    }
    entry.AddText("ElementName", "Backplane Firmware");
    entry.AddText("VersionString", ByteVersionText(found.front().second.version));
    for (const auto& [position, v] : found) {
        entry.AddText(Numbered("Backplane", position, "Version").c_str(),
                      ByteVersionText(v.version));
        entry.AddBytes(Numbered("Backplane", position, "VersionRawData").c_str(), v.versionData,
                       sizeof v.versionData);
        entry.AddBytes(Numbered("Backplane", position, "VPDRawData").c_str(), v.vpdData,
                       sizeof v.vpdData);
    }
    entry.AddText("SourceNode", SourceNode(node));
    return trace.Done(entry.Export(io, kAMIFirmwareClass));
}

} // namespace ipmisel
