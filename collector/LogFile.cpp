#include "collector/LogFile.h"

#include <cerrno>
#include <cstring>

namespace ipmisel::collector {

bool LogFile::open(const std::string& path, std::string* error) {
    out_.open(path, std::ios::out | std::ios::trunc | std::ios::binary);
    if (!out_) {
        if (error) {
            *error = "cannot write the log file " + path + ": " + std::strerror(errno);
        }
        return false;
    }
    return true;
}

void LogFile::write(int severity, const std::string& text) {
    // The severity digit, one space, the text as it is, a new line.
    if (severity >= 0 && severity <= 9) {
        out_.put(static_cast<char>('0' + severity));
    } else {
        out_ << severity;
    }
    out_.put(' ');
    out_.write(text.data(), static_cast<std::streamsize>(text.size()));
    out_.put('\n');
    // Errors and data-losing failures reach the disk at once, so the lines that
    // explain a crash of the plug-in are not lost with it.
    if (severity <= 1) {
        out_.flush();
    }
}

bool LogFile::close() {
    if (!out_.is_open()) {
        return true;
    }
    out_.flush();
    bool ok = static_cast<bool>(out_);
    out_.close();
    return ok;
}

} // namespace ipmisel::collector
