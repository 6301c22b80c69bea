#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Checks that the binary interface of the run-time libraries is that of the newest
# release: the symbols they export and the types behind them. Every difference
# fails, an added symbol too, until it is accepted.
#   scripts/abi.sh [BUILD_FOLDER...]            default: build/release and build/ppc, those that are there
#   scripts/abi.sh --accept [BUILD_FOLDER...]   writes the interface of the builds down as that of their version
#   --releases DIR, before the folders          where releases are written down; default: abi
# In abi/VERSION/MACHINE each library has a list of symbols and a description of
# its types, as abidw writes it.
. "$(dirname "$0")/common.sh"
export LC_ALL=C

version=$(sed -n 's/^project(tavdb VERSION \([0-9.]*\) .*/\1/p' "$project/CMakeLists.txt")
suffix=so.${version%%.*}
accept=no releases=$project/abi builds=()
while [ $# -gt 0 ]; do
    case "$1" in
        --accept) accept=yes ;;
        --releases) [ $# -ge 2 ] || die "--releases needs a folder"; releases=$2; shift ;;
        -*) die "usage: scripts/abi.sh [--accept] [--releases DIR] [BUILD_FOLDER...]" ;;
        *) [ -d "$1/lib" ] || die "$1 holds no build"; builds+=("$1") ;;
    esac
    shift
done
if [ ${#builds[@]} -eq 0 ]; then
    for folder in "$project/build/release" "$project/build/ppc"; do
        [ ! -e "$folder/lib/libtavdb.$suffix" ] || builds+=("$folder")
    done
fi
[ ${#builds[@]} -gt 0 ] || die "there is no build; run cmake --preset release && cmake --build --preset release"
need_packages abigail-tools

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# describe BUILD FOLDER: writes lists and descriptions of its libraries. Nothing in
# them says where the sources lay or how the library was compiled.
describe() {
    local name file
    mkdir -p "$2"
    for name in $runtime_libraries; do
        file=$1/lib/lib$name.$suffix
        [ -e "$file" ] || die "$1 has no lib$name.$suffix"
        readelf -S -W "$file" | grep -q ' \.debug_info ' || die "$file has no debug information, it was stripped"
        symbols_of "$file" >"$2/lib$name.symbols"
        abidw --exported-interfaces-only --no-corpus-path --no-show-locs --no-comp-dir-path --no-elf-needed \
            --no-write-default-sizes --type-id-style hash "$file" |
            sed "s|\( path='\)[^']*/|\1|" >"$2/lib$name.abi"
    done
}

# compare RELEASE BUILT: prints what differs between two such folders; fails if anything does
compare() {
    local name same=yes
    for name in $runtime_libraries; do
        if [ ! -e "$1/lib$name.symbols" ] || [ ! -e "$1/lib$name.abi" ]; then
            printf 'lib%s: not written down\n' "$name"
            same=no
            continue
        fi
        comm -23 "$1/lib$name.symbols" "$2/lib$name.symbols" | sed "s/^/lib$name: removed /" >"$work/changes"
        comm -13 "$1/lib$name.symbols" "$2/lib$name.symbols" | sed "s/^/lib$name: added /" >>"$work/changes"
        abidiff --harmless --no-added-syms --no-unreferenced-symbols \
            "$1/lib$name.abi" "$2/lib$name.abi" >"$work/types" ||
            { echo "functions and types:"; cat "$work/types"; } | sed "s/^/lib$name: /" >>"$work/changes"
        if [ -s "$work/changes" ]; then
            cat "$work/changes"
            same=no
        fi
    done
    [ $same = yes ]
}

changed=no
for folder in "${builds[@]}"; do
    name=$(abi_machine "$folder/lib/libtavdb.$suffix")
    describe "$folder" "$work/$name"
    if [ $accept = yes ]; then
        mkdir -p "$releases/$version"
        rm -rf "${releases:?}/$version/$name"
        cp -r "$work/$name" "$releases/$version/$name"
        say "$folder is the interface of $version on $name now"
        continue
    fi
    release=$(newest_release "$releases")
    [ -n "$release" ] || die "no release is written down in $releases"
    if compare "$releases/$release/$name" "$work/$name"; then
        say "$folder: the interface is that of $release on $name"
    else
        say "$folder: the interface is not that of $release on $name"
        changed=yes
    fi
done
[ $changed = no ] && exit 0
cat >&2 <<END
Programs that were linked with $release may break. If the change is meant:
  something was only added      raise the version in CMakeLists.txt, and packaging/changelog
  something changed or is gone  raise its first number: programs have to be linked anew
then, with the builds of all machines, scripts/abi.sh --accept
END
exit 1
