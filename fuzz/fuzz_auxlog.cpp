// The auxiliary debug log as read into its 256-byte slots: any header, any
// stated body length, any extended data, decoded into records and exported
// against a node's SEL whose record IDs may or may not match.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "auxlog/AuxLog.h"
#include "fuzz/FuzzHost.h"
#include "fuzz/FuzzSeeds.h"
#include "host/runtime.h"

using namespace ipmisel;

namespace {

// Seeds: each node's log six entries at a time, with the SEL records they
// belong to.
void WriteSeeds() {
    fuzz::ForEachSeedNode(
        [](const std::string& tag, const sim::Scenario&, size_t, NOXAQSV20::SPLibrary* library) {
            const fuzz::NodeAnswers a = fuzz::ReadNode(library);
            std::vector<IPMISELEntry> sel(a.sel.size());
            for (size_t r = 0; r < a.sel.size(); ++r) {
                sel[r].ScanSELDataFile(a.sel[r].text, 0);
            }
            fuzz::WriteSeedsInRuns(tag, a.aux.size(), 6, [&](size_t from, size_t n) {
                fuzz::SeedWriter w;
                w.Range(0, 6, n);
                std::vector<const IPMISELEntry*> owners;
                for (size_t i = from; i < from + n; ++i) {
                    w.Bool(false);
                    w.Range(0, kAuxSlotSize, kAuxSlotSize);
                    w.Bytes(reinterpret_cast<const char*>(a.aux[i].data), kAuxSlotSize);
                    for (const IPMISELEntry& r : sel) {
                        if (r.RecordID() == AuxRecordID(a.aux[i]) && owners.size() < 4) {
                            owners.push_back(&r);
                        }
                    }
                }
                w.Range(0, 4, owners.size());
                for (const IPMISELEntry* r : owners) {
                    w.Bytes(std::vector<uint8_t>(r->bytes, r->bytes + 16));
                    if (n > 0) {
                        w.Bool(false);
                    }
                }
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

    const uint32_t count = in.ConsumeIntegralInRange<uint32_t>(0, 6);
    // Exactly `count` slots on the heap, so a read past the last is seen.
    std::unique_ptr<s_AuxLog_entry[]> slots(new s_AuxLog_entry[count == 0 ? 1 : count]);
    std::vector<uint16_t> ids;
    for (uint32_t i = 0; i < count; ++i) {
        uint8_t* d = slots[i].data;
        std::memset(d, 0, kAuxSlotSize);
        const bool own = in.ConsumeBool();
        const size_t n = in.ConsumeIntegralInRange<size_t>(0, kAuxSlotSize);
        std::vector<uint8_t> bytes = in.ConsumeBytes<uint8_t>(n);
        if (!bytes.empty()) {
            std::memcpy(d, bytes.data(), bytes.size());
        }
        if (own) {
            // Our maker's entries are the ones decoded; most are debug codes.
            std::memcpy(d, kAuxManufacturerID, 3);
            if (in.ConsumeBool()) {
                d[10] = kAuxTypeDebugCode;
            }
        }
        ids.push_back(AuxRecordID(slots[i]));
    }

    std::vector<AuxLogRecord> records;
    ParseExtendedSELData(records, count == 0 ? nullptr : slots.get(), count);
    for (const AuxLogRecord& r : records) {
        fuzz::HexText(reinterpret_cast<const uint8_t*>(r.GetExtendedData().data()),
                      r.GetExtendedData().size());
    }

    // The node's SEL: records whose IDs are those of the log's entries or any.
    const uint32_t selCount = in.ConsumeIntegralInRange<uint32_t>(0, 4);
    std::unique_ptr<IPMISELEntry[]> sel(new IPMISELEntry[selCount == 0 ? 1 : selCount]);
    for (uint32_t i = 0; i < selCount; ++i) {
        std::vector<uint8_t> bytes = in.ConsumeBytes<uint8_t>(16);
        if (!bytes.empty()) {
            std::memcpy(sel[i].bytes, bytes.data(), bytes.size());
        }
        if (!ids.empty() && in.ConsumeBool()) {
            const uint16_t id = ids[in.ConsumeIntegralInRange<size_t>(0, ids.size() - 1)];
            sel[i].bytes[0] = static_cast<uint8_t>(id >> 8);
            sel[i].bytes[1] = static_cast<uint8_t>(id);
        }
    }
    ExportAuxDebugLog(NOXAQSV20::SPLibrary::GetSplibraryInstance(0), host::outputHandle(),
                      count == 0 ? nullptr : slots.get(), count,
                      selCount == 0 ? nullptr : sel.get(), selCount);
    return 0;
}
