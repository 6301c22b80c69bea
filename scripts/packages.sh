#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the Debian packages libtavdb1, libtavdb-dev and tavdb-tools into
# build/packages. Installs what is missing (as root).
#   scripts/packages.sh [amd64|powerpc|all]     default: amd64
#   scripts/packages.sh --built DIR OUTPUT      from a build folder, into the folder OUTPUT
# What a package holds is one component of "cmake --install"; packaging/control
# says the rest. Equal builds give equal packages.
. "$(dirname "$0")/common.sh"
export LC_ALL=C
umask 022

packaging=$project/packaging
output=$project/build/packages
maintainer=$(sed -n 's/^ -- \(.*>\)  .*/\1/p' "$packaging/changelog" | head -1)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

usage() { die "usage: scripts/packages.sh [amd64|powerpc|all], or --built DIR OUTPUT"; }
cached() { sed -n "s/^$2:[A-Z]*=//p" "$1/CMakeCache.txt"; }
changelog() { dpkg-parsechangelog -l "$packaging/changelog" -S "$1"; }
kibibytes() { find "$1" -type f -printf '%s\n' | awk '{sum += int(($1 + 1023) / 1024)} END {print sum}'; }
programs_in() { find "$1" -type f \( -path '*/bin/*' -o -name 'lib*.so.*' \); }

# The C library that all programs and libraries in a folder can do with. Their
# symbols say it, which holds for every machine; packages need not be installed.
needed_libc() {
    local versions
    # shellcheck disable=SC2046
    versions=$(readelf -V -W $(programs_in "$1") | sed -n 's/.*Name: GLIBC_\([A-Z0-9_.]*\) .*/\1/p' | sort -uV)
    # relative relocations came with 2.36 and have a name of their own
    versions=$(sort -V <<<"${versions/ABI_DT_RELR/2.36}")
    [[ $(tail -1 <<<"$versions") =~ ^2\.[0-9.]+$ ]] || die "the C library that $1 needs has no number: $versions"
    tail -1 <<<"$versions"
}

# Nothing may be needed that no dependency brings.
check_needed() {
    local library own
    own=$(printf 'lib%s.so.1 ' $runtime_libraries)
    # shellcheck disable=SC2046
    readelf -d -W $(programs_in "$1") | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort -u | while read -r library; do
        case "$library" in
            libc.so.6 | libm.so.6 | ld.so.1 | ld-linux*.so.*) ;;
            *) [[ " $own " == *" $library "* ]] || die "no package is known for $library" ;;
        esac
    done
}

# Since which release there is each symbol, for who links with the libraries.
write_symbols() {
    local name release
    for name in $runtime_libraries; do
        printf 'lib%s.so.1 libtavdb1 #MINVER#\n' "$name"
        # shellcheck disable=SC2012
        for release in $(ls "$project/abi" | sort -V); do
            [ ! -e "$project/abi/$release/$2" ] ||
                sed "s/\(.*\)@@\(.*\)/ \1@\2 $release/" "$project/abi/$release/$2/lib$name.symbols"
        done | sort -s -u -k1,1
    done >"$1"
}

# What only the package of the libraries has.
add_library_control() {
    local name
    for name in $runtime_libraries; do printf 'lib%s 1 libtavdb1 (>= %s)\n' "$name" "$version"; done >"$1/shlibs"
    write_symbols "$1/symbols" "$2"
    cp "$packaging/libtavdb1.triggers" "$1/triggers"
    install -m 755 "$packaging/libtavdb1.postinst" "$1/postinst"
}

