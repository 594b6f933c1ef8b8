// The entry points of every target that reads its input as BMC answers.
#include "fuzz/FuzzBmc.h"

#include "fuzz/FuzzSeeds.h"

using namespace ipmisel;
using fuzz::kAnswerTarget;

namespace {

void WriteSeeds() {
    fuzz::ForEachSeedNode(
        [](const std::string& tag, const sim::Scenario&, size_t node, NOXAQSV20::SPLibrary*) {
            // Held here: preparing the host for a header replaces its nodes.
            const std::shared_ptr<host::Transport> bmc = host::config().nodes.at(node);
            for (uint8_t i = 0; i < kAnswerTarget.seedChoices; ++i) {
                const uint8_t header[fuzz::kAnswerHeaderSize] = {i, kAnswerTarget.seedFlags};
                std::vector<uint8_t> seed(header, header + sizeof header);
                kAnswerTarget.prepare(header);
                host::config().nodes = {std::make_shared<fuzz::SeedRecorder>(bmc, seed)};
                kAnswerTarget.run(header);
                fuzz::WriteSeed(tag + "-" + kAnswerTarget.seedLabel + std::to_string(i), seed);
            }
        });
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return fuzz::StartTarget(WriteSeeds);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < fuzz::kAnswerHeaderSize) {
        return 0;
    }
    const size_t nodes = kAnswerTarget.prepare(data);
    // The nodes keep a reference to the stream: it lives until the run is over.
    fuzz::AnswerStream stream{data + fuzz::kAnswerHeaderSize, size - fuzz::kAnswerHeaderSize, 0};
    std::vector<std::shared_ptr<host::Transport>> bmcs;
    for (size_t i = 0; i < nodes; ++i) {
        bmcs.push_back(std::make_shared<fuzz::FuzzedBmc>(stream));
    }
    host::config().nodes = bmcs;
    kAnswerTarget.run(data);
    return 0;
}
