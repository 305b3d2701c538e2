#!/usr/bin/env bash
# Compiled programs must behave like their source: every script test and every
# example is compiled to a .vre file and run from it, and what that run prints
# is compared with what a run of the source prints.
#
# Both runs are normal runs (the host keeps running after the script), so each
# script gets an ending appended: `sleep(500); exitprocess(0);`. The sleep
# suspends the top block, so that functions that run every frame get their
# frames before the process ends. A script that stops itself (it calls
# `exit`) never reaches that ending: it runs until STOP_WAIT seconds (3) are
# up, by which time it has long stopped and printed all it prints.
#
# Only what the program prints while it runs is compared: a source run also
# prints the compiler's messages, which come before "[LOG]: done."; a compiled
# run prints none, and its program output follows "[LOG]: loading executable
# ...".
#
# Two log lines of a compiled run come from loading it, not from the program,
# and are left out: "[LOG]: external..." (a function declared `extern`) and
# "[WARN]: cannot find global var <name>! creating..." (a global the program
# declares, which only a source run has made before the program runs).
# The host's own line "[LOG]: FILE WATCHER: <folder>" is left out of both: a
# source run prints it once its top block has first stopped, a compiled run
# before its program starts.
#
# Cases run side by side, at most ROUNDTRIP_JOBS (8) at a time; most of their
# time is spent waiting (compile mode waits 5 s after writing its file).
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
STOP_WAIT=${STOP_WAIT:-3}
JOBS=${ROUNDTRIP_JOBS:-8}
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT

skip_reason() {
    [ -f "$HERE/roundtrip.skip" ] || return 1
    awk -v n="$1" '$1 == n { $1 = ""; sub(/^ +/, ""); print; found = 1 } END { exit !found }' \
        "$HERE/roundtrip.skip"
}

# Program output of a run: the lines after the marker line.
after_marker() {
    awk -v marker="$1" 'seen { print } index($0, marker) == 1 { seen = 1 }' "$2"
}

# True when the script stops itself with `exit(...)`.
stops_itself() {
    grep -Eq '(^|[^A-Za-z0-9_.])exit[[:space:]]*\(' "$1"
}

# Waits until fewer than JOBS background jobs run.
throttle() {
    while [ "$(jobs -rp | wc -l)" -ge "$JOBS" ]; do wait -n; done
}

# Compiles the case, runs its source and its program; leaves a verdict file.
run_case() {
    local name=$1 src=$2 case_dir=$3
    local base limit
    base=$(basename "$src" .vrs)
    limit=$TIMEOUT
    stops_itself "$src" && limit=$STOP_WAIT
    (cd "$case_dir" && timeout "$TIMEOUT" "$VORKA" --compile="$base.rt.vrs" > compile.log 2>&1) &
    local compiler=$!
    (cd "$case_dir" && timeout "$limit" "$VORKA" --script="$base.rt.vrs" < /dev/null > source.out 2>&1)
    wait "$compiler"
    if [ ! -s "$case_dir/$base.rt.vre" ]; then
        echo "FAIL $name (no program written)" > "$case_dir/verdict"
        sed 's/^/    /' "$case_dir/compile.log" | tail -20 >> "$case_dir/verdict"
        return
    fi
    (cd "$case_dir" && timeout "$limit" "$VORKA" --compiled_run="$base.rt.vre" < /dev/null > program.out 2>&1)
    after_marker "[LOG]: done." "$case_dir/source.out" | grep -v '^\[LOG\]: FILE WATCHER: ' \
        > "$case_dir/source.txt"
    after_marker "[LOG]: loading executable " "$case_dir/program.out" |
        grep -v -e '^\[LOG\]: external\.\.\.$' -e '^\[WARN\]: cannot find global var .*! creating\.\.\.$' \
            -e '^\[LOG\]: FILE WATCHER: ' \
            > "$case_dir/program.txt"
    if diff -u "$case_dir/source.txt" "$case_dir/program.txt" > "$case_dir/diff.txt"; then
        echo "PASS $name" > "$case_dir/verdict"
    else
        { echo "FAIL $name"; sed 's/^/    /' "$case_dir/diff.txt" | head -40; } > "$case_dir/verdict"
    fi
}

names=()
dirs=()
skipped=0
for f in "$HERE"/*/*.vrs "$ROOT"/examples/*.vrs; do
    [ -f "${f%.vrs}.expected" ] || [[ "$f" == "$ROOT"/examples/* ]] || continue
    dir=$(basename "$(dirname "$f")")
    name="$dir/$(basename "$f" .vrs)"
    [ -n "$FILTER" ] && [[ "$name" != *"$FILTER"* ]] && continue
    if reason=$(skip_reason "$name"); then
        echo "SKIP $name ($reason)"
        skipped=$((skipped + 1))
        continue
    fi
    case_dir="$WORK/${name//\//_}"
    mkdir -p "$case_dir"
    cp -r "$(dirname "$f")"/. "$case_dir"/
    base=$(basename "$f" .vrs)
    { cat "$f"; printf '\nsleep(500);\nexitprocess(0);\n'; } > "$case_dir/$base.rt.vrs"
    names+=("$name")
    dirs+=("$case_dir")
    throttle
    run_case "$name" "$f" "$case_dir" &
done
wait

passed=0
failed=0
for i in "${!names[@]}"; do
    verdict="${dirs[$i]}/verdict"
    if [ ! -f "$verdict" ]; then
        echo "FAIL ${names[$i]} (no verdict)"
        failed=$((failed + 1))
        continue
    fi
    cat "$verdict"
    if head -1 "$verdict" | grep -q '^PASS '; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
    fi
done

echo "$passed passed, $failed failed, $skipped skipped"
[ "$failed" -eq 0 ]
