#include "sdr/SDRCache.h"

#include <memory>

#include "base/log.h"

namespace ipmisel {

int CreateSDRCache(IPMISDREntry* first, SDRCache& cache, const std::vector<SDRTextBlock>& blocks,
                   const char* info) {
    Log(SevTrace, "CreateSDRCache() function entered.");
    // The entry being filled is always owned here until the cache takes it:
    // the one a block could not fill and the spare one after the last block
    // are destroyed on the way out, whatever the path.
    std::unique_ptr<IPMISDREntry> current(first ? first : new IPMISDREntry());

    if (current->ScanSDRInfoDataFile(info) != 0) {
        Log(SevError, "Failed to obtain correct SDR info.");
        return 1;
    }

    for (const SDRTextBlock& block : blocks) {
        const int result = current->ScanSDRDataFile(block.Header(), block.Units(), block.String());
        if (result == 1) {
            Log(SevFailure, "Failed to scan all SDRs from buffer.");
            break;
        }
        // A version mismatch (3) is cached too, with its header fields only:
        // the SEL still finds it by sensor number.
        cache.push_back(current.release());
        current.reset(new IPMISDREntry());
    }

    Log(SevTrace, "CreateSDRCache() function completed.");
    return 0;
}

int DeleteSDRCache(SDRCache& cache) {
    // The doubled name is the line as it has always been written.
    Log(SevTrace, "DeleteSDRCacheSDRCache() function entered.");
    for (IPMISDREntry*& entry : cache) {
        delete entry;
        entry = nullptr;
    }
    // Emptied here so that a second call, from an early exit after the
    // normal end, finds nothing to free.
    cache.clear();
    Log(SevTrace, "DeleteSDRCacheSDRCache() function completed.");
    return 0;
}

const IPMISDREntry* FindSDR(const SDRCache& cache, uint8_t sensorNumber) {
    for (const IPMISDREntry* entry : cache) {
        if (entry != nullptr && entry->SensorNumber == sensorNumber) {
            return entry;
        }
    }
    return nullptr;
}

SDRIndex::SDRIndex(const SDRCache& cache) {
    for (const IPMISDREntry* entry : cache) {
        if (entry != nullptr && first_[entry->SensorNumber] == nullptr) {
            first_[entry->SensorNumber] = entry;
        }
    }
}

} // namespace ipmisel
