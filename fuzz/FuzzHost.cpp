#include "fuzz/FuzzHost.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace ipmisel::fuzz {
namespace {

// The sinks read every byte they are given; the sum keeps the reads from
// being optimised away.
volatile size_t g_touched = 0;

void Touch(const std::string& text) {
    size_t sum = 0;
    for (char c : text) {
        sum += static_cast<unsigned char>(c);
    }
    g_touched = g_touched + sum;
}

std::string MakeFolder() {
    const char* base = std::getenv("TMPDIR");
    // The folder must not carry the plug-in's name: the plug-in cuts its path
    // at the first occurrence to find the message file.
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/fuzzhost-XXXXXX";
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    if (!mkdtemp(buf.data())) {
        std::perror("mkdtemp");
        std::abort();
    }
    return std::string(buf.data());
}

void Configure() {
    host::Config config;
    config.pluginPath = MessageFolder() + "/ipmisel.so";
    config.utcOffsetMinutes = 0;
    config.now = [] { return int64_t{1718096400}; };
    config.logLevel = 4;
    config.logSink = [](int, const std::string& text) { Touch(text); };
    config.coreLogSink = [](uint32_t, const std::string& text) { Touch(text); };
    config.instanceSink = [](const host::Instance& instance) {
        Touch(instance.className);
        for (const auto& p : instance.properties) {
            Touch(p.name);
            Touch(p.text);
            g_touched = g_touched + p.bytes.size();
        }
    };
    host::configure(std::move(config));
}

void RemoveFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(MessageFolder(), ignored);
}

} // namespace

const std::string& MessageFolder() {
    static const std::string folder = MakeFolder();
    // Registered once the string is made, so the handler runs before the
    // string is destroyed. A crash leaves the folder behind.
    [[maybe_unused]] static const int removed = std::atexit(RemoveFolder);
    return folder;
}

std::string MessageFilePath() {
    return MessageFolder() + "/ipmisel.INI";
}

const std::string& BundledMessageFile() {
    static const std::string contents = [] {
        std::ifstream in(IPMISEL_MESSAGE_FILE, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "cannot read %s\n", IPMISEL_MESSAGE_FILE);
            std::abort();
        }
        std::ostringstream s;
        s << in.rdbuf();
        return s.str();
    }();
    return contents;
}

void WriteMessageFile(const std::string& contents) {
    std::ofstream out(MessageFilePath(), std::ios::binary | std::ios::trunc);
    out << contents;
}

void SetUpHost() {
    static bool done = false;
    if (!done) {
        WriteMessageFile(BundledMessageFile());
        done = true;
    }
    Configure();
}

std::string HexText(const uint8_t* data, size_t size) {
    std::string text;
    char piece[4];
    for (size_t i = 0; i < size; ++i) {
        std::snprintf(piece, sizeof piece, "%02X ", data[i]);
        text += piece;
    }
    return text;
}

} // namespace ipmisel::fuzz
