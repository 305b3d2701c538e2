#!/usr/bin/env bash
# Runs the script tests: every tests/scripts/<topic>/<name>.vrs that has a
# <name>.expected file beside it is run in one-shot mode and its output compared
# with that file. Scripts without an .expected file (included helpers) are not
# tests.
#
# Usage: run_script_tests.sh <path to vorka> [substring of "topic/name" ...]
#
# Each script runs as `vorka --runscript=<name>.vrs` from inside its own folder,
# with stdin from /dev/null and a time limit of SCRIPT_TIMEOUT seconds (30). An
# optional <name>.args file gives extra arguments, one per line. Standard output
# and standard error are taken together; the host's start-up lines listed in
# STARTUP_PREFIXES below are dropped (with the empty line that a log text ending
# in "\n" leaves after them). A non-zero exit code adds the line
# "[exit code N]" and a timeout the line "[timed out]" at the end, so that both
# show up in the comparison.
#
# VORKA_RUNNER, when set, is put in front of the executable (for instance
# "wine64" to run a Windows build); SCRIPT_PLATFORM names the platform the
# executable was built for ("linux", the default, or "windows"). Scripts whose
# output holds on one platform only are listed in platform.skip, one
# "topic/name  platform  reason" per line, and are reported as skipped on the
# other platform. A test whose output differs on one platform only in a text
# of the system has <name>.<platform>.expected beside <name>.expected.
#
# UPDATE_EXPECTED=1 rewrites the .expected file of every selected test with the
# output of this run instead of comparing. To add a test, create an empty
# <name>.expected beside the script, run with UPDATE_EXPECTED=1 and review the
# result.
#
# Prints PASS or FAIL per test (with a diff on failure), closes with
# "N passed, N failed" and exits non-zero when a test failed.
set -uo pipefail

# Lines starting with any of these texts are start-up chatter of the host, not
# output of the script.
STARTUP_PREFIXES=(
    "ARG: "
    "[LOG]: PATH: "
    "[LOG]: WDIR: "
    "[LOG]: exe path: "
    "[LOG]: WORKING DIRECTORY: "
    "[LOG]: loading script"
    "[LOG]: done."
    "[LOG]: parsing file "
    "[LOG]: opened "
    "[LOG]: compiling..."
)

if [[ $# -lt 1 ]]; then
    echo "usage: $0 <vorka executable> [topic/name filter ...]" >&2
    exit 2
fi

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
vorka=$(realpath -- "$1")
shift
filters=("$@")
timeout_s=${SCRIPT_TIMEOUT:-30}
update=${UPDATE_EXPECTED:-0}
platform=${SCRIPT_PLATFORM:-linux}
runner=()
[[ -n "${VORKA_RUNNER:-}" ]] && read -ra runner <<<"$VORKA_RUNNER"

# Test name -> the one platform its output holds on.
declare -A only_on
if [[ -f "$here/platform.skip" ]]; then
    while read -r skip_name skip_platform _; do
        [[ -z "$skip_name" || "$skip_name" == \#* ]] && continue
        only_on[$skip_name]=$skip_platform
    done <"$here/platform.skip"
fi

if [[ ! -x "$vorka" ]]; then
    echo "not an executable: $vorka" >&2
    exit 2
fi

prefix_list=$(printf '%s\n' "${STARTUP_PREFIXES[@]}")

# Reads raw output on stdin, writes it without the start-up lines.
filter_startup() {
    PREFIXES="$prefix_list" awk '
        BEGIN { n = split(ENVIRON["PREFIXES"], prefix, "\n") }
        {
            for (i = 1; i <= n; i++) {
                if (prefix[i] != "" && index($0, prefix[i]) == 1) { after_dropped = 1; next }
            }
            if (after_dropped && $0 == "") { after_dropped = 0; next }
            after_dropped = 0
            print
        }'
}

passed=0
failed=0
skipped=0
work=$(mktemp -d "${TMPDIR:-/tmp}/vorka-scripts.XXXXXX")
trap 'rm -rf -- "$work"' EXIT

shopt -s nullglob
for script in "$here"/*/*.vrs; do
    expected="${script%.vrs}.expected"
    [[ -f "$expected" ]] || continue
    # Output that differs only in a text of the system (the reason a file
    # cannot be read) has a file of its own for that platform beside it.
    [[ -f "${script%.vrs}.$platform.expected" ]] && expected="${script%.vrs}.$platform.expected"
    dir=$(dirname -- "$script")
    base=$(basename -- "$script")
    name="$(basename -- "$dir")/${base%.vrs}"
    if [[ ${#filters[@]} -gt 0 ]]; then
        selected=0
        for f in "${filters[@]}"; do [[ "$name" == *"$f"* ]] && selected=1; done
        [[ $selected -eq 1 ]] || continue
    fi

    if [[ -n "${only_on[$name]:-}" && "${only_on[$name]}" != "$platform" ]]; then
        echo "SKIP $name (${only_on[$name]} only)"
        skipped=$((skipped + 1))
        continue
    fi

    extra=()
    if [[ -f "${script%.vrs}.args" ]]; then
        mapfile -t extra <"${script%.vrs}.args"
    fi

    raw="$work/raw"
    actual="$work/actual"
    rc=0
    {
        (cd "$dir" && exec timeout --kill-after=5 "$timeout_s" "${runner[@]}" "$vorka" "--runscript=$base" "${extra[@]}") \
            </dev/null >"$raw" 2>&1 || rc=$?
    } 2>/dev/null  # keeps the shell's "Aborted" notice out; the exit code shows it
    filter_startup <"$raw" >"$actual"
    if [[ $rc -eq 124 || $rc -eq 137 ]]; then
        echo "[timed out]" >>"$actual"
    elif [[ $rc -ne 0 ]]; then
        echo "[exit code $rc]" >>"$actual"
    fi

    if [[ "$update" == 1 ]]; then
        cp -- "$actual" "$expected"
        echo "UPDATED $name"
        passed=$((passed + 1))
    elif cmp -s -- "$expected" "$actual"; then
        echo "PASS $name"
        passed=$((passed + 1))
    else
        echo "FAIL $name"
        diff -u --label "$name.expected" --label "$name (actual)" -- "$expected" "$actual" |
            head -n 80 | sed 's/^/    /'
        failed=$((failed + 1))
    fi
done

if [[ $skipped -gt 0 ]]; then
    echo "$passed passed, $failed failed, $skipped skipped"
else
    echo "$passed passed, $failed failed"
fi
[[ $failed -eq 0 ]]
