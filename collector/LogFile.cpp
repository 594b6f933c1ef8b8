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
    // The severity digit, one space, the text as it is, a new line: put
    // together first and written in one call, the plug-in logging dozens of
    // lines per record.
    line_.clear();
    if (severity >= 0 && severity <= 9) {
        line_ += static_cast<char>('0' + severity);
    } else {
        line_ += std::to_string(severity);
    }
    line_ += ' ';
    line_ += text;
    line_ += '\n';
    out_.write(line_.data(), static_cast<std::streamsize>(line_.size()));
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
