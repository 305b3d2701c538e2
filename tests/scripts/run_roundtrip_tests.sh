#!/usr/bin/env bash
# Compiled programs must behave like their source: every script test and every
# example is compiled to a .vre file and run from it, and what that run prints
# is compared with what a run of the source prints.
#
# Both runs are normal runs (the host keeps running after the script), so each
# script gets `exitprocess(0);` appended. Only what the program prints while it
# runs is compared: a source run also prints the compiler's messages, which
# come before "[LOG]: done."; a compiled run prints none, and its program
# output follows "[LOG]: loading executable ...".
#
# Usage: run_roundtrip_tests.sh <vorka> [name-filter]
# Scripts listed in roundtrip.skip (one "topic/name  reason" per line) are
# reported as skipped: they show a known difference of the saved form.
set -uo pipefail

VORKA=$(realpath "$1")
FILTER=${2:-}
HERE=$(cd "$(dirname "$0")" && pwd)
ROOT=$(cd "$HERE/../.." && pwd)
TIMEOUT=${SCRIPT_TIMEOUT:-30}
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT

skip_reason() {
    [ -f "$HERE/roundtrip.skip" ] || return 1
    awk -v n="$1" '$1 == n { $1 = ""; sub(/^ +/, ""); print; found = 1 } END { exit !found }' \
        "$HERE/roundtrip.skip"
}

# Program output of a run: the lines after the marker line, without the
# blank lines the host's own start-up lines leave behind.
after_marker() {
    awk -v marker="$1" 'seen { print } index($0, marker) == 1 { seen = 1 }' "$2"
}

cases=()
for f in "$HERE"/*/*.vrs "$ROOT"/examples/*.vrs; do
    [ -f "${f%.vrs}.expected" ] || [[ "$f" == "$ROOT"/examples/* ]] || continue
    dir=$(basename "$(dirname "$f")")
    name="$dir/$(basename "$f" .vrs)"
    [ -n "$FILTER" ] && [[ "$name" != *"$FILTER"* ]] && continue
    cases+=("$name|$f")
done

# Compile everything first, all at once: compile mode waits 5 s after writing
# its file, and those waits may as well overlap.
for entry in "${cases[@]}"; do
    name=${entry%%|*}
    src=${entry#*|}
    case_dir="$WORK/${name//\//_}"
    mkdir -p "$case_dir"
    cp -r "$(dirname "$src")"/. "$case_dir"/
    base=$(basename "$src" .vrs)
    { cat "$src"; printf '\nexitprocess(0);\n'; } > "$case_dir/$base.rt.vrs"
    ( cd "$case_dir" && timeout "$TIMEOUT" "$VORKA" --compile="$base.rt.vrs" > compile.log 2>&1 ) &
done
wait

passed=0
failed=0
skipped=0
for entry in "${cases[@]}"; do
    name=${entry%%|*}
    src=${entry#*|}
    base=$(basename "$src" .vrs)
    case_dir="$WORK/${name//\//_}"
    if reason=$(skip_reason "$name"); then
        echo "SKIP $name ($reason)"
        skipped=$((skipped + 1))
        continue
    fi
    if [ ! -s "$case_dir/$base.rt.vre" ]; then
        echo "FAIL $name (no program written)"
        sed 's/^/    /' "$case_dir/compile.log" | tail -20
        failed=$((failed + 1))
        continue
    fi
    ( cd "$case_dir" && timeout "$TIMEOUT" "$VORKA" --script="$base.rt.vrs" > source.out 2>&1 )
    ( cd "$case_dir" && timeout "$TIMEOUT" "$VORKA" --compiled_run="$base.rt.vre" > program.out 2>&1 )
    after_marker "[LOG]: done." "$case_dir/source.out" > "$case_dir/source.txt"
    after_marker "[LOG]: loading executable " "$case_dir/program.out" > "$case_dir/program.txt"
    if diff -u "$case_dir/source.txt" "$case_dir/program.txt" > "$case_dir/diff.txt"; then
        echo "PASS $name"
        passed=$((passed + 1))
    else
        echo "FAIL $name"
        sed 's/^/    /' "$case_dir/diff.txt" | head -40
        failed=$((failed + 1))
    fi
done

echo "$passed passed, $failed failed, $skipped skipped"
[ "$failed" -eq 0 ]
