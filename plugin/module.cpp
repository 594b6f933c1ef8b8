#include "plugin/module.h"

namespace ipmisel {

NOXAQSV20::TCPluginCallbacks* g_hostCallbacks = nullptr;
uint32_t g_runFlag = 0;

namespace {
time_t systemClock() {
    return time(nullptr);
}
} // namespace

time_t (*g_clock)() = systemClock;

} // namespace ipmisel
