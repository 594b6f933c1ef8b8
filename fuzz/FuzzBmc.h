// A BMC whose every answer comes from the fuzzer's input, and the recorder
// that writes a real (simulated) BMC's answers in the same form for seeds.
// The form, read front to back: one answer per request in the order the
// plug-in asks, each as [flags][completion code][length][bytes]; flags bit 0
// fails the send. Once the input is used up every send fails, so whatever
// walks the BMC comes to its end.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/runtime.h"

namespace ipmisel::fuzz {

struct AnswerStream {
    const uint8_t* data = nullptr;
    size_t size = 0;
    size_t pos = 0;
};

class FuzzedBmc : public host::Transport {
  public:
    explicit FuzzedBmc(AnswerStream& stream) : stream_(stream) {}
    host::IpmiResponse send(const host::IpmiRequest&) override {
        host::IpmiResponse r;
        AnswerStream& s = stream_;
        if (s.size - s.pos < 3) {
            s.pos = s.size;
            return r;
        }
        const uint8_t flags = s.data[s.pos];
        r.cc = s.data[s.pos + 1];
        size_t length = s.data[s.pos + 2];
        s.pos += 3;
        length = std::min(length, s.size - s.pos);
        r.data.assign(s.data + s.pos, s.data + s.pos + length);
        s.pos += length;
        r.sent = (flags & 1) == 0;
        return r;
    }
    std::string describe() const override { return "fuzzed BMC"; }

  private:
    AnswerStream& stream_;
};

class SeedRecorder : public host::Transport {
  public:
    SeedRecorder(std::shared_ptr<host::Transport> inner, std::vector<uint8_t>& out)
        : inner_(std::move(inner)), out_(out) {}
    host::IpmiResponse send(const host::IpmiRequest& request) override {
        host::IpmiResponse r = inner_->send(request);
        const size_t length = std::min<size_t>(r.data.size(), 255);
        out_.push_back(r.sent ? 0 : 1);
        out_.push_back(r.cc);
        out_.push_back(static_cast<uint8_t>(length));
        out_.insert(out_.end(), r.data.begin(), r.data.begin() + static_cast<long>(length));
        return r;
    }
    std::string describe() const override { return inner_->describe(); }

  private:
    std::shared_ptr<host::Transport> inner_;
    std::vector<uint8_t>& out_;
};

// A target whose input is a two-byte header that picks the machine, then the
// answers of its BMCs. Such a target defines kAnswerTarget and links
// FuzzBmc.cpp, which holds its libFuzzer entry points.
struct AnswerTarget {
    // Sets the host up for the header; returns how many nodes there are (they
    // all read the one answer stream, in the order they ask).
    size_t (*prepare)(const uint8_t* header);
    // What is under test, on the nodes prepared.
    void (*run)(const uint8_t* header);
    // Seeds: for each scenario node, one per header {i, seedFlags} with i
    // below seedChoices, named "<scenario>-<node>-<seedLabel><i>"; the node
    // alone on the machine, its answers after the header.
    const char* seedLabel;
    uint8_t seedChoices;
    uint8_t seedFlags;
};
constexpr size_t kAnswerHeaderSize = 2;

extern const AnswerTarget kAnswerTarget;

} // namespace ipmisel::fuzz
