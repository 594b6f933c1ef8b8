#!/usr/bin/env bash
# Builds the collector if needed and runs it. With no transport option it reads
# the local BMC through the kernel's IPMI driver when there is one, otherwise
# the bundled simulated BMC (scenarios/demo.json). Every argument is passed to
# ipmisel-collect; the default output is the table for people.
# Usage: bash scripts/run.sh [ipmisel-collect options]
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh >&2
if [ ! -x build/bin/ipmisel-collect ] || [ -n "$(find base collector host plugin ipmi sdr sel mapping export auxlog fru firmware data -newer build/bin/ipmisel-collect -print -quit 2>/dev/null)" ]; then
  cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build build -j"$(nproc 2>/dev/null || echo 2)" --target ipmisel-collect ipmisel >&2
fi
has_format=0
for a in "$@"; do case "$a" in --format|--format=*) has_format=1 ;; esac; done
if [ "$has_format" = 0 ]; then
  set -- --format table "$@"
fi
exec build/bin/ipmisel-collect "$@"
