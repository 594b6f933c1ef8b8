// PluginCollect: discovers the BMC once per process, then walks the BMC nodes
// and, for each node, the classes the framework asked for.
//
// Abandoning: an allocation failure, a BMC that does not answer Get SEL Info
// twice and a failed SEL export end the collection by throwing the integer 1,
// which PluginCollect catches. Every object is held by an owner on the stack,
// so whatever was allocated is freed on the way out; instances already handed
// to the framework stay written.
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "auxlog/AuxLog.h"
#include "base/log.h"
#include "base/text.h"
#include "export/ExportSEL.h"
#include "firmware/FirmwareCollectors.h"
#include "firmware/IPMIRequestVPD.h"
#include "fru/FRUCollector.h"
#include "fru/IPMIVPDEntry.h"
#include "ipmi/IPMIRequestSDR.h"
#include "ipmi/IPMIRequestSEL.h"
#include "mapping/IPMIMapping.h"
#include "plugin/Driver.h"
#include "plugin/PlatformConfig.h"
#include "plugin/PluginEntry.h"
#include "plugin/Probes.h"
#include "plugin/module.h"
#include "sdr/IPMISDREntry.h"
#include "sdr/SDRCache.h"
#include "sel/IPMISELEntry.h"

using namespace NOXAQSV20;

