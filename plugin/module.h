// Module-wide state of the plug-in that outlives one callback.
#pragma once

#include <cstdint>
#include <ctime>

#include "host/framework.h"

namespace ipmisel {

// The host callbacks object: written by registration, replaced by
// PluginInitialize; every later host call that needs it reads it here.
extern NOXAQSV20::TCPluginCallbacks* g_hostCallbacks;
// Cleared by PluginInitialize and PluginTerminate; nothing else reads it.
extern uint32_t g_runFlag;

// Seconds since 1970 for the FRU gate. Tests replace it to move time on.
extern time_t (*g_clock)();

} // namespace ipmisel
