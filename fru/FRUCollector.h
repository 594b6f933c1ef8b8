// The FRU inventory of one BMC node: one "OXASG_IPMIFRU" instance per FRU
// device locator whose device holds data.
#pragma once

#include "fru/IPMIVPDEntry.h"
#include "host/framework.h"

namespace ipmisel {

// Walks the node's FRU locators, reads each logical FRU device, fills one
// property set per FRU that has data in `vpdEntry` (the collection's FRU
// entry) and writes this node's instances before returning. Call once per
// node and requested FRU class; `node` counts from 0.
void CollectFRUInventory(NOXAQSV20::TCPluginCallbacks* cb, NOXAQSV20::fdriIOHandle* io,
                         NOXAQSV20::SPLibrary* library, int node, IPMIVPDEntry& vpdEntry);

} // namespace ipmisel
