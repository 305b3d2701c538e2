#!/usr/bin/env bash
# Runs the command-line tests: each tests/cli/cases/*.test file describes one
# invocation of the vorka executable and what its output and exit code must be.
#
# Usage: run_cli_tests.sh <path to vorka> [substring of case names ...]
# A filter that starts with "=" selects the case of exactly that name (CTest
# runs each case as a test of its own this way, so that cases that wait run
# side by side).
#
# A case runs in a fresh temporary folder (removed afterwards unless
# KEEP_CLI_TMP=1), with stdin from /dev/null, HOME and XDG_DATA_HOME pointing
# into that folder, and stdout and stderr captured together. A case file is a
# list of "key: value" lines; lines starting with "#" are comments. The value is
# everything after ": ", taken verbatim. Keys, in any order, repeatable where
# it makes sense:
#
#   args: A B C         arguments split at blanks, appended in order
#   arg: one argument   a single argument, blanks kept
#   file: PATH          creates PATH (folders included); the lines that follow
#   | text              and start with "|" are its content ("| " is removed)
#   dir: PATH           creates an empty folder
#   copy: SRC [-> DEST] copies SRC (relative to tests/cli/) into the case folder
#   sh: COMMAND         shell command run in the case folder before vorka
#                       ($VORKA is the executable)
#   env: NAME=VALUE     environment variable for vorka and the sh: commands
#   cwd: PATH           folder (relative to the case folder) to start vorka in
#   timeout: SECONDS    time limit, default 10
#   exit: CODE          expected exit code (default 0); "timeout" means that the
#                       process must still be running when the limit is reached
#   contains: TEXT      some output line contains TEXT
#   line: TEXT          some output line is exactly TEXT
#   then: TEXT          a line after the one the previous line:/then: found is
#                       exactly TEXT (checks the order of the output)
#   regex: ERE          some output line matches the extended regular expression
#   not-contains: TEXT  no output line contains TEXT
#   not-regex: ERE      no output line matches
#   creates: PATH       PATH exists in the case folder after the run
#   not-creates: PATH   PATH does not exist after the run
#
# In every value, {TMP} stands for the case folder, {VORKA} for the executable
# and {VORKA_DIR} for the executable's folder (all absolute).
#
# Prints PASS or FAIL per case, closes with "N passed, N failed" and exits
# non-zero when a case failed.
set -uo pipefail

