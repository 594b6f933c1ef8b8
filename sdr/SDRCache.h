// The node's sensor records in repository order, found by sensor number.
#pragma once

#include <cstdint>
#include <list>
#include <vector>

#include "ipmi/IPMIRequestSDR.h"
#include "sdr/IPMISDREntry.h"

namespace ipmisel {

typedef std::list<IPMISDREntry*> SDRCache;

// Scans every block into the cache (which takes ownership of `first` and of
// the entries it makes). 0 built (possibly partly), 1 repository info rejected.
int CreateSDRCache(IPMISDREntry* first, SDRCache& cache, const std::vector<SDRTextBlock>& blocks,
                   const char* info);
// Destroys every entry and clears the list; always 0. Safe to call twice.
int DeleteSDRCache(SDRCache& cache);
// First entry in repository order with this sensor number, or null.
const IPMISDREntry* FindSDR(const SDRCache& cache, uint8_t sensorNumber);

} // namespace ipmisel
