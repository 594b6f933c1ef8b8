#include "fuzz/FuzzSeeds.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "fuzz/FuzzHost.h"
#include "host/runtime.h"

namespace ipmisel::fuzz {

void SeedWriter::Range(uint64_t min, uint64_t max, uint64_t value) {
    // FuzzedDataProvider takes one byte from the back per eight bits of the
    // range, most significant first, and reduces modulo the range's size.
    const uint64_t range = max - min;
    const uint64_t v = value - min;
    int bytes = 0;
    for (int offset = 0; offset < 64 && (range >> offset) > 0; offset += 8) {
        ++bytes;
    }
    for (int i = bytes - 1; i >= 0; --i) {
        back_.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
}

void SeedWriter::Bytes(const std::vector<uint8_t>& bytes) {
    front_.insert(front_.end(), bytes.begin(), bytes.end());
}

void SeedWriter::Bytes(const char* text, size_t size) {
    front_.insert(front_.end(), text, text + size);
}

void SeedWriter::String(const std::string& text) {
    for (char c : text) {
        front_.push_back(static_cast<uint8_t>(c));
        if (c == '\\') {
            front_.push_back('\\');
        }
    }
    front_.push_back('\\');
    front_.push_back('n');
}

std::vector<uint8_t> SeedWriter::Finish() const {
    std::vector<uint8_t> out = front_;
    out.insert(out.end(), back_.rbegin(), back_.rend());
    return out;
}

std::string SeedFolder() {
    const char* folder = std::getenv("IPMISEL_FUZZ_SEEDS");
    return folder && *folder ? folder : "";
}

int StartTarget(void (*writeSeeds)()) {
    SetUpHost();
    if (!SeedFolder().empty()) {
        writeSeeds();
        std::exit(0);
    }
    return 0;
}

void WriteSeed(const std::string& name, const std::vector<uint8_t>& bytes) {
    std::filesystem::create_directories(SeedFolder());
    std::ofstream out(SeedFolder() + "/" + name, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

void WriteSeedsInRuns(const std::string& tag, size_t total, size_t per,
                      const std::function<std::vector<uint8_t>(size_t, size_t)>& make) {
    for (size_t from = 0; from == 0 || from < total; from += per) {
        WriteSeed(tag + "-" + std::to_string(from / per), make(from, std::min(per, total - from)));
    }
}

std::vector<std::string> SeedScenarioFiles() {
    std::vector<std::string> files;
    if (const char* from = std::getenv("IPMISEL_FUZZ_SEED_FROM"); from && *from) {
        std::istringstream list(from);
        for (std::string f; list >> f;) {
            files.push_back(f);
        }
        return files;
    }
    const std::filesystem::path source = IPMISEL_SOURCE_DIR;
    for (const auto& e : std::filesystem::directory_iterator(source / "scenarios")) {
        if (e.path().extension() == ".json") {
            files.push_back(e.path().string());
        }
    }
    files.push_back((source / "tests/sim/example.json").string());
    return files;
}

void ForEachSeedNode(const std::function<void(const std::string&, const sim::Scenario&, size_t,
                                              NOXAQSV20::SPLibrary*)>& visit) {
    for (const std::string& file : SeedScenarioFiles()) {
        const sim::Scenario scenario = sim::loadScenarioFile(file);
        const std::string stem = std::filesystem::path(file).stem().string();
        for (size_t i = 0; i < scenario.nodes.size(); ++i) {
            SetUpHost();
            sim::applyScenario(scenario, host::config());
            visit(stem + "-" + std::to_string(i), scenario, i,
                  NOXAQSV20::SPLibrary::GetSplibraryInstance(static_cast<int32_t>(i)));
        }
    }
    SetUpHost();
}

} // namespace ipmisel::fuzz

namespace ipmisel::fuzz {

NodeAnswers ReadNode(NOXAQSV20::SPLibrary* library) {
    NodeAnswers a;
    {
        IPMIRequestSDR sdr(library);
        sdr.IPMIGetSDREntry(a.sdr, a.sdrInfo);
    }
    {
        IPMIRequestSEL sel(library);
        uint32_t count = 0;
        if (sel.IPMIGetSELInfo(count) == 0 && count > 0) {
            a.sel.resize(count);
            if (sel.IPMIGetSELEntry(a.sel.data(), count) != 0) {
                a.sel.clear();
            }
        }
    }
    {
        IPMIRequestAuxLog aux(library);
        uint32_t count = 0;
        if (aux.IPMIGetAuxLogStatus(count) == 0 && count > 0) {
            a.aux.resize(count);
            aux.IPMIReadExtendedData(a.aux.data(), count);
        }
    }
    return a;
}

} // namespace ipmisel::fuzz
