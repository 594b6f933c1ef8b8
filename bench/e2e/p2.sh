#!/bin/bash
# The whole program on the largest SEL, with no network in the way: a
# simulated BMC holding RECORDS records (default 65,279, record IDs 0001h to
# FEFFh: every record a SEL walk can reach, see bench/README.md), collected by
#
#   ipmisel-collect --sim FILE --format jsonl --out /dev/null   (every class)
#   ipmiutil sel -b FILE                                         (the same records
#                                                                 as raw 16-byte binary)
#
# side by side with hyperfine (RUNS runs each, default 10, after one warm-up).
# It prints hyperfine's report, each one's mean wall time and CPU time (user +
# system), "P2 ratio" (ours to ipmiutil, mean wall time) and the peak resident
# memory of each (one untimed run under bench_peak_rss).
#
#   bench/e2e/p2.sh [BIN_DIR]      BIN_DIR holds ipmisel-collect and
#                                  bench_peak_rss (default: build-bench/bin)
#   RUNS=3 RECORDS=5000 bench/e2e/p2.sh build-bench/bin
#
# The scenario and the binary file are made by bench/e2e/lib.sh and kept in
# BENCH_CACHE (default: BIN_DIR/../bench-data) as sel-N.json and sel-N.bin.
# hyperfine's JSON (and CSV) go to OUT_DIR (default: BIN_DIR/../bench-results),
# p2.json and p2.csv.
set -euo pipefail

# shellcheck disable=SC2034 # read by lib.sh
bench_name=p2
# shellcheck source-path=SCRIPTDIR source=lib.sh
. "$(dirname "$0")/lib.sh"
bin=$(cd "${1:-$bench_root/build-bench/bin}" 2>/dev/null && pwd) || die "no bin folder ${1:-}"
runs=${RUNS:-10}
records=${RECORDS:-65279}
cache=${BENCH_CACHE:-$bin/../bench-data}
out=${OUT_DIR:-$bin/../bench-results}

need_bin ipmisel-collect bench_peak_rss
need_tools ipmiutil hyperfine
positive RUNS "$runs"
positive RECORDS "$records"
[ "$records" -lt 65280 ] || die "RECORDS must be below 65280 (IDs from FF00h on end the walk)"
mkdir -p "$out"
out=$(cd "$out" && pwd)

cached_sel "$records" "$cache"
cache=$(cd "$cache" && pwd)
scenario=$cache/sel-$records.json
binary=$cache/sel-$records.bin
make_work

ours() { echo "$bin/ipmisel-collect --sim $scenario --format jsonl --out $1"; }
peer="ipmiutil sel -b $binary"

# Untimed: both must read every record. ipmiutil lists one line per record,
# starting with its ID in four hex digits.
# shellcheck disable=SC2046,SC2086 # the command lines split into words
{
    "$bin/bench_peak_rss" -o "$work/ours.rss" $(ours "$work/ours.jsonl")
    got=$(grep -c '^{"class":"OXASG_IPMILogRecord"' "$work/ours.jsonl" || true)
    [ "$got" -eq "$records" ] || die "ipmisel-collect read $got of $records records"
    "$bin/bench_peak_rss" -o "$work/peer.rss" $peer >"$work/peer.txt"
    got=$(grep -Eic '^[0-9a-f]{4} ' "$work/peer.txt" || true)
    [ "$got" -eq "$records" ] || die "ipmiutil read $got of $records records"
}

echo "P2: a $records-record SEL, the whole program on its simulated BMC against" \
    "ipmiutil on a binary SEL file, hyperfine, $runs runs each after one warm-up"
echo
run_hyperfine "$out/p2.json" "$runs" ipmisel-collect "$(ours /dev/null)" ipmiutil "$peer"

csv=$out/p2.csv
cpu() { calc "$(hf_field "$csv" "$1" user) + $(hf_field "$csv" "$1" system)"; }
echo
printf '%-16s %10s %10s %14s %14s %14s\n' program "mean (s)" "sd (s)" "user+sys (s)" \
    "cpu us/record" "peak RSS (MiB)"
for name in ipmisel-collect ipmiutil; do
    case $name in ipmisel-collect) rss=$work/ours.rss ;; *) rss=$work/peer.rss ;; esac
    cpu=$(cpu "$name")
    printf '%-16s %10.3f %10.3f %14.3f %14.2f %14.1f\n' "$name" \
        "$(hf_field "$csv" "$name" mean)" "$(hf_field "$csv" "$name" stddev)" "$cpu" \
        "$(calc "$cpu * 1000000 / $records")" "$(calc "$(cat "$rss") / 1024")"
done
echo
printf 'P2 ratio (ipmisel-collect / ipmiutil, mean wall time): %.2f\n' \
    "$(calc "$(hf_field "$csv" ipmisel-collect mean) / $(hf_field "$csv" ipmiutil mean)")"
printf 'CPU time (user+sys) ratio, ipmisel-collect / ipmiutil: %.2f\n' \
    "$(calc "$(cpu ipmisel-collect) / $(cpu ipmiutil)")"
printf 'ipmisel-collect peak resident memory: %d KiB\n' "$(cat "$work/ours.rss")"
echo "hyperfine's results: $out/p2.json"
