// The seed corpora come from our scenarios: run with IPMISEL_FUZZ_SEEDS set
// to a folder, a target writes seeds made from the answers the simulated BMCs
// of scenarios/*.json and tests/sim/example.json give (or of the files listed
// in IPMISEL_FUZZ_SEED_FROM, separated by blanks) and exits. scripts/fuzz.sh
// --seeds does this for every target.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/framework.h"
#include "host/sim/SimBmc.h"

namespace ipmisel::fuzz {

// Lays out bytes so that FuzzedDataProvider, consuming them in the same
// order, reads back exactly these values: byte strings and texts from the
// front, integers and booleans from the back.
class SeedWriter {
  public:
    void Bool(bool value) { Range(0, 255, value ? 1 : 0); }
    void Byte(uint8_t value) { Range(0, 255, value); }
    void Range(uint64_t min, uint64_t max, uint64_t value);
    // Exactly as many bytes as the consumer asks for.
    void Bytes(const std::vector<uint8_t>& bytes);
    void Bytes(const char* text, size_t size);
    // For ConsumeRandomLengthString: the text, then its end mark.
    void String(const std::string& text);
    std::vector<uint8_t> Finish() const;

  private:
    std::vector<uint8_t> front_, back_; // back_ in the order it is consumed
};

// The folder seeds go to, or empty when not generating.
std::string SeedFolder();

// Every target's LLVMFuzzerInitialize: sets the host up, then, when seeds
// are asked for, writes them with `writeSeeds` and exits; otherwise returns
// 0 to go on fuzzing.
int StartTarget(void (*writeSeeds)());

// Writes one seed file named `<name>` into the seed folder.
void WriteSeed(const std::string& name, const std::vector<uint8_t>& bytes);

// Splits `total` items into runs of at most `per` (one empty run when there
// are none) and writes what `make(from, count)` lays out for each run as
// "<tag>-<run index>".
void WriteSeedsInRuns(const std::string& tag, size_t total, size_t per,
                      const std::function<std::vector<uint8_t>(size_t from, size_t count)>& make);

// The scenario files seeds come from.
std::vector<std::string> SeedScenarioFiles();

// Puts each scenario in turn into the host and calls `visit` for each of its
// nodes with that node's SPLibrary; `tag` names the scenario and node
// ("demo-0") for seed file names.
void ForEachSeedNode(const std::function<void(const std::string& tag, const sim::Scenario&,
                                              size_t node, NOXAQSV20::SPLibrary*)>& visit);

} // namespace ipmisel::fuzz

#include "auxlog/AuxLog.h"
#include "ipmi/IPMIRequestSDR.h"
#include "ipmi/IPMIRequestSEL.h"

namespace ipmisel::fuzz {

// What a node's BMC answers, read with the plug-in's own requests.
struct NodeAnswers {
    char sdrInfo[SDRInfoTextSize] = {};
    std::vector<SDRTextBlock> sdr;
    std::vector<SELEntryText> sel;
    std::vector<s_AuxLog_entry> aux;
};
NodeAnswers ReadNode(NOXAQSV20::SPLibrary* library);

} // namespace ipmisel::fuzz
