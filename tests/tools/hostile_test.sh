#!/usr/bin/env bash
# hostile_test.sh PROGRAM: small files that claim to hold very much, and what is no file, are refused soon and with
# little memory.
set -euo pipefail

# shellcheck source=tests/tools/lib.sh
. "$(dirname -- "$(readlink -f -- "$0")")/lib.sh"

keldict=(timeout 60 "${keldict[@]}")
memory=262144 # KiB; sanitizers and emulators need more
# shellcheck disable=SC2015 # the limit is set where the program runs with it
(ulimit -v $memory && "${keldict[@]}" --version) >/dev/null 2>&1 && ulimit -v $memory || true

# refused STATUS TEXT FILE: by all commands, with one line that holds the text
refused()
{
    local status=$1 text=$2 file=$3
    for command in check show convert diff; do
        case $command in
            convert) runs "$status" convert "$file" converted.json ;;
            diff) runs 2 diff "$file" "$file" ;;
            *) runs "$status" "$command" "$file" ;;
        esac
        [[ $command == check && $status -eq 2 ]] || [[ $(wc -l <errors) -eq 1 ]] || fail "$command: not one line"
        cat output errors >said
        says "$text" said
    done
    [[ ! -e converted.json ]] || fail "$file is converted"
}

# Databases, made of pages of 512 bytes

