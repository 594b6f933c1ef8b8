// Progress of long SEL reads, worked out from the traffic alone: the plug-in
// knows nothing about terminals, so each node's transport is wrapped in one
// that notices the SEL size in the Get SEL Info answer and counts the Get SEL
// Entry requests that follow.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include "host/runtime.h"

namespace ipmisel::collector {

// "node N: SEL entries read / total" on one terminal line, redrawn in place.
class ProgressDisplay {
  public:
    // Nothing is shown unless enabled (stderr is a terminal) and the SEL holds
    // at least `threshold` entries: short reads finish before anyone looks.
    ProgressDisplay(std::ostream& err, bool enabled, uint32_t threshold = 256);
    ~ProgressDisplay() { clear(); }

    // node counts from 0; shown counting from 1 like the records' SourceNode.
    void update(int node, uint32_t read, uint32_t total);
    // Removes the line if one is shown; call before writing anything else to
    // the terminal.
    void clear();

    static std::string text(int node, uint32_t read, uint32_t total);

  private:
    std::ostream& err_;
    bool enabled_;
    uint32_t threshold_;
    size_t shownWidth_ = 0;
    std::chrono::steady_clock::time_point lastDraw_{};
};

class CountingTransport : public host::Transport {
  public:
    CountingTransport(std::shared_ptr<host::Transport> inner, int node,
                      ProgressDisplay* progress = nullptr);
    host::IpmiResponse send(const host::IpmiRequest& request) override;
    std::string describe() const override { return inner_->describe(); }

    uint32_t selTotal() const { return total_; }
    uint32_t selRead() const { return read_; }

  private:
    std::shared_ptr<host::Transport> inner_;
    int node_;
    ProgressDisplay* progress_;
    uint32_t total_ = 0;
    uint32_t read_ = 0;
};

} // namespace ipmisel::collector