# package NAME COMPONENT BUILD
package() {
    local stage=$work/$1 document=$work/$1/usr/share/doc/$1 libc=none
    cmake --install "$3" --component "$2" --strip --prefix "$stage/usr" >"$work/log" 2>&1 ||
        { cat "$work/log" >&2; die "installing failed"; }
    # where Debian's zsh looks for what packages bring
    [ ! -d "$stage/usr/share/zsh/site-functions" ] ||
        mv "$stage/usr/share/zsh/site-functions" "$stage/usr/share/zsh/vendor-completions"
    [ ! -d "$stage/usr/share/man" ] || find "$stage/usr/share/man" -type f -exec gzip -9n {} +
    # a system's own libraries need no -I and -L, which pkg-config sees only by their plain path
    [ ! -d "$stage/usr/$libdir/pkgconfig" ] || sed -i 's|^prefix=.*|prefix=/usr|' "$stage/usr/$libdir/pkgconfig"/*.pc
    mkdir -p "$document" "$stage/DEBIAN"
    cp "$packaging/copyright" "$document/copyright"
    gzip -9n <"$packaging/changelog" >"$document/changelog.Debian.gz"
    if [ -n "$(programs_in "$stage")" ]; then
        check_needed "$stage"
        libc=$(needed_libc "$stage")
    fi
    {
        printf 'Package: %s\nSource: tavdb\nVersion: %s\nArchitecture: %s\n' "$1" "$version" "$architecture"
        printf 'Maintainer: %s\nPriority: optional\nInstalled-Size: %s\n' "$maintainer" "$(kibibytes "$stage/usr")"
        sed "s/@version@/$version/; s/@libc@/$libc/" "$packaging/control/$1"
    } >"$stage/DEBIAN/control"
    [ "$2" != runtime ] || add_library_control "$stage/DEBIAN" "$(abi_machine "$3/lib/libtavdb.so.1")"
    # files keep the times of this checkout and build otherwise
    find "$stage" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
    (cd "$stage" && find usr -type f -print0 | sort -z | xargs -0 md5sum >DEBIAN/md5sums)
    rm -f "$output/$1"_*_"$architecture.deb"
    dpkg-deb --root-owner-group -Zxz --build "$stage" "$output" >/dev/null
    printf '%s\n' "$output/$1_${version}_$architecture.deb"
}

# packages BUILD: all three
packages() {
    local built=$1
    [ -f "$built/CMakeCache.txt" ] || die "$built holds no build"
    version=$(changelog Version)
    [ "${version%-*}" = "$(cached "$built" CMAKE_PROJECT_VERSION)" ] ||
        die "packaging/changelog is about $version, the build is not"
    libdir=$(cached "$built" CMAKE_INSTALL_LIBDIR)
    [[ $libdir == lib/*-linux-gnu* ]] ||
        die "$built installs into $libdir, where Debian has no libraries; configure it anew with cmake --fresh --preset"
    [ "$(cached "$built" TAVDB_BUILD_TOOLS)" = ON ] || die "$built was configured without the command"
    architecture=$(dpkg-architecture -t "$(basename "$libdir")" -qDEB_HOST_ARCH 2>/dev/null)
    SOURCE_DATE_EPOCH=$(changelog Timestamp)
    export SOURCE_DATE_EPOCH
    mkdir -p "$output"
    package libtavdb1 runtime "$built"
    package libtavdb-dev development "$built"
    package tavdb-tools tools "$built"
    rm -rf "${work:?}"/*
}

# shellcheck disable=SC2086
for_machine() {
    need_packages $packages_build dpkg-dev
    case "$1" in
        amd64) build release shipped; packages "$project/build/release" ;;
        powerpc)
            need_packages $packages_powerpc
            "$project/scripts/powerpc_packages.sh"
            build ppc shipped
            packages "$project/build/ppc"
            ;;
    esac
}

case "${1:-amd64}" in
    amd64 | powerpc) [ $# -le 1 ] || usage; for_machine "${1:-amd64}" ;;
    all) [ $# -eq 1 ] || usage; for_machine amd64; for_machine powerpc ;;
    --built)
        [ $# -eq 3 ] || usage
        output=$3
        need_packages dpkg-dev
        packages "$2"
        ;;
    *) usage ;;
esac
