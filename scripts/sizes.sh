#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Prints what the libraries of a build cost: bytes of code, constants, data and
# zeroed data, exported symbols, and the libraries that each needs.
#   scripts/sizes.sh [BUILD_FOLDER]    default: build/release
. "$(dirname "$0")/common.sh"

folder=${1:-$project/build/release}
[ -d "$folder/lib" ] || die "$folder holds no build; run scripts/test.sh or cmake --build first"

# section FILE NAME: its size in bytes
section() { size -A -d "$1" | awk -v name="$2" '$1 == name {sum = $2} END {print sum + 0}'; }

printf '%-22s %8s %8s %8s %8s %8s  %s\n' library code rodata data bss exports needs
for name in $runtime_libraries; do
    file=$folder/lib/lib$name.so.1
    exports=$(nm -D --defined-only "$file" | grep -vc ' A ' || true)
    needs=$(readelf -d "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | tr '\n' ' ')
    printf '%-22s %8d %8d %8d %8d %8d  %s\n' "lib$name.so.1" "$(section "$file" .text)" "$(section "$file" .rodata)" \
        $(($(section "$file" .data) + $(section "$file" .data.rel.ro))) "$(section "$file" .bss)" "$exports" "$needs"
done
