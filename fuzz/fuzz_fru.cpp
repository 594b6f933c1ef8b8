// FRU data as a device hands it over: 528 bytes of anything, read by every
// decoder with every kind of ID string (a processor, a memory module, a
// board, any text), by the standard-area decoder over any length, and by the
// field and manufacturer-code decoders at any offset. Buffers are exactly as
// long as the decoders are told, so a read past them is seen.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fru/FRUInfoAreas.h"
#include "fru/IPMIVPDEntry.h"
#include "fuzz/FuzzHost.h"
#include "fuzz/FuzzSeeds.h"
#include "host/runtime.h"

using namespace ipmisel;

namespace {

const char* const kIDs[] = {"CPU", "DIMM", "Mainboard"};

// A heap copy of exactly `size` bytes of `from` (zero past its end).
std::unique_ptr<uint8_t[]> Exact(const std::vector<uint8_t>& from, size_t at, size_t size) {
    std::unique_ptr<uint8_t[]> out(new uint8_t[size == 0 ? 1 : size]);
    for (size_t i = 0; i < size; ++i) {
        out[i] = at + i < from.size() ? from[at + i] : 0;
    }
    return out;
}

void Decode(FuzzedDataProvider& in) {
    std::vector<uint8_t> bytes = in.ConsumeBytes<uint8_t>(kFRUDataSize);
    bytes.resize(kFRUDataSize, 0);
    const int choice = in.ConsumeIntegralInRange<int>(0, 3);
    const std::string id = choice < 3 ? kIDs[choice] : in.ConsumeRandomLengthString(20);
    const auto data = Exact(bytes, 0, kFRUDataSize);

    FRUProperties properties;
    const size_t size = in.ConsumeIntegralInRange<size_t>(0, kFRUDataSize);
    const auto head = Exact(bytes, 0, size);
    HasIPMICommonHeader(head.get(), size);
    AddStandardFRUAreas(properties, head.get(), size, id);
    GetFRUOffsets(properties, data.get(), id, in.ConsumeBool());
    for (const auto& [name, value] : properties) {
        IsValidFRUText(value);
    }

    IPMIFRULocator locator;
    std::memcpy(locator.fruData, data.get(), kFRUDataSize);
    locator.idString = id;
    locator.HasFRUData();
    locator.GetFRUAreas(id, in.ConsumeBool());
    IPMIVPDEntry entry;
    entry.IPMISELShowFRUData(locator, in.ConsumeBool());
    FRUProperties& set = entry.NewPropertySet();
    set["ElementName"] = id;
    entry.IPMISELShowFRUData(locator, in.ConsumeBool());
    entry.GenerateCIMInstance(host::outputHandle(), "OXASG_IPMIFRU");

    ReadBoardField(data.get(), in.ConsumeIntegralInRange<size_t>(0, kFRUDataSize + 64));

    // One type/length field anywhere in the data, its bytes exactly as many
    // as the type/length byte says.
    const size_t at = in.ConsumeIntegralInRange<size_t>(0, kFRUDataSize - 1);
    const uint8_t typeLength = bytes[at];
    const auto field = Exact(bytes, at + 1, typeLength & 0x3F);
    std::string text;
    DecodeFRUField(typeLength, field.get(), in.ConsumeIntegral<uint8_t>(), text);

    FRUMfgDateTimeText(in.ConsumeIntegral<uint32_t>());
    ChassisTypeName(in.ConsumeIntegral<uint8_t>());
    const size_t count = in.ConsumeIntegralInRange<size_t>(0, 16);
    const size_t from = in.ConsumeIntegralInRange<size_t>(0, kFRUDataSize - 1);
    JEP106FromContinuation(Exact(bytes, from, count).get(), count);
    JEP106FromBankByte(in.ConsumeIntegral<uint8_t>(), in.ConsumeIntegral<uint8_t>());
    JEP106Name(in.ConsumeIntegralInRange<unsigned>(0, 9), in.ConsumeIntegral<uint8_t>());
}

// Seeds: the FRU devices of our scenarios, read as each kind of FRU.
void WriteSeeds() {
    size_t written = 0;
    for (const std::string& file : fuzz::SeedScenarioFiles()) {
        const sim::Scenario scenario = sim::loadScenarioFile(file);
        for (size_t n = 0; n < scenario.nodes.size(); ++n) {
            for (const auto& [device, content] : scenario.nodes[n].fru) {
                for (int choice = 0; choice < 3 && written < 30; ++choice, ++written) {
                    std::vector<uint8_t> bytes(content.begin(), content.end());
                    bytes.resize(kFRUDataSize, 0);
                    fuzz::SeedWriter w;
                    w.Bytes(bytes);
                    w.Range(0, 3, static_cast<uint64_t>(choice));
                    w.Range(0, kFRUDataSize, kFRUDataSize);
                    fuzz::WriteSeed("fru-" + std::to_string(written), w.Finish());
                }
            }
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return fuzz::StartTarget(WriteSeeds);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    Decode(in);
    return 0;
}
