// The plug-in's log as a file: one record per fdrWriteLog call, the severity
// digit, one space and the text exactly as the plug-in gave it.
#pragma once

#include <fstream>
#include <string>

namespace ipmisel::collector {

class LogFile {
  public:
    // False (and `error` set) when the file cannot be opened for writing.
    bool open(const std::string& path, std::string* error);
    void write(int severity, const std::string& text);
    // Flushes; false when anything written was lost.
    bool close();

  private:
    std::ofstream out_;
    std::string line_; // the record being written
};

} // namespace ipmisel::collector
