// JEDEC JEP106 manufacturer names, banks 1 to 7, codes 1 to 126: the names the
// SPD decoder prints as a memory module's "Vendor".
#pragma once

#include <cstddef>

namespace ipmisel {

constexpr size_t kJep106Banks = 7;
constexpr size_t kJep106Codes = 126;

// Index: bank (counted from 0) * 126 + code - 1. Generated, see
// scripts/gen-jep106.py.
extern const char* const g_Jep106Names[kJep106Banks * kJep106Codes];

} // namespace ipmisel
