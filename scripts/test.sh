#!/usr/bin/env bash
# Builds everything and runs the whole test suite, then the same tests built
# with AddressSanitizer and UndefinedBehaviorSanitizer, then every fuzz target
# briefly on its committed corpus. Installs what is missing first.
#
#   bash scripts/test.sh [--no-sanitizer] [--no-fuzz]
#
#   --no-sanitizer   leave out the sanitizer build and its test run
#   --no-fuzz        leave out the fuzz smoke runs (scripts/fuzz.sh --smoke)
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=$(nproc 2>/dev/null || echo 2)
sanitizer=1
fuzz=1
for arg in "$@"; do
  case "$arg" in
    --no-sanitizer) sanitizer=0 ;;
    --no-fuzz) fuzz=0 ;;
    -h|--help) sed -n '2,9p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "test.sh: unknown option '$arg' (see test.sh --help)" >&2; exit 2 ;;
  esac
done

bash scripts/setup.sh

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

if [ "$fuzz" = 1 ]; then
  # A regression in a parser of outside bytes shows here at once; the long
  # runs are scripts/fuzz.sh's own business (fuzz/README.md).
  echo "== fuzz smoke runs (build-fuzz/)"
  bash scripts/fuzz.sh --smoke
fi
