// Many whole collections in one process, as a framework that keeps the
// plug-in loaded runs them: the host set up from the demo scenario, the
// plug-in initialised, every class collected, the plug-in terminated and the
// host reset. Whatever one collection leaves behind piles up here, so the
// memory must stop growing once the first ten have run.
#include <gtest/gtest.h>
#include <malloc.h>

#include <string>
#include <thread>
#include <vector>

#include "plugin/Driver.h"
#include "plugin/PluginEntry.h"
#include "tests/resources/Resources.h"
#include "tests/support/HostFixture.h"

namespace ipmisel::resources {
namespace {

std::vector<const char*> kAllClasses = {"OXASG_IPMILogRecord",
                                        "OXASG_VTXAuxDebugRecord",
                                        "OXASG_IPMIFRU",
                                        "OXASG_IPMIFirmwareElement",
                                        "OXASG_CPLDFirmwareElement",
                                        "OXASG_FPGAFirmwareElement",
                                        "OXASG_QsvVPD",
                                        "OXASG_AMIFirmwareElement"};

struct Collected {
    size_t instances = 0, logRecords = 0;
    NOXAQSV20::EQSVStatusCode status = NOXAQSV20::QSV_SUCCESS;
};

Collected collectDemo() {
    ResetDriverState();
    test::HostCapture host;
    host.useScenarioFile(test::sourceDir() + "/scenarios/demo.json");
    PluginInitialize(host::hostCallbacks());
    Collected c;
    c.status = PluginCollect(host::hostCallbacks(), host::outputHandle(), kAllClasses.data(),
                             static_cast<int32_t>(kAllClasses.size()))
                   .GetCode();
    PluginTerminate();
    c.instances = host.instances.size();
    c.logRecords = host.instancesOf("OXASG_IPMILogRecord").size();
    return c;
}

// Bytes handed out by malloc and not yet freed, in every arena. Blocks a
// thread has freed into its own cache (glibc's tcache, up to seven of each
// size) still count as handed out, so this is read after the thread that
// ran the collections has ended and given its cache back.
size_t heapInUse() {
    const struct mallinfo2 m = mallinfo2();
    return m.uordblks + m.hblkhd;
}

// The anonymous part of the resident size: what the heap, stacks and any
// mapping the code makes take. The pages of the programs and libraries are
// left out; whether they stay resident is the page cache's business, and
// on a busy machine the kernel takes some back and faults them in again.
size_t anonymousKilobytes() {
    return statusKilobytes("RssAnon");
}

struct Reading {
    size_t heap = 0, anonKilobytes = 0;
};

TEST(Memory, AHundredCollectionsInOneProcessKeepTheMemoryFlat) {
    if (kSanitized) {
        GTEST_SKIP() << "the sanitizers' quarantine grows the resident memory by itself";
    }
    size_t instances = 0;
    // Collections [from, to) on a thread of their own; the memory after it.
    auto collect = [&instances](int from, int to) {
        std::thread([&] {
            for (int i = from; i < to; ++i) {
                Collected c = collectDemo();
                // The demo's two BMCs hold 57 and 17 SEL entries; one of the
                // first node's is another controller's and is left out.
                EXPECT_EQ(c.status, NOXAQSV20::QSV_SUCCESS) << "collection " << i;
                EXPECT_EQ(c.logRecords, 73u) << "collection " << i;
                instances = i == 0 ? c.instances : instances;
                EXPECT_EQ(c.instances, instances) << "collection " << i;
            }
        }).join();
        malloc_trim(0);
        return Reading{heapInUse(), anonymousKilobytes()};
    };
    const Reading warm = collect(0, 10), halfway = collect(10, 55), after = collect(55, 100);
    ASSERT_FALSE(HasFailure());
    ASSERT_GT(warm.anonKilobytes, 0u) << "/proc/self/status has no RssAnon line";
    // The heap is counted in bytes. Buffers that are kept for reuse may
    // still grow for a while after the warm-up, towards the longest text
    // they are given; a leak grows as fast in the second half as in the
    // first. So the last 45 collections must add less than 16 bytes each:
    // the smallest block kept per collection (32 bytes with malloc's header)
    // would add 1,440.
    EXPECT_LT(after.heap, halfway.heap + 45 * 16)
        << "heap in use grew from " << halfway.heap << " to " << after.heap << " bytes";
    // The anonymous memory moves in pages and jumps once in a while by itself:
    // a few hundred kilobytes of malloc's free lists or of a thread's stack
    // stay resident after one batch and are given back after another, and
    // which batch that is differs between machines. A leak, unlike such a
    // jump, grows the memory in both halves. One collection's instances take
    // about 160 kB: keeping a tenth of them each time would add 720 kB per
    // half, so the test fails when both halves grow by more than 192 kB.
    const long firstHalf =
        static_cast<long>(halfway.anonKilobytes) - static_cast<long>(warm.anonKilobytes);
    const long secondHalf =
        static_cast<long>(after.anonKilobytes) - static_cast<long>(halfway.anonKilobytes);
    EXPECT_FALSE(firstHalf > 192 && secondHalf > 192)
        << "RssAnon grew in both halves: " << warm.anonKilobytes << ", " << halfway.anonKilobytes
        << ", " << after.anonKilobytes << " kB";
    // A jump of more than 2 MB is more than malloc's bookkeeping.
    EXPECT_LE(after.anonKilobytes, warm.anonKilobytes + 2048)
        << "RssAnon grew from " << warm.anonKilobytes << " to " << after.anonKilobytes << " kB";
}

} // namespace
} // namespace ipmisel::resources
