#!/usr/bin/env bash
# page_test.sh PAGE PROGRAM: what the page shows of the program is what it prints. With --write before the page, puts it
# right.
set -euo pipefail

write=false
if [[ ${1-} == --write ]]; then
    write=true
    shift
fi
page=$(readlink -f -- "$1")
shift
# shellcheck source=tests/tools/lib.sh
. "$(dirname -- "$(readlink -f -- "$0")")/lib.sh"
cp "$data"/../page/* .

keldict()
{
    command "${keldict[@]}" "$@"
}

in_console=false
while IFS= read -r line; do
    case $line in
        '```console') in_console=true ;;
        '```') in_console=false ;;
        '$ '*)
            if $in_console; then
                printf '%s\n' "$line"
                eval "${line#??}" 2>&1 || true
                continue
            fi
            ;;
        *)
            ! $in_console || continue # what it printed when the page was written
            ;;
    esac
    printf '%s\n' "$line"
done <"$page" >now

if $write; then
    cp now "$page"
fi
[[ $(grep -c '^\$ keldict' now) -gt 3 ]] || fail "the page shows nothing"
same "the page" "$page" now
finish
