// Shared set-up of the mapping tests: a captured host whose plug-in path points
// into a folder holding a message file chosen by the test.
#pragma once

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "host/runtime.h"
#include "mapping/IPMIMapping.h"
#include "mapping/MessageFile.h"
#include "plugin/log.h"
#include "tests/support/HostFixture.h"

namespace ipmisel::test {

inline std::string shippedMessageFile() {
    std::ifstream in(sourceDir() + "/data/ipmisel.INI", std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// A host whose plug-in lives in a fresh folder with the given message file.
class MappingHost {
  public:
    explicit MappingHost(const std::string& ini, bool writeIni = true) {
        folder = makeTempDir("mapping");
        if (writeIni) {
            writeFile(ini);
        }
        capture.config().pluginPath = folder + "/ipmisel.so";
        message::ClearCache();
    }
    void writeFile(const std::string& ini) {
        std::ofstream(folder + "/ipmisel.INI", std::ios::binary | std::ios::trunc) << ini;
    }
    NOXAQSV20::TCPluginCallbacks* cb() { return host::hostCallbacks(); }

    // The text up to the terminator, which must lie within size.
    std::string lookup(const std::string& key, int* result = nullptr, int32_t size = 256) {
        char out[512];
        std::memset(out, 'x', sizeof out);
        int r = mapping.GetINIString(cb(), key, out, size);
        if (result) {
            *result = r;
        }
        return size > 0 ? std::string(out, strnlen(out, static_cast<size_t>(size))) : "";
    }
    std::string text(int32_t id) { return lookup(std::to_string(id)); }

    std::string folder;
    HostCapture capture;
    IPMIMapping mapping;
};

} // namespace ipmisel::test
