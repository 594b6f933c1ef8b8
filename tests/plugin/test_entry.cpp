// The attach hook and the small callbacks, called in-process: which attach
// reasons register, what the registered record holds, what a refused
// registration leaves, and the plug-in's name and versions.
#include <gtest/gtest.h>

#include <string>

#include "plugin/PluginEntry.h"
#include "plugin/module.h"
#include "tests/support/HostFixture.h"

using namespace NOXAQSV20;

namespace ipmisel::test {
namespace {

// Any address the host would never hand out: registration overwrites it.
TCPluginCallbacks* const kUntouched = reinterpret_cast<TCPluginCallbacks*>(0x1000);

void ExpectInfo(const char* when) {
    SCOPED_TRACE(when);
    const PluginInfo info = PluginGetInfo();
    EXPECT_STREQ(info.name, "IPMISEL");
    EXPECT_STREQ(info.version, "1.0");
    EXPECT_STREQ(info.version2, "1.0");
    EXPECT_EQ(info.flags, 0u);
}

TEST(PluginEntry, AttachRegistersOnProcessAttachOnlyAndInfoNeverChanges) {
    g_hostCallbacks = nullptr;
    ExpectInfo("before anything");

    // Detach (0), thread attach (2), thread detach (3) and a reason the loader
    // does not define: success, nothing registered, nothing logged.
    for (uint32_t reason : {0u, 2u, 3u, 7u}) {
        SCOPED_TRACE(reason);
        HostCapture host;
        g_hostCallbacks = kUntouched;
        EXPECT_EQ(PluginAttach(nullptr, reason, nullptr), 1);
        EXPECT_EQ(host::registeredCallbacks(), nullptr);
        EXPECT_EQ(g_hostCallbacks, kUntouched);
        EXPECT_TRUE(host.logs.empty());
    }

    {
        HostCapture host;
        g_hostCallbacks = kUntouched;
        ASSERT_EQ(PluginAttach(nullptr, 1, nullptr), 1);
        const fdrPluginCallbacks* record = host::registeredCallbacks();
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->size, 48u);
        EXPECT_EQ(record->initialize, &PluginInitialize);
        EXPECT_EQ(record->terminate, &PluginTerminate);
        EXPECT_EQ(record->collect, &PluginCollect);
        EXPECT_EQ(record->getInfo, &PluginGetInfo);
        EXPECT_EQ(record->reserved, nullptr);
        EXPECT_EQ(g_hostCallbacks, host::hostCallbacks());
        EXPECT_TRUE(host.logs.empty());
        // A later detach leaves the registration alone.
        EXPECT_EQ(PluginAttach(nullptr, 0, nullptr), 1);
        EXPECT_EQ(host::registeredCallbacks(), record);

        // The framework's own pointer replaces the one registration gave.
        EXPECT_EQ(PluginInitialize(kUntouched).GetCode(), QSV_SUCCESS);
        EXPECT_EQ(g_hostCallbacks, kUntouched);
        ExpectInfo("after PluginInitialize");
        EXPECT_EQ(PluginTerminate().GetCode(), QSV_SUCCESS);
        ExpectInfo("after PluginTerminate");
    }

    // A refused registration: 0 for the loader, after exactly one line.
    host::Config refusing;
    refusing.registerFails = true;
    HostCapture host(refusing);
    EXPECT_EQ(PluginAttach(nullptr, 1, nullptr), 0);
    ASSERT_EQ(host.logs.size(), 1u);
    EXPECT_EQ(host.logs[0].severity, 0);
    EXPECT_EQ(host.logs[0].text, "Could not register plugin!");
    EXPECT_EQ(host::registeredCallbacks(), nullptr);
    g_hostCallbacks = nullptr;
}

} // namespace
} // namespace ipmisel::test
