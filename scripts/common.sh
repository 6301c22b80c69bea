# SPDX-License-Identifier: Apache-2.0
# What the other scripts share: where the project is, its packages, its builds.
# To be sourced by a script in this folder.

set -euo pipefail
project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)

packages_build="cmake ninja-build g++ pkg-config libyaml-cpp-dev libpugixml-dev nlohmann-json3-dev libcli11-dev"
packages_test="libgtest-dev libgmock-dev"
packages_bench="libbenchmark-dev"
packages_powerpc="g++-powerpc-linux-gnu qemu-user googletest"

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
