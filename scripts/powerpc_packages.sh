#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Debian offers no yaml-cpp and no pugixml for powerpc. This builds both, as archives,
# from Debian's source packages with the cross compiler, and puts CLI11 and
# nlohmann-json, which are headers only, beside them: what the `ppc` preset needs to
# build the command. Installs what is missing (as root); does nothing the second time.
. "$(dirname "$0")/common.sh"

folder=$project/build/powerpc-packages
[ ! -e "$folder/complete" ] || exit 0

# shellcheck disable=SC2086
need_packages $packages_build $packages_powerpc dpkg-dev

# source_lists FOLDER: this machine's package lists, asking for sources instead
source_lists() {
    local list
    for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [ ! -e "$list" ] || sed -n 's/^deb /deb-src /p' "$list" >"$1/$(basename "$list")"
    done
    for list in /etc/apt/sources.list.d/*.sources; do
        [ ! -e "$list" ] || sed 's/^Types: .*/Types: deb-src/' "$list" >"$1/$(basename "$list")"
    done
}

fetch_sources() {
    local apt="apt-get -qq -o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts=$folder/lists
        -o Dir::State::Lists=$folder/state -o APT::Sandbox::User="
    mkdir -p "$folder/lists" "$folder/state/partial" "$folder/source"
    source_lists "$folder/lists"
    cd "$folder/source"
    $apt update
    $apt source --download-only yaml-cpp pugixml
    for package in yaml-cpp pugixml; do
        dpkg-source --extract "$package"_*.dsc "$package"
    done
}

# install_package NAME [DEFINITION...]: configures, builds and installs one of them
install_package() {
    local name=$1
    shift
    cmake -S "$folder/source/$name" -B "$folder/build/$name" -G Ninja "$@" \
        -DCMAKE_TOOLCHAIN_FILE="$project/cmake/powerpc.cmake" -DCMAKE_BUILD_TYPE=Release \
        -DBUILD_SHARED_LIBS=OFF -DCMAKE_INSTALL_PREFIX="$folder" -DCMAKE_INSTALL_LIBDIR=lib
    cmake --build "$folder/build/$name" -j "$jobs"
    cmake --install "$folder/build/$name"
}

# headers NAME FOLDER: a package of headers, with the description that CMake finds it by
headers() {
    mkdir -p "$folder/include" "$folder/share/cmake"
    cp -r "/usr/share/cmake/$1" "$folder/share/cmake/"
    cp -r "/usr/include/$2" "$folder/include/"
}

build_all() {
    fetch_sources
    install_package yaml-cpp -DYAML_CPP_BUILD_TESTS=OFF -DYAML_CPP_BUILD_TOOLS=OFF
    install_package pugixml
    headers CLI11 CLI
    headers nlohmann_json nlohmann
    rm -rf "$folder/build" "$folder/source" "$folder/lists" "$folder/state"
    touch "$folder/complete"
}

say "building yaml-cpp and pugixml for powerpc"
rm -rf "$folder"
mkdir -p "$folder"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
set +e # a condition around build_all would let it go on after a failure
(set -e; build_all) >"$log" 2>&1
status=$?
if [ "$status" -ne 0 ]; then
    cat "$log" >&2
    die "yaml-cpp and pugixml could not be built for powerpc"
fi
