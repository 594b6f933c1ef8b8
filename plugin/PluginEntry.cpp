#include "plugin/PluginEntry.h"

#include <cstring>

#include "base/log.h"
#include "plugin/module.h"

using namespace NOXAQSV20;

namespace ipmisel {

namespace {
const char kPluginName[] = "IPMISEL";
const char kPluginVersion[] = "1.0";
// Kept apart from the first version on purpose: the framework reads them as
// two different things even though they carry the same text today.
const char kPluginVersion2[] = "1.0";
} // namespace

TQSVStatusCode PluginInitialize(TCPluginCallbacks* host) {
    g_hostCallbacks = host;
    g_runFlag = 0;
    return TQSVStatusCode(QSV_SUCCESS);
}

TQSVStatusCode PluginTerminate() {
    // Collection memory is released inside PluginCollect; nothing is left here.
    g_runFlag = 0;
    return TQSVStatusCode(QSV_SUCCESS);
}

PluginInfo PluginGetInfo() {
    return PluginInfo{kPluginName, kPluginVersion, kPluginVersion2, 0};
}

} // namespace ipmisel

extern "C" int PluginAttach(void* /*module*/, uint32_t reason, void* /*reserved*/) {
    const uint32_t kProcessAttach = 1;
    if (reason != kProcessAttach) {
        return 1;
    }
    static fdrPluginCallbacks record;
    std::memset(&record, 0, sizeof record);
    record.size = sizeof record;
    record.initialize = ipmisel::PluginInitialize;
    record.terminate = ipmisel::PluginTerminate;
    record.collect = ipmisel::PluginCollect;
    record.getInfo = ipmisel::PluginGetInfo;
    TQSVStatusCode status = fdrRegisterPlugin(&record, &ipmisel::g_hostCallbacks);
    if (status.GetCode() != QSV_SUCCESS) {
        ipmisel::Log(ipmisel::SevError, "Could not register plugin!");
        return 0;
    }
    return 1;
}

static_assert(sizeof(fdrPluginCallbacks) == 48, "the framework expects a 48-byte record");
