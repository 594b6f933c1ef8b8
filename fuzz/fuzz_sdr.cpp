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
            for (size_t from = 0; from == 0 || from < a.sdr.size(); from += 8) {
                const size_t n = std::min<size_t>(8, a.sdr.size() - from);
                fuzz::SeedWriter w;
                w.Range(0, 2, 0);
                w.Bytes(a.sdrInfo, SDRInfoTextSize);
                w.Range(0, 8, n);
                for (size_t i = from; i < from + n; ++i) {
                    for (auto [at, width] : {std::pair{0, 64}, {64, 96}, {160, 64}}) {
                        w.Range(0, 2, 0);
                        w.Bytes(a.sdr[i].text + at, static_cast<size_t>(width));
                    }
                }
                w.Bool(false);
                fuzz::WriteSeed(tag + "-" + std::to_string(from / 8), w.Finish());
            }
        });
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::SetUpHost();
    fuzz::WriteSeedsAndExitWhenAsked(WriteSeeds);
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
