#!/usr/bin/env bash
# Measures what --debug costs: the time and peak memory of a compile-heavy
# program (bench/gen_compile.py, LINES lines, default 20000) run once in
# one-shot mode with and without line tables, the median of RUNS runs (5).
#
# Usage: bench/debug_cost.sh [LINES] [RUNS]     (VORKA: the executable)
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
vorka=${VORKA:-$here/../build/vorka}
lines=${1:-20000}
runs=${2:-5}
python=${PYTHON:-/usr/bin/python3}
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
"$python" "$here/gen_compile.py" "$lines" "$work" >/dev/null
script="$work/compile_$lines.vrs"

measure() {  # prints "seconds kilobytes" of the median run
    local -a samples=()
    for ((i = 0; i < runs; i++)); do
        samples+=("$(/usr/bin/time -f '%e %M' "$vorka" -q "$@" --runscript="$script" 2>&1 >/dev/null | tail -n 1)")
    done
    printf '%s\n' "${samples[@]}" | sort -n | sed -n "$(((runs + 1) / 2))p"
}

plain=$(measure)
debug=$(measure --debug)
printf '| Form | Time (s) | Peak memory (KB) |\n|---|---:|---:|\n'
printf '| plain | %s | %s |\n' $plain
printf '| --debug | %s | %s |\n' $debug
