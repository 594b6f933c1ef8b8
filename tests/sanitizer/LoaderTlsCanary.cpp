// Opens a library with thread-local storage the way the collector opens the
// plug-in. Run with use_tls=0 and without symbols, the loader's allocation of
// that block is reported as a leak unless the suppression list names the
// loader: ctest expects this program to pass with the list.
#include <dlfcn.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s MODULE\n", argv[0]);
        return 2;
    }
    void* module = dlopen(argv[1], RTLD_NOW);
    if (module == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 2;
    }
    auto bump = reinterpret_cast<int (*)()>(dlsym(module, "bumpCounter"));
    if (bump == nullptr || bump() != 1) {
        return 2;
    }
    std::puts("thread-local block in use");
    return 0;
}
