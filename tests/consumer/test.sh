#!/usr/bin/env bash
# test.sh install BUILD PREFIX        installs a build, and moves what it installed to PREFIX
# test.sh package PREFIX [CMAKE...]   builds and runs a stranger's project by the installed CMake package, where there
#                                     is no RapidJSON
# test.sh json PREFIX RAPIDJSON       the same with a program that needs RapidJSON, whose headers are in that folder
# test.sh pkg-config PREFIX           the same by pkg-config, where there is no RapidJSON
# test.sh headers PREFIX              compiles every installed header on its own
# test.sh embedded WAY SOURCES        builds and runs a stranger's project that takes the sources in, by
#                                     add_subdirectory or FetchContent
#
# CXX names the compiler. CMAKE... are arguments for cmake, as a toolchain file.
set -euo pipefail
here=$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")
folder=$(mktemp -d)
trap 'rm -rf -- "$folder"' EXIT
export CXX=${CXX:-c++}

fail()
{
    echo "$*" >&2
    exit 1
}

# Runs a command and shows what it prints only when it fails.
quietly()
{
    "$@" >"$folder/log" 2>&1 || { cat "$folder/log"; fail "failed: $*"; }
}

install_and_move()
{
    local build=$1 prefix=$2
    quietly cmake --install "$build" --prefix "$folder/elsewhere"
    rm -rf -- "$prefix"
    mkdir -p -- "$(dirname -- "$prefix")"
    mv -- "$folder/elsewhere" "$prefix"
    ! grep -rlF -e "$folder" -e "$build" --include='*.cmake' --include='*.pc' -- "$prefix" ||
        fail "These name the place that they were installed to, or built in"
    ! grep -rl '^// Private to .*: not installed' -- "$prefix/include" || fail "These headers are private"
}

build_and_run()
{
    quietly cmake -G Ninja -S "$here" -B "$folder/build" "$@"
    quietly cmake --build "$folder/build"
    quietly ctest --test-dir "$folder/build" --output-on-failure --no-tests=error
}

pkg_config()
{
    PKG_CONFIG_PATH=$(dirname -- "$(find "$prefix" -name kel_datastorage.pc)") pkg-config "$@" kel_datastorage
}

# Makes headers that take the place of RapidJSON's, wherever that is installed, and that no program can include.
refuse_rapidjson()
{
    mkdir -p -- "$folder/refused/rapidjson"
    echo '#error "this program is built without RapidJSON"' |
        tee "$folder"/refused/rapidjson/{document,fwd,rapidjson,reader}.h >"$folder/log"
}

by_package()
{
    local prefix=$1 config
    config=$(dirname -- "$(find "$prefix" -name kel_datastorageConfig.cmake)")
    # SQLite is what the libraries need at run time; building on them takes nothing of it.
    build_and_run -Dkel_datastorage_DIR="$config" -DCMAKE_DISABLE_FIND_PACKAGE_SQLite3=ON "${@:2}"
}

by_package_alone()
{
    refuse_rapidjson
    # find_path() looks for headers below a missing folder only.
    by_package "$1" -DCMAKE_CXX_FLAGS="-I$folder/refused" \
        -DCMAKE_FIND_ROOT_PATH="$folder/missing" -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY "${@:2}"
}

# The package adds the folder of RapidJSON, which is none of the compiler's own.
by_package_with_json()
{
    local prefix=$1 rapidjson=$2
    mkdir -p -- "$folder/found/include"
    cp -r -- "$rapidjson/rapidjson" "$folder/found/include" # a compiler may name what a link leads to
    by_package "$prefix" -DKEL_READ_JSON=ON -DCMAKE_PREFIX_PATH="$folder/found"
    quietly ninja -C "$folder/build" -t deps CMakeFiles/json_reader.dir/json_reader.cpp.o
    grep -F "$folder/found/include/rapidjson/fwd.h" "$folder/log" >/dev/null ||
        fail "The program is not compiled with the RapidJSON that the package finds"
}

by_pkg_config()
{
    local prefix=$1 program libraries flags
    refuse_rapidjson
    libraries=$(pkg_config --variable=libdir)
    ! pkg_config --print-requires-private | grep . || fail "Building takes another package"
    read -ra flags <<<"-I$folder/refused $(pkg_config --cflags --libs)"
    for program in consumer kernel_only database_only; do
        "$CXX" -std=c++17 "$here/$program.cpp" -o "$folder/$program" "${flags[@]}" -Wl,-rpath,"$libraries"
        (cd "$folder" && "./$program")
    done
}

every_header()
{
    local prefix=$1 flags headers
    read -ra flags <<<"$(pkg_config --cflags) -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror"
    mapfile -t headers < <(cd "$prefix/include/kel" && find . -name '*.h' -printf '%P\n' | sort)
    [[ ${#headers[@]} -gt 0 ]] || fail "no headers are installed"
    # shellcheck disable=SC2016 # the inner shell expands
    printf '%s\0' "${headers[@]}" | xargs -0 -P 2 -I{} bash -c '
        set -o pipefail
        header=$1
        shift
        echo "#include <$header>" | "$CXX" -std=c++17 -fsyntax-only "$@" -x c++ - ||
            { echo "does not compile on its own: $header" >&2; exit 1; }' each {} "${flags[@]}"
    echo "${#headers[@]} headers"
}

embedded()
{
    local way=$1 sources=$2
    build_and_run -DKEL_FROM="$way" -DKEL_SOURCES="$sources" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
    ! grep -E -e ' -W(all|extra|error)' "$folder/build/compile_commands.json" ||
        fail "The library's warnings are switched on in a stranger's build"
    ! grep -F "$sources/tests/" "$folder/build/compile_commands.json" | grep -vF "$here/" ||
        fail "The library's tests are built in a stranger's build"
    ! grep -F "$sources/examples/" "$folder/build/compile_commands.json" ||
        fail "The library's examples are built in a stranger's build"
    quietly cmake --install "$folder/build" --prefix "$folder/installed"
    [[ $(find "$folder/installed" -type f -printf '%P\n') == bin/consumer ]] ||
        fail "A stranger's install brings more than what is his: $(find "$folder/installed" -type f)"
}

case ${1-} in
    install) install_and_move "${@:2}" ;;
    package) by_package_alone "${@:2}" ;;
    json) by_package_with_json "${@:2}" ;;
    pkg-config) by_pkg_config "${@:2}" ;;
    headers) every_header "${@:2}" ;;
    embedded) embedded "${@:2}" ;;
    *) fail "install, package, json, pkg-config, headers or embedded?" ;;
esac
