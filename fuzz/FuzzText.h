// Filling the fixed text slots that BMC answers are rendered into, from the
// fuzzer's bytes: either raw (any byte, the slot possibly unterminated) or as
// the "%02X " text a request writes (a completion code 00 first unless the
// input says otherwise), so the scanners see both garbage and answers that
// get them past their first check. Beside each reader, the seed writer that
// lays out what it reads back.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/FuzzHost.h"
#include "fuzz/FuzzSeeds.h"
#include "ipmi/IPMIRequestSDR.h"

namespace ipmisel::fuzz {

inline void FillSlot(char* slot, size_t width, FuzzedDataProvider& in) {
    std::memset(slot, 0, width);
    switch (in.ConsumeIntegralInRange<int>(0, 2)) {
    case 0: { // raw bytes, all `width` of them may be non-zero
        std::vector<uint8_t> raw = in.ConsumeBytes<uint8_t>(width);
        if (!raw.empty()) {
            std::memcpy(slot, raw.data(), raw.size());
        }
        break;
    }
    case 1: { // free text
        std::string text = in.ConsumeRandomLengthString(width);
        std::memcpy(slot, text.data(), text.size());
        break;
    }
    default: { // an answer as a request renders it, cut to the slot
        std::vector<uint8_t> bytes;
        bytes.push_back(in.ConsumeBool() ? 0x00 : in.ConsumeIntegral<uint8_t>());
        std::vector<uint8_t> more =
            in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 40));
        bytes.insert(bytes.end(), more.begin(), more.end());
        std::string text = HexText(bytes.data(), bytes.size());
        std::memcpy(slot, text.data(), std::min(text.size(), width - 1));
        break;
    }
    }
}

// A slot as FillSlot reads its raw form back: all `width` bytes as given.
inline void SeedSlot(SeedWriter& w, const char* text, size_t width) {
    w.Range(0, 2, 0);
    w.Bytes(text, width);
}

// Where a sensor record's pieces sit in its text block, and their widths.
constexpr std::pair<size_t, size_t> kSDRPieces[] = {{0, 64}, {64, 96}, {160, 64}};

// The SDR repository as the walk leaves it: the info text and up to `most`
// sensor-record blocks, every piece a slot.
inline void FillRepository(char (&info)[SDRInfoTextSize], std::vector<SDRTextBlock>& blocks,
                           size_t most, FuzzedDataProvider& in) {
    FillSlot(info, SDRInfoTextSize, in);
    blocks.resize(in.ConsumeIntegralInRange<size_t>(0, most));
    for (SDRTextBlock& b : blocks) {
        for (auto [at, width] : kSDRPieces) {
            FillSlot(b.text + at, width, in);
        }
    }
}

// What FillRepository reads back as `info` and `blocks` (at most `most`).
inline void SeedRepository(SeedWriter& w, const char* info,
                           const std::vector<const SDRTextBlock*>& blocks, size_t most) {
    SeedSlot(w, info, SDRInfoTextSize);
    w.Range(0, most, blocks.size());
    for (const SDRTextBlock* b : blocks) {
        for (auto [at, width] : kSDRPieces) {
            SeedSlot(w, b->text + at, width);
        }
    }
}

} // namespace ipmisel::fuzz
