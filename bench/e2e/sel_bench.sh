#!/bin/bash
# Whole-program timings against a BMC we did not write: ipmisel-collect,
# `ipmitool sel elist` and FreeIPMI's `ipmi-sel` read the same SEL from
# OpenIPMI's ipmi_sim on 127.0.0.1 over IPMI 2.0 (lanplus), side by side.
#
#   bench/e2e/sel_bench.sh [BIN_DIR]       BIN_DIR holds ipmisel-collect
#                                          (default: build/bin)
#   RUNS=7 SIZES="1000 5000" bench/e2e/sel_bench.sh build/bin
#
# For every SEL size it starts one simulator holding that many records (the
# SDR repository and FRU data of tests/e2e/bmc/bmc.emu), runs the three
# programs in turn RUNS times (default 5), and reports the median wall time
# of each, the ratios to ipmisel-collect, and how many IPMI requests the
# collector sent per SEL record (counted in a --record file of one run).
#
# The collector is asked for the log-record class only: that is what the two
# tools list too. ipmi-sel keeps an SDR cache; it is filled by one untimed
# run first, as it would be on an administrator's machine. The figures are a
# report, not a test: nothing here fails on a time.
set -euo pipefail

# shellcheck disable=SC2034 # read by lib.sh
bench_name=sel_bench
# shellcheck source-path=SCRIPTDIR source=lib.sh
. "$(dirname "$0")/lib.sh"
bin=${1:-$bench_root/build/bin}
runs=${RUNS:-5}
sizes=${SIZES:-"1000 5000"}

need_bin ipmisel-collect
need_tools ipmi_sim ipmitool ipmi-sel ss
positive RUNS "$runs"

now() { date +%s.%N; }
median() { sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

make_work
write_credentials

run_collector() { run_cmd cmd_collector "$@"; }
run_ipmitool() { run_cmd cmd_ipmitool; }
run_ipmisel() { run_cmd cmd_ipmisel; }

echo "SEL read over lanplus from ipmi_sim on 127.0.0.1, median of $runs runs"
echo
printf '%8s  %12s  %12s  %12s  %14s  %14s  %14s\n' "records" "ipmisel (s)" "ipmitool (s)" \
    "ipmi-sel (s)" "ipmitool/ours" "ipmi-sel/ours" "requests/rec"
for size in $sizes; do
    dir="$work/sim-$size"
    start_sim "$size" "$dir"

    # Untimed: check that every program reads the whole SEL, fill ipmi-sel's
    # cache and count the collector's requests.
    got=$(run_collector --record "$dir/recording.json" | grep -c '"OXASG_IPMILogRecord"' || true)
    [ "$got" -eq "$size" ] || die "ipmisel-collect reported $got of $size records"
    got=$(run_ipmitool | grep -c . || true)
    [ "$got" -eq "$size" ] || die "ipmitool listed $got of $size records"
    got=$(run_ipmisel 2>/dev/null | tail -n +2 | grep -c . || true)
    [ "$got" -eq "$size" ] || die "ipmi-sel listed $got of $size records"
    requests=$(grep -c '"netfn"' "$dir/recording.json")

    : >"$dir/ours" && : >"$dir/ipmitool" && : >"$dir/ipmisel"
    for _ in $(seq "$runs"); do
        t=$(now); run_collector >/dev/null; calc "$(now) - $t" >>"$dir/ours"
        t=$(now); run_ipmitool >/dev/null; calc "$(now) - $t" >>"$dir/ipmitool"
        t=$(now); run_ipmisel >/dev/null; calc "$(now) - $t" >>"$dir/ipmisel"
    done
    stop_sim

    ours=$(median <"$dir/ours")
    tool=$(median <"$dir/ipmitool")
    fsel=$(median <"$dir/ipmisel")
    printf '%8d  %12.3f  %12.3f  %12.3f  %14.2f  %14.2f  %14.3f\n' "$size" "$ours" "$tool" "$fsel" \
        "$(calc "$tool / $ours")" "$(calc "$fsel / $ours")" "$(calc "$requests / $size")"
done
