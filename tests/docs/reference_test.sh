#!/usr/bin/env bash
# Checks the generated reference: reference_test.sh FOLDER, with Doxygen's folders html and xml in it.
#
# Every relative link leads to a file and, behind "#", to a place in that file; this goes for the answers of the search
# and for the menu too. Every class, enumeration and function of the namespace is in a group and is found by the search.
set -euo pipefail
cd "$1"
failed=0

fail()
{
    printf '%s\n' "$*" >&2
    failed=1
}

# Prints each link as PAGE, tab, target.
links()
{
    cd html
    {
        grep -oHE '(href|src|data)="[^"]*"' ./*.html
        grep -oHE "url:['\"][^'\"]*['\"]" ./menudata.js
        grep -oHE "\['\.\./[^']*'" search/*.js
    } | sed -E "s/^(\.\/)?([^:]*):[^'\"]*['\"]/\2\t/; s/['\"]\$//; s/&amp;/\&/g" | grep -vE $'\t([a-z]+:|$)' | sort -u
}

# Prints each place as FILE#PLACE.
places()
{
    (cd html && grep -oHE ' (id|name)="[^"]*"' ./*.html | sed -E 's/^\.\///; s/: (id|name)="/#/; s/"$//')
    (cd html && find . -type f -printf '%P\n')
}

dead_links()
{
    awk -F '\t' '
        NR == FNR { known[$0]; next }
        {
            target = $2
            if (target ~ /^#/) target = $1 target
            sub(/^\.\.?\//, "", target); sub(/\?[^#]*/, "", target); sub(/#$/, "", target)
            if (!(target in known)) print $1 ": " $2
        }' <(places) <(links)
}

# Prints the names of what is in the namespace.
names()
{
    sed -nE 's/.*<innerclass [^>]*>Ombrin::([A-Za-z]+)<.*/\1/p; s/.*<member refid=[^>]*kind="[a-z]*"><name>(.*)<.name>/\1/p' \
        xml/namespaceOmbrin.xml
    sed -nE '/<memberdef/,/<\/memberdef>/ s/^ {8}<name>(.*)<.name>/\1/p' xml/namespaceOmbrin.xml xml/group__*.xml
}

mapfile -t dead < <(dead_links)
[[ ${#dead[@]} -eq 0 ]] || fail "$(printf 'dead link: %s\n' "${dead[@]}")"

mapfile -t all < <(names | sort -u)
for name in "${all[@]}"; do
    grep -qE "<innerclass [^>]*>Ombrin::$name<|^ {8}<name>$name</name>" xml/group__*.xml || fail "in no group: $name"
    grep -qF "['$name'," html/search/all_*.js || fail "not found by the search: $name"
done

links=$(links | wc -l)
printf '%d links and %d names checked\n' "$links" "${#all[@]}"
[[ $links -gt 0 && ${#all[@]} -gt 0 && $failed -eq 0 ]]
