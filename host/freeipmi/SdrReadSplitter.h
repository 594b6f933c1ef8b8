// Get SDR with a count of FFh means "the rest of the record", and the plug-in
// reads every sensor's ID string that way. Many BMCs cap how many bytes one
// Get SDR may return and refuse such a read with CAh ("cannot return number
// of requested data bytes") whenever the rest is longer than their cap.
// This transport sits in front of a real BMC and answers such a read the way
// a BMC without the cap would: it asks for the record's length, reads the
// rest in pieces the BMC accepts and hands back the whole rest in one answer.
// Every other request, and every other answer, passes through untouched.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/runtime.h"

namespace ipmisel::freeipmi {

class SdrReadSplitter : public host::Transport {
  public:
    // `firstPiece`: the piece size tried first; it is halved while the BMC
    // still answers CAh and the size that worked is kept for later records.
    explicit SdrReadSplitter(std::shared_ptr<host::Transport> inner, uint8_t firstPiece = 32);
    host::IpmiResponse send(const host::IpmiRequest& request) override;
    std::string describe() const override { return inner_->describe(); }

    // How many refused reads were answered in pieces, and the piece size now
    // in use (0 before the first split).
    unsigned splitReads() const { return splitReads_; }
    uint8_t pieceSize() const { return learned_; }

  private:
    host::IpmiResponse readInPieces(const host::IpmiRequest& request,
                                    const host::IpmiResponse& refused);
    host::IpmiResponse getSdr(const host::IpmiRequest& like, uint8_t offset, uint8_t count);

    std::shared_ptr<host::Transport> inner_;
    uint8_t firstPiece_;
    uint8_t learned_ = 0;
    unsigned splitReads_ = 0;
};

} // namespace ipmisel::freeipmi