# bytes HEX...
bytes()
{
    local hex="$*"
    hex=${hex// /}
    # shellcheck disable=SC2001,SC2059 # the bytes are the format
    printf "$(sed 's/../\\x&/g' <<<"$hex")"
}

# part FILE OFFSET SIZE: its bytes, in hex
part()
{
    od -An -v -tx1 -j "$2" -N "$3" "$1" | tr -d ' \n'
}

# put FILE OFFSET HEX...
put()
{
    local file=$1 offset=$2
    shift 2
    bytes "$@" | dd of="$file" bs=1 seek="$offset" conv=notrunc status=none
}

# inner FILE OFFSET CHILD...: an inner page that begins there, with these pages below it
inner()
{
    local file=$1 offset=$2 pointers='' content='' key start field
    shift 2
    start=$((offset % 512 + 12 + 2 * ($# - 1)))
    for ((key = 1; $# > 1; key++)); do
        printf -v field '%04x' $((start + 5 * (key - 1)))
        pointers+=$field
        printf -v field '%08x%02x' "$1" $key
        content+=$field
        shift
    done
    put "$file" "$offset" 05 0000 "$(printf '%04x%04x00%08x' $((key - 1)) "$start" "$1")" "$pointers" "$content"
}

# times COUNT WORD
times()
{
    printf "$2 %.0s" $(seq "$1")
}

# count_pages FILE: into its header
count_pages()
{
    put "$1" 28 "$(printf '%08x' $(($(wc -c <"$1") / 512)))"
}

# table FILE KEY NAME [STATEMENT]: a configuration of one row; its table begins with page 2
table()
{
    sqlite3 "$1" "PRAGMA page_size=512; CREATE TABLE kel($2, NameID, C, D, R, B, V, Value, Def, Max, Min);
        INSERT INTO kel VALUES(1, $3, 0, 0, 0, 0, 1, 1, 1, 1, 1); ${4-}"
}

# Inner pages, each of which points at the next one 60 times: 2.8 * 10^12 rows in 4,608 bytes

for key in 'ID INTEGER PRIMARY KEY' 'ID'; do
    rm -f many.db
    table many.db "$key" "'one'"
    leaf=$(part many.db 512 512)
    for page in {2..8}; do
        # shellcheck disable=SC2046 # several arguments
        inner many.db $(((page - 1) * 512)) $(times 60 $((page + 1)))
    done
    put many.db 4096 "$leaf"
    count_pages many.db
    refused 3 'is damaged' many.db
done
runs 3 show - <many.db
says 'is damaged' errors

# The same in the list of tables: its first page has all entries, and the last entry occurs again and again

table tables.db 'ID' "'one'" 'CREATE TABLE t(a UNIQUE);'
first=$(($(wc -c <tables.db) / 512 + 1))
list=$(part tables.db 100 14) # the header of the leaf and where its three entries are
dd if=tables.db of=page bs=512 count=1 status=none
put page 0 "$list"
cat page >>tables.db
for page in {1..7}; do
    # shellcheck disable=SC2046 # several arguments
    inner tables.db $(((first + page - 1) * 512)) $(times 60 $((first + page + 1)))
done
put page 0 0d 0000 0001 "${list:10:6}" "${list:24:4}"
truncate -s $(((first + 7) * 512)) tables.db
cat page >>tables.db
# shellcheck disable=SC2046 # several arguments
inner tables.db 100 $first $(times 50 $((first + 1)))
count_pages tables.db
runs 3 check tables.db # alone: SQLite takes many steps before it may be stopped
says 'is damaged' errors

# 720 rows that share one text

table shared.db 'ID INTEGER PRIMARY KEY' "printf('%.*c', 406425, 'n')"
first=$(($(wc -c <shared.db) / 512 + 1))
cell=$(part shared.db 977 47) # the row; its size has three bytes, its number one
rows=10 # in a page
leaves=72
for ((leaf = 0; leaf < leaves; leaf++)); do
    pointers='' content=''
    for ((row = 0; row < rows; row++)); do
        number=$((leaf * rows + row + 1))
        printf -v field '%04x' $((8 + 2 * rows + 48 * row))
        pointers+=$field
        printf -v field '%02x%02x' $((number >> 7 | 128)) $((number & 127))
        content+=${cell:0:6}$field${cell:8}
    done
    bytes 0d 0000 "$(printf '%04x%04x' $rows $((8 + 2 * rows)))" 00 "$pointers" "$content" 00000000
done >>shared.db
inner shared.db 512 $(seq $first $((first + leaves - 1)))
count_pages shared.db
refused 3 'is damaged' shared.db

# Items that inherit one long name, or one long value

# letters COUNT
letters()
{
    head -c "$1" /dev/zero | tr '\0' n
}

# heirs FILE FIELDS [MEMBER]: 40,000 items, of which the first has these fields; and a member of the root before them
heirs()
{
    local file=$1
    {
        printf '{%s "kel": [{"ID": 1, %s}' "${3-}" "$2"
        printf ',\n{"ID":%d}' {2..40000}
        echo ']}'
    } >"$file"
}

text=\"$(letters 400000)\"
heirs names.json "\"NameID\": $text"
refused 2 'inherit names of more than 16 MiB' names.json
says 'inherited-names' <("${keldict[@]}" check names.json || true)
heirs values.json "\"NameID\": \"one\", \"ValueT\": 10, \"Value\": $text, \"Max\": $text"
for command in 'show --json values.json' 'convert values.json values.db' 'convert values.json again.json'; do
    # shellcheck disable=SC2086 # several arguments
    runs 3 $command
    says 'values.json: the items inherit texts of more than 16 MiB' errors
done

# What is the item's own is not inherited

{
    printf '{"kel": ['
    for id in {1..41}; do
        [[ $id -eq 1 ]] || echo ,
        printf '{"ID": %d, "NameID": "%d%s}' "$id" "$id" "${text:1}"
    done
    printf ']}'
} >own.json
runs 0 show own.json

# Very many findings of one item, and of one file

# all COUNT TEXT
all()
{
    printf "$2%.0s" $(seq "$1")
}

echo "{\"kel\": [{\"ID\": 1, \"NameID\": $text$(all 40000 ', "a": 1')}]}" >unknown.json
runs 0 check --format json unknown.json
[[ $(grep -c unknown-key output) -eq 40000 ]] || fail "findings are lacking"
says '"name": "nnn'
echo "{\"kel\": [{\"NameID\": \"one\"$(all 40000 ', "ID": ""'), \"ID\": 1}]}" >wrong.json
runs 0 check --format json wrong.json
[[ $(grep -c wrong-type output) -eq 40000 ]] || fail "findings are lacking"
echo "{\"kel\": []$(all 40000 ', "kel": []')}" >roots.json
runs 2 check roots.json
says '40001 errors'
heirs accepted.json '"NameID": "one"' "\"keldict\": {\"accept\": {\"inherited-field\": $text}},"
runs 2 check --format json accepted.json
says '"accepted": "nnn'

# What is no file

mkfifo pipe.json pipe.db
cp "$data/clean.json" .
for pipe in pipe.json pipe.db; do
    refused 3 "$pipe: is no regular file" $pipe
done
runs 3 show /dev/zero
says '/dev/zero: is no regular file' errors
runs 0 check - < <(cat clean.json)

for suffix in journal wal; do
    rm -f clean.db
    runs 0 convert clean.json clean.db
    mkfifo clean.db-$suffix
    refused 3 "clean.db-$suffix: is no regular file" clean.db
    ln -sf clean.db link.db
    refused 3 "clean.db-$suffix: is no regular file" link.db
    rm clean.db-$suffix
    [[ $suffix == journal ]] || continue
    sqlite3 clean.db 'PRAGMA journal_mode=WAL' >/dev/null
    mkfifo clean.db-wal
    refused 3 "clean.db-wal: is no regular file" clean.db
    rm clean.db-wal
done

finish
