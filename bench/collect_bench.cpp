// A whole collection of one node's SEL through the simulated BMC: Get SEL Info,
// every Get SEL Entry, the SDR walk, parsing, decoding and the export.
//   bench_collect [--benchmark_filter=...]
// Reports SEL records per second and microseconds per record for logs of 1,000,
// 5,000 and 65,535 records (the most a SEL can hold; 65,279 of them are read),
// and cpu_us_per_record: the process CPU time of the collection call divided
// by the records it reported, so a busy machine, which stretches wall time,
// does not move it much. Instances are counted, not
// kept; the log is dropped unless the *_LogToSink variant hands every line at
// severity 3 and below to a sink, as the collector does with --log.
#include <benchmark/benchmark.h>

#include <time.h>

#include <string>

#include "host/runtime.h"
#include "host/sim/Builders.h"
#include "host/sim/SimBmc.h"
#include "plugin/Driver.h"
#include "plugin/PluginEntry.h"
#include "tests/support/HostFixture.h"

namespace {

using namespace ipmisel;

double processCpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

sim::NodeSetup makeNode(uint32_t records) {
    sim::NodeSetup node;
    for (uint8_t n = 1; n <= 20; ++n) {
        sim::FullSensorFields f;
        f.id = n;
        f.number = n;
        f.sensorType = 0x01;
        f.entityId = 0x03;
        f.entityInstance = n;
        f.baseUnit = 1;
        f.m = 1;
        f.name = "CPU" + std::to_string(n) + " Temp";
        node.sdrRecords.push_back(sim::buildFullSensorRecord(f));
    }
    for (uint8_t n = 21; n <= 40; ++n) {
        sim::CompactSensorFields c;
        c.id = n;
        c.number = n;
        c.sensorType = 0x08;
        c.entityId = 0x0A;
        c.entityInstance = n;
        c.name = "PS" + std::to_string(n) + " Status";
        node.sdrRecords.push_back(sim::buildCompactSensorRecord(c));
    }
    for (uint32_t i = 0; i < records; ++i) {
        sim::SelEventFields e;
        e.id = static_cast<uint16_t>(i + 1);
        e.timestamp = 1718000000 + i;
        if (i % 2 == 0) {
            e.sensorType = 0x01;
            e.sensorNumber = static_cast<uint8_t>(1 + i % 20);
            e.eventType = 0x01;
            e.data = {0x59, 97, 95};
        } else {
            e.sensorType = 0x08;
            e.sensorNumber = static_cast<uint8_t>(21 + i % 20);
            e.eventType = 0x6F;
            e.data = {0x01, 0xFF, 0xFF};
        }
        e.deassertion = (i % 4) == 3;
        node.selRecords.push_back(sim::selRecord(e));
    }
    node.selTime = 1718100000;
    return node;
}

void collect(benchmark::State& state, bool logToSink) {
    const uint32_t records = static_cast<uint32_t>(state.range(0));
    sim::Scenario scenario;
    scenario.nodes.push_back(makeNode(records));
    scenario.smbios.push_back(sim::smbiosIpmiDevice({}));
    uint64_t instances = 0;
    uint64_t lines = 0;
    double cpuSeconds = 0;
    for (auto _ : state) {
        state.PauseTiming();
        host::Config config;
        config.pluginPath = test::binDir() + "/ipmisel.so";
        config.utcOffsetMinutes = 0;
        config.instanceSink = [&](const host::Instance&) { ++instances; };
        if (logToSink) {
            config.logLevel = 3;
            config.logSink = [&](int, const std::string&) { ++lines; };
        }
        sim::applyScenario(scenario, config);
        host::configure(std::move(config));
        ResetDriverState();
        const char* classes[] = {"OXASG_IPMILogRecord"};
        state.ResumeTiming();
        const double start = processCpuSeconds();
        PluginCollect(host::hostCallbacks(), host::outputHandle(), classes, 1);
        cpuSeconds += processCpuSeconds() - start;
    }
    state.counters["records/s"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * records, benchmark::Counter::kIsRate);
    // Shown with an SI prefix: "12.3u" is 12.3 microseconds per record.
    state.counters["s/record"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * records,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["instances"] = static_cast<double>(instances) / state.iterations();
    // Per record read (one instance each), not per record held.
    state.counters["cpu_us_per_record"] =
        instances == 0 ? 0.0 : cpuSeconds * 1e6 / static_cast<double>(instances);
    if (logToSink) {
        state.counters["log lines/record"] =
            static_cast<double>(lines) / state.iterations() / records;
    }
}

void BM_CollectSEL(benchmark::State& state) {
    collect(state, false);
}
void BM_CollectSEL_LogToSink(benchmark::State& state) {
    collect(state, true);
}

BENCHMARK(BM_CollectSEL)
    ->Arg(1000)
    ->Arg(5000)
    ->Arg(65535)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_CollectSEL_LogToSink)
    ->Arg(1000)
    ->Arg(5000)
    ->Arg(65535)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace

BENCHMARK_MAIN();
