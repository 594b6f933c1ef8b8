# Shared by the whole-program benchmark scripts (sel_bench.sh, p1.sh, p2.sh,
# ../profile.sh); sourced, not run. The script sets bench_name (its name in
# messages) first.
#
# One generator makes the SEL every benchmark reads, so the simulator, the
# collector's own simulated BMC and ipmiutil's binary file all hold the same
# records: record N (1-based) is a standard event at 2024-06-11 08:00:00 UTC +
# N minutes, cycling through six events of the sensors in
# tests/e2e/bmc/bmc.emu (CPU1 Temp over its upper critical threshold, FAN1
# under its lower critical one, 12V over its upper critical one, a PSU1
# failure, a DIMM A1 correctable ECC error, a chassis intrusion).
# shellcheck shell=bash

bench_lib=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
bench_root=$(cd "$bench_lib/../.." && pwd)
bench_emu=$bench_root/tests/e2e/bmc/bmc.emu
bench_user=ipmiusr
bench_password=e2e-Secret-42 # the simulator's own test account (tests/e2e/bmc/lan.conf)
: "${bench_name:=bench}"

die() {
    echo "$bench_name: $*" >&2
    exit 1
}

need_tools() {
    local tool
    for tool in "$@"; do
        command -v "$tool" >/dev/null ||
            die "$tool is missing (bash scripts/setup.sh --bench installs the tools)"
    done
}

need_bin() {
    local program
    for program in "$@"; do
        [ -x "${bin:?}/$program" ] || die "no $bin/$program (build it, or give the bin folder)"
    done
}

positive() {
    case "$2" in '' | *[!0-9]* | 0) die "$1 must be a positive number, not \"$2\"" ;; esac
}

# A private folder for the run, removed at exit with the simulator stopped.
sim_pid=""
port=""
make_work() {
    work=$(mktemp -d "${TMPDIR:-/tmp}/ipmisel-bench-XXXXXX")
    trap 'stop_sim; rm -rf "$work"' EXIT
    trap 'exit 130' INT TERM
}

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

# A UDP port on 127.0.0.1 that nothing listens on, from a pseudo-random start.
free_port() {
    local p=$((20000 + RANDOM % 20000))
    for _ in $(seq 200); do
        if [ -z "$(ss -Huln "sport = :$p")" ]; then
            echo "$p"
            return
        fi
        p=$((p + 1))
    done
    die "no free UDP port found"
}

# awk functions: sel_record(id) gives the 16 bytes of record `id` (wire order,
# record ID low byte first) in the array b[0..15].
sel_awk='
function sel_record(id,   e, t) {
    # sensor type, number, event type, event data 1..3
    split(ev[(id - 1) % 6 + 1], e, " ")
    t = 1718092800 + 60 * id
    b[0] = id % 256; b[1] = int(id / 256); b[2] = 2
    b[3] = t % 256; b[4] = int(t / 256) % 256; b[5] = int(t / 65536) % 256; b[6] = int(t / 16777216)
    b[7] = 32; b[8] = 0; b[9] = 4
    b[10] = e[1]; b[11] = e[2]; b[12] = e[3]; b[13] = e[4]; b[14] = e[5]; b[15] = e[6]
}
BEGIN {
    split("1 48 1 89 92 90|4 32 1 82 8 10|2 64 1 87 225 220|8 80 111 1 255 255|12 82 111 0 255 255|5 84 111 0 255 255", ev, "|")
}'

# ipmi_sim's SEL state file for records 1..N: newest first, the order in
# which the simulator keeps them.
sel_sim_state() {
    awk -v n="$1" "$sel_awk"'
    BEGIN {
        for (id = n; id >= 1; id--) {
            sel_record(id)
            line = id ":d:"
            for (i = 0; i < 16; i++) line = line sprintf("\\%02x", b[i])
            print line
        }
    }'
}

# Records 1..N as raw 16-byte records back to back, the binary file that
# `ipmiutil sel -b` reads.
sel_binary() {
    LC_ALL=C awk -v n="$1" "$sel_awk"'
    BEGIN {
        for (id = 1; id <= n; id++) {
            sel_record(id)
            for (i = 0; i < 16; i++) printf "%c", b[i]
        }
    }'
}

