// The firmware collectors against a BMC whose every answer comes from the
// input: a machine-type row byte (one past the last: no row), a flags byte
// (CPLD, FPGA and backplane controller present), then the answers in the form
// fuzz/FuzzBmc.h reads. All five collectors run on one node, as the driver
// runs them; each has to return and write at most its one instance.
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "firmware/FirmwareCollectors.h"
#include "fuzz/FuzzBmc.h"
#include "fuzz/FuzzHost.h"
#include "fuzz/FuzzSeeds.h"
#include "host/runtime.h"

using namespace ipmisel;

namespace {

void Collect(const uint8_t* header) {
    const uint8_t flags = header[1];
    const int rowIndex = header[0] % (firmware::kBMCMachineTypeCount + 1);
    const firmware::BMCMachineType* row =
        rowIndex < firmware::kBMCMachineTypeCount ? &firmware::kBMCMachineTypes[rowIndex] : nullptr;
    std::vector<uint8_t> cpld, fpga;
    if (flags & 0x08) {
        cpld = {0x00, static_cast<uint8_t>(flags >> 4)};
        fpga = {static_cast<uint8_t>(flags >> 6)};
    }
    const FirmwarePlatform platform = DescribeFirmwarePlatform(
        row, (flags & 1) != 0, (flags & 2) != 0, (flags & 4) != 0, cpld, fpga);
    const uint64_t before = host::instancesCommitted();
    IPMIRequestVPD request(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));
    NOXAQSV20::fdriIOHandle* io = host::outputHandle();
    int written = 0;
    written += CollectBMCFirmware(request, io, 0, platform) == 0;
    written += CollectCPLDFirmware(request, io, 0, platform) == 0;
    written += CollectFPGAFirmware(request, io, 0, platform) == 0;
    written += CollectQsvVPD(request, io, 0, platform) == 0;
    written += CollectAMIFirmware(request, io, 0, platform) == 0;
    // A collector that says it wrote its instance wrote exactly one.
    if (host::instancesCommitted() - before != static_cast<uint64_t>(written)) {
        std::abort();
    }
}

size_t OneNode(const uint8_t*) {
    fuzz::SetUpHost();
    return 1;
}

} // namespace

// Seeds: each scenario node's answers on every machine-type row.
const fuzz::AnswerTarget fuzz::kAnswerTarget{OneNode, Collect, "row",
                                             firmware::kBMCMachineTypeCount + 1, 0x07};
