// Leaks on purpose, so the sanitizer build proves that our suppression list
// hides only the system's leaks: ctest expects LeakSanitizer's report from it.
#include <cstdio>
#include <cstring>

namespace {
char* volatile g_lost = nullptr;

// Not inlined, so the leak's stack names a function of ours.
__attribute__((noinline)) void loseBuffer() {
    g_lost = new char[24];
    std::strcpy(g_lost, "lost by LeakCanary");
    g_lost = nullptr;
}
} // namespace

int main() {
    loseBuffer();
    std::puts("leaked 24 bytes");
    return 0;
}
