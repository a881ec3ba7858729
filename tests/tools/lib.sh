# Helpers of the tests of keldict; to be sourced by bash with the program, and what runs it, as arguments.
# shellcheck shell=bash

keldict=("$@")
# shellcheck disable=SC2034 # those who source this file use it
data=$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/data
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit
failures=0

# fail MESSAGE: goes on with the next case
fail()
{
    printf 'FAILED: %s\n' "$1" >&2
    failures=$((failures + 1))
}

# runs STATUS ARGUMENT...: what the program prints is in the files output and errors
runs()
{
    local wanted=$1 status=0
    shift
    "${keldict[@]}" "$@" >output 2>errors || status=$?
    [[ $status -eq $wanted ]] || fail "keldict $* ends with $status, not $wanted: $(head -n 5 output errors)"
}

# says TEXT [FILE]
says()
{
    grep -qF -e "$1" "${2-output}" || fail "the output lacks '$1': $(head -n 20 "${2-output}")"
}

# lacks TEXT [FILE]
lacks()
{
    ! grep -qF -e "$1" "${2-output}" || fail "the output holds '$1'"
}

# same WHAT FILE FILE
same()
{
    cmp -s "$2" "$3" || fail "$1: $(diff "$2" "$3" | head -n 10)"
}

finish()
{
    [[ $failures -eq 0 ]] || exit 1
}
