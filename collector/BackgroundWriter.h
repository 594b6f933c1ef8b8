// Runs another writer on a thread of its own, so that turning instances into
// text and writing them overlaps the collection instead of following each
// record: on a full SEL that is a fifth of the program's work.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "collector/Writers.h"

namespace ipmisel::collector {

// The instances are copied into batches (a batch's instances keep their
// storage from one use to the next) that the thread hands to the other
// writer in the order they came, so the bytes written are exactly the other
// writer's. At most a few batches wait at any time; the collection waits
// when the output cannot keep up. Whatever was handed over is written before
// the destructor returns, finish() or not.
class BackgroundWriter : public InstanceWriter {
  public:
    static constexpr size_t kBatchSize = 256;
    static constexpr size_t kBatchesWaiting = 8;

    explicit BackgroundWriter(std::unique_ptr<InstanceWriter> inner);
    ~BackgroundWriter() override;
    BackgroundWriter(const BackgroundWriter&) = delete;
    BackgroundWriter& operator=(const BackgroundWriter&) = delete;

    void write(const host::Instance& instance) override;
    // write() without the copy: the instance is swapped with an old one of a
    // batch, whose storage the caller may reuse (its contents are stale).
    void take(host::Instance& instance);
    // Writes everything handed over, then finishes the other writer. An
    // exception the other writer threw on the thread comes out here.
    void finish() override;

  private:
    struct Batch {
        std::vector<host::Instance> instances;
        size_t used = 0;
    };

    host::Instance& nextSlot(); // the filling batch's next instance
    void slotFilled();
    void handOver();
    void drain(); // hands over what is left and waits for the thread to end
    void run();

    std::unique_ptr<InstanceWriter> inner_;
    std::unique_ptr<Batch> filling_;
    std::mutex mutex_;
    std::condition_variable work_; // a batch is waiting, or the end has come
    std::condition_variable room_; // a batch came back
    std::deque<std::unique_ptr<Batch>> waiting_;
    std::vector<std::unique_ptr<Batch>> spare_;
    bool ending_ = false;
    std::exception_ptr failure_;
    std::thread thread_; // last: started once everything above exists
};

} // namespace ipmisel::collector
