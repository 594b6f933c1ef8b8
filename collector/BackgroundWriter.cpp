#include "collector/BackgroundWriter.h"

#include <utility>

namespace ipmisel::collector {

BackgroundWriter::BackgroundWriter(std::unique_ptr<InstanceWriter> inner)
    : inner_(std::move(inner)), thread_([this] { run(); }) {}

BackgroundWriter::~BackgroundWriter() {
    drain();
}

void BackgroundWriter::write(const host::Instance& instance) {
    if (!thread_.joinable()) {
        inner_->write(instance); // after finish(): nothing left to overlap
        return;
    }
    // A copy into storage an earlier instance left: no allocation once the
    // batches have seen instances of this size.
    nextSlot() = instance;
    slotFilled();
}

void BackgroundWriter::take(host::Instance& instance) {
    if (!thread_.joinable()) {
        inner_->write(instance);
        return;
    }
    std::swap(nextSlot(), instance);
    slotFilled();
}

host::Instance& BackgroundWriter::nextSlot() {
    if (!filling_) {
        std::lock_guard lock(mutex_);
        if (spare_.empty()) {
            filling_ = std::make_unique<Batch>();
        } else {
            filling_ = std::move(spare_.back());
            spare_.pop_back();
        }
    }
    Batch& batch = *filling_;
    if (batch.used == batch.instances.size()) {
        batch.instances.emplace_back();
    }
    return batch.instances[batch.used];
}

void BackgroundWriter::slotFilled() {
    if (++filling_->used == kBatchSize) {
        handOver();
    }
}

void BackgroundWriter::handOver() {
    std::unique_lock lock(mutex_);
    room_.wait(lock, [&] { return waiting_.size() < kBatchesWaiting; });
    waiting_.push_back(std::move(filling_));
    lock.unlock();
    work_.notify_one();
}

void BackgroundWriter::drain() {
    if (!thread_.joinable()) {
        return;
    }
    if (filling_ && filling_->used > 0) {
        handOver();
    }
    {
        std::lock_guard lock(mutex_);
        ending_ = true;
    }
    work_.notify_one();
    thread_.join();
}

void BackgroundWriter::finish() {
    drain();
    if (failure_) {
        std::rethrow_exception(std::exchange(failure_, nullptr));
    }
    inner_->finish();
}

void BackgroundWriter::run() {
    for (;;) {
        std::unique_ptr<Batch> batch;
        {
            std::unique_lock lock(mutex_);
            work_.wait(lock, [&] { return !waiting_.empty() || ending_; });
            if (waiting_.empty()) {
                return; // ending, and everything is written
            }
            batch = std::move(waiting_.front());
            waiting_.pop_front();
        }
        if (!failure_) {
            try {
                for (size_t i = 0; i < batch->used; ++i) {
                    inner_->write(batch->instances[i]);
                }
            } catch (...) {
                failure_ = std::current_exception(); // the rest is dropped
            }
        }
        batch->used = 0;
        {
            std::lock_guard lock(mutex_);
            spare_.push_back(std::move(batch));
        }
        room_.notify_one();
    }
}

} // namespace ipmisel::collector
