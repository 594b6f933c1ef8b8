// The plug-in's announcement to the framework and its small callbacks.
#pragma once

#include <cstdint>

#include "host/framework.h"

// Stands for the library attach notification: the loader calls it right after
// loading the library. Reason 1 (process attach) registers the callbacks;
// every other reason returns 1 and does nothing. 0 tells the loader to refuse
// the library.
extern "C" int PluginAttach(void* module, uint32_t reason, void* reserved);

namespace ipmisel {
NOXAQSV20::TQSVStatusCode PluginInitialize(NOXAQSV20::TCPluginCallbacks* host);
NOXAQSV20::TQSVStatusCode PluginTerminate();
NOXAQSV20::PluginInfo PluginGetInfo();
// The collection driver (plugin/Driver.cpp).
NOXAQSV20::TQSVStatusCode PluginCollect(NOXAQSV20::TCPluginCallbacks* host,
                                        NOXAQSV20::fdriIOHandle* io, const char** classes,
                                        int32_t classCount);
} // namespace ipmisel
