#!/usr/bin/env bash
# commands_test.sh SHIPPED_DICTIONARY PROGRAM: what the commands of keldict do besides finding.
set -euo pipefail

shipped=$1
shift
# shellcheck source=tests/tools/lib.sh
. "$(dirname -- "$(readlink -f -- "$0")")/lib.sh"

# The shipped dictionary

runs 0 check --strict "$shipped"
says 'clean'

# Command line

runs 64
runs 64 check
runs 64 check --format xml "$data/clean.json"
runs 64 check --accept duplicate-id "$data/clean.json"
runs 64 convert "$data/clean.json" out.txt
runs 64 convert "$data/clean.json" kelmem.db
runs 64 show --id 5..x "$data/clean.json"
runs 64 show --id 5..1 "$data/clean.json"
says '5..1 holds no ID' errors
runs 64 chek "$data/clean.json"
says '"chek" is no command; did you mean "check"?' errors
runs 64 nonsense
says '"nonsense" is no command; see --help' errors
runs 64 check --strikt "$data/clean.json"
says '--strikt' errors
runs 2 diff "$data/clean.json"
runs 0 --help
says 'check'
runs 0 --version

# Status

cp "$data"/*.json .
runs 0 check text-not-restored.json
runs 1 check --strict text-not-restored.json
runs 0 check --strict --accept text-not-restored text-not-restored.json
says '1 warning accepted'
runs 2 check clean.json duplicate-id.json text-not-restored.json
runs 3 check missing.json duplicate-id.json
says 'missing.json: No such file' errors
says '[duplicate-id]'
runs 3 check .
runs 2 check --strict wrong-acceptance.json element-not-object.json
runs 0 check - <clean.json
runs 2 check - <duplicate-id.json
says '-:3:12: error'

# What is found is told whole

runs 2 check duplicate-id.json
says 'item 1 "Force": ID 1 is taken'
says 'first:  2:5'
says 'The item is lost'
runs 0 check unknown-key.json
says 'did you mean "Block"?'
says 'did you mean "Min"?'
lacks $'\x1b'

# Names that would play with a terminal, or are very long

printf '{"kel": [{"ID": 1, "NameID": "a\\u001b[31m\\u202eb"}]}' >escapes.json
runs 0 check escapes.json
lacks $'\x1b'
says '\u001B[31m\u202Eb'
{
    printf '{"kel": [{"ID": 1, "NameID": "'
    head -c 1000000 /dev/zero | tr '\0' x
    printf '"}]}'
} >long.json
runs 0 check long.json
[[ $(wc -c <output) -lt 3000 ]] || fail "a long name is printed in full"

# A million arrays in each other

head -c 1000000 /dev/zero | tr '\0' '[' >deep.json
runs 2 check deep.json
says 'malformed-json'

# An exponent that overflows inside RapidJSON

printf '{"kel": [{"ID": 1, "NameID": "e-2147483639", "Value": 0.00000000001e-2147483639, "Max": 2}]}' >exponent.json
runs 0 show exponent.json
says 'e-2147483639'
printf '{"kel": [{"ID": 1, "Value": 0.00000000001e-2147483639]}' >exponent.json
runs 2 check exponent.json
says 'exponent.json:1:54: error'

# Formats

runs 2 check --format json duplicate-id.json one-line.json
says '"code": "duplicate-id"'
says '"line": 3'
runs 2 check --format sarif duplicate-id.json wrong-acceptance.json invalid-utf8.json
says '"version": "2.1.0"'
says '"ruleId": "duplicate-id"'
says '"justification": "entered at every start"'
if command -v iconv >/dev/null; then
    iconv -f UTF-8 -t UTF-8 output >/dev/null || fail "the log is not UTF-8"
fi
runs 3 check --format sarif missing.json
says '"executionSuccessful": false'

# Of very many findings, some of each code are printed, and all counted

{
    echo '{"kel": ['
    for id in {1..250}; do
        echo "{\"ID\": $id, \"NameID\": \"Item$id\"},"
    done
    echo '{"ID": 1, "NameID": "Again"}]}'
} >many.json
runs 2 check many.json
[[ $(grep -cF '[inherited-field]' output) -eq 101 ]] || fail "$(grep -cF '[inherited-field]' output) lines of one code"
says 'many.json: 151 more [inherited-field]; --limit 0 prints all'
says 'error: item 1 "Again"'
says '250 items: 1 error, 502 warnings'
runs 2 check --limit 3 many.json
says 'many.json: 248 more [inherited-field]'
runs 2 check --limit 0 many.json
[[ $(grep -cF '[inherited-field]' output) -eq 251 ]] || fail "--limit 0 does not print all"
lacks ' more ['
runs 1 check --strict --limit 1 unknown-key.json
runs 2 check --format json many.json
[[ $(grep -cF '"code": "inherited-field"' output) -eq 251 ]] || fail "JSON lacks findings"
runs 2 check --format sarif many.json
[[ $(grep -cF '"ruleId": "inherited-field"' output) -eq 251 ]] || fail "SARIF lacks findings"
runs 64 check --limit -1 many.json

# Convert

runs 0 convert clean.json clean.db
runs 0 check --strict clean.db
runs 0 diff clean.json clean.db
[[ ! -s output ]] || fail "a clean dictionary changes when it is converted"
runs 0 convert clean.db back.json
runs 0 diff clean.json back.json
runs 3 convert clean.json clean.db
says 'is there already' errors
runs 0 convert clean.json clean.db --force
runs 1 convert duplicate-id.json lost.db
says 'not kept: 1 item that the device would not take'
printf '{"kel": [{"ID": 1, "NameID": "One", "ValueT": 3, "Unit": "bar"}]}' >one.json
runs 1 convert one.json one.db
says '1 unknown key of items'
says '1 item written to one.db'
# Values are written in the form of their type: a database gives 0 for a text in place of a number

cat >forms.json <<'END'
{"kel": [
{"ID": 1, "NameID": "A", "CommSource": 0, "DBSource": 0, "RW": 0, "Block": 0, "ValueT": 9, "Value": "210.0", "DefValue": 1, "Max": "x", "Min": "inf"},
{"ID": 2, "NameID": "B", "CommSource": 0, "DBSource": 0, "RW": 0, "Block": 0, "ValueT": 3, "Value": "7.0", "DefValue": 2.5, "Max": 9, "Min": 0},
{"ID": 3, "NameID": "C", "CommSource": 0, "DBSource": 0, "RW": 0, "Block": 0, "ValueT": 10, "Value": 210.0, "DefValue": "", "Max": null, "Min": null}
]}
END
runs 1 convert forms.json forms.db
lacks '"210.0" of item 1, which is read back as 0'
sqlite3 forms.db "SELECT ID, quote(Value), quote(DefValue) FROM kel" >rows
printf '%s\n' '1|210.0|1.0' '2|7|3' "3|'210'|''" | same "values by type" - rows
runs 1 convert forms.json formed.json
says 'Value "210.0" of item 1, which is read back as 210'
says '"Value": 210.0, "DefValue": 1, "Max": "x", "Min": "inf"' formed.json
says '"Value": 7, "DefValue": 2.5' formed.json
says '"Value": 210.0, "DefValue": ""' formed.json

runs 1 convert type-not-restored.json types.db
says 'item 1 "Word"'
cp clean.db busy.db
touch busy.db-journal
runs 3 convert clean.json busy.db --force
says 'is in use' errors
runs 3 convert clean.json no/such/folder.db
[[ -z $(find . -name '.keldict-*') ]] || fail "a temporary file is left"

runs 1 convert "$shipped" shipped.db
runs 0 convert shipped.db shipped.json
runs 0 diff shipped.db shipped.json
runs 1 diff "$shipped" shipped.json
grep -E '^[-+~]' output | grep -vE '^(- (15|22)0|~ )' && fail "items are added or lost"
grep -E '^    ' output | grep -vE '^    (Max|Min): ""' && fail "more than the bounds of texts changes"

# Every value type, doubles to the last bit, both ends of 64 bits

{
    echo '{"kel": ['
    id=0
    for type in 1 2 3 4 5 6 7 12 14; do
        for value in -9223372036854775808 -4294967297 -1 0 1 2147483648 4294967296 9223372036854775807; do
            id=$((id + 1))
            echo "{\"ID\": $id, \"NameID\": \"S$id\", \"CommSource\": 1, \"DBSource\": 2, \"RW\": 3, \"Block\": 4," \
                "\"ValueT\": $type, \"Value\": $value, \"DefValue\": $value, \"Max\": $value, \"Min\": $value},"
        done
    done
    for value in 0 1 4294967295 9223372036854775807 9223372036854775808 18446744073709551615; do
        id=$((id + 1))
        echo "{\"ID\": $id, \"NameID\": \"U$id\", \"CommSource\": 255, \"DBSource\": 2, \"RW\": 3, \"Block\": 4," \
            "\"ValueT\": 13, \"Value\": $value, \"DefValue\": $value, \"Max\": $value, \"Min\": $value},"
    done
    for value in 0.0 -0.0 0.1 0.3 1e23 1.7976931348623157e308 -2.2250738585072014e-308 5e-324 123456789.123456789 \
        9007199254740993.0 3.141592653589793 2.718281828459045e-200 6.02214076e23 0.30000000000000004 1e-7; do
        id=$((id + 1))
        echo "{\"ID\": $id, \"NameID\": \"D$id\", \"CommSource\": 1, \"DBSource\": 2, \"RW\": 3, \"Block\": 4," \
            "\"ValueT\": $((8 + id % 2)), \"Value\": $value, \"DefValue\": $value, \"Max\": $value, \"Min\": $value},"
    done
    printf '%s\n' '{"ID": 4294967295, "NameID": "Ümläut \"quoted\" \\ 007", "CommSource": 1, "DBSource": 2, "RW": 3, "Block": 4,'
    echo '"ValueT": 11, "Value": 7, "DefValue": 0, "Max": 9, "Min": 0}]}'
} >types.json
runs 0 convert types.json every.db
runs 0 diff types.json every.db
runs 0 convert every.db every.json
runs 0 convert every.json again.db
runs 0 diff every.db again.db
sqlite3 every.db .dump >first
sqlite3 again.db .dump >second
same "a round trip of every type" first second

# Show

runs 0 show clean.json
says 'Speed'
runs 0 show clean.json --id 2..9
lacks 'Speed'
says 'Force'
runs 0 show clean.json --id ..1
lacks 'Force'
runs 0 show clean.json --name 'Spe*'
lacks 'Force'
runs 0 show clean.json --block 3
lacks 'Speed'
runs 0 show clean.json --json
cp output shown.json
runs 0 diff clean.json shown.json
runs 2 show missing-root.json
runs 3 show missing.json
runs 0 show - <clean.db
says 'Force'

# What is shown as JSON is UTF-8, whatever the names are

runs 0 show --json invalid-utf8.json
if command -v iconv >/dev/null; then
    iconv -f UTF-8 -t UTF-8 output >/dev/null || fail "what is shown is not UTF-8"
fi
says $'\xEF\xBF\xBD'

# A saved file is read, and left alone

sqlite3 kelmem.db <"$data/saved-file.sql"
sha256sum kelmem.db >sum
runs 0 show kelmem.db
says '4294967295'
lacks 'DBSource'
runs 1 diff clean.json kelmem.db
says '+ 4294967295 "Last"'
says '- 2 "Force"'
lacks '~ 1'
sha256sum --status -c sum || fail "the saved file is changed"

# One with too few columns does not stop the device

mkdir few
sqlite3 few/kelmem.db 'CREATE TABLE kel(ID, NameID); INSERT INTO kel VALUES(1, 2)'
runs 2 check few/kelmem.db
says 'the table has 2 columns of 10 [too-few-columns]'
says 'the device does not read it, keeps it, and saves nothing'
lacks 'stops'
runs 2 show few/kelmem.db
says 'too few columns' errors

# Without the columns for units it is read

sqlite3 few/kelmem.db 'DROP TABLE kel; CREATE TABLE kel(a, b, c, d, e, f, g, h, i, j)' \
    "INSERT INTO kel VALUES(1,'Speed',0,1,2,9,5.0,1.0,10.0,0.0)"
runs 0 show few/kelmem.db
says 'Speed'
lacks 'DBSource'

# An interrupted transaction beside it: seen as before it, changed by nobody

{
    sed 's/INSERT.*//' "$data/saved-file.sql"
    echo 'WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000)'
    echo "INSERT INTO kel SELECT i, 'Item' || i, 0, 1, 2, 6, 1, 1, 10, 0, 0, 0 FROM n;"
} | sqlite3 torn.db
mkdir crashed
sqlite3 torn.db >/dev/null <<'END'
PRAGMA cache_size=2;
BEGIN;
UPDATE kel SET Value=2, NameID=NameID || 'changed to be longer than it was before';
.shell cp torn.db torn.db-journal crashed/
ROLLBACK;
END
(cd crashed && find . -type f -exec sha256sum {} + | sort) >before
runs 0 show crashed/torn.db --id 1..2000
says 'Item2000 '
lacks 'changed'
(cd crashed && find . -type f -exec sha256sum {} + | sort) >after
same "a folder with an interrupted transaction" before after
ln -s crashed/torn.db link.db
runs 0 show link.db --id 1..2000
lacks 'changed'

