// Runs a command and reports its peak resident memory, so the benchmark
// scripts need no timer package beyond what the build already brings.
//
//   bench_peak_rss [-o FILE] COMMAND [ARG...]
//
// The command's output and exit status pass through unchanged; the peak
// resident set size in KiB (getrusage's ru_maxrss of the child) goes to FILE,
// or to stderr as "peak RSS: N KiB".
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    int first = 1;
    const char* outPath = nullptr;
    if (argc > 2 && std::strcmp(argv[1], "-o") == 0) {
        outPath = argv[2];
        first = 3;
    }
    if (first >= argc) {
        std::fprintf(stderr, "usage: bench_peak_rss [-o FILE] COMMAND [ARG...]\n");
        return 2;
    }
    const pid_t pid = fork();
    if (pid < 0) {
        std::perror("bench_peak_rss: fork");
        return 2;
    }
    if (pid == 0) {
        execvp(argv[first], argv + first);
        std::fprintf(stderr, "bench_peak_rss: cannot run %s: %s\n", argv[first],
                     std::strerror(errno));
        _exit(127);
    }
    int status = 0;
    struct rusage usage {};
    while (wait4(pid, &status, 0, &usage) < 0) {
        if (errno != EINTR) {
            std::perror("bench_peak_rss: wait4");
            return 2;
        }
    }
    if (outPath != nullptr) {
        FILE* out = std::fopen(outPath, "w");
        if (out == nullptr) {
            std::fprintf(stderr, "bench_peak_rss: cannot write %s\n", outPath);
            return 2;
        }
        std::fprintf(out, "%ld\n", usage.ru_maxrss);
        std::fclose(out);
    } else {
        std::fprintf(stderr, "peak RSS: %ld KiB\n", usage.ru_maxrss);
    }
    if (WIFSIGNALED(status)) {
        return 128 + WTERMSIG(status);
    }
    return WEXITSTATUS(status);
}
