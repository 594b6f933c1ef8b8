// The message file is opened, read whole and closed; a lookup never keeps a
// descriptor. A plug-in that stays loaded in the framework for months asks
// for keys the file does not hold all the time (unknown OEM codes), so a
// descriptor lost on any path would end in "too many open files".
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "mapping/IPMIMapping.h"
#include "mapping/MessageFile.h"
#include "tests/mapping/MappingTestSupport.h"
#include "tests/resources/Resources.h"

namespace ipmisel::resources {
namespace {

constexpr const char* kProbe = "resources-probe";

// 100,000 lookups of keys the file does not hold, with the plug-in in
// `folder`, while its message file is changed in every way a lookup must
// notice.
void missesKeepTheDescriptors(const std::string& folder) {
    std::filesystem::create_directories(folder);
    const std::string file = folder + "/ipmisel.INI";
    const std::string shipped = test::shippedMessageFile();
    const std::string withProbe = shipped + kProbe + "=probe text\n";
    std::ofstream(file, std::ios::binary) << shipped;
    const size_t initial = openDescriptors();
    test::HostCapture host;
    host.config().pluginPath = folder + "/ipmisel.so";
    message::ClearCache();
    IPMIMapping mapping;
    auto lookup = [&](const std::string& key, int* result) {
        char out[256];
        *result = mapping.GetINIString(host::hostCallbacks(), key, out, sizeof out);
        return std::string(out, strnlen(out, sizeof out));
    };
    int result = 0;
    lookup(kProbe, &result);
    // A folder whose name holds the plug-in's name is reached through one
    // descriptor the host keeps for the process; nothing else stays open.
    const size_t before = openDescriptors();
    EXPECT_LE(before, initial + 1);

    // Every change comes right before a run of lookups, so the first of them
    // read the file again (a file changed this recently is not trusted to
    // show a further change in its times) and take each way out of the read.
    struct Step {
        const char* what;
        std::function<void()> change;
        bool readable;   // the lookups reach a file
        bool probeFound; // the probe key is in it
    };
    const std::vector<Step> steps = {
        {"the file as shipped", [] {}, true, false},
        {"rewritten in place with one more line",
         [&] { std::ofstream(file, std::ios::binary | std::ios::trunc) << withProbe; }, true, true},
        {"replaced by renaming another file over it",
         [&] {
             std::ofstream(file + ".new", std::ios::binary) << shipped;
             std::filesystem::rename(file + ".new", file);
         },
         true, false},
        {"removed", [&] { std::filesystem::remove(file); }, false, false},
        {"a folder in its place", [&] { std::filesystem::create_directory(file); }, false, false},
        {"written again",
         [&] {
             std::filesystem::remove(file);
             std::ofstream(file, std::ios::binary) << withProbe;
         },
         true, true},
    };
    constexpr int kLookups = 100'000;
    const int perStep = kLookups / static_cast<int>(steps.size()) + 1;
    int n = 0;
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        step.change();
        for (int i = 0; i < perStep && n < kLookups; ++i, ++n) {
            // Keys no line holds, a thousand of them in turn: what a
            // descriptor could be lost on is the file's read, not the scan.
            const std::string text = lookup("absent-" + std::to_string(n % 1000), &result);
            if (result != 1 || !text.empty()) {
                FAIL() << "lookup " << n << " gave " << result << " \"" << text << "\"";
            }
        }
        // The lookups saw the change: a fresh scan's answer, not a stale copy.
        host.clear();
        EXPECT_EQ(lookup(kProbe, &result), step.probeFound ? "probe text" : "");
        EXPECT_EQ(result, step.probeFound ? 0 : 1);
        EXPECT_EQ(host.hasLog(1, "Can't open ipmisel INI file."), !step.readable);
        EXPECT_EQ(openDescriptors(), before) << "after " << n << " lookups";
        host.clear();
    }
    EXPECT_EQ(n, kLookups);
}

TEST(Descriptors, AHundredThousandMissesWhileTheFileIsRewrittenReplacedAndRemoved) {
    // As built (bin/) and as installed (lib/ipmisel/).
    for (const std::string& folder :
         {test::makeTempDir("resources") + "/bin", test::makeTempDir("resources") + "/ipmisel"}) {
        SCOPED_TRACE(folder);
        missesKeepTheDescriptors(folder);
    }
}

} // namespace
} // namespace ipmisel::resources
