// A captured host whose plug-in folder holds the message file a test chooses.
#pragma once

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "base/log.h"
#include "host/runtime.h"
#include "mapping/IPMIMapping.h"
#include "mapping/MessageFile.h"
#include "tests/support/HostFixture.h"

namespace ipmisel::test {

inline std::string shippedMessageFile() {
    std::ostringstream text;
    text << std::ifstream(sourceDir() + "/data/ipmisel.INI", std::ios::binary).rdbuf();
    return text.str();
}

struct MappingHost {
    explicit MappingHost(const std::string& ini) {
        writeFile(ini);
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
        return std::string(out, strnlen(out, static_cast<size_t>(size)));
    }
    std::string text(int32_t id) { return lookup(std::to_string(id)); }

    std::string folder = makeTempDir("mapping");
    HostCapture capture;
    IPMIMapping mapping;
};

} // namespace ipmisel::test
