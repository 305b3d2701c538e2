#!/usr/bin/env bash
# The training run of the profile-guided build (`make pgo`): runs every
# benchmark workload of bench/workloads once, at a tenth of its size or less,
# with the instrumented executable, which writes its profile as it ends. A
# workload that fails stops the build: a profile of an error path would
# optimise the wrong code.
#
# Usage: pgo-train.sh <instrumented vorka>
set -euo pipefail

vorka=$(realpath "$1")
here=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Sizes: the runner's tenth-size switch where a workload has one, otherwise
# the workload's own counts cut down.
for src in "$here"/bench/workloads/*.vrs; do
    name=$(basename "$src" .vrs)
    sed -e 's/^div = 1;/div = 10;/' \
        -e 's/^print(fib(27));/print(fib(22));/' \
        -e 's/^n = 200000;/n = 20000;/' \
        -e 's/^m = 20000;/m = 2000;/' \
        "$src" > "$work/$name.vrs"
    echo "training: $name"
    (cd "$work" && "$vorka" --quiet --runscript="$name.vrs" > /dev/null)
done
