// Message-file lookups (outside and inside a lookup pass) and one full
// threshold-event decode.
//   bench_mapping [--benchmark_filter=...]
// Lookups are counted per second of wall time; the decode reports its time per
// event. The host's log goes nowhere (as with a framework that filters trace
// lines), except in the *_TraceCaptured variant, which hands every line to a
// sink.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <optional>
#include <string>

#include "host/runtime.h"
#include "mapping/IPMIMapping.h"
#include "mapping/MessageFile.h"
#include "tests/support/HostFixture.h"

namespace {

using namespace ipmisel;

void useShippedFile(bool captureTrace) {
    static std::string folder;
    if (folder.empty()) {
        folder = test::makeTempDir("mapbench");
        std::filesystem::copy_file(test::sourceDir() + "/data/ipmisel.INI",
                                   folder + "/ipmisel.INI");
    }
    host::Config config;
    config.pluginPath = folder + "/ipmisel.so";
    if (captureTrace) {
        config.logSink = [](int, const std::string& text) {
            benchmark::DoNotOptimize(text.size());
        };
    }
    host::configure(std::move(config));
}

// Hits by data id; with inPass inside a lookup pass, as the SEL export makes
// them (the file is looked at once, not at every lookup).
void lookupHits(benchmark::State& state, bool inPass) {
    useShippedFile(false);
    IPMIMapping m;
    char out[256];
    const int32_t ids[] = {102, 731, 1040, 377, 870, 544};
    size_t i = 0;
    std::optional<message::Pass> pass;
    if (inPass) {
        pass.emplace();
    }
    for (auto _ : state) {
        int r = m.GetINIStringById(host::hostCallbacks(), ids[i++ % 6], out, sizeof out);
        benchmark::DoNotOptimize(r);
    }
    state.counters["lookups/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
void BM_LookupHit(benchmark::State& state) {
    lookupHits(state, false);
}
void BM_LookupHit_InPass(benchmark::State& state) {
    lookupHits(state, true);
}
BENCHMARK(BM_LookupHit);
BENCHMARK(BM_LookupHit_InPass);

void BM_LookupMiss(benchmark::State& state) {
    useShippedFile(false);
    IPMIMapping m;
    char out[256];
    for (auto _ : state) {
        int r = m.GetINIString(host::hostCallbacks(), "CPU1-7-48-2-3", out, sizeof out);
        benchmark::DoNotOptimize(r);
    }
    state.counters["lookups/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_LookupMiss);

// The first lookup after the file changed: the whole file is read and split.
void BM_LookupColdFile(benchmark::State& state) {
    useShippedFile(false);
    IPMIMapping m;
    char out[256];
    for (auto _ : state) {
        message::ClearCache();
        int r = m.GetINIStringById(host::hostCallbacks(), 1040, out, sizeof out);
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_LookupColdFile);

void thresholdEvent(benchmark::State& state, bool trace, bool inPass = false) {
    useShippedFile(trace);
    std::optional<message::Pass> pass;
    if (inPass) {
        pass.emplace();
    }
    IPMIMapping m;
    SensorConversion sdr;
    sdr.RecordType = 1;
    sdr.BaseUnit = 1; // degrees C
    sdr.M = 1;
    for (auto _ : state) {
        char out[256] = "Assertion: ";
        m.GetThresholdOffset(host::hostCallbacks(), 0x52, 30, 28, out, sizeof out, sdr);
        benchmark::DoNotOptimize(out);
    }
}
void BM_ThresholdEventWithUnits(benchmark::State& state) {
    thresholdEvent(state, false);
}
void BM_ThresholdEventWithUnits_TraceCaptured(benchmark::State& state) {
    thresholdEvent(state, true);
}
// As the SEL export decodes it: inside a lookup pass.
void BM_ThresholdEventWithUnits_InPass(benchmark::State& state) {
    thresholdEvent(state, false, true);
}
BENCHMARK(BM_ThresholdEventWithUnits);
BENCHMARK(BM_ThresholdEventWithUnits_TraceCaptured);
BENCHMARK(BM_ThresholdEventWithUnits_InPass);

} // namespace

BENCHMARK_MAIN();
