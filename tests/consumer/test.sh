#!/usr/bin/env bash
# Installs the build given as the first argument, and builds and runs a stranger's project against it, by the CMake
# package and by pkg-config.
set -euo pipefail
build=$1
here=$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")
folder=$(mktemp -d)
trap 'rm -rf -- "$folder"' EXIT

cmake --install "$build" --prefix "$folder/prefix" > "$folder/install.log"
cmake -S "$here" -B "$folder/cmake" -DCMAKE_PREFIX_PATH="$folder/prefix" > "$folder/configure.log"
cmake --build "$folder/cmake" > "$folder/build.log"
(cd "$folder" && ./cmake/consumer)

pc=$(dirname -- "$(find "$folder/prefix" -name kel_datastorage.pc)")
# shellcheck disable=SC2046 # several words are meant
"${CXX:-c++}" -std=c++17 "$here/main.cpp" -o "$folder/consumer" \
    $(PKG_CONFIG_PATH="$pc" pkg-config --cflags --libs kel_datastorage) -Wl,-rpath,"$(dirname -- "$pc")"
(cd "$folder" && ./consumer)
