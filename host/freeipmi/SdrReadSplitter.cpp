#include "host/freeipmi/SdrReadSplitter.h"

#include <algorithm>

namespace ipmisel::freeipmi {

namespace {

constexpr uint8_t kNetFnStorage = 0x0A;
constexpr uint8_t kCmdGetSdr = 0x23;
constexpr uint8_t kRestOfRecord = 0xFF;
constexpr uint8_t kCannotReturnCount = 0xCA;
// Request data: reservation ID (2), record ID (2), offset, count.
constexpr size_t kRequestSize = 6;
constexpr size_t kOffsetByte = 4;
constexpr size_t kCountByte = 5;
// Answer data: next record ID (2), then the record bytes asked for.
constexpr size_t kNextIdSize = 2;
// Record header: ID (2), version, type, length of the rest.
constexpr uint8_t kHeaderSize = 5;
constexpr size_t kLengthByte = 4;

} // namespace

SdrReadSplitter::SdrReadSplitter(std::shared_ptr<host::Transport> inner, uint8_t firstPiece)
    : inner_(std::move(inner)), firstPiece_(std::max<uint8_t>(firstPiece, 1)) {}

host::IpmiResponse SdrReadSplitter::send(const host::IpmiRequest& request) {
    host::IpmiResponse answer = inner_->send(request);
    const bool restOfRecord = request.netfn == kNetFnStorage && request.cmd == kCmdGetSdr &&
                              request.data.size() == kRequestSize &&
                              request.data[kCountByte] == kRestOfRecord;
    if (!restOfRecord || !answer.sent || answer.cc != kCannotReturnCount) {
        return answer;
    }
    return readInPieces(request, answer);
}

host::IpmiResponse SdrReadSplitter::getSdr(const host::IpmiRequest& like, uint8_t offset,
                                           uint8_t count) {
    host::IpmiRequest piece = like;
    piece.data[kOffsetByte] = offset;
    piece.data[kCountByte] = count;
    return inner_->send(piece);
}

host::IpmiResponse SdrReadSplitter::readInPieces(const host::IpmiRequest& request,
                                                 const host::IpmiResponse& refused) {
    // The header says how long the record is. Anything unexpected here and
    // the BMC's own refusal is the answer: better its CAh than a made-up one.
    host::IpmiResponse header = getSdr(request, 0, kHeaderSize);
    if (!header.sent || header.cc != 0 || header.data.size() < kNextIdSize + kHeaderSize) {
        return refused;
    }
    // An offset is one byte: bytes past 255 cannot be asked for, however long
    // the record says it is.
    const size_t end =
        std::min<size_t>(size_t{kHeaderSize} + header.data[kNextIdSize + kLengthByte], 256);
    const size_t start = request.data[kOffsetByte];
    if (start >= end) {
        return refused;
    }

    host::IpmiResponse whole;
    whole.sent = true;
    whole.cc = 0;
    whole.data.assign(header.data.begin(), header.data.begin() + kNextIdSize);
    uint8_t piece = learned_ ? learned_ : firstPiece_;
    size_t at = start;
    // Each pass either moves on by at least one byte or halves the piece, so
    // the loop ends after at most 255 + 8 passes whatever the BMC answers.
    while (at < end) {
        const auto count = static_cast<uint8_t>(std::min<size_t>(piece, end - at));
        host::IpmiResponse part = getSdr(request, static_cast<uint8_t>(at), count);
        if (part.sent && part.cc == kCannotReturnCount && piece > 1) {
            piece = static_cast<uint8_t>(piece / 2);
            continue;
        }
        if (!part.sent || part.cc != 0) {
            // A lost reservation (C5h) or a failed send must reach the
            // plug-in as it happened: it knows how to start over.
            return part;
        }
        // Some BMCs answer more bytes than asked (whatever lies after the
        // record in their memory): only the bytes asked for are kept.
        const size_t got = part.data.size() > kNextIdSize ? part.data.size() - kNextIdSize : 0;
        const size_t take = std::min<size_t>(got, count);
        if (take == 0) {
            return refused;
        }
        whole.data.insert(whole.data.end(), part.data.begin() + kNextIdSize,
                          part.data.begin() + static_cast<std::ptrdiff_t>(kNextIdSize + take));
        at += take;
    }
    learned_ = piece;
    ++splitReads_;
    return whole;
}

} // namespace ipmisel::freeipmi
