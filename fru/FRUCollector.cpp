// Which FRU locators become instances, and from which layout each instance's
// properties come.
#include "fru/FRUCollector.h"

#include <optional>
#include <string>
#include <vector>

#include "base/log.h"
#include "fru/FRUInfoAreas.h"
#include "fru/IPMIRequestFRULocator.h"

using namespace NOXAQSV20;

namespace ipmisel {

namespace {

constexpr const char* kFRUClass = "OXASG_IPMIFRU";

// Locators of stores that are not hardware: the BIOS settings, the error log
// and the diagnostics' own data. Their data means nothing as a FRU.
constexpr const char* kSkippedIDs[] = {"CMOS", "WHEA", "QSV"};

// ID strings whose data is typed (a processor, a memory module's SPD).
bool IsTypedFRU(const std::string& id) {
    return id == "CPU" || id == "DIMM";
}

bool IsSkipped(const std::string& id) {
    for (const char* skipped : kSkippedIDs) {
        if (id == skipped) {
            return true;
        }
    }
    return false;
}

} // namespace

void CollectFRUInventory(TCPluginCallbacks* cb, fdriIOHandle* io, SPLibrary* library, int node,
                         IPMIVPDEntry& vpdEntry) {
    Log(SevTrace, "CollectFRUInventory() function entered.");
    IPMIRequestFRULocator request(library);
    std::vector<IPMIFRULocator> locators;
    request.IPMIGetSDREntry(locators);

    // Asked of SMBIOS only when a FRU needs the fixed-offset layout.
    std::optional<bool> blade;
    for (IPMIFRULocator& locator : locators) {
        const std::string& id = locator.idString;
        // A physical locator's device ID is a slave address, not a FRU device
        // ID: reading it as one would repeat another FRU's data (often the
        // mainboard's, device 0) under this locator's name.
        if (!locator.IsLogicalFRUDevice()) {
            LogF(SevDetail, "FRU locator %s is not a logical FRU device; not read.", id.c_str());
            continue;
        }
        if (IsSkipped(id)) {
            LogF(SevDetail, "FRU locator %s is not a FRU; not read.", id.c_str());
            continue;
        }
        request.IPMIGetFRUData(locator, false);
        if (!locator.HasFRUData()) {
            continue;
        }

        FRUProperties& properties = vpdEntry.NewPropertySet();
        properties["ElementName"] = id;
        properties["SourceNode"] = std::to_string(node + 1);
        const bool standard = HasIPMICommonHeader(locator.fruData, kFRUDataSize);
        if (standard) {
            AddStandardFRUAreas(properties, locator.fruData, kFRUDataSize, id);
        }
        if (IsTypedFRU(id)) {
            GetFRUOffsets(properties, locator.fruData, id, false);
        } else if (standard) {
            locator.GetFRUAreas(id, false);
            vpdEntry.IPMISELShowFRUData(locator, false);
        } else {
            if (!blade) {
                blade = IsBladePlatform(cb);
            }
            GetFRUOffsets(properties, locator.fruData, id, *blade);
        }
    }
    vpdEntry.GenerateCIMInstance(io, kFRUClass);
    Log(SevTrace, "CollectFRUInventory() function completed.");
}

} // namespace ipmisel
