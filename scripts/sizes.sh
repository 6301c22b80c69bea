#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Prints what the libraries of a build cost: bytes of code, constants, data and
# zeroed data, exported symbols, the libraries that each needs, the largest stack
# frames, and what one process costs that attaches, reads one value and detaches.
#   scripts/sizes.sh [BUILD_FOLDER...]    default: build/release and build/ppc, those that are there
# "cmake --build FOLDER --target sizes" builds what is needed first.
. "$(dirname "$0")/common.sh"
export LC_ALL=C

frames=3 runs=21
builds=("$@")
if [ ${#builds[@]} -eq 0 ]; then
    for folder in "$project/build/release" "$project/build/ppc"; do
        [ ! -d "$folder/lib" ] || builds+=("$folder")
    done
fi
[ ${#builds[@]} -gt 0 ] || die "there is no build; run scripts/test.sh or cmake --build first"

# section FILE NAME...: the bytes of these sections together, for every machine
section() {
    local file=$1
    shift
    readelf -SW "$file" | sed 's/^ *\[ *[0-9]*\] *//' | while read -r name _ _ _ size _; do
        case " $* " in *" $name "*) printf '%d\n' "0x$size" ;; esac
    done | awk '{sum += $1} END {print sum + 0}'
}

libraries() {
    local name file needs
    printf '%-18s %8s %8s %8s %8s %8s  %s\n' library code rodata data bss exports needs
    for name in $runtime_libraries; do
        file=$1/lib/lib$name.so.1
        needs=$(readelf -d "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | tr '\n' ' ')
        printf '%-18s %8d %8d %8d %8d %8d  %s\n' "lib$name.so.1" "$(section "$file" .text)" "$(section "$file" .rodata)" \
            "$(section "$file" .data .data.rel.ro)" "$(section "$file" .bss)" "$(symbols_of "$file" | wc -l)" "$needs"
    done
}

# The compiler's own account: "file:line:column:function<TAB>bytes<TAB>kind".
stack_frames() {
    local layer
    for layer in src port; do
        printf 'largest stack frames of %s, bytes:\n' "$layer"
        find "$1/$layer" -name '*.su' -exec cat {} + | awk -F '\t' '{sub(/.*:[0-9]+:[0-9]+:/, "", $1); print $2, $1}' |
            sort -rn | sed "$frames q" | sed 's/^/  /'
    done
}

# median COLUMN: of what stands in a column of the input
median() { awk -v column="$1" '{print $column}' | sort -n | awk '{line[NR] = $1} END {print line[int((NR + 1) / 2)]}'; }

# On an emulated machine memory is the emulator's and time says nothing: not measured.
one_process() {
    local place out i
    if [ "$(abi_machine "$1/lib/libtavdb.so.1")" != "$(uname -m)" ] || [ ! -x "$1/bin/one-read" ] || [ ! -x "$1/bin/tavdb" ]; then
        printf 'one process that reads one value: not measured, it cannot run here or is not built (target "sizes")\n'
        return
    fi
    place=$(mktemp -d)
    export TAVDB_DBTABLE=$place/control.tbl
    "$1/bin/tavdb" build "$project/examples/gateway/gateway.yaml" -o "$place/gateway" >/dev/null 2>&1
    out=$(for ((i = 0; i < runs; i++)); do "$1/bin/one-read" "$place/gateway" /network/lan/mtuBytes; done)
    rm -rf "$place"
    printf 'one process, median of %d: attach %s us, first read by name %s us, detach %s us, private memory %s KiB\n' "$runs" \
        "$(median 1 <<<"$out")" "$(median 2 <<<"$out")" "$(median 3 <<<"$out")" "$(median 4 <<<"$out")"
}

for folder in "${builds[@]}"; do
    [ -e "$folder/lib/libtavdb.so.1" ] || die "$folder holds no build"
    printf '%s\n' "$(abi_machine "$folder/lib/libtavdb.so.1") ($(basename "$folder"))"
    libraries "$folder"
    stack_frames "$folder"
    one_process "$folder"
    printf '\n'
done
