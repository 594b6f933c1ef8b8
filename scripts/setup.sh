#!/bin/sh
# Installs what building and testing ipmisel needs on a Debian (or Ubuntu)
# machine. Safe to run again: when every package is already installed it
# returns at once without touching apt.
#
#   scripts/setup.sh            build, unit tests, fuzz smoke runs, resource
#                               checks and benchmarks
#   scripts/setup.sh --no-e2e   leave out the BMC simulator and IPMI tools
#                               that only the end-to-end tests use
#   scripts/setup.sh --bench    also the peers the side-by-side benchmarks
#                               compare with and the timer they use
set -eu

BUILD_PACKAGES="build-essential cmake g++ pkg-config libgtest-dev libgmock-dev \
libbenchmark-dev nlohmann-json3-dev libfreeipmi-dev rapidjson-dev libfmt-dev \
libcli11-dev file"
# The fuzz targets build with clang and its libFuzzer runtime; the resource
# checks run the collector under valgrind; the fleet recipe test drives the
# collector from GNU parallel.
CHECK_PACKAGES="clang libclang-rt-14-dev valgrind parallel"
# The end-to-end tests run the collector against OpenIPMI's BMC simulator and
# cross-check with the IPMI tools reading the same simulator.
E2E_PACKAGES="openipmi ipmitool freeipmi-tools"
BENCH_PACKAGES="hyperfine ipmiutil"

packages="$BUILD_PACKAGES $CHECK_PACKAGES"
case "${1:-}" in
    --no-e2e) ;;
    "") packages="$packages $E2E_PACKAGES" ;;
    --bench) packages="$packages $E2E_PACKAGES $BENCH_PACKAGES" ;;
    -h|--help)
        sed -n '2,11p' "$0" | sed 's/^# \{0,1\}//'
        exit 0 ;;
    *)
        echo "setup.sh: unknown option $1 (see setup.sh --help)" >&2
        exit 2 ;;
esac

if ! command -v dpkg >/dev/null 2>&1 || ! command -v apt-get >/dev/null 2>&1; then
    echo "setup.sh: this script needs a Debian-based system (dpkg and apt-get)." >&2
    echo "setup.sh: install by hand: $packages" >&2
    exit 1
fi

# One dpkg-query for the whole list keeps repeated runs fast. Only "install ok
# installed" counts: a removed package leaves its configuration behind and
# is still known to dpkg.
# shellcheck disable=SC2086 # the list is meant to split into words
installed=$(dpkg-query -W -f='${Package} ${Status}\n' $packages 2>/dev/null |
    awk '$2 == "install" && $3 == "ok" && $4 == "installed" { printf " %s", $1 }')
missing=""
for p in $packages; do
    case "$installed " in
        *" $p "*) ;;
        *) missing="$missing $p" ;;
    esac
done

if [ -z "$missing" ]; then
    echo "setup.sh: everything needed is installed."
    exit 0
fi

if [ "$(id -u)" -eq 0 ]; then
    sudo=""
elif command -v sudo >/dev/null 2>&1; then
    sudo="sudo"
else
    echo "setup.sh: not root and no sudo; as root run: apt-get install$missing" >&2
    exit 1
fi

echo "setup.sh: installing$missing"
export DEBIAN_FRONTEND=noninteractive
$sudo env DEBIAN_FRONTEND=noninteractive apt-get update
# shellcheck disable=SC2086 # the list is meant to split into words
$sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing
echo "setup.sh: done."
