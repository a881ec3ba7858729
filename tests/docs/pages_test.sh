#!/usr/bin/env bash
# Checks README.md, the other pages of this folder and docs/*.md: pages_test.sh ROOT
#
# Every relative link leads to a file and, behind "#", to a heading. A code block below "<!-- file: PATH -->" is the
# text of that file. A text of a picture that has columns keeps them: browsers do not inherit xml:space. The figures
# that README.md takes from the page on benchmarks are on that page.
set -euo pipefail
cd "$1"
failed=0

fail()
{
    printf '%s\n' "$*" >&2
    failed=1
}

# shellcheck disable=SC2016 # the backticks are those of the pages
without_code()
{
    awk '/^```/ { code = !code; next } !code' "$1" | sed 's/`[^`]*`//g'
}

# The anchors that a code host gives the headings of a page.
anchors()
{
    awk '/^```/ { code = !code; next } !code' "$1" | sed -n 's/^##* *//p' |
        tr '[:upper:]' '[:lower:]' | sed 's/[^a-z0-9 _-]//g; s/ /-/g'
}

check_link()
{
    local page=$1 target=$2 file
    file=$page
    [[ $target == "#"* ]] || file=$(dirname -- "$page")/${target%%#*}
    if [[ ! -e $file ]]; then
        fail "$page: no file $target"
    elif [[ $target == *"#"* ]] && ! anchors "$file" | grep -xF -e "${target#*#}" >/dev/null; then
        fail "$page: no heading $target"
    fi
}

# check_block PAGE LINE PATH: the block that begins behind LINE
check_block()
{
    local page=$1 line=$2 path=$3
    awk -v mark="$line" 'NR <= mark + 1 { next } /^```/ { exit } { print }' "$page" |
        diff -u "$path" - >&2 || fail "$page:$line differs from $path"
}

links=0
blocks=0
for page in README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md docs/*.md; do
    while read -r target; do
        check_link "$page" "$target"
        links=$((links + 1))
    done < <(without_code "$page" | grep -oE '\]\([^) ]+\)' | sed 's/^](//; s/)$//' | grep -vE '^[a-z]+:' || true)
    while IFS=: read -r line path; do
        check_block "$page" "$line" "$path"
        blocks=$((blocks + 1))
    done < <(sed -n 's/^<!-- file: \(.*\) -->$/\1/p;' "$page" | while read -r path; do
        grep -nxF -e "<!-- file: $path -->" "$page" | sed "s|:.*|:$path|"
    done)
done

! grep -nE '<text[^>]*>[^<]*  ' docs/images/*.svg | grep -v 'xml:space="preserve"' >&2 ||
    fail "These texts lose their columns in a browser"

figures=0
while read -r figure; do
    grep -qF -e " $figure" docs/benchmarks.md || fail "README.md: $figure is not on the page on benchmarks"
    figures=$((figures + 1))
done < <(sed -n '/^<!-- figures -->$/,/^<!-- end of figures -->$/p' README.md | tr '\n' ' ' |
    grep -oE '[0-9.]+ (ns|µs|ms|s)\b')
[[ $figures -gt 0 ]] || fail "README.md: no figures"

printf '%d links and %d blocks checked\n' "$links" "$blocks"
[[ $links -gt 0 && $blocks -gt 0 && $failed -eq 0 ]]
