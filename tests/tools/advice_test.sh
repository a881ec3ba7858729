#!/usr/bin/env bash
# advice_test.sh PROGRAM: what a finding says is what the file holds, and a file that follows its advice is better.
set -euo pipefail

# shellcheck source=tests/tools/lib.sh
. "$(dirname -- "$(readlink -f -- "$0")")/lib.sh"

check()
{
    "${keldict[@]}" check "$1" >output 2>errors || true
}

# of [KEY VALUE]...: checks a clean item with these values in place of its own
of()
{
    local item='{"ID": 1, "NameID": "Speed", "CommSource": 0, "DBSource": 0, "RW": 0, "Block": 0, "ValueT": 9,
"Value": 5.0, "DefValue": 1.0, "Max": 10.0, "Min": 0.0}'
    while [[ $# -gt 0 ]]; do
        [[ $item =~ ^(.*\"$1\":\ )([^,\}]*)(.*)$ ]] || fail "no key $1"
        item=${BASH_REMATCH[1]}$2${BASH_REMATCH[3]}
        shift 2
    done
    text '{"kel": [' "$item" ']}'
}

# text LINE...: checks a file of these lines
text()
{
    printf '%s\n' "$@" >dictionary.json
    check dictionary.json
}

of
says 'clean'

# A number that JSON cannot say is not advised

of Value '"NaN"'
says 'meant:  a number; JSON has neither NaN nor infinity'
of Value '"inf"'
says 'meant:  a number; JSON has neither NaN nor infinity'
of ValueT 3 Value '"inf"'
says 'meant:  a number that 64 bits hold'
of Min '"inf"'
says 'Min inf above Max 10.0'
lacks 'and Max inf'

# A number is quoted as the file writes it

of ID 1.0
says 'ID 1.0 is no integer'
says 'meant:  1'
of ValueT 3 Value 99999999999999999999
says 'Value 99999999999999999999 where'
lacks '1e+20'
of Value 99999999999999999999
says 'Value 99999999999999999999 outside 0.0 to 10.0'
of NameID 1.50
says 'meant:  "1.50", in quotes'
of ValueT 3 Value 5 Max 100.5 DefValue 1 Min 0
says 'Max 100.5 where'

# An ID of 0 is not advised

of ID 0.0
says 'ID 0.0 is no integer'
lacks 'meant'

# Bytes have values up to 255

of Block '"x"'
says 'an integer from 0 to 255 is taken'
of Block 256.0
says 'meant:  0 to 255'
of Block -1
says 'meant:  0 to 255'
sqlite3 bytes.db <"$data/wrong-type.sql"
check bytes.db
says 'an integer from 0 to 255 is taken'

# The saved file alone has large IDs as negative numbers

of ID 3000000000
says 'The saved file holds it as -1294967296.'
lacks 'vents'

# An empty file is not answered with another that has no items

text ''
says 'meant:  {"kel": [...]}'

# A decimal comma is known

of Value 1,5
says '3:10: error: a comma in a number'
says 'did you mean 1.5, with a point?'
of Min -0,05
says 'did you mean -0.05, with a point?'
of Value 1,234,567
says 'numbers have a point, and nothing between thousands'
lacks 'did you mean'

# An unknown escape and a control character are told apart

of NameID '"a\dir"'
says 'an unknown escape \d in a text'
says 'meant:  \\ for a backslash'
of NameID $'"a\tb"'
says 'a tab in a text'
says 'meant:  \t for a tab'
of NameID $'"a\001b"'
says 'the control character U+0001 in a text'
of NameID $'"a\nb"'
says 'a line break in a text'
says 'opened: 2:21'

# Where a quote or a bracket was opened that is not closed

of NameID '"Speed'
says 'opened: 2:21'
says 'close the text in front of this with a quote'
text '{"kel": [{"ID: 1, "NameID": "Speed"}]}'
says '1:20: error: a colon is missing here'
says 'opened: 1:11'
text '{"kel": [{"ID": 1, "NameID": "Speed'
says 'opened: 1:30'
text '{"kel": [{"ID": 1}'
says 'opened: 1:9'
text '{"kel": [{"ID": 1, "NameID": "[{"'
says 'opened: 1:10'
text '{"kel": [{"ID": 1]}'
says 'opened: 1:10'
says 'close the object first, with "}"'
text '{"kel": [{"ID": 1}}'
says 'opened: 1:9'
says 'close the array first, with "]"'
text '{"kel": [{"ID": 1' '{"ID": 2}]}'
says 'opened: 1:10'
lacks 'comma in front'
text '{"kel": {"ID": 1}]}'
says 'no bracket is open that this one closes'
text '{"kel": [{"ID": 1}, "NameID": "Speed"}]}'
lacks 'opened'
text '{"kel": [{"ID": 1}'
"${keldict[@]}" check --format json dictionary.json >output || true
says '"opened": {'
"${keldict[@]}" check --format sarif dictionary.json >output || true
says '"text": "opened"'

# Names that look the same are told how they differ

check "$data/composed-name.json"
says 'of item 1, with letters composed otherwise'
says 'of item 3 [similar-name]'

finish
