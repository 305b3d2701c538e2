#!/usr/bin/env bash
# Runs the Windows build's tests under wine: the unit tests, then the script
# tests, whose output is compared byte for byte with the same .expected files
# the Linux build uses (tests listed as Linux-only in
# tests/scripts/platform.skip are skipped).
#
# Usage: tools/windows-test.sh [build folder (build-win)]
#
# Wine gets a private prefix inside the build folder, created on first use
# (WINEPREFIX may name another). The wine server is started before the first
# program and stopped at the end: a first run that had to start the server and
# build the prefix itself could take longer than a test's time limit.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."

build=${1:-build-win}
wine=${WINE:-$(command -v wine64 || echo /usr/lib/wine/wine64)}
wineserver=${WINESERVER:-$(command -v wineserver || echo /usr/lib/wine/wineserver)}

export WINEPREFIX=${WINEPREFIX:-$PWD/$build/wineprefix}
export WINEARCH=win64
# No debug chatter, no window system, and no offer to install Mono or Gecko.
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
unset DISPLAY WAYLAND_DISPLAY

for program in "$build/vorka.exe" "$build/vorka_tests.exe"; do
    if [[ ! -f "$program" ]]; then
        echo "missing $program: run 'make windows' first" >&2
        exit 2
    fi
done

# A new prefix is made first, with a server of its own that ends when the
# prefix is ready (`wineserver -w` waits for that; it would wait for ever on a
# persistent server). Then a persistent server is started for the tests: exit
# code 2 means one is running for this prefix already, which is fine as well.
mkdir -p "$WINEPREFIX"
if [[ ! -f "$WINEPREFIX/system.reg" ]]; then
    echo "--- creating wine prefix $WINEPREFIX"
    "$wine" wineboot --init </dev/null >/dev/null 2>&1
    "$wineserver" -w
fi
"$wineserver" -p || [[ $? -eq 2 ]]
trap '"$wineserver" -k 2>/dev/null || true' EXIT

# The tests' own log output is long: it goes to a file, and only the summary
# (with the names of failed tests) is shown.
echo "--- unit tests (full output in $build/unit-tests.log)"
status=0
"$wine" "$build/vorka_tests.exe" </dev/null >"$build/unit-tests.log" 2>&1 || status=$?
grep -E '^\[ +(PASSED|SKIPPED|FAILED) +\]|^\[==========\]' "$build/unit-tests.log" || true
if [[ $status -ne 0 ]]; then
    echo "unit tests failed (exit code $status)" >&2
    exit 1
fi

echo "--- script tests"
VORKA_RUNNER="$wine" SCRIPT_PLATFORM=windows \
    tests/scripts/run_script_tests.sh "$build/vorka.exe"
