#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan, UBSan) in build-fuzz/ and runs
# each one in turn on its corpus; a target stops at its first crash, leak,
# timeout or out-of-memory, and the script fails when any target did. Prints
# executions and coverage per target.
#
#   bash scripts/fuzz.sh                 every target, 30 s each
#   bash scripts/fuzz.sh --smoke         every target, 20 s each on the committed
#                                        seeds alone, keeping nothing (CI)
#   bash scripts/fuzz.sh --seconds 600 fuzz_collect fuzz_sel
#   bash scripts/fuzz.sh --seeds         regenerate fuzz/corpus/ from the scenarios, then run
#
# What a run finds goes to build-fuzz/corpus/<target>/ (the committed seeds in
# fuzz/corpus/<target>/ are read, never written); a crashing input is saved as
# build-fuzz/artifacts/<target>-crash-*.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=30
seeds=0
smoke=0
targets=()
while [ $# -gt 0 ]; do
  case "$1" in
    --smoke) seconds=20; smoke=1 ;;
    --seconds) seconds="$2"; shift ;;
    --seeds) seeds=1 ;;
    -h|--help) sed -n '2,15p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    fuzz_*) targets+=("$1") ;;
    *) echo "fuzz.sh: unknown argument '$1'" >&2; exit 2 ;;
  esac
  shift
done

# setup.sh installs clang and its runtimes with everything else the build needs.
sh scripts/setup.sh --no-e2e >/dev/null
# The one thing that can still be missing: a clang whose fuzzer runtime
# (libFuzzer) comes in a package of its own. A one-line program tells.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
echo 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }' >"$scratch/t.cpp"
if ! clang++ -fsanitize=fuzzer "$scratch/t.cpp" -o "$scratch/t" >/dev/null 2>&1; then
  major=$(clang++ -dumpversion 2>/dev/null | cut -d. -f1)
  echo "fuzz.sh: clang++ cannot link with -fsanitize=fuzzer: its libFuzzer runtime is missing (on Debian: libclang-rt-${major:-N}-dev)" >&2
  exit 1
fi

build=build-fuzz
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
echo "== build ($build/)"
CXX=clang++ cmake -S . -B "$build" -DIPMISEL_FUZZ=ON -DIPMISEL_BENCH=OFF \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo "${launcher[@]}" >/dev/null
if [ ${#targets[@]} -eq 0 ]; then
  for f in fuzz/fuzz_*.cpp; do
    t=$(basename "$f" .cpp)
    targets+=("$t")
  done
fi
cmake --build "$build" -j"$(nproc 2>/dev/null || echo 2)" --target "${targets[@]}"

if [ "$seeds" = 1 ]; then
  for t in "${targets[@]}"; do
    name=${t#fuzz_}
    # Regenerate the seeds; keep inputs that reproduced a fault (crash-*) and
    # those a run found and we committed (named by their SHA-1).
    find "fuzz/corpus/$name" -maxdepth 1 -regextype posix-extended -type f \
      ! -name 'crash-*' ! -regex '.*/[0-9a-f]{40}' -delete 2>/dev/null || true
    IPMISEL_FUZZ_SEEDS="$PWD/fuzz/corpus/$name" "$build/bin/$t" >/dev/null
    echo "seeds: $t $(ls "fuzz/corpus/$name" | wc -l) files"
  done
fi

mkdir -p "$build/artifacts"
summary=()
failed=()
total=0
for t in "${targets[@]}"; do
  name=${t#fuzz_}
  # A smoke run starts from the committed seeds alone and keeps nothing, so
  # it takes the same time whatever earlier runs found.
  work="$build/corpus/$name"
  [ "$smoke" = 1 ] && work="$scratch/corpus/$name"
  mkdir -p "$work" "fuzz/corpus/$name"
  log="$build/artifacts/$t.log"
  echo "== $t (${seconds}s)"
  # One fuzzer at a time, no forks: the machine is shared. A target that
  # fails does not keep the others from running: one report shows them all.
  status=ok
  if ! ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
      "$build/bin/$t" -max_total_time="$seconds" -timeout=5 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="$build/artifacts/$t-" \
      "$work" "fuzz/corpus/$name" >"$log" 2>&1; then
    tail -n 60 "$log"
    status=FAILED
    failed+=("$t: the input is in $build/artifacts/, the log in $log")
  fi
  # A failed run may have no status line at all.
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1 || true)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1 || true)
  cov=$(grep -E '^#[0-9]+.*(DONE|pulse|NEW|REDUCE|INITED).*cov: ' "$log" | tail -1 | sed -E 's/.*cov: ([0-9]+).*/\1/' || true)
  ft=$(grep -E '^#[0-9]+.*cov: ' "$log" | tail -1 | sed -E 's/.* ft: ([0-9]+).*/\1/' || true)
  summary+=("$(printf '%-16s %12s execs %8s exec/s  cov: %-6s ft: %-6s %s' "$t" "$execs" "$rate" "$cov" "$ft" "$status")")
  total=$((total + ${execs:-0}))
done

echo "== summary"
printf '%s\n' "${summary[@]}"
echo "total executions: $total"
if [ ${#failed[@]} -gt 0 ]; then
  printf 'fuzz.sh: %s\n' "${failed[@]}" >&2
  exit 1
fi
