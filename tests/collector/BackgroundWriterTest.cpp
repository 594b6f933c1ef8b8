// The writer that runs another one on its own thread: same instances, same
// order, same bytes, whatever the batching; nothing handed over is lost.
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "collector/BackgroundWriter.h"

using namespace ipmisel::collector;
using ipmisel::host::Instance;
using ipmisel::host::Property;
using ipmisel::host::PropertyKind;

namespace {

// Writes what it is given as "class:value;" and says when it was finished.
// A slow one keeps the collection waiting for room; a failing one throws at
// one instance.
class Recorder : public InstanceWriter {
  public:
    Recorder(std::string& out, int& finishes, int slowEvery = 0, int failAt = -1)
        : out_(out), finishes_(finishes), slowEvery_(slowEvery), failAt_(failAt) {}
    void write(const Instance& instance) override {
        if (seen_ == failAt_) {
            throw std::runtime_error("disk on fire");
        }
        if (slowEvery_ != 0 && seen_ % slowEvery_ == 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        ++seen_;
        out_ += instance.className + ":" + instance.properties.at(0).text + ";";
    }
    void finish() override { ++finishes_; }

  private:
    std::string& out_;
    int& finishes_;
    int slowEvery_, failAt_;
    int seen_ = 0;
};

Instance numbered(int i) {
    // Property lists of changing length, so that a batch slot reused for a
    // shorter instance must not keep the longer one's tail.
    Instance instance{i % 3 == 0 ? "A" : "B", {}};
    instance.properties.push_back(Property{"N", PropertyKind::Text, std::to_string(i), {}});
    for (int k = 0; k < i % 4; ++k) {
        instance.properties.push_back(Property{"X", PropertyKind::Bytes, "", {uint8_t(k)}});
    }
    return instance;
}

std::string expected(int count) {
    std::string out;
    for (int i = 0; i < count; ++i) {
        out += std::string(i % 3 == 0 ? "A" : "B") + ":" + std::to_string(i) + ";";
    }
    return out;
}

TEST(BackgroundWriter, EveryInstanceInOrderAcrossBatchesAndBackPressure) {
    // Fewer than a batch, exactly one, one more, and enough for the
    // collection to wait for room behind a slow writer several times.
    const int counts[] = {
        0, 1, int(BackgroundWriter::kBatchSize), int(BackgroundWriter::kBatchSize) + 1,
        int(BackgroundWriter::kBatchSize * (BackgroundWriter::kBatchesWaiting + 3))};
    for (int count : counts) {
        std::string out;
        int finishes = 0;
        {
            BackgroundWriter w(std::make_unique<Recorder>(out, finishes, 97));
            for (int i = 0; i < count; ++i) {
                w.write(numbered(i));
            }
            w.finish();
            EXPECT_EQ(out, expected(count)) << count;
            EXPECT_EQ(finishes, 1);
            // After the finish an instance is written at once.
            w.write(numbered(count));
            EXPECT_EQ(out, expected(count + 1));
        }
        EXPECT_EQ(finishes, 1) << "the destructor finishes nothing twice";
    }
}

TEST(BackgroundWriter, WhatWasHandedOverIsWrittenWithoutFinishAndFailuresComeOut) {
    // A collection that ends by an exception never calls finish(): what the
    // writer was given still reaches the output, but the other writer is not
    // told the output is complete.
    std::string out;
    int finishes = 0;
    {
        BackgroundWriter w(std::make_unique<Recorder>(out, finishes));
        for (int i = 0; i < 300; ++i) {
            w.write(numbered(i));
        }
    }
    EXPECT_EQ(out, expected(300));
    EXPECT_EQ(finishes, 0);

    // The other writer's exception, thrown on the thread, comes out of
    // finish(); nothing after the failing instance is written.
    out.clear();
    BackgroundWriter failing(std::make_unique<Recorder>(out, finishes, 0, 260));
    for (int i = 0; i < 600; ++i) {
        failing.write(numbered(i));
    }
    EXPECT_THROW(failing.finish(), std::runtime_error);
    EXPECT_EQ(out, expected(260));
}

TEST(BackgroundWriter, JsonlBytesAreTheDirectWritersBytesCopiedOrTaken) {
    std::ostringstream direct, copied, taken;
    JsonlWriter plain(direct);
    BackgroundWriter copying(std::make_unique<JsonlWriter>(copied));
    BackgroundWriter taking(std::make_unique<JsonlWriter>(taken));
    // As the host does: one instance object, filled again after every
    // hand-over with whatever storage the swap gave back.
    Instance reused;
    for (int i = 0; i < 1000; ++i) {
        plain.write(numbered(i));
        copying.write(numbered(i));
        reused = numbered(i);
        taking.take(reused);
    }
    copying.finish();
    taking.finish();
    EXPECT_EQ(copied.str(), direct.str());
    EXPECT_EQ(taken.str(), direct.str());
}

} // namespace
