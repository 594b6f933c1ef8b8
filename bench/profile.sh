#!/bin/bash
# Where the instructions of a whole collection go: runs ipmisel-collect under
# callgrind on the benchmarks' simulated BMC with a SEL of RECORDS records
# (default 5,000; the scenario p2.sh uses, made by bench/e2e/lib.sh) and
# prints the TOP (default 25) functions by inclusive and by self cost.
#
#   bench/profile.sh [BIN_DIR] [-- COLLECTOR ARGS...]
#                                  BIN_DIR holds ipmisel-collect (default:
#                                  build-bench/bin); the arguments after --
#                                  replace the default "--format jsonl"
#   RECORDS=65279 TOP=40 bench/profile.sh build-bench/bin -- --class OXASG_IPMILogRecord
#
# Instruction counts do not depend on what else the machine runs, so the run
# is niced (NICE, default 19) and the figures still compare across runs. A
# build with -g (RelWithDebInfo) also gives file and line in
# `callgrind_annotate --auto=yes`; a Release build gives function names only,
# with inlined functions counted in their callers. The callgrind output stays
# in OUT_DIR (default: BIN_DIR/../bench-results) as callgrind.out.collect for
# callgrind_annotate or kcachegrind. Collecting all classes writes the scenario
# loading, the plug-in and the jsonl writer into one profile; the output
# goes to /dev/null.
set -euo pipefail

# shellcheck disable=SC2034 # read by lib.sh
bench_name=profile
# shellcheck source-path=SCRIPTDIR source=e2e/lib.sh
. "$(dirname "$0")/e2e/lib.sh"
bin_arg=""
if [ $# -gt 0 ] && [ "$1" != "--" ]; then
    bin_arg=$1
    shift
fi
bin=$(cd "${bin_arg:-$bench_root/build-bench/bin}" 2>/dev/null && pwd) ||
    die "no bin folder $bin_arg"
args=(--format jsonl)
if [ $# -gt 0 ] && [ "$1" = "--" ]; then
    shift
    args=("$@")
fi
records=${RECORDS:-5000}
top=${TOP:-25}
width=${WIDTH:-160}
cache=${BENCH_CACHE:-$bin/../bench-data}
out=${OUT_DIR:-$bin/../bench-results}

need_bin ipmisel-collect
need_tools valgrind callgrind_annotate
positive RECORDS "$records"
positive TOP "$top"
[ "$records" -lt 65280 ] || die "RECORDS must be below 65280 (IDs from FF00h on end the walk)"
mkdir -p "$out"
out=$(cd "$out" && pwd)
cached_sel "$records" "$cache"
scenario=$(cd "$cache" && pwd)/sel-$records.json
profile=$out/callgrind.out.collect

nice -n "${NICE:-19}" valgrind --tool=callgrind --callgrind-out-file="$profile" \
    --dump-instr=no --collect-jumps=no \
    "$bin/ipmisel-collect" --sim "$scenario" "${args[@]}" --out /dev/null \
    2>"$out/callgrind.log" || {
    cat "$out/callgrind.log" >&2
    die "the collection under callgrind failed"
}

# callgrind_annotate's function lines follow the header line that names the
# event; the summary line above it carries the program total. Names are
# shortened to be read at a glance: no source file, the object's base name,
# std::string and json for the long template spellings.
functions() {
    callgrind_annotate --inclusive="$1" "$profile" 2>/dev/null |
        awk -v top="$top" '
            /PROGRAM TOTALS/ { print; next }
            /^-+$/ { next }
            /file:function/ { body = 1; print "Ir                    function [object]"; next }
            body && NF && shown < top { print; shown++ }' |
        sed -E \
            -e 's/  (\?\?\?|[^ ]+\.(c|cc|cpp|h|hpp|S)):/  /' \
            -e 's/ \[[^]]*\/([^]/]+)\]$/ [\1]/' \
            -e 's/json_abi_v[0-9_]+:://g' \
            -e 's/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g' \
            -e 's/std::__cxx11::/std::/g' \
            -e 's/nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool, long, unsigned long, double, std::allocator, nlohmann::adl_serializer, std::vector<unsigned char, std::allocator<unsigned char> > >/json/g' |
        cut -c "1-$width"
}

echo "callgrind: ipmisel-collect --sim sel-$records.json ${args[*]} --out /dev/null"
echo "(instructions; $profile)"
echo
echo "Top $top by inclusive cost:"
functions yes
echo
echo "Top $top by self cost:"
functions no