if [[ $# -lt 1 ]]; then
    echo "usage: $0 <vorka executable> [case name filter ...]" >&2
    exit 2
fi

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
vorka=$(realpath -- "$1")
shift
filters=("$@")
vorka_dir=$(dirname -- "$vorka")

if [[ ! -x "$vorka" ]]; then
    echo "not an executable: $vorka" >&2
    exit 2
fi

default_timeout=10
passed=0
failed=0

substitute() {  # replaces the placeholders in $1
    local s=$1
    s=${s//\{TMP\}/$case_dir}
    s=${s//\{VORKA_DIR\}/$vorka_dir}
    s=${s//\{VORKA\}/$vorka}
    printf '%s' "$s"
}

# run_case FILE: sets `reasons` (array of failure texts) and `output_file`.
run_case() {
    local test_file=$1
    local -a args=() envs=() shells=() checks=()
    local cwd="." timeout=$default_timeout expected_exit=0
    local current_file="" lineno=0 line key value

    case_dir=$(mktemp -d "${TMPDIR:-/tmp}/vorka-cli.XXXXXX")
    reasons=()
    output_file="$case_dir/.output"
    mkdir -p "$case_dir/.home" "$case_dir/.xdg-data"

    while IFS= read -r line || [[ -n "$line" ]]; do
        lineno=$((lineno + 1))
        if [[ "$line" == "|"* ]]; then
            if [[ -z "$current_file" ]]; then
                reasons+=("line $lineno: content line outside a file: block")
                return
            fi
            line=${line#|}
            line=${line# }
            printf '%s\n' "$line" >>"$case_dir/$current_file"
            continue
        fi
        current_file=""
        [[ -z "${line//[[:space:]]/}" || "$line" == \#* ]] && continue
        if [[ "$line" != *:* ]]; then
            reasons+=("line $lineno: expected 'key: value': $line")
            return
        fi
        key=${line%%:*}
        value=${line#*:}
        value=${value# }
        value=$(substitute "$value")
        case "$key" in
            args) local -a words; read -r -a words <<<"$value"; args+=("${words[@]}") ;;
            arg) args+=("$value") ;;
            file)
                mkdir -p "$case_dir/$(dirname -- "$value")"
                : >"$case_dir/$value"
                current_file=$value ;;
            dir) mkdir -p "$case_dir/$value" ;;
            copy)
                local src=$value dest=.
                if [[ "$value" == *" -> "* ]]; then src=${value%% -> *}; dest=${value#* -> }; fi
                mkdir -p "$case_dir/$(dirname -- "$dest")"
                if ! cp -R -- "$here/$src" "$case_dir/$dest"; then
                    reasons+=("line $lineno: cannot copy $src"); return
                fi ;;
            sh) shells+=("$value") ;;
            env) envs+=("$value") ;;
            cwd) cwd=$value ;;
            timeout) timeout=$value ;;
            exit) expected_exit=$value ;;
            contains|line|then|regex|not-contains|not-regex|creates|not-creates)
                checks+=("$key"$'\t'"$value") ;;
            *) reasons+=("line $lineno: unknown key '$key'"); return ;;
        esac
    done <"$test_file"

    local -a run_env=(env "HOME=$case_dir/.home" "XDG_DATA_HOME=$case_dir/.xdg-data"
                      "VORKA=$vorka" "${envs[@]}")

    local cmd
    for cmd in "${shells[@]}"; do
        if ! (cd "$case_dir" && "${run_env[@]}" bash -c "$cmd") >>"$case_dir/.setup" 2>&1; then
            reasons+=("setup command failed: $cmd")
            cat "$case_dir/.setup" >"$output_file"
            return
        fi
    done

    # The outer redirection keeps the shell's own "Aborted" notices (a case may
    # expect the process to end by a signal) out of the runner's output.
    local rc=0
    {
        (cd "$case_dir/$cwd" &&
            exec "${run_env[@]}" timeout --kill-after=5 "$timeout" "$vorka" "${args[@]}") \
            </dev/null >"$output_file" 2>&1 || rc=$?
    } 2>/dev/null

    if [[ "$expected_exit" == "timeout" ]]; then
        [[ $rc -eq 124 || $rc -eq 137 ]] ||
            reasons+=("expected to be still running after ${timeout} s, exited with $rc")
    elif [[ $rc -eq 124 || $rc -eq 137 ]]; then
        reasons+=("timed out after ${timeout} s")
    elif [[ "$rc" != "$expected_exit" ]]; then
        reasons+=("exit code $rc, expected $expected_exit")
    fi

    local check kind text found
    local position=0  # output line number the last line:/then: check found
    for check in "${checks[@]}"; do
        kind=${check%%$'\t'*}
        text=${check#*$'\t'}
        case "$kind" in
            contains) grep -qF -- "$text" "$output_file" || reasons+=("missing text: $text") ;;
            line)
                found=$(grep -nxF -- "$text" "$output_file" | head -n 1)
                if [[ -n "$found" ]]; then position=${found%%:*}; else reasons+=("missing line: $text"); fi ;;
            then)
                found=$(tail -n "+$((position + 1))" "$output_file" | grep -nxF -- "$text" | head -n 1)
                if [[ -n "$found" ]]; then
                    position=$((position + ${found%%:*}))
                else
                    reasons+=("missing line after line $position: $text")
                fi ;;
            regex) grep -qE -- "$text" "$output_file" || reasons+=("no line matches: $text") ;;
            not-contains) ! grep -qF -- "$text" "$output_file" || reasons+=("unwanted text: $text") ;;
            not-regex) ! grep -qE -- "$text" "$output_file" || reasons+=("unwanted match: $text") ;;
            creates) [[ -e "$case_dir/$text" ]] || reasons+=("not created: $text") ;;
            not-creates) [[ ! -e "$case_dir/$text" ]] || reasons+=("created: $text") ;;
        esac
    done
}

shopt -s nullglob
for test_file in "$here"/cases/*.test; do
    name=$(basename "$test_file" .test)
    if [[ ${#filters[@]} -gt 0 ]]; then
        selected=0
        for f in "${filters[@]}"; do
            if [[ "$f" == =* ]]; then
                [[ "$name" == "${f#=}" ]] && selected=1
            elif [[ "$name" == *"$f"* ]]; then
                selected=1
            fi
        done
        [[ $selected -eq 1 ]] || continue
    fi

    run_case "$test_file"
    if [[ ${#reasons[@]} -eq 0 ]]; then
        echo "PASS $name"
        passed=$((passed + 1))
    else
        echo "FAIL $name"
        for r in "${reasons[@]}"; do echo "    $r"; done
        if [[ -s "$output_file" ]]; then
            echo "    --- output (first 60 lines) ---"
            head -n 60 "$output_file" | sed 's/^/    | /'
        fi
        failed=$((failed + 1))
    fi
    if [[ "${KEEP_CLI_TMP:-0}" == 1 ]]; then
        echo "    kept: $case_dir"
    else
        rm -rf -- "$case_dir"
    fi
done

echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
