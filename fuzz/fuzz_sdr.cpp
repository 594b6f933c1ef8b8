// The SDR repository as the walk leaves it: the repository-info text and one
// text block per sensor record (header, units and ID-string pieces), scanned
// one entry at a time and then all together into a node's cache.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz/FuzzHost.h"
#include "fuzz/FuzzSeeds.h"
#include "fuzz/FuzzText.h"
#include "sdr/SDRCache.h"

using namespace ipmisel;

namespace {

// Seeds: each node's repository, eight sensor records at a time.
void WriteSeeds() {
    fuzz::ForEachSeedNode(
        [](const std::string& tag, const sim::Scenario&, size_t, NOXAQSV20::SPLibrary* library) {
            const fuzz::NodeAnswers a = fuzz::ReadNode(library);
            fuzz::WriteSeedsInRuns(tag, a.sdr.size(), 8, [&](size_t from, size_t count) {
                std::vector<const SDRTextBlock*> blocks;
                for (size_t i = from; i < from + count; ++i) {
                    blocks.push_back(&a.sdr[i]);
                }
                fuzz::SeedWriter w;
                fuzz::SeedRepository(w, a.sdrInfo, blocks, 8);
                w.Bool(false);
                return w.Finish();
            });
        });
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return fuzz::StartTarget(WriteSeeds);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);

    char info[SDRInfoTextSize];
    std::vector<SDRTextBlock> blocks;
    fuzz::FillRepository(info, blocks, 8, in);

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
