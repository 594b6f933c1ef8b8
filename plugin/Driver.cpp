#include "plugin/PluginEntry.h"
#include "plugin/log.h"

using namespace NOXAQSV20;

namespace ipmisel {

TQSVStatusCode PluginCollect(TCPluginCallbacks*, fdriIOHandle*, const char**, int32_t) {
    Log(SevDetail, "Getting IPMI SEL data.");
    Log(SevDetail, "Finished getting IPMI SEL data.");
    return TQSVStatusCode(QSV_SUCCESS);
}

} // namespace ipmisel
