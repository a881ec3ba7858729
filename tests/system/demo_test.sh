#!/usr/bin/env bash
# Runs the operator example as a user would: demo_test.sh [EMULATOR ARGUMENT...] PROGRAM
set -euo pipefail

program=("${@:1:$#-1}" "$(readlink -f -- "${!#}")")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"

fail()
{
    printf 'FAILED: %s\n' "$1" >&2
    cat output >&2
    exit 1
}

# refuses WHAT ARGUMENT...: one line on standard error, nothing else, status 2
refuses()
{
    local what=$1 status=0
    shift
    "${program[@]}" "$@" >printed 2>output || status=$?
    [[ $status -eq 2 && $(wc -l <output) -eq 1 && ! -s printed ]] || fail "$what (status $status)"
}

# runs FOLDER ARGUMENT...: status 0
runs()
{
    local state=$1 status=0
    shift
    "${program[@]}" --folder "$state" --seconds 1 "$@" >output 2>&1 || status=$?
    # The system cannot start a program anew that only an emulator can run.
    if [[ ${#program[@]} -gt 1 && $status -eq 2 && $(tail -n 1 output) == *"Cannot start anew" ]]; then
        status=0
        "${program[@]}" --show-restored --folder "$state" "$@" >>output 2>&1 || status=$?
    fi
    [[ $status -eq 0 ]] || fail "run with status $status: $*"
}

# says PATTERN
says()
{
    grep -qE -e "$1" output || fail "the output lacks: $1"
}

# count_of NAME: the last value of the item before the restart
count_of()
{
    sed -n "/--- Restart/q; s/^ .* s  $1 *\([0-9]*\)$/\1/p" output | tail -n 1
}

"${program[@]}" --help >output 2>&1 || fail "--help"
says '--dictionary FILE'

touch something.txt
refuses "an unknown option" --nonsense
refuses "a number out of range" --seconds 0
refuses "no number" --seconds many
refuses "a missing file" --folder state --dictionary missing.json
refuses "an unknown ending" --folder state --dictionary something.txt
refuses "a folder instead of a file" --folder state --dictionary .
refuses "a folder that cannot be made" --folder something.txt/state

runs state
says 'Barrel_Zone3_SetTemperature = 900\.00 refused, the maximum is 400\.00'
says 'Block 5 reset to its defaults: [1-9]'
says 'kelmem\.db was written [0-9.]+ s later'
says '--- Restart'
says '^ +Barrel_Zone3_SetTemperature +225\.00$'
says '^ +Conveyor_RunTime_Set +4\.50$'
says '^ +State_Outputs_Word1 +0x3 -> 0x0$'
first=$(count_of Production_Shots_Total)

runs state --plain
says 'with the values saved last time'
says '^ +Material_BatchNumber +"B240411-08" -> "0"$'
[[ $(count_of Production_Shots_Total) -gt $first ]] || fail "the second run does not go on from $first"

cat >own.json <<'END'
{"kel": [
    {"ID": 7, "NameID": "Speed", "CommSource": 0, "DBSource": 0, "RW": 1, "Block": 1, "ValueT": 9,
     "Value": 5.0, "DefValue": 1.0, "Max": 10.0, "Min": 0.0}
]}
END
runs own --dictionary own.json
says 'go up and down: Speed$'
says 'Speed changed from .* while nothing else changes'
says '^ +Speed +[0-9.]+$'
