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

here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
bin=${1:-$root/build/bin}
runs=${RUNS:-5}
sizes=${SIZES:-"1000 5000"}
user=ipmiusr
password=e2e-Secret-42 # the simulator's own test account (tests/e2e/bmc/lan.conf)

die() { echo "sel_bench: $*" >&2; exit 1; }

[ -x "$bin/ipmisel-collect" ] || die "no $bin/ipmisel-collect (build it, or give the bin folder)"
for tool in ipmi_sim ipmitool ipmi-sel ss; do
    command -v "$tool" >/dev/null || die "$tool is missing (scripts/setup.sh installs the tools)"
done
case "$runs" in '' | *[!0-9]* | 0) die "RUNS must be a positive number" ;; esac

work=$(mktemp -d "${TMPDIR:-/tmp}/ipmisel-bench-XXXXXX")
sim_pid=""
stop_sim() {
    if [ -n "$sim_pid" ]; then
        kill "$sim_pid" 2>/dev/null || true
        # at most two seconds before it is killed outright
        for _ in $(seq 20); do
            kill -0 "$sim_pid" 2>/dev/null || break
            sleep 0.1
        done
        kill -9 "$sim_pid" 2>/dev/null || true
        wait "$sim_pid" 2>/dev/null || true
        sim_pid=""
    fi
}
trap 'stop_sim; rm -rf "$work"' EXIT
trap 'exit 130' INT TERM

# A UDP port on 127.0.0.1 that nothing listens on, from a pseudo-random start.
free_port() {
    local port=$((20000 + RANDOM % 20000)) tries
    for tries in $(seq 200); do
        if [ -z "$(ss -Huln "sport = :$port")" ]; then
            echo "$port"
            return
        fi
        port=$((port + 1))
    done
    die "no free UDP port found"
}

# The simulator's SEL state file: records 1..N, newest first (the order in
# which ipmi_sim keeps them), one minute apart from 2024-06-11 08:00:00 UTC,
# cycling through events of the repository's sensors.
sel_file() {
    awk -v n="$1" 'BEGIN {
        t0 = 1718092800
        # sensor type, number, event type, event data 1..3
        split("1 48 1 89 92 90|4 32 1 82 8 10|2 64 1 87 225 220|8 80 111 1 255 255|12 82 111 0 255 255|5 84 111 0 255 255", ev, "|")
        for (id = n; id >= 1; id--) {
            split(ev[(id - 1) % 6 + 1], e, " ")
            t = t0 + 60 * id
            b[0] = id % 256; b[1] = int(id / 256); b[2] = 2
            b[3] = t % 256; b[4] = int(t / 256) % 256; b[5] = int(t / 65536) % 256; b[6] = int(t / 16777216)
            b[7] = 32; b[8] = 0; b[9] = 4
            b[10] = e[1]; b[11] = e[2]; b[12] = e[3]; b[13] = e[4]; b[14] = e[5]; b[15] = e[6]
            line = id ":d:"
            for (i = 0; i < 16; i++) line = line sprintf("\\%02x", b[i])
            print line
        }
    }'
}

start_sim() {
    local size=$1 dir=$2 attempt
    mkdir -p "$dir/state/ipmi_sim/ipmisel"
    sel_file "$size" >"$dir/state/ipmi_sim/ipmisel/sel.20"
    for attempt in 1 2 3; do
        port=$(free_port)
        sed "s/@PORT@/$port/g" "$root/tests/e2e/bmc/lan.conf" >"$dir/lan.conf"
        ipmi_sim -c "$dir/lan.conf" -f "$root/tests/e2e/bmc/bmc.emu" -s "$dir/state" -n \
            </dev/null >"$dir/sim.log" 2>&1 &
        sim_pid=$!
        # It binds its port once the command file is read: at most 10 s.
        for _ in $(seq 100); do
            kill -0 "$sim_pid" 2>/dev/null || break
            [ -n "$(ss -Huln "sport = :$port")" ] && return 0
            sleep 0.1
        done
        stop_sim
    done
    cat "$dir/sim.log" >&2
    die "ipmi_sim did not start"
}

now() { date +%s.%N; }
calc() { awk "BEGIN { print $1 }"; }
median() { sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

printf '%s\n' "$password" >"$work/password"
chmod 600 "$work/password"
# ipmi-sel reads its credentials from a configuration file, so the password
# stays off every command line here.
cat >"$work/freeipmi.conf" <<EOF
driver-type LAN_2_0
username $user
password $password
privilege-level ADMIN
cipher-suite-id 3
workaround-flags opensesspriv
EOF
chmod 600 "$work/freeipmi.conf"

run_collector() {
    "$bin/ipmisel-collect" --host "127.0.0.1:$port" --user "$user" --password-file "$work/password" \
        --workaround opensesspriv --class OXASG_IPMILogRecord --format jsonl "$@"
}
run_ipmitool() {
    IPMI_PASSWORD=$password ipmitool -I lanplus -C 3 -H 127.0.0.1 -p "$port" -U "$user" -E sel elist
}
run_ipmisel() {
    ipmi-sel --config-file "$work/freeipmi.conf" -h "127.0.0.1:$port" \
        --sdr-cache-directory "$work/sdr-cache"
}

echo "SEL read over lanplus from ipmi_sim on 127.0.0.1, median of $runs runs"
echo
printf '%8s  %12s  %12s  %12s  %14s  %14s  %14s\n' "records" "ipmisel (s)" "ipmitool (s)" \
    "ipmi-sel (s)" "ipmitool/ours" "ipmi-sel/ours" "requests/rec"
for size in $sizes; do
    dir="$work/sim-$size"
    start_sim "$size" "$dir"
    mkdir -p "$work/sdr-cache" && chmod 700 "$work/sdr-cache"

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
