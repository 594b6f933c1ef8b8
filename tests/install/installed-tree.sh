#!/bin/sh
# An installed tree on its own: `cmake --install` into a temporary prefix, the
# prefix moved elsewhere, then the installed program run with no options from
# another folder and without LD_LIBRARY_PATH. It must find its host library,
# the plug-in and its message file, and the installed demo scenario, and
# write the same instances as the build tree's program on the same demo.
# usage: installed-tree.sh CMAKE BUILD_DIR BUILT_PROGRAM DEMO_JSON
set -eu
cmake=$1 build=$2 built=$3 demo=$4
for d in /dev/ipmi0 /dev/ipmi/0 /dev/ipmidev/0; do
    if [ -e "$d" ]; then
        echo "skipped: $d exists, so no options means the local BMC"
        exit 77
    fi
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

"$cmake" --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/moved"
prefix=$work/moved

for f in share/man/man1/ipmisel-collect.1 share/man/man5/ipmisel-scenario.5; do
    [ -f "$prefix/$f.gz" ] || [ -f "$prefix/$f" ] || fail "no man page $f"
done
[ -f "$prefix/share/bash-completion/completions/ipmisel-collect" ] || fail "no bash completion"

rc=0
(cd / && env -u LD_LIBRARY_PATH "$prefix/bin/ipmisel-collect" --format jsonl \
    >"$work/installed.jsonl" 2>"$work/err") || rc=$?
[ "$rc" = 0 ] || fail "the installed program exited $rc: $(cat "$work/err")"
want="no BMC given and no kernel IPMI device found; using the demo scenario $prefix/share/ipmisel/scenarios/demo.json"
grep -qF "$want" "$work/err" || fail "expected \"$want\" on stderr, got: $(cat "$work/err")"

"$built" --sim "$demo" --format jsonl >"$work/built.jsonl" 2>/dev/null
[ -s "$work/built.jsonl" ] || fail "the build tree's program wrote nothing"
cmp -s "$work/built.jsonl" "$work/installed.jsonl" ||
    fail "installed and build-tree output differ: $(diff "$work/built.jsonl" "$work/installed.jsonl" | head -5)"
echo "ok: $(wc -l <"$work/installed.jsonl") instances from $prefix"
