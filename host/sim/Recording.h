// Recording a real BMC so that it can be replayed: `RecordingTransport` sits in
// front of any transport and keeps every request with its answer (or the fact
// that the send failed); the recordings of all nodes are written as one
// scenario file whose nodes carry a "transcript". Loading that file gives a
// simulated BMC that answers the same requests with the same bytes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/runtime.h"
#include "host/sim/SimBmc.h"

namespace ipmisel::sim {

class RecordingTransport : public host::Transport {
  public:
    explicit RecordingTransport(std::shared_ptr<host::Transport> inner);
    host::IpmiResponse send(const host::IpmiRequest& request) override;
    // The wrapped transport's description: the log should name the real BMC.
    std::string describe() const override;

    const std::vector<TranscriptEntry>& transcript() const { return transcript_; }
    const std::shared_ptr<host::Transport>& inner() const { return inner_; }

  private:
    std::shared_ptr<host::Transport> inner_;
    std::vector<TranscriptEntry> transcript_;
};

// The scenario text for these recorded nodes (node i = nodes[i]). With a
// platform the machine type, BIOS ID, driver/library/LAN/iBMC answers and the
// SMBIOS structures it holds are saved too, so the replay sees the same
// machine. One transcript entry per line keeps large recordings readable.
std::string recordingToScenario(const std::vector<std::shared_ptr<RecordingTransport>>& nodes,
                                const host::Config* platform = nullptr);

// Writes recordingToScenario() to a file; throws std::runtime_error with one
// line naming the file when it cannot be written.
void writeRecording(const std::string& path,
                    const std::vector<std::shared_ptr<RecordingTransport>>& nodes,
                    const host::Config* platform = nullptr);

// Wraps every transport of `config` in a recorder and returns the recorders.
std::vector<std::shared_ptr<RecordingTransport>> recordNodes(host::Config& config);

} // namespace ipmisel::sim
