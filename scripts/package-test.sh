#!/usr/bin/env bash
# Builds the Debian package and installs it on a pristine Debian 12 the way a
# user would: apt-get install of the .deb alone, nothing from this tree and no
# build dependency. Then the installed program must run its demo with no
# options, its man pages must show, and purging the package must leave nothing.
#
# The pristine root comes from fresh-machine.sh (beside the project in
# ../shared/tools/, or FRESH_MACHINE), which clones a git repository into it:
# so the .deb is committed alone into a temporary repository. Needs root.
# fresh-machine.sh keeps its roots in ${TMPDIR:-/tmp}; give each concurrent
# run its own TMPDIR.
#
# usage: bash scripts/package-test.sh
# shellcheck disable=SC2016 # the commands for the fresh root expand there
set -euo pipefail
cd "$(dirname "$0")/.."
project=$PWD
fresh=${FRESH_MACHINE:-$project/../shared/tools/fresh-machine.sh}

die() {
    echo "package-test: $*" >&2
    exit 1
}
[ -f "$fresh" ] || die "$fresh is missing: it makes the pristine Debian root (set FRESH_MACHINE)"
[ "$(id -u)" = 0 ] || die "needs root: the pristine root is made with debootstrap and chroot"

bash scripts/setup.sh --no-e2e >&2
# CPack finds the binaries to hand to dpkg-shlibdeps with file(1).
command -v file >/dev/null || die "the package build needs the file utility: apt-get install file"

echo "== the package (build-package/)"
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S . -B build-package -DCMAKE_BUILD_TYPE=Release -DIPMISEL_BENCH=OFF "${launcher[@]}" >/dev/null
cmake --build build-package -j"$(nproc 2>/dev/null || echo 2)" --target ipmisel_dist
rm -f build-package/ipmisel_*.deb
(cd build-package && cpack -G DEB >cpack.log 2>&1) || {
    cat build-package/cpack.log >&2
    die "cpack failed"
}
debs=(build-package/ipmisel_*.deb)
if [ "${#debs[@]}" != 1 ] || [ ! -f "${debs[0]}" ]; then
    die "expected one build-package/ipmisel_*.deb"
fi
deb=${debs[0]}
dpkg-deb -f "$deb"
name="ipmisel_$(dpkg-deb -f "$deb" Version)_$(dpkg-deb -f "$deb" Architecture).deb"
[ "$(basename "$deb")" = "$name" ] || die "the package is $(basename "$deb"), expected $name"
# Its dependencies come from what the binaries link; libfreeipmi is the one
# that is not in every Debian system.
case "$(dpkg-deb -f "$deb" Depends)" in
*libfreeipmi*) ;;
*) die "Depends does not name libfreeipmi: $(dpkg-deb -f "$deb" Depends)" ;;
esac

repo=$(mktemp -d "${TMPDIR:-/tmp}/ipmisel-deb.XXXXXX")
trap 'rm -rf "$repo"' EXIT
cp "$deb" "$repo/"
git -C "$repo" init -q
git -C "$repo" add .
git -C "$repo" -c user.name=package-test -c user.email=package-test@localhost \
    commit -q -m "the package under test"

# Each command runs in the clone of $repo inside the fresh root; the first
# that fails ends the run with its exit code.
install='apt-get update -q >/dev/null && DEBIAN_FRONTEND=noninteractive apt-get install -y -q ./ipmisel_*.deb'
# With a kernel IPMI device (the root shares /dev with this machine) no
# options would mean the local BMC, so the demo is named instead.
demo='args=(); for d in /dev/ipmi0 /dev/ipmi/0 /dev/ipmidev/0; do [ -e $d ] && args=(--sim /usr/share/ipmisel/scenarios/demo.json); done
ipmisel-collect "${args[@]}" >/tmp/out 2>/tmp/err; rc=$?; cat /tmp/err
echo "exit $rc: $(grep -c "\"class\":\"OXASG_IPMILogRecord\"" /tmp/out) log records in $(wc -l </tmp/out) instances"
[ $rc = 0 ] && grep -q "/usr/share/ipmisel/scenarios/demo.json" /tmp/err && grep -q "\"class\":\"OXASG_IPMILogRecord\"" /tmp/out'
jsonl='ipmisel-collect --format jsonl 2>/dev/null | head -n 3 | cut -c 1-150'
table='ipmisel-collect --format table 2>/dev/null | head -n 6'
man1='man -P cat ipmisel-collect >/tmp/page && head -n 12 /tmp/page && grep -q -- "--password-file FILE" /tmp/page'
man5='man -P cat 5 ipmisel-scenario >/tmp/page && head -n 8 /tmp/page && grep -q "faults" /tmp/page'
completion='. /usr/share/bash-completion/completions/ipmisel-collect && complete -p ipmisel-collect'
purge='apt-get purge -y -q ipmisel >/dev/null && for p in /usr/bin/ipmisel-collect /usr/lib/ipmisel /usr/share/ipmisel /usr/share/doc/ipmisel; do [ ! -e $p ] || { echo "$p is left"; exit 1; }; done && echo "purged, nothing left"'

echo "== on a fresh Debian 12 ($fresh)"
bash "$fresh" "$repo" "$install" "$demo" "$jsonl" "$table" "$man1" "$man5" "$completion" "$purge"
echo "== package test passed: $deb"