# A scenario for `ipmisel-collect --sim` that answers as ipmi_sim does with
# tests/e2e/bmc/bmc.emu and records 1..N: the same SEL, the SDR records and
# FRU device 1 of bmc.emu, the Device ID the simulator answers for its mc_add
# line, and a LAN node without SMBIOS, as a lanplus collection sees it.
sel_scenario() {
    awk -v n="$1" "$sel_awk"'
    function hex(s) { sub(/^0x/, "", s); return toupper(length(s) == 1 ? "0" s : s) }
    # bmc.emu continues commands over lines ending in a backslash
    { line = $0; while (line ~ /\\$/ && (getline more) > 0) { sub(/\\$/, "", line); line = line more }
      $0 = line }
    $1 == "main_sdr_add" {
        s = ""
        for (i = 3; i <= NF; i++) s = s (s == "" ? "" : " ") hex($i)
        sdr[++nsdr] = s
    }
    $1 == "mc_add_fru_data" {
        fruId = $3 + 0; size = $4 + 0; s = ""
        for (i = 6; i <= NF; i++) s = s (s == "" ? "" : " ") hex($i)
        for (i = NF - 5; i < size; i++) s = s " 00"
        fru = s
    }
    END {
        printf "{\n  \"comment\": \"%d SEL records as the benchmarks give ipmi_sim; made by bench/e2e/lib.sh\",\n", n
        printf "  \"lan\": true,\n  \"smbiosReadable\": false,\n  \"nodes\": [{\n"
        printf "    \"deviceId\": \"00 03 09 08 02 9F 91 12 00 02 0F 00 00 00 00\",\n"
        printf "    \"sel\": {\"time\": %d, \"records\": [\n", 1718092800 + 60 * n
        for (id = 1; id <= n; id++) {
            sel_record(id)
            s = ""
            for (i = 0; i < 16; i++) s = s sprintf(i ? " %02X" : "%02X", b[i])
            printf "      \"%s\"%s\n", s, id < n ? "," : ""
        }
        printf "    ]},\n    \"sdr\": {\"records\": [\n"
        for (i = 1; i <= nsdr; i++) printf "      \"%s\"%s\n", sdr[i], i < nsdr ? "," : ""
        printf "    ]},\n    \"fru\": {\"%d\": \"%s\"}\n  }]\n}\n", fruId, fru
    }' "$bench_emu"
}

# The scenario and the binary SEL of N records in folder DIR, made again when
# this file or bmc.emu changed since.
cached_sel() {
    local n=$1 dir=$2
    mkdir -p "$dir"
    local json=$dir/sel-$n.json sel=$dir/sel-$n.bin
    if [ ! -s "$json" ] || [ "$json" -ot "$bench_lib/lib.sh" ] || [ "$json" -ot "$bench_emu" ]; then
        sel_scenario "$n" >"$json.tmp" && mv "$json.tmp" "$json"
    fi
    if [ ! -s "$sel" ] || [ "$sel" -ot "$bench_lib/lib.sh" ]; then
        sel_binary "$n" >"$sel.tmp" && mv "$sel.tmp" "$sel"
    fi
}

# Starts ipmi_sim with bmc.emu and an SEL of N records in folder DIR; sets
# port and sim_pid.
start_sim() {
    local size=$1 dir=$2
    mkdir -p "$dir/state/ipmi_sim/ipmisel"
    sel_sim_state "$size" >"$dir/state/ipmi_sim/ipmisel/sel.20"
    for _ in 1 2 3; do
        port=$(free_port)
        sed "s/@PORT@/$port/g" "$bench_root/tests/e2e/bmc/lan.conf" >"$dir/lan.conf"
        ipmi_sim -c "$dir/lan.conf" -f "$bench_emu" -s "$dir/state" -n \
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

# The password in a file for ipmisel-collect, ipmitool and the raw walk, and
# a configuration file for ipmi-sel, which reads its credentials from one: the
# password stays off every command line.
write_credentials() {
    printf '%s\n' "$bench_password" >"$work/password"
    chmod 600 "$work/password"
    cat >"$work/freeipmi.conf" <<EOF
driver-type LAN_2_0
username $bench_user
password $bench_password
privilege-level ADMIN
cipher-suite-id 3
workaround-flags opensesspriv
EOF
    chmod 600 "$work/freeipmi.conf"
    mkdir -p "$work/sdr-cache" && chmod 700 "$work/sdr-cache"
}

# The command lines reading the simulator on $port, as words: hyperfine runs
# them without a shell, the scripts run them as they are.
cmd_collector() {
    echo "$bin/ipmisel-collect --host 127.0.0.1:$port --user $bench_user" \
        "--password-file $work/password --workaround opensesspriv" \
        "--class OXASG_IPMILogRecord --format jsonl"
}
cmd_ipmitool() {
    echo "ipmitool -I lanplus -C 3 -H 127.0.0.1 -p $port -U $bench_user -f $work/password sel elist"
}
cmd_ipmisel() {
    echo "ipmi-sel --config-file $work/freeipmi.conf -h 127.0.0.1:$port" \
        "--sdr-cache-directory $work/sdr-cache"
}
cmd_sel_walk() {
    echo "$bin/bench_sel_walk 127.0.0.1:$port $bench_user $work/password"
}

# Runs the command line a cmd_* function gives, with more arguments added:
#   run_cmd cmd_collector --record FILE
run_cmd() {
    local line
    line=$("$1")
    shift
    # shellcheck disable=SC2086 # split into words on purpose
    $line "$@"
}

# Runs hyperfine over NAME=COMMAND pairs, RUNS runs each after one warm-up,
# writing its JSON to JSON_FILE and the CSV the summary is read from beside it.
#   run_hyperfine JSON_FILE RUNS NAME COMMAND [NAME COMMAND...]
run_hyperfine() {
    local json=$1 runs=$2 args=()
    shift 2
    while [ $# -gt 0 ]; do
        args+=(--command-name "$1" "$2")
        shift 2
    done
    hyperfine --shell=none --style basic --warmup 1 --runs "$runs" \
        --export-json "$json" --export-csv "${json%.json}.csv" "${args[@]}"
}

# One field of the CSV row named NAME: mean, stddev, median, user, system,
# min or max (seconds).
hf_field() {
    awk -F, -v name="$2" -v field="$3" '
        NR == 1 { for (i = 1; i <= NF; i++) col[$i] = i; next }
        $1 == name { print $col[field] }' "$1"
}

calc() { awk "BEGIN { print $1 }"; }
