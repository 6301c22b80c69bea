# SPDX-License-Identifier: Apache-2.0
# What the other scripts share: where the project is, its packages, its builds.
# To be sourced by a script in this folder.

set -euo pipefail
project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)

packages_build="cmake ninja-build g++ pkg-config libyaml-cpp-dev libpugixml-dev nlohmann-json3-dev libcli11-dev lowdown"
packages_test="libgtest-dev libgmock-dev abigail-tools dpkg-dev man-db"
packages_test_all="doxygen fish zsh"
packages_bench="libbenchmark-dev liblmdb-dev libtdb-dev libsqlite3-dev python3-minimal"
packages_fuzz="clang libclang-rt-14-dev"
packages_powerpc="g++-powerpc-linux-gnu qemu-user googletest"

runtime_libraries="tavdb tavosw tavhook tavdbfile"

say() { printf '== %s\n' "$*"; }
die() { printf '%s: %s\n' "$(basename "$0")" "$*" >&2; exit 1; }

# Installs the Debian packages that are missing.
need_packages() {
    local missing="" package
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q '^install ok installed' || missing="$missing $package"
    done
    [ -z "$missing" ] && return 0
    [ "$(id -u)" -eq 0 ] || die "these packages are missing; install them as root:$missing"
    say "installing$missing"
    local log
    log=$(mktemp)
    # shellcheck disable=SC2086
    if ! { apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing; } >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        die "installing failed"
    fi
    rm -f "$log"
}

# build PRESET [TARGET...]: configures and builds, quietly unless it fails.
build() {
    local preset=$1 log
    shift
    log=$(mktemp)
    say "building ($preset)"
    if ! { cd "$project" && cmake --preset "$preset" && cmake --build --preset "$preset" -j "$jobs" ${1:+--target "$@"}; } >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        die "the $preset build failed"
    fi
    rm -f "$log"
}

# symbols_of LIBRARY: what it exports, "name@@version", sorted. For every machine.
symbols_of() {
    readelf -W --dyn-syms "$1" | awk '($5 == "GLOBAL" || $5 == "WEAK") && $7 != "UND" && $7 != "ABS" {print $8}' | LC_ALL=C sort
}

# abi_machine LIBRARY: what it runs on, as the folders in abi are called
abi_machine() {
    local name
    name=$(readelf -h "$1" | sed -n 's/^ *Machine: *//p')
    case "$name" in
        "Advanced Micro Devices X86-64") echo x86_64 ;;
        PowerPC) echo powerpc ;;
        *) die "$1 is for a machine that has no name here: $name" ;;
    esac
}

# newest_release FOLDER: the highest version that has a folder there
newest_release() { [ ! -d "$1" ] || ls "$1" | sort -V | tail -1; }
