#!/bin/sh
# The man pages render without a single groff warning, and the program's page
# has an entry for every option of its --help and for no option it lacks, and
# names every environment variable the help mentions.
# usage: man-pages.sh PROGRAM MAN_DIR (the pages with their version filled in)
set -eu
prog=$1 dir=$2
status=0
for page in "$dir/ipmisel-collect.1" "$dir/ipmisel-scenario.5"; do
    warnings=$(groff -man -ww -z "$page" 2>&1) || true
    if [ -n "$warnings" ]; then
        echo "FAIL: $page: $warnings"
        status=1
    fi
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Option lines of the usage text start with two to four blanks; description
# lines that wrap are indented further.
"$prog" --help | sed -nE 's/^ {2,4}(-[a-zA-Z], *)?(--[a-z][a-z-]*).*/\2/p' | sort -u >"$work/help"
[ -s "$work/help" ] || { echo "FAIL: no options found in $prog --help"; exit 1; }
# The page's entries: tags of the OPTIONS section, an option and at most one
# argument on a line of their own (wide lines, so no paragraph wraps there).
groff -man -Tascii -rLL=250n -P-c -P-b -P-o -P-u "$dir/ipmisel-collect.1" >"$work/text" 2>/dev/null
sed -n '/^OPTIONS/,/^EXIT STATUS/p' "$work/text" |
    sed -nE 's/^ {7}(-[a-zA-Z], )?(--[a-z][a-z-]*)( [^ ]+)?$/\2/p' | sort -u >"$work/page"
missing=$(comm -23 "$work/help" "$work/page" | tr '\n' ' ')
extra=$(comm -13 "$work/help" "$work/page" | tr '\n' ' ')
if [ -n "$missing" ]; then
    echo "FAIL: options without an entry in ipmisel-collect(1): $missing"
    status=1
fi
if [ -n "$extra" ]; then
    echo "FAIL: entries in ipmisel-collect(1) for options the program lacks: $extra"
    status=1
fi
for v in $("$prog" --help | grep -oE 'IPMISEL_[A-Z_]+' | sort -u); do
    sed -n '/^ENVIRONMENT/,/^FILES/p' "$work/text" | grep -qx "       $v" || {
        echo "FAIL: $v is not under ENVIRONMENT in ipmisel-collect(1)"
        status=1
    }
done
[ "$status" = 0 ] && echo "ok: $(wc -l <"$work/help") options"
exit "$status"
