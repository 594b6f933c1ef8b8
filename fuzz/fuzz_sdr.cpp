// The SDR repository as the walk leaves it: the repository-info text and one
// text block per sensor record (header, units and ID-string pieces), scanned
// one entry at a time and then all together into a node's cache.
#include <fuzzer/FuzzedDataProvider.h>

#include <vector>

#include "fuzz/FuzzHost.h"
#include "fuzz/FuzzText.h"
#include "sdr/SDRCache.h"

using namespace ipmisel;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::SetUpHost();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);

    char info[SDRInfoTextSize];
    fuzz::FillSlot(info, sizeof info, in);
    std::vector<SDRTextBlock> blocks(in.ConsumeIntegralInRange<size_t>(0, 8));
    for (SDRTextBlock& b : blocks) {
        fuzz::FillSlot(b.text, 64, in);
        fuzz::FillSlot(b.text + 64, 96, in);
        fuzz::FillSlot(b.text + 160, 64, in);
    }

    // One entry reused for every block, as a caller that ignores failures would.
    {
        IPMISDREntry entry;
        entry.ScanSDRInfoDataFile(info);
        for (const SDRTextBlock& b : blocks) {
            entry.ScanSDRDataFile(b.Header(), b.Units(), b.String());
            (void)entry.Conversion();
        }
    }

    SDRCache cache;
    IPMISDREntry* first = in.ConsumeBool() ? new IPMISDREntry() : nullptr;
    CreateSDRCache(first, cache, blocks, info);
    for (int n = 0; n < 256; ++n) {
        if (const IPMISDREntry* e = FindSDR(cache, static_cast<uint8_t>(n))) {
            // The name is handed on as a C string: it must be terminated.
            fuzz::HexText(reinterpret_cast<const uint8_t*>(e->IDString), strlen(e->IDString));
        }
    }
    DeleteSDRCache(cache);
    DeleteSDRCache(cache);
    return 0;
}