namespace ipmisel {

bool (*g_allocationFails)(const char* what) = nullptr;

namespace {

// The node's own VPD entry object. The FRU collector writes into the
// collection-wide inventory object instead, so this one only keeps the
// node's allocation (and its failure line) as the framework's logs have
// always shown it.
struct VPDEntry {};

// ---- state that survives between collections ----------------------------------

char g_machineType[64] = "";
int g_bmcFound = 0;
int32_t g_nodeCount = 0;
bool g_fruOnce = false;
time_t g_fruResetTime = 0;
std::unique_ptr<IPMIVPDEntry> g_fruVpdEntry;
PlatformState g_platform;

// ---- allocation ----------------------------------------------------------------

template <class T, class... Args> T* NewObject(const char* what, Args&&... args) {
    if (g_allocationFails != nullptr && g_allocationFails(what)) {
        return nullptr;
    }
    return new (std::nothrow) T(std::forward<Args>(args)...);
}

template <class T> std::unique_ptr<T[]> NewArray(const char* what, size_t count) {
    if (g_allocationFails != nullptr && g_allocationFails(what)) {
        return nullptr;
    }
    return std::unique_ptr<T[]>(new (std::nothrow) T[count]());
}

// Logs the allocation failure line and abandons the collection.
[[noreturn]] void OutOfMemory(const char* line) {
    Log(SevError, line);
    throw 1;
}

// ---- one node ------------------------------------------------------------------

struct NodeObjects {
    std::unique_ptr<IPMIRequestSDR> sdr;
    std::unique_ptr<IPMIRequestSEL> sel;
    std::unique_ptr<IPMIRequestVPD> vpd;
    // The first entry of the SDR cache; the cache takes it over when it is built.
    std::unique_ptr<IPMISDREntry> sdrHead;
    std::unique_ptr<IPMIMapping> mapping;
    std::unique_ptr<IPMISELEntry> selEntry;
    std::unique_ptr<VPDEntry> vpdEntry;
    std::unique_ptr<std::vector<SDRTextBlock>> sdrList;
    std::shared_ptr<IPMIRequestAuxLog> auxLog;
};

struct NodeContext {
    int32_t node = 0;
    int32_t nodeCount = 0;
    SPLibrary* library = nullptr;
    TCPluginCallbacks* cb = nullptr;
    fdriIOHandle* io = nullptr;
    int32_t* recordOffset = nullptr;
    NodeObjects objects;
    // This node's SEL records once the log-record collector has read them in
    // this collection, for the auxiliary debug export, which dates its
    // entries by them.
    std::vector<IPMISELEntry> selRecords;
};

template <class T, class... Args>
void Make(std::unique_ptr<T>& owner, const char* what, const char* line, Args&&... args) {
    owner.reset(NewObject<T>(what, std::forward<Args>(args)...));
    if (!owner) {
        OutOfMemory(line);
    }
}

void CreateNodeObjects(NodeObjects& o, SPLibrary* library) {
    // The SEL request object has always reported its failure under the SDR
    // request's name; log readers search for that line.
    Make(o.sdr, "ipmi_sdrp", "Could not allocate memory for ipmi_sdrp.", library);
    Make(o.sel, "ipmi_selp", "Could not allocate memory for ipmi_sdrp.", library);
    Make(o.vpd, "ipmi_vpdp", "Could not allocate memory for ipmi_vpdp.", library);
    Make(o.sdrHead, "ipmi_sdr_headp", "Could not allocate memory for ipmi_sdr_headp.");
    Make(o.mapping, "ipmi_mappingp", "Could not allocate memory for ipmi_mappingp.");
    Make(o.selEntry, "ipmi_selentryp", "Could not allocate memory for ipmi_selentryp.");
    Make(o.vpdEntry, "ipmi_vpdentryp", "Could not allocate memory for ipmi_vpdentryp.");
    Make(o.sdrList, "sdr_listp", "Could not allocate memory for sdr_listp.");
    o.auxLog.reset(NewObject<IPMIRequestAuxLog>("ipmi_auxlogp", library));
    if (!o.auxLog) {
        OutOfMemory("Could not allocate memory for ipmi_auxlogp.");
    }
}

// Deletes the node's SDR cache on every way out of the SEL collector.
class SDRCacheOwner {
  public:
    SDRCacheOwner() = default;
    ~SDRCacheOwner() { DeleteSDRCache(cache); }
    SDRCacheOwner(const SDRCacheOwner&) = delete;
    SDRCacheOwner& operator=(const SDRCacheOwner&) = delete;
    SDRCache cache;
};

// A piece of an SDR text block, which may fill its part without a terminator.
std::string Piece(const char* text, size_t size) {
    return std::string(text, TextLength(text, size));
}

void TraceSDRBuffer(const char* info, const std::vector<SDRTextBlock>& blocks) {
    if (blocks.empty()) {
        Log(SevTrace, "No SDR data obtained.\n");
        return;
    }
    Log(SevTrace, "Printing out the SDR buffer...");
    Log(SevTrace, "SDR Info =");
    Log(SevTrace, Piece(info, SDRInfoTextSize));
    for (const SDRTextBlock& block : blocks) {
        Log(SevTrace, "SDR Header =");
        Log(SevTrace, Piece(block.Header(), 64));
        Log(SevTrace, "SDR Units =");
        Log(SevTrace, Piece(block.Units(), 96));
        Log(SevTrace, "SDR String =");
        Log(SevTrace, Piece(block.String(), 64));
    }
}

// The node's SEL as Get SEL Entry left it: the text slots and how many of
// them the walk filled.
struct SELSlots {
    std::unique_ptr<char[]> text;
    uint32_t filled = 0;
};

// Fetches this node's SEL entries into text slots. Slots are allocated for
// what Get SEL Info reported (at least one: the walk asks for the first entry
// even of a log said to be empty, and the array is never of size zero);
// entries beyond that are fetched by the walk and not kept. Only the leading
// slots the walk filled count, so a walk that stopped early does not turn
// empty slots into records.
SELSlots FetchSEL(IPMIRequestSEL& sel, uint32_t count) {
    SELSlots result;
    const size_t slotCount = count > 0 ? count : 1;
    result.text = NewArray<char>("sel_slots", SELSlotBytes(slotCount));
    if (!result.text) {
        OutOfMemory("Could not allocate memory for SEL entries.");
    }
    SELEntryText* slots = reinterpret_cast<SELEntryText*>(result.text.get());
    sel.nextRecordID[0] = 0;
    sel.nextRecordID[1] = 0;
    sel.IPMIGetSELEntry(slots, count);
    while (result.filled < count && slots[result.filled].text[0] != '\0') {
        ++result.filled;
    }
    return result;
}

// Parses the filled slots into records.
void ParseSEL(NodeContext& ctx, const SELSlots& slots, std::vector<IPMISELEntry>& records) {
    records.assign(slots.filled, IPMISELEntry{});
    if (FillSELArray(ctx.cb, slots.text.get(), records.data(), slots.filled) != 0) {
        Log(SevFailure, "Failed to fill all the entries into SEL array.\n");
    }
}

// Status, slots and read of the auxiliary log. False when there is nothing.
bool ReadAuxLog(IPMIRequestAuxLog& aux, std::unique_ptr<s_AuxLog_entry[]>& slots, uint32_t& count) {
    count = 0;
    if (aux.IPMIGetAuxLogStatus(count) != 0) {
        Log(SevFailure, "IPMIGetAuxLogStatus() returned Error.");
        count = 0;
        return false;
    }
    LogF(SevTrace, "num_AuxLogEntries = %u", count);
    if (count == 0) {
        return false;
    }
    slots = NewArray<s_AuxLog_entry>("auxlog_slots", count);
    if (!slots) {
        OutOfMemory("Could not allocate memory for AuxLog entries.");
    }
    // Entries read before an error are complete and kept; the slots not
    // reached stay zero and carry no manufacturer ID, so nothing uses them.
    if (aux.IPMIReadExtendedData(slots.get(), count) != 0) {
        Log(SevFailure, "IPMIReadExtendedData() returned Error.");
    }
    return true;
}

// ---- collectors ----------------------------------------------------------------

void CollectSEL(NodeContext& ctx) {
    Log(SevDetail, "Getting log records.");
    IPMIRequestSEL& sel = *ctx.objects.sel;
    uint32_t count = 0;
    if (sel.IPMIGetSELInfo(count) != 0 && sel.IPMIGetSELInfo(count) != 0) {
        Log(SevFailure, "Failed to communicate with BMC. This machine could be non-BMC.");
        throw 1;
    }

    // Entries first, then the repository walk and its trace, then the parse:
    // the log has always shown the steps in this order, and people comparing
    // logs of different runs read them that way.
    const SELSlots slots = FetchSEL(sel, count);

    std::vector<SDRTextBlock>& blocks = *ctx.objects.sdrList;
    blocks.clear();
    char info[SDRInfoTextSize] = {};
    IPMIRequestSDR& sdr = *ctx.objects.sdr;
    sdr.currentRecordID[0] = 0;
    sdr.currentRecordID[1] = 0;
    if (sdr.IPMIGetSDREntry(blocks, info) != 0) {
        Log(SevError, "Could not collect all sensor data records\n");
    }
    SDRCacheOwner cache;
    IPMISDREntry* head = ctx.objects.sdrHead.release();
    if (head == nullptr) {
        // A second request of the class on the same node: the first entry went
        // to the earlier cache.
        head = NewObject<IPMISDREntry>("ipmi_sdr_headp");
        if (head == nullptr) {
            OutOfMemory("Could not allocate memory for ipmi_sdr_headp.");
        }
    }
    CreateSDRCache(head, cache.cache, blocks, info);
    TraceSDRBuffer(info, blocks);

    std::vector<IPMISELEntry> records;
    ParseSEL(ctx, slots, records);
    LogF(SevTrace, "num_SELentries = %u", static_cast<unsigned>(records.size()));

    std::unique_ptr<s_AuxLog_entry[]> auxSlots;
    uint32_t auxCount = 0;
    std::vector<AuxLogRecord> auxRecords;
    if (ReadAuxLog(*ctx.objects.auxLog, auxSlots, auxCount)) {
        ParseExtendedSELData(auxRecords, auxSlots.get(), auxCount);
    }

    if (ExportSEL(ctx.node, ctx.cb, ctx.io, cache.cache, records.data(),
                  static_cast<uint32_t>(records.size()), *ctx.recordOffset, auxRecords,
                  ctx.library) != 0) {
        Log(SevError, "Failed to export SEL array.\n");
        throw 1;
    }
    // Record IDs of later nodes follow this node's: the offset grows by what
    // the BMC reported, whatever part of it was exported.
    *ctx.recordOffset += static_cast<int32_t>(count);
    Log(SevTrace, "Completed all collecting and exporting of SEL/SDR.");

    ctx.selRecords = std::move(records);
}

void CollectAuxDebug(NodeContext& ctx) {
    // The entries are dated by the SEL records they belong to, and only the
    // log-record collector talks to the SEL and the SDR repository: the debug
    // records use the records it left with the node in this collection. When
    // it was not asked for, or is asked for later, there are none, and every
    // debug entry is reported by the export as having no SEL record.
    std::unique_ptr<s_AuxLog_entry[]> auxSlots;
    uint32_t auxCount = 0;
    if (!ReadAuxLog(*ctx.objects.auxLog, auxSlots, auxCount)) {
        return;
    }
    ExportAuxDebugLog(ctx.library, ctx.io, auxSlots.get(), auxCount, ctx.selRecords.data(),
                      static_cast<uint32_t>(ctx.selRecords.size()));
}

void CollectFRU(NodeContext& ctx) {
    const time_t now = g_clock();
    if (now > g_fruResetTime && now - g_fruResetTime > platform::kFruRefreshSeconds) {
        g_fruOnce = false;
        g_fruResetTime = now;
        Log(SevDetail, "Resetting ipmifruonce.");
    }
    if (g_fruOnce) {
        return;
    }
    if (ctx.node == ctx.nodeCount - 1) {
        g_fruOnce = true;
        Log(SevDetail, "Setting ipmifruonce.");
    }
    Log(SevDetail, "Getting FRU records.");
    Log(SevDetail, "Obtaining FRU Locator info.");
    CollectFRUInventory(ctx.cb, ctx.io, ctx.library, ctx.node, *g_fruVpdEntry);
}

// The firmware classes: each writes at most one instance for the node, and a
// BMC that does not answer one leaves the others untouched.
template <int (*Collector)(IPMIRequestVPD&, fdriIOHandle*, int32_t, const FirmwarePlatform&)>
void RunFirmware(NodeContext& ctx) {
    Collector(*ctx.objects.vpd, ctx.io, ctx.node, g_platform.firmware);
}

struct ClassCollector {
    const char* className;
    void (*collect)(NodeContext&);
};

// Tested in this order for every requested name; names match byte for byte.
constexpr ClassCollector kCollectors[] = {
    {"OXASG_IPMILogRecord", CollectSEL},
    {"OXASG_VTXAuxDebugRecord", CollectAuxDebug},
    {"OXASG_IPMIFRU", CollectFRU},
    {"OXASG_IPMIFirmwareElement", RunFirmware<CollectBMCFirmware>},
    {"OXASG_CPLDFirmwareElement", RunFirmware<CollectCPLDFirmware>},
    {"OXASG_FPGAFirmwareElement", RunFirmware<CollectFPGAFirmware>},
    {"OXASG_QsvVPD", RunFirmware<CollectQsvVPD>},
    {"OXASG_AMIFirmwareElement", RunFirmware<CollectAMIFirmware>},
};

void RunCollector(NodeContext& ctx, const char* requested) {
    if (requested == nullptr) {
        return;
    }
    for (const ClassCollector& c : kCollectors) {
        if (std::strcmp(requested, c.className) == 0) {
            c.collect(ctx);
            return;
        }
    }
}

// ---- discovery -----------------------------------------------------------------

void ShowMissingDriverNotice() {
    std::string markup =
        "A BMC/vTX was detected, but the IPMI driver is not installed. Please obtain and install "
        "the correct driver from ";
    markup += std::string("<a href=\"") + platform::kDriverPageRack +
              "\">OXA Driver Matrix page</a> or <a href=\"" + platform::kDriverPageBlade +
              "\">OXA Stackfield Matrix page</a>. ";
    markup += "If no IPMI driver package is available for your machine type from these links, "
              "please use the Microsoft Windows IPMI driver. More information can be found "
              "reading tip ";
    markup += std::string("<a href=\"") + platform::kDriverTipPage + "\">IPMI driver tip</a>.";

    std::string plain = "\nA BMC/vTX was detected, but the IPMI driver is not installed. \n";
    plain += std::string("Please obtain and install the correct driver from OXA Driver Matrix "
                         "page: \n") +
             platform::kDriverPageRack + " \n";
    plain += std::string("Or OXA Stackfield Matrix page: \n") + platform::kDriverPageBlade + " \n";
    plain += "If no IPMI driver package is available for your machine type from these links, "
             "please use the Microsoft Windows IPMI driver. \n";
    plain += std::string("More information can be found reading tip: \n") +
             platform::kDriverTipPage + " \n";
    plain += "Once the driver is installed, please collect QSV output again before sending to "
             "OXA. Sending the QSV output without \n";
    plain += "this information may compromise the ability of OXA to perform complete problem "
             "determination. \n";

    if (ILogger* logger = TRootObject::GetCoreLogger()) {
        logger->LogMessage(platform::kNoticeClassMarkup, markup);
        logger->LogMessage(platform::kNoticeClassPlain, plain);
    }
}

bool IsAdapterMachineType(const char* machineType) {
    for (const char* type : platform::kAdapterMachineTypes) {
        if (std::strcmp(machineType, type) == 0) {
            return true;
        }
    }
    return false;
}

// Missing driver: the notice unless the run is from a bootable medium or the
// machine reaches its BMC through the on-board adapter.
void ReportMissingDriver() {
    const char* bootable = std::getenv(platform::kBootableVariable);
    if (bootable == nullptr) {
        bootable = "no";
    }
    if (std::strcmp(bootable, platform::kBootableValue) == 0) {
        return;
    }
    if (IsAdapterMachineType(g_machineType) && HasTVK2onBoard() == 1) {
        return;
    }
    ShowMissingDriverNotice();
}

// The one-time BMC discovery. False: nothing is to be collected.
bool DiscoverBMC(TCPluginCallbacks* cb) {
    if (!g_platform.lan && FindSMBIOSType38(cb) != 0) {
        return false;
    }
    ++g_bmcFound;
    Log(SevDetail, "Successfully found type 38 for BMC. or support ipmi lan");
    SPLibrary* library = SPLibrary::GetSplibraryInstance(0);
    if (library == nullptr) {
        Log(SevFailure, "Could not load SPLibrary.");
        return false;
    }
    g_nodeCount = library->GetNumberBMCNode();
    LogF(SevDetail, "IPMISel:Discover BMC nodes number: %d", g_nodeCount);
    if (!g_platform.lan && !library->IsIPMIDriversPresent()) {
        ReportMissingDriver();
        return false;
    }
    return true;
}

void ProbePlatform(TCPluginCallbacks* cb) {
    SMBIOSInfo smbios(cb);
    if (smbios.getSMBIOSInfo(platform::SMBIOSDataKind::CPLD, &g_platform.cpldSelectors) == 0) {
        Log(SevDetail, "This machine has CPLD.");
        g_platform.cpld = true;
    }
    if (smbios.getSMBIOSInfo(platform::SMBIOSDataKind::FPGA, &g_platform.fpgaSelectors) == 0) {
        Log(SevDetail, "This machine has FPGA.");
        g_platform.fpga = true;
    } else {
        Log(SevDetail, "This machine doesn't have FPGA.");
    }
    SPLibrary* node0 = SPLibrary::GetSplibraryInstance(0);
    if (node0 != nullptr && node0->IsiBMCMachine()) {
        Log(SevDetail, "This machine has AMI backplane.");
        g_platform.ami = true;
    }
    g_platform.bmcTypeIndex = firmware::FindBMCMachineType(g_machineType);
    if (g_platform.bmcTypeIndex >= 0) {
        Log(SevDetail, "Found matching BMC machine type");
        LogF(SevDetail, "BMC machine type index=%d", g_platform.bmcTypeIndex);
    }
    g_platform.firmware = DescribeFirmwarePlatform(
        firmware::BMCMachineTypeRow(g_platform.bmcTypeIndex), g_platform.cpld, g_platform.fpga,
        g_platform.ami, g_platform.cpldSelectors, g_platform.fpgaSelectors);
}

void Collect(TCPluginCallbacks* cb, fdriIOHandle* io, const char** classes, int32_t classCount) {
    Log(SevDetail, "Getting IPMI SEL data.");
    if (!g_machineTypeRead) {
        int status = 0;
        getMachineType(&status, g_machineType, sizeof g_machineType);
        if (status != 0) {
            Log(SevFailure, "Could not obtain Machine Type via SMBIOS.");
            TextCopy(g_machineType, sizeof g_machineType, "No machine type found.");
        }
    }
    Log(SevDetail, "Machine Type is:");
    Log(SevDetail, g_machineType);

    Log(SevDetail, "Preparing to find type 38 for BMC.");
    g_platform = PlatformState{};
    IIPMILan* lan = TRootObject::GetipmiLanIns();
    g_platform.lan = lan != nullptr && lan->getipmiLanStatus();

    if (g_bmcFound == 0 && !DiscoverBMC(cb)) {
        return;
    }

    ProbePlatform(cb);

    g_fruVpdEntry.reset();
    g_fruVpdEntry.reset(NewObject<IPMIVPDEntry>("fIpmiVpdentryFru"));
    if (!g_fruVpdEntry) {
        OutOfMemory("Could not allocate memory for fIpmiVpdentryFru.");
    }

    int32_t recordOffset = 0;
    const int32_t requested = classes != nullptr && classCount > 0 ? classCount : 0;
    for (int32_t node = 0; node < g_nodeCount; ++node) {
        NodeContext ctx;
        ctx.node = node;
        ctx.nodeCount = g_nodeCount;
        ctx.library = SPLibrary::GetSplibraryInstance(node);
        ctx.cb = cb;
        ctx.io = io;
        ctx.recordOffset = &recordOffset;
        CreateNodeObjects(ctx.objects, ctx.library);
        for (int32_t i = 0; i < requested; ++i) {
            RunCollector(ctx, classes[i]);
        }
    }
    Log(SevDetail, "Finished getting IPMI SEL data.");
}

} // namespace

const PlatformState& CurrentPlatform() {
    return g_platform;
}

const char* CurrentMachineType() {
    return g_machineType;
}

void ResetDriverState() {
    g_machineTypeRead = false;
    g_machineType[0] = '\0';
    g_bmcFound = 0;
    g_nodeCount = 0;
    g_fruOnce = false;
    g_fruResetTime = 0;
    g_fruVpdEntry.reset();
    g_platform = PlatformState{};
}

TQSVStatusCode PluginCollect(TCPluginCallbacks* cb, fdriIOHandle* io, const char** classes,
                             int32_t classCount) {
    // The framework is told success whatever happened: what could be collected
    // has been written, and every failure has its line in the log.
    try {
        Collect(cb, io, classes, classCount);
    } catch (int) {
        // Abandoned; the reason was logged where it happened.
    } catch (const std::bad_alloc&) {
        Log(SevError, "Could not allocate memory.");
    } catch (const std::exception& e) {
        Log(SevError, e.what());
    } catch (...) {
        Log(SevError, "Collection abandoned.");
    }
    return TQSVStatusCode(QSV_SUCCESS);
}

} // namespace ipmisel
