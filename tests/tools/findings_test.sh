#!/usr/bin/env bash
# findings_test.sh PROGRAM: every file in data/, checked, gives the findings in the file of the same name that ends in
# .expected: the status, then for each finding the place, the severity and the code. An .sql file makes the database, an
# .sh file prints the text.
# The variable KELDICT_LOADER names a program that loads a file with the library, to compare with.
# With --write before the program, writes what it finds there, for a person to read.
set -euo pipefail

write=false
if [[ ${1-} == --write ]]; then
    write=true
    shift
fi
# shellcheck source=tests/tools/lib.sh
. "$(dirname -- "$(readlink -f -- "$0")")/lib.sh"

findings_of()
{
    local status=0
    "${keldict[@]}" check --strict "$1" >output 2>errors || status=$?
    echo "status $status"
    sed -nE "s/^$1: ?(.*)(error|warning): .*\[([a-z0-9-]+)\]\$/\1\2 \3/p" output
}

check_case()
{
    local file=$1 expected=$2
    findings_of "$file" >found
    if $write; then
        cp found "$expected"
    elif [[ ! -f $expected ]]; then
        fail "$file: nothing is expected of it"
    else
        same "$file" "$expected" found
    fi
}

for path in "$data"/*; do
    name=${path##*/}
    case $name in
        *.expected) continue ;;
        *.sql)
            sqlite3 "${name%.sql}.db" <"$path"
            check_case "${name%.sql}.db" "$path.expected"
            ;;
        *.sh)
            bash "$path" >"${name%.sh}.json"
            check_case "${name%.sh}.json" "$path.expected"
            ;;
        *)
            cp "$path" .
            check_case "$name" "$path.expected"
            ;;
    esac
done

# The library itself stops at what is said to stop the device, and at nothing else.
if [[ -n ${KELDICT_LOADER-} ]]; then
    stops='byte-order-mark|malformed-json|empty-file|root-not-object|missing-root|root-not-array|element-not-object'
    ulimit -c 0
    for path in "$data"/*.json; do
        name=${path##*/}
        said=goes-on does=goes-on
        ! grep -qE " ($stops)\$" "$path.expected" || said=stops
        # shellcheck disable=SC2086 # on another processor, it is run by a command of several words
        { (exec $KELDICT_LOADER "$name" 1) >output 2>errors || does=stops; } 2>/dev/null
        [[ $name != deep-* ]] || continue # that depends on the stack
        [[ $said == "$does" ]] || fail "$name: the library $does"
    done
fi

# No kind of finding goes without a file that shows it.
"${keldict[@]}" check --format sarif clean.json | sed -nE 's/^ *"id": "([a-z0-9-]+)",?$/\1/p' | sort >codes
cat "$data"/*.expected | sed -nE 's/.* ([a-z0-9-]+)$/\1/p' | sort -u >tested
while read -r code; do
    grep -qxF -e "$code" tested || fail "no file shows $code"
done <codes
[[ $(wc -l <codes) -gt 30 ]] || fail "the program lists $(wc -l <codes) codes"

# The shells complete --accept with every warning there is.
"${keldict[@]}" check --format sarif clean.json >log
warnings=$(sed -n '/"id":/h; /"level": "warning"/{x;p}' log | sed -E 's/.*"id": "([a-z0-9-]+)".*/\1/')
for completion in "$data"/../../../tools/keldict/completion/*; do
    grep -qF -e "'${warnings//$'\n'/ }'" "$completion" || fail "$completion lists other warnings than ${warnings//$'\n'/ }"
done

finish
