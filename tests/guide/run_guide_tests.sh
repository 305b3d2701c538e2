#!/usr/bin/env bash
# Runs the examples of the language guide: every examples/guide/<name>.vrs is
# run quietly in one-shot mode from its own folder (`vorka -q --runscript=`),
# and what it writes to standard output and standard error together must equal
# examples/guide/<name>.expected byte for byte. Words in an optional
# <name>.args file are further options (such as --debug).
#
# Usage: run_guide_tests.sh <path to vorka> [substring of names ...]
# UPDATE_EXPECTED=1 rewrites the .expected files instead (review them!).
set -uo pipefail

if [[ $# -lt 1 ]]; then
    echo "usage: $0 <vorka executable> [name filter ...]" >&2
    exit 2
fi
vorka=$(realpath -- "$1")
shift
guide=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../examples/guide" && pwd)
passed=0
failed=0
out=$(mktemp)
trap 'rm -f -- "$out"' EXIT

for script in "$guide"/*.vrs; do
    name=$(basename "$script" .vrs)
    if [[ $# -gt 0 ]]; then
        selected=0
        for f in "$@"; do [[ "$name" == *"$f"* ]] && selected=1; done
        [[ $selected -eq 1 ]] || continue
    fi
    extra=()
    [[ -f "$guide/$name.args" ]] && read -r -a extra <"$guide/$name.args"
    (cd "$guide" && timeout 30 "$vorka" -q "${extra[@]}" --runscript="$name.vrs" </dev/null >"$out" 2>&1)
    expected="$guide/$name.expected"
    if [[ "${UPDATE_EXPECTED:-0}" == 1 ]]; then
        cp -- "$out" "$expected"
        echo "UPDATED $name"
        continue
    fi
    if [[ -f "$expected" ]] && cmp -s -- "$expected" "$out"; then
        echo "PASS $name"
        passed=$((passed + 1))
    else
        echo "FAIL $name"
        diff -- "$expected" "$out" | head -n 40 | sed 's/^/    /'
        failed=$((failed + 1))
    fi
done

echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
