#!/usr/bin/env bash
# Inputs far beyond what real programs do: blocks nested 100,000 deep, 100,000
# nested `if` bodies, a 20 MB script on one line, and a string that doubles
# until memory runs out. Each must end by itself (a generous hang guard, no
# timing asserted) inside a 1 GB address space, with the report the host gives
# for it, and the host must go on after it. The string doubles once by an
# operator and once inside a library function, and grows by appends in a loop.
#
# Usage: run_limit_tests.sh <path to vorka> [sanitized]
# With "sanitized" (an AddressSanitizer build) the address space is not limited,
# since the sanitizer reserves far more than 1 GB of it up front, the one-line
# script is scaled down to 2 MB, as the sanitizer makes the compile of each
# statement much slower, and the doubling string is left out: the sanitizer's
# allocator ends the process on an impossible allocation instead of failing it.
# The inputs are generated here, in a temporary folder.
set -uo pipefail

vorka=$(realpath "$1")
sanitized=0
[ "${2:-}" = sanitized ] && sanitized=1

tmp=$(mktemp -d "${TMPDIR:-/tmp}/vorka-limits.XXXXXX")
trap 'rm -rf -- "$tmp"' EXIT
cd "$tmp" || exit 1

passed=0
failed=0

# run_case NAME SCRIPT PATTERN...: runs SCRIPT once to its end and checks that
# the run ended normally (exit 0, no signal) and that every PATTERN (a fixed
# string) is in the output.
run_case() {
    local name=$1 script=$2
    shift 2
    local status=0
    if [ "$sanitized" = 1 ]; then
        timeout 300 "$vorka" --runscript="$script" >"$name.out" 2>&1 </dev/null || status=$?
    else
        (ulimit -v 1048576 && exec timeout 300 "$vorka" --runscript="$script") \
            >"$name.out" 2>&1 </dev/null || status=$?
    fi
    local ok=1
    if [ "$status" -ne 0 ]; then
        echo "FAIL $name: exit status $status"
        ok=0
    fi
    local pattern
    for pattern in "$@"; do
        if ! grep -qF -- "$pattern" "$name.out"; then
            echo "FAIL $name: no line with: $pattern"
            ok=0
        fi
    done
    if [ "$ok" = 1 ]; then
        echo "PASS $name"
        passed=$((passed + 1))
    else
        echo "--- last lines of the output:"
        tail -c 2000 "$name.out"
        echo
        failed=$((failed + 1))
    fi
}

# n copies of a text, one after the other.
repeat() { yes -- "$2" | head -n "$1" | tr -d '\n'; }

# Blocks nested 100,000 deep, then a statement that must still run.
{ repeat 100000 '{'; repeat 100000 '}'; printf '\nprint("after braces");\n'; } >braces.vrs
run_case braces braces.vrs "nested deeper than 1000 levels" "after braces"

# 100,000 nested `if` bodies, one to a line.
{ yes 'if (1) {' | head -n 100000; repeat 100000 '}'; printf '\nprint("after ifs");\n'; } >ifs.vrs
run_case ifs ifs.vrs "nested deeper than 1000 levels" "after ifs"

# One line of 20 MB (2 MB under the sanitizer): two million statements, all run.
statements=2000000
[ "$sanitized" = 1 ] && statements=200000
{ printf 'x = 0;'; repeat "$statements" 'x = x + 1;'; printf 'print("x=" + x);\n'; } >line.vrs
run_case long_line line.vrs "x=$statements"

# A string doubled until no memory is left: a run-time error, and the script
# goes on with its next pass and its next statement.
if [ "$sanitized" = 0 ]; then
    cat >doubling.vrs <<'VRS'
s = "x";
i = 0;
while (i < 40) {
    i = i + 1;
    s = s + s;
}
print("still running");
VRS
    run_case doubling doubling.vrs "ALLOCATION_FAILURE" "still running"
    # The same inside a library function, which a call enters directly.
    cat >library_doubling.vrs <<'VRS'
s = "x";
i = 0;
while (i < 40) {
    i = i + 1;
    s = replace(s, "x", "xx");
}
print("still running after " + i);
VRS
    run_case library_doubling library_doubling.vrs "ALLOCATION_FAILURE" "still running after 40"
    # A loop body that only appends a 64 MB piece: the append of the pass that
    # finds no memory fails, and the loop goes on with its next pass.
    cat >appending.vrs <<'VRS'
t = "x";
i = 0;
while (i < 26) {
    i = i + 1;
    t = t + t;
}
s = "";
for (k = 0; k < 24; k++) {
    s += t;
}
print("still appending after " + k);
VRS
    run_case appending appending.vrs "ALLOCATION_FAILURE" "still appending after 24"
fi

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
