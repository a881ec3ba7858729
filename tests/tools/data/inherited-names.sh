#!/usr/bin/env bash
# 1,025 items inherit a name of 16 KiB
printf '{"kel": [\n    {"ID": 1, "NameID": "'
head -c 16384 /dev/zero | tr '\0' n
printf '"}'
printf ',\n    {"ID": %d}' {2..1026}
printf '\n]}\n'
