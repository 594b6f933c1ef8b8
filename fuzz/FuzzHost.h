// What every fuzz target shares: a host set up once per process, with the
// message file in a private folder the plug-in path points to, and sinks that
// touch every log line and instance (so a bad text is read by the sanitizers)
// and keep nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/runtime.h"

namespace ipmisel::fuzz {

// Configures the host on the first call; later calls only restore the
// plug-in path, the sinks and an empty node list.
void SetUpHost();

// The private folder holding "ipmisel.INI", made on first use and removed
// when the process exits; the host's plug-in path is "<folder>/ipmisel.so".
const std::string& MessageFolder();

// "<MessageFolder()>/ipmisel.INI", the file the plug-in reads its texts from.
std::string MessageFilePath();

// The bundled message file's contents (read once).
const std::string& BundledMessageFile();

// Writes `contents` as the message file the plug-in reads.
void WriteMessageFile(const std::string& contents);

// Bytes as the house's "%02X " text, the form every BMC answer is scanned from.
std::string HexText(const uint8_t* data, size_t size);

} // namespace ipmisel::fuzz
