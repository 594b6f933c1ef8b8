#!/bin/bash
# How close ipmisel-collect comes to the floor of a SEL read over IPMI 2.0 LAN:
# one SEL of RECORDS records (default 5,000) in OpenIPMI's ipmi_sim on
# 127.0.0.1, read over lanplus by
#
#   ipmisel-collect   --class OXASG_IPMILogRecord --format jsonl
#   raw walk          bench_sel_walk: the same session through libfreeipmi,
#                     Get SEL Info and one Get SEL Entry per record, no decoding
#   ipmi-sel          FreeIPMI, with a warm SDR cache
#   ipmitool          sel elist
#
# side by side with hyperfine (RUNS runs each, default 10, after one warm-up;
# hyperfine discards their output). It prints hyperfine's report, then each
# program's mean wall time, its ratio to the raw walk ("P1 ratio" is ours to
# the raw walk) and the CPU time (user + system) of each. The simulator's own
# CPU time is in none of them.
#
#   bench/e2e/p1.sh [BIN_DIR]      BIN_DIR holds ipmisel-collect and
#                                  bench_sel_walk (default: build-bench/bin)
#   RUNS=3 bench/e2e/p1.sh build-bench/bin
#
# hyperfine's JSON (and CSV) go to OUT_DIR (default: BIN_DIR/../bench-results),
# p1.json and p1.csv. Figures are a report; nothing here fails on a time.
set -euo pipefail

# shellcheck disable=SC2034 # read by lib.sh
bench_name=p1
# shellcheck source-path=SCRIPTDIR source=lib.sh
. "$(dirname "$0")/lib.sh"
bin=$(cd "${1:-$bench_root/build-bench/bin}" 2>/dev/null && pwd) || die "no bin folder ${1:-}"
runs=${RUNS:-10}
records=${RECORDS:-5000}
out=${OUT_DIR:-$bin/../bench-results}

need_bin ipmisel-collect bench_sel_walk
need_tools ipmi_sim ipmitool ipmi-sel ss hyperfine
positive RUNS "$runs"
positive RECORDS "$records"
[ "$records" -lt 65280 ] || die "RECORDS must be below 65280 (IDs from FF00h on end the walk)"
mkdir -p "$out"
out=$(cd "$out" && pwd)

make_work
write_credentials
start_sim "$records" "$work/sim"

# Untimed: every program must read the whole SEL before its time means
# anything. This also fills ipmi-sel's SDR cache.
count() {
    local name=$1 got=$2
    [ "$got" -eq "$records" ] || die "$name read $got of $records records"
}
count ipmisel-collect "$(run_cmd cmd_collector | grep -c '"OXASG_IPMILogRecord"' || true)"
count "the raw walk" "$(run_cmd cmd_sel_walk)"
count ipmi-sel "$(run_cmd cmd_ipmisel 2>/dev/null | tail -n +2 | grep -c . || true)"
count ipmitool "$(run_cmd cmd_ipmitool | grep -c . || true)"

echo "P1: a $records-record SEL over lanplus from ipmi_sim on 127.0.0.1," \
    "hyperfine, $runs runs each after one warm-up"
echo
run_hyperfine "$out/p1.json" "$runs" \
    "raw walk" "$(cmd_sel_walk)" \
    "ipmisel-collect" "$(cmd_collector)" \
    "ipmi-sel" "$(cmd_ipmisel)" \
    "ipmitool" "$(cmd_ipmitool)"
stop_sim

csv=$out/p1.csv
raw=$(hf_field "$csv" "raw walk" mean)
cpu() { calc "$(hf_field "$csv" "$1" user) + $(hf_field "$csv" "$1" system)"; }
echo
printf '%-16s %10s %10s %12s %14s %14s\n' program "mean (s)" "sd (s)" "/ raw walk" \
    "user+sys (s)" "cpu us/record"
for name in "raw walk" ipmisel-collect ipmi-sel ipmitool; do
    mean=$(hf_field "$csv" "$name" mean)
    cpu=$(cpu "$name")
    printf '%-16s %10.3f %10.3f %12.2f %14.3f %14.1f\n' "$name" "$mean" \
        "$(hf_field "$csv" "$name" stddev)" "$(calc "$mean / $raw")" "$cpu" \
        "$(calc "$cpu * 1000000 / $records")"
done
echo
printf 'P1 ratio (ipmisel-collect / raw walk, mean wall time): %.2f\n' \
    "$(calc "$(hf_field "$csv" ipmisel-collect mean) / $raw")"
printf 'CPU time (user+sys) ratio, ipmisel-collect / raw walk: %.2f\n' \
    "$(calc "$(cpu ipmisel-collect) / $(cpu "raw walk")")"
echo "hyperfine's results: $out/p1.json"
