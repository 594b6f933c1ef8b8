#!/usr/bin/env bash
# Builds everything and runs the whole test suite, then the same tests built
# with AddressSanitizer and UndefinedBehaviorSanitizer. Installs what is
# missing first. Usage: bash scripts/test.sh [--no-sanitizer]
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

jobs=$(nproc 2>/dev/null || echo 2)
sanitizer=1
[ "${1:-}" = "--no-sanitizer" ] && sanitizer=0

echo "== build (build/)"
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs"
echo "== tests"
ctest --test-dir build --output-on-failure -j"$jobs"

if [ "$sanitizer" = 1 ]; then
  echo "== build with ASan+UBSan (build-san/)"
  cmake -S . -B build-san -DCMAKE_BUILD_TYPE=Debug -DIPMISEL_SANITIZE=ON -DIPMISEL_BENCH=OFF >/dev/null
  cmake --build build-san -j"$jobs"
  echo "== tests under the sanitizers"
  # Leaks inside system libraries are suppressed by name (the list says why);
  # a leak of ours still fails the run.
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    LSAN_OPTIONS="suppressions=$PWD/tests/sanitizer/lsan.supp:print_suppressions=0" \
    ctest --test-dir build-san --output-on-failure -j"$jobs"
fi
