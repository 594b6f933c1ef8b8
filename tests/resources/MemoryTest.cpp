// Many whole collections in one process, as a framework that keeps the
// plug-in loaded runs them: the host set up from the demo scenario, the
// plug-in initialised, every class collected, the plug-in terminated and the
// host reset. Whatever one collection leaves behind piles up here, so the
// memory after a hundred of them must be what it was after the first ten.
#include <gtest/gtest.h>
#include <malloc.h>

#include <string>
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

// Bytes handed out by malloc and not yet freed, in every arena.
size_t heapInUse() {
    const struct mallinfo2 m = mallinfo2();
    return m.uordblks + m.hblkhd;
}

TEST(Memory, AHundredCollectionsInOneProcessKeepTheMemoryFlat) {
    if (kSanitized) {
        GTEST_SKIP() << "the sanitizers' quarantine grows the resident memory by itself";
    }
    constexpr int kWarmUp = 10, kHalfway = 55, kTotal = 100;
    auto checked = [](int i) {
        Collected c = collectDemo();
        // The demo's two BMCs hold 57 and 17 SEL entries; one of the first
        // node's is another controller's and is left out.
        EXPECT_EQ(c.status, NOXAQSV20::QSV_SUCCESS) << "collection " << i;
        EXPECT_EQ(c.logRecords, 73u) << "collection " << i;
        return c.instances;
    };
    const size_t instances = checked(0);
    size_t heapHalfway = 0, rssWarm = 0;
    for (int i = 1; i < kTotal && !HasFailure(); ++i) {
        if (i == kWarmUp) {
            malloc_trim(0);
            rssWarm = statusKilobytes("VmRSS");
        } else if (i == kHalfway) {
            heapHalfway = heapInUse();
        }
        EXPECT_EQ(checked(i), instances) << "collection " << i;
    }
    malloc_trim(0);
    const size_t heapAfter = heapInUse(), rssAfter = statusKilobytes("VmRSS");
    // The heap is counted in bytes. Buffers that are kept for reuse may
    // still grow for a while after the warm-up, towards the longest text
    // they are given; a leak grows as fast in the second half as in the
    // first. So the last 45 collections must add less than 16 bytes each:
    // the smallest block kept per collection (32 bytes with malloc's header)
    // would add 1,440.
    EXPECT_LT(heapAfter, heapHalfway + (kTotal - kHalfway) * 16)
        << "heap in use grew from " << heapHalfway << " to " << heapAfter << " bytes";
    // The resident size moves in pages: a page or two of malloc's free lists,
    // stack touched deeper once. One collection's instances take about
    // 160 kB: keeping a tenth of them each time would add 1.4 MB.
    EXPECT_LE(rssAfter, rssWarm + 256)
        << "VmRSS grew from " << rssWarm << " to " << rssAfter << " kB";
}

} // namespace
} // namespace ipmisel::resources
