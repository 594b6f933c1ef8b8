// Filling the fixed text slots that BMC answers are rendered into, from the
// fuzzer's bytes: either raw (any byte, the slot possibly unterminated) or as
// the "%02X " text a request writes (a completion code 00 first unless the
// input says otherwise), so the scanners see both garbage and answers that
// get them past their first check.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <string>
#include <vector>

#include "fuzz/FuzzHost.h"

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

} // namespace ipmisel::fuzz
