#!/bin/bash
# A fleet of simulated servers collected one at a time and many at once:
# what --fanout buys when each BMC answers in milliseconds, as on a LAN.
#
#   bench/e2e/fleet.sh [BIN_DIR]             BIN_DIR holds ipmisel-collect
#                                            (default: build/bin)
#   SERVERS=200 RECORDS=100 LATENCY=2 FANOUT=32 bench/e2e/fleet.sh build/bin
#
# Every server is the benchmarks' scenario of RECORDS SEL records (with the
# SDR repository and FRU device of tests/e2e/bmc/bmc.emu, see lib.sh) whose
# node answers each request after LATENCY ms ("latencyMs"). One server of
# the hosts file is unreachable: its scenario file does not exist. The same
# command runs with --fanout 1 and with --fanout FANOUT, and the script checks
# what a fleet promises: the exit code says some servers failed (7), one error
# line names the missing server, every other server's RECORDS log records are
# there, and both outputs are the same once sorted by server. It reports the
# wall and CPU times and the ratio of the wall times (the goal is 15 or more
# for 200 servers at fanout 32). The figures are a report, not a test; on a
# machine busy with other work they vary from run to run.
set -euo pipefail

# shellcheck disable=SC2034 # read by lib.sh
bench_name=fleet
# shellcheck source-path=SCRIPTDIR source=lib.sh
. "$(dirname "$0")/lib.sh"
bin=${1:-$bench_root/build/bin}
servers=${SERVERS:-200}
records=${RECORDS:-100}
latency=${LATENCY:-2}
fanout=${FANOUT:-32}

need_bin ipmisel-collect
positive SERVERS "$servers"
positive RECORDS "$records"
positive FANOUT "$fanout"
case "$latency" in '' | *[!0-9]*) die "LATENCY must be a number of milliseconds" ;; esac
[ "$servers" -ge 2 ] || die "SERVERS must be 2 or more: one of them is the unreachable one"

make_work
mkdir -p "$work/servers"
sel_scenario "$records" |
    sed "0,/\"nodes\": \[{/s//\"nodes\": [{\n    \"latencyMs\": $latency,/" >"$work/one.json"
grep -q '"latencyMs"' "$work/one.json" || die "could not set latencyMs in the scenario"

# The unreachable server sits in the middle of the list, so servers are
# started after it fails.
missing=$(((servers + 1) / 2))
{
    echo "# $servers simulated servers made by bench/e2e/fleet.sh"
    for i in $(seq -w 1 "$servers"); do
        if [ "$((10#$i))" -eq "$missing" ]; then
            echo "sim:servers/absent-$i.json"
        else
            cp "$work/one.json" "$work/servers/s$i.json"
            echo "sim:servers/s$i.json"
        fi
    done
} >"$work/hosts.txt"
missing_name=$(grep -o 'sim:servers/absent-[0-9]*\.json' "$work/hosts.txt")

# run N: collects the fleet with --fanout N into $work/out-N.jsonl and
# err-N.txt; prints "wall user+sys exit-code".
run() {
    local n=$1 start end code=0
    start=$(date +%s.%N)
    /usr/bin/time -f "%U %S" -o "$work/time-$n.txt" \
        "$bin/ipmisel-collect" --hosts-file "$work/hosts.txt" --fanout "$n" --format jsonl \
        --class OXASG_IPMILogRecord >"$work/out-$n.jsonl" 2>"$work/err-$n.txt" || code=$?
    end=$(date +%s.%N)
    # /usr/bin/time notes a non-zero exit code on a line of its own
    awk -v s="$start" -v e="$end" -v c="$code" \
        '/^[0-9.]+ [0-9.]+$/ { cpu = $1 + $2 } END { printf "%.2f %.2f %d\n", e - s, cpu, c }' \
        "$work/time-$n.txt"
}

check() {
    local n=$1 code=$2
    local err=$work/err-$n.txt out=$work/out-$n.jsonl
    [ "$code" -eq 7 ] || die "--fanout $n: exit code $code, not 7 (some servers failed)"
    [ "$(wc -l <"$err")" -eq 1 ] && grep -q "^ipmisel-collect: $missing_name: .*cannot open" "$err" ||
        die "--fanout $n: not one error line naming $missing_name: $(cat "$err")"
    # Every other server once with all its records.
    local counts
    counts=$(grep -o '^{"server":"[^"]*"' "$out" | sort | uniq -c | awk '{ print $1 }' | sort -u)
    [ "$counts" = "$records" ] || die "--fanout $n: a server does not have $records records"
    [ "$(grep -o '^{"server":"[^"]*"' "$out" | sort -u | wc -l)" -eq "$((servers - 1))" ] ||
        die "--fanout $n: not every reachable server is in the output"
    # Stable sort by the first field: each server's lines together, in its order.
    sort -s -t, -k1,1 "$out" >"$out.sorted"
}

echo "$servers simulated servers (one unreachable), $records SEL records each," \
    "${latency} ms per answer"
read -r wall1 cpu1 code1 < <(run 1)
check 1 "$code1"
read -r wallN cpuN codeN < <(run "$fanout")
check "$fanout" "$codeN"
cmp -s "$work/out-1.jsonl.sorted" "$work/out-$fanout.jsonl.sorted" ||
    die "the outputs of --fanout 1 and --fanout $fanout differ once sorted by server"

printf '\n%10s  %10s  %14s\n' "fanout" "wall (s)" "user+sys (s)"
printf '%10s  %10s  %14s\n' 1 "$wall1" "$cpu1" "$fanout" "$wallN" "$cpuN"
ratio=$(awk -v a="$wall1" -v b="$wallN" 'BEGIN { printf "%.1f", a / b }')
goal=$(awk -v r="$ratio" 'BEGIN { print (r >= 15) ? "met" : "not met" }')
echo
echo "wall time ratio --fanout 1 / --fanout $fanout: $ratio (goal 15 or more: $goal)"
echo "outputs identical once sorted by server; $missing_name reported, exit code 7"
