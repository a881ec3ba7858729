#!/usr/bin/env bash
# Runs the programs that the pages show: programs_test.sh ROOT FOLDER [EMULATOR...]
#
# What a program prints is what stands below "<!-- output: NAME -->", or "<!-- output: NAME, run N -->" for the N-th
# start in one folder. The examples of the reference print what is in examples/docs/classes.txt.
set -euo pipefail
root=$1
programs=$2
emulator=("${@:3}")
folder=$(mktemp -d)
trap 'rm -rf -- "$folder"' EXIT
cp "$root/examples/docs/dictionary.json" "$folder"
cd "$folder"

# shown MARK: the block below the mark, without the line of the command
shown()
{
    awk -v mark="<!-- output: $1 -->" '
        $0 == mark { found = 1; next }
        found && /^```/ { if (inside) exit; inside = 1; next }
        inside && !/^\$ / { print }' "$root/README.md" "$root"/docs/*.md
}

# prints MARK: the program named in the mark prints what is shown
prints()
{
    shown "$1" >expected
    [[ -s expected ]] || { echo "No page shows the output of $1" >&2; exit 1; }
    "${emulator[@]}" "$programs/kel_docs_${1%%,*}" >printed
    diff -u expected printed >&2 || { echo "$1 prints something else" >&2; exit 1; }
}

prints "setpoint, run 1"
prints "setpoint, run 2"
for name in objects timers threads variants; do
    prints "$name"
done

mkdir reference
cp dictionary.json reference
cd reference
"${emulator[@]}" "$programs/kel_docs_classes" >printed
diff -u "$root/examples/docs/classes.txt" printed >&2 || { echo "classes prints something else" >&2; exit 1; }
