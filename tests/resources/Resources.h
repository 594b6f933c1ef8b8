// What the resource checks share: whether this build runs under the
// sanitizers, and readings of the process's own descriptors and memory.
#pragma once

#include <dirent.h>

#include <cstddef>
#include <fstream>
#include <string>

namespace ipmisel::resources {

// AddressSanitizer keeps freed memory in quarantine and replaces malloc, and
// valgrind cannot run a program built with it: the memory checks skip such a
// build (its own leak checker covers it).
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

// The descriptors this process holds open (the one used to list them is
// not counted).
inline size_t openDescriptors() {
    size_t n = 0;
    if (DIR* dir = ::opendir("/proc/self/fd")) {
        while (const dirent* entry = ::readdir(dir)) {
            n += entry->d_name[0] != '.';
        }
        ::closedir(dir);
        --n;
    }
    return n;
}

// A line "Name:   <number> kB" of /proc/self/status, in kB; 0 when absent.
inline size_t statusKilobytes(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name + ":")) {
            return std::stoul(line.substr(name.size() + 1));
        }
    }
    return 0;
}

} // namespace ipmisel::resources
