// Record IDs a walk has asked for. SEL and SDR record IDs are 16 bits, so a
// BMC whose next-record IDs run in a circle is caught on the first repeat
// instead of being followed for ever.
#pragma once

#include <cstdint>
#include <vector>

namespace ipmisel {

class SeenRecordIDs {
  public:
    SeenRecordIDs() : seen_(65536, false) {}
    // Marks id; true when it was marked already.
    bool Mark(uint16_t id) {
        bool before = seen_[id];
        seen_[id] = true;
        return before;
    }
    static uint16_t Join(uint8_t high, uint8_t low) {
        return static_cast<uint16_t>(static_cast<unsigned>(high) << 8 | low);
    }

  private:
    std::vector<bool> seen_;
};

} // namespace ipmisel
