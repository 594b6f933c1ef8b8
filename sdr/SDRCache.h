// The node's sensor records in repository order, found by sensor number.
#pragma once

#include <array>
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

// FindSDR's answer for every sensor number at once, for the SEL export, which
// asks once per record: the list is walked once instead of at each record.
// The cache must not change while the index is in use.
class SDRIndex {
  public:
    explicit SDRIndex(const SDRCache& cache);
    const IPMISDREntry* Find(uint8_t sensorNumber) const { return first_[sensorNumber]; }

  private:
    std::array<const IPMISDREntry*, 256> first_{};
};

} // namespace ipmisel
