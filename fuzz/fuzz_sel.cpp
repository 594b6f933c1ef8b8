// The SEL record: the slot scanner over any text, then every accessor and
// decoder of the record it yields (or of 16 bytes straight from the input),
// with an SDR cache built from fuzzed sensor records and output buffers of
// every size, each exactly as large as the size passed so an overrun is seen.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/FuzzHost.h"
#include "fuzz/FuzzSeeds.h"
#include "fuzz/FuzzText.h"
#include "host/runtime.h"
#include "sdr/SDRCache.h"
#include "sel/IPMISELEntry.h"

using namespace ipmisel;

namespace {

constexpr size_t kSlotWidth = 58;

// A caller's buffer of exactly `size` bytes, handed to `call(buffer, size)`.
template <typename Call> void IntoExactly(uint32_t size, Call call) {
    std::unique_ptr<char[]> data(new char[size == 0 ? 1 : size]);
    call(size == 0 ? nullptr : data.get(), size);
}

void Decode(IPMISELEntry& rec, const SDRCache& cache, FuzzedDataProvider& in) {
    IPMIMapping mapping;
    TCPluginCallbacks* cb = host::hostCallbacks();
    const uint32_t sizes[2] = {512, in.ConsumeIntegralInRange<uint32_t>(1, 600)};
    const IPMISDREntry* sdr = FindSDR(cache, rec.SensorNumber());
    const SensorConversion conversion = sdr ? sdr->Conversion() : SensorConversion{};
    const std::string name = sdr ? sdr->IDString : "";
    for (uint32_t size : sizes) {
        IntoExactly(size, [&](char* o, uint32_t n) { rec.GetRecordID(o, n); });
        IntoExactly(size, [&](char* o, uint32_t n) { rec.GetGeneratorID(mapping, cb, o, n); });
        IntoExactly(size, [&](char* o, uint32_t n) { rec.CopySensorType(mapping, cb, o, n); });
        IntoExactly(size, [&](char* o, uint32_t n) { rec.GetEventType(o, n); });
        IntoExactly(size, [&](char* o, uint32_t n) {
            rec.GetEventData(mapping, cb, o, n, conversion, name);
        });
        IntoExactly(size, [&](char* o, uint32_t n) { rec.CopyRawDataString(o, n); });
        {
            std::vector<uint8_t> raw(size);
            rec.CopyRawDataHex(raw.data(), size);
        }
        IntoExactly(size, [&](char* o, uint32_t n) { rec.GetShutDownEvent(o, n); });
        IntoExactly(size, [&](char* o, uint32_t n) { rec.GetOEMxC0(mapping, cb, o, n); });
        IntoExactly(size, [&](char* o, uint32_t n) { rec.GetOEMxC1(mapping, cb, o, n); });
        IntoExactly(size, [&](char* o, uint32_t n) { rec.GetOEMxE0(mapping, cb, o, n); });
        IntoExactly(size, [&](char* o, uint32_t n) { rec.GetOEMxE1(mapping, cb, o, n); });
        for (StampSource source : {StampSource::Record, StampSource::Embedded}) {
            NOXAQSV20::TCIMDateTime diff;
            diff.Set(in.ConsumeIntegralInRange<uint32_t>(0, 20000),
                     in.ConsumeIntegralInRange<uint16_t>(0, 23),
                     in.ConsumeIntegralInRange<uint16_t>(0, 59),
                     in.ConsumeIntegralInRange<uint16_t>(0, 59), 0);
            IntoExactly(size < 64 ? size : 64, [&](char* o, uint32_t n) {
                rec.GetTimestamp(o, n, diff, in.ConsumeBool(), in.ConsumeBool(), source);
            });
        }
    }
}

// Seeds: each SEL record of our scenarios with its node's repository info and
// the sensor record it names (then others) as the BMC rendered them.
void WriteSeeds() {
    size_t written = 0;
    fuzz::ForEachSeedNode([&](const std::string& tag, const sim::Scenario&, size_t,
                              NOXAQSV20::SPLibrary* library) {
        const fuzz::NodeAnswers a = fuzz::ReadNode(library);
        std::vector<int> sensor;
        for (const SDRTextBlock& b : a.sdr) {
            IPMISDREntry e;
            sensor.push_back(
                e.ScanSDRDataFile(b.Header(), b.Units(), b.String()) == 0 ? e.SensorNumber : -1);
        }
        for (size_t r = 0; r < a.sel.size() && r < 16 && written < 40; ++r, ++written) {
            IPMISELEntry rec;
            rec.ScanSELDataFile(a.sel[r].text, 0);
            std::vector<size_t> picked;
            for (size_t i = 0; i < a.sdr.size(); ++i) {
                if (sensor[i] == rec.SensorNumber()) {
                    picked.push_back(i);
                    break;
                }
            }
            for (size_t i = 0; i < a.sdr.size() && picked.size() < 4; ++i) {
                if (picked.empty() || picked[0] != i) {
                    picked.push_back(i);
                }
            }
            std::vector<const SDRTextBlock*> blocks;
            for (size_t i : picked) {
                blocks.push_back(&a.sdr[i]);
            }
            fuzz::SeedWriter w;
            fuzz::SeedRepository(w, a.sdrInfo, blocks, 4);
            w.Bool(true);
            w.Range(1, 3, 1);
            fuzz::SeedSlot(w, a.sel[r].text, kSlotWidth);
            w.Range(1, 600, 512);
            fuzz::WriteSeed(tag + "-" + std::to_string(r), w.Finish());
        }
    });
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return fuzz::StartTarget(WriteSeeds);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);

    // The node's SDR cache, from a few fuzzed sensor records.
    SDRCache cache;
    {
        char info[SDRInfoTextSize];
        std::vector<SDRTextBlock> blocks;
        fuzz::FillRepository(info, blocks, 4, in);
        CreateSDRCache(nullptr, cache, blocks, info);
    }

    // The SEL slots: several 58-character slots, one of them scanned.
    IPMISELEntry rec;
    if (in.ConsumeBool()) {
        const size_t slots = in.ConsumeIntegralInRange<size_t>(1, 3);
        std::vector<char> text(slots * kSlotWidth);
        for (size_t i = 0; i < slots; ++i) {
            fuzz::FillSlot(text.data() + i * kSlotWidth, kSlotWidth, in);
        }
        const uint32_t index = in.ConsumeIntegralInRange<uint32_t>(0, slots - 1);
        if (rec.ScanSELDataFile(text.data(), index) == 2) {
            DeleteSDRCache(cache);
            return 0;
        }
    } else {
        std::vector<uint8_t> bytes = in.ConsumeBytes<uint8_t>(16);
        if (!bytes.empty()) {
            std::memcpy(rec.bytes, bytes.data(), bytes.size());
        }
    }

    Decode(rec, cache, in);
    DeleteSDRCache(cache);
    return 0;
}
