# Helpers of the scripts in this folder; to be sourced by bash.
# shellcheck shell=bash

# The one place for the names of Debian packages.
# shellcheck disable=SC2034 # the scripts that source this file use them
{
    BUILD_PACKAGES=(g++ cmake ninja-build libasio-dev libsqlite3-dev rapidjson-dev libcli11-dev libutf8proc-dev pkg-config
        libgtest-dev libbenchmark-dev sqlite3)
    BENCHMARK_PACKAGES=(qt6-base-dev liblmdb-dev python3)
    ARMHF_PACKAGES=(g++-arm-linux-gnueabihf qemu-user)
    CLANG_PACKAGES=(clang-14 libclang-rt-14-dev)
    FORMAT_PACKAGES=(clang-format-14)
    TIDY_PACKAGES=(clang-tidy-14 shellcheck)
    COVERAGE_PACKAGES=(gcovr)
    DOCS_PACKAGES=(doxygen)
    PACKAGE_PACKAGES=(dpkg-dev file lintian)
    ABI_PACKAGES=(abigail-tools)
}

# die STATUS MESSAGE...
die()
{
    local status=$1
    shift
    printf '%s\n' "$*" >&2
    exit "$status"
}

repo_root()
{
    # Not from git, which refuses to answer when the folder belongs to another user.
    dirname -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")"
}

jobs()
{
    nproc
}

# Runs a command and shows what it prints only when it fails.
run_quietly()
{
    local log status=0
    log=$(mktemp)
    "$@" >"$log" 2>&1 || status=$?
    [[ $status -eq 0 ]] || cat "$log"
    rm -f "$log"
    return "$status"
}

# --- packages ---

missing_packages()
{
    local installed package
    installed=$(dpkg-query -W -f='${db:Status-Status} ${Package}\n' "$@" 2>/dev/null || true)
    for package in "$@"; do
        grep -qxF -e "installed $package" <<<"$installed" || printf '%s\n' "$package"
    done
}

can_install()
{
    command -v apt-get >/dev/null || return 1
    [[ $EUID -eq 0 ]] || sudo -n true 2>/dev/null
}

run_apt()
{
    local sudo=()
    [[ $EUID -eq 0 ]] || sudo=(sudo -n)
    # Waits for the lock: a fresh machine may still be busy with its own updates.
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=120 "$@" </dev/null
}

install_packages()
{
    # A stale mirror of a third party must not stop us; what counts is whether the install works.
    run_apt update || true
    run_apt install -y --no-install-recommends "$@"
}

# Installs those of the given packages that are not there yet.
require_packages()
{
    local missing hint
    mapfile -t missing < <(missing_packages "$@")
    [[ ${#missing[@]} -gt 0 ]] || return 0

    hint="Missing packages, please install: apt-get install ${missing[*]}"
    can_install || die 1 "$hint"
    echo "Installing missing packages: ${missing[*]}"
    run_quietly install_packages "${missing[@]}" || die 1 "$hint"
}

# --- presets ---

packages_of_preset()
{
    printf '%s\n' "${BUILD_PACKAGES[@]}"
    [[ $1 != clang && $1 != asan ]] || printf '%s\n' "${CLANG_PACKAGES[@]}"
}

# Installs what the preset needs; ends the script when there is no such preset.
require_preset()
{
    local packages known
    mapfile -t packages < <(packages_of_preset "$1")
    require_packages "${packages[@]}"
    known=$(cd "$(repo_root)" && cmake --list-presets=test | sed -n 's/^ *"\([^"]*\)".*/\1/p')
    grep -qxF -e "$1" <<<"$known" || die 2 "Unknown preset '$1'; there are: ${known//$'\n'/ }"
}

# The sanitizers of GCC 12 may fail to place their shadow memory when the kernel randomises addresses widely. This goes
# for the build too, which runs the test programs to list their tests.
in_preset()
{
    local preset=$1 wrapper=()
    shift
    if [[ $preset == [at]san ]] && setarch -R true 2>/dev/null; then
        wrapper=(setarch -R)
    fi
    (cd "$(repo_root)" && "${wrapper[@]}" "$@")
}

# A warning fails the build where KEL_WARNINGS_AS_ERRORS is ON in the environment, as in CI.
configure_preset()
{
    local root stamp strict=${KEL_WARNINGS_AS_ERRORS:-OFF}
    root=$(repo_root)
    stamp=$root/build/$1/.configured
    # Ninja itself configures again after a change of a CMake file, but knows nothing of the presets.
    if [[ ! -f $stamp || ! -f $root/build/$1/build.ninja || $root/CMakePresets.json -nt $stamp ||
        $(<"$stamp") != "$strict" ]]; then
        run_quietly in_preset "$1" cmake --preset "$1" -DKEL_WARNINGS_AS_ERRORS="$strict" || return
        echo "$strict" >"$stamp"
    fi
}

build_preset()
{
    configure_preset "$1" || die 1 "Cannot configure preset '$1'"
    in_preset "$1" cmake --build --preset "$1" -j "$(jobs)" || die 1 "Cannot build preset '$1'"
}

# test_preset NAME [argument of ctest...]
test_preset()
{
    local preset=$1
    shift
    in_preset "$preset" ctest --preset "$preset" -j "$(jobs)" --no-tests=error "$@"
}

# The count of cases over all programs that run theirs apart, each of which ends with its own.
print_case_count()
{
    awk '/^[0-9]+ passed, [0-9]+ failed$/ { passed += $1; failed += $3 }
         END { printf "%d passed, %d failed\n", passed, failed }' "$(repo_root)/build/$1/Testing/Temporary/LastTest.log"
}

# A filter that leaves nothing has a spelling mistake.
require_cases()
{
    [[ -z ${GTEST_FILTER-} || $(print_case_count "$1") != '0 passed'* ]] || die 1 "GTEST_FILTER leaves no case"
}

# --- sources ---

# Those of the given folders that exist, joined by "|".
existing_folders()
{
    local folder found=()
    for folder in "$@"; do
        [[ ! -d $(repo_root)/$folder ]] || found+=("$folder")
    done
    (IFS='|' && printf '%s\n' "${found[*]}")
}
