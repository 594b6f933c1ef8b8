#include "collector/Progress.h"

#include <algorithm>

namespace ipmisel::collector {

namespace {
constexpr uint8_t kNetFnStorage = 0x0A;
constexpr uint8_t kCmdGetSelInfo = 0x40;
constexpr uint8_t kCmdGetSelEntry = 0x43;
// Redrawing on every entry would cost more terminal time than the read itself.
constexpr auto kRedrawInterval = std::chrono::milliseconds(100);
} // namespace

ProgressDisplay::ProgressDisplay(std::ostream& err, bool enabled, uint32_t threshold)
    : err_(err), enabled_(enabled), threshold_(threshold) {}

std::string ProgressDisplay::text(int node, uint32_t read, uint32_t total) {
    return "node " + std::to_string(node + 1) + ": SEL entries " +
           std::to_string(std::min(read, total)) + " / " + std::to_string(total);
}

void ProgressDisplay::update(int node, uint32_t read, uint32_t total) {
    if (!enabled_ || total < threshold_) {
        return;
    }
    auto now = std::chrono::steady_clock::now();
    if (shownWidth_ != 0 && read < total && now - lastDraw_ < kRedrawInterval) {
        return;
    }
    lastDraw_ = now;
    std::string line = text(node, read, total);
    // Pad over the rest of a longer previous line instead of relying on
    // terminal escape sequences.
    size_t width = line.size();
    if (width < shownWidth_) {
        line.append(shownWidth_ - width, ' ');
    }
    err_ << '\r' << line << std::flush;
    shownWidth_ = std::max(shownWidth_, width);
}

void ProgressDisplay::clear() {
    if (shownWidth_ == 0) {
        return;
    }
    err_ << '\r' << std::string(shownWidth_, ' ') << '\r' << std::flush;
    shownWidth_ = 0;
}

CountingTransport::CountingTransport(std::shared_ptr<host::Transport> inner, int node,
                                     ProgressDisplay* progress)
    : inner_(std::move(inner)), node_(node), progress_(progress) {}

host::IpmiResponse CountingTransport::send(const host::IpmiRequest& request) {
    host::IpmiResponse response = inner_->send(request);
    if (request.netfn != kNetFnStorage) {
        return response;
    }
    if (request.cmd == kCmdGetSelInfo) {
        // Answer: version, entry count (LS byte first), free space, ...
        if (response.sent && response.cc == 0 && response.data.size() >= 3) {
            total_ = static_cast<uint32_t>(response.data[1] | (response.data[2] << 8));
            read_ = 0;
        }
    } else if (request.cmd == kCmdGetSelEntry) {
        ++read_;
        if (progress_) {
            progress_->update(node_, read_, total_);
        }
    }
    return response;
}

} // namespace ipmisel::collector
