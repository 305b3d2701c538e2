#!/usr/bin/env bash
# Installs the Debian packages that building and testing vorka needs.
#
# Usage: tools/setup-deps.sh [windows]
# With "windows" the cross compiler, Windows zlib and wine for the Windows
# build (make windows, make windows-test) are wanted as well.
#
# Idempotent and quiet: every package is first looked up with dpkg-query, and
# when all of them are installed the script prints nothing and exits 0. Only
# when something is missing does it run `apt-get update` and install exactly the
# missing packages, as root directly or through sudo when that exists.
set -euo pipefail

# Compiler, build tools and libraries of the program and its unit tests
# (libedit: line editing and history of the interactive prompt; clang-format:
# the house style check); clang and its runtime libraries build the fuzzers.
packages=(
    cmake
    ninja-build
    g++
    pkg-config
    libstb-dev
    zlib1g-dev
    libgtest-dev
    libbenchmark-dev
    libedit-dev
    clang-format
    clang
    libclang-rt-14-dev
    # the interpreters bench/run compares with (Lua 5.4 and LuaJIT)
    lua5.4
    luajit
)
if [[ "${1:-}" == windows ]]; then
    packages+=(
        g++-mingw-w64-x86-64-posix
        libz-mingw-w64-dev
        wine64
        wine
    )
fi

if ! command -v dpkg-query >/dev/null 2>&1; then
    echo "setup-deps: dpkg-query not found; install these packages by hand: ${packages[*]}" >&2
    exit 0
fi

missing=()
for pkg in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$pkg" 2>/dev/null || true)
    if [[ "$status" != "installed" ]]; then
        missing+=("$pkg")
    fi
done

if [[ ${#missing[@]} -eq 0 ]]; then
    exit 0
fi

if [[ $(id -u) -eq 0 ]]; then
    as_root=()
elif command -v sudo >/dev/null 2>&1; then
    as_root=(sudo)
else
    echo "setup-deps: missing packages (${missing[*]}) and neither root nor sudo available" >&2
    exit 1
fi

echo "setup-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