# A write-ahead log beside it: seen, and left alone

mkdir logged
sqlite3 log.db >/dev/null <<END
PRAGMA journal_mode=WAL;
$(cat "$data/saved-file.sql")
PRAGMA wal_checkpoint;
PRAGMA wal_autocheckpoint=0;
UPDATE kel SET NameID='Logged' WHERE ID=1;
.shell cp log.db log.db-wal logged/
END
(cd logged && find . -type f -exec sha256sum {} + | sort) >before
runs 0 show logged/log.db
says 'Logged'
(cd logged && find . -type f -exec sha256sum {} + | sort) >after
same "a folder with a write-ahead log" before after

# What is no table is not run

sqlite3 view.db <"$data/not-a-table.sql"
runs 2 show view.db
says 'is not run' errors

# Columns behind those that are read may be computed

{
    sed '/INSERT/d; s/Unit INTEGER, CUnit INTEGER/Unit AS (ID), CUnit AS (ID), Twice AS (2 * Value)/' "$data/saved-file.sql"
    echo "INSERT INTO kel VALUES(1,'Speed',0,1,2,9,5.0,1.0,10.0,0.0);"
} | sqlite3 wide.db
runs 0 show wide.db
says 'Speed'
lacks 'DBSource'

# The device does not read rows of more than 64 MiB

runs 0 convert clean.json huge.db --force
sqlite3 huge.db 'ALTER TABLE kel ADD COLUMN Note; UPDATE kel SET Note = zeroblob(67108865) WHERE ID = 1'
runs 3 check huge.db
says 'too big' errors
rm huge.db

finish
