#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Feeds the library with hostile bytes: builds the fuzz targets with clang's fuzzer,
# address and undefined-behaviour sanitizers, and runs each for a while, from seeds
# and from what earlier runs found. Installs what is missing (as root).
#   scripts/fuzz.sh [SECONDS [TARGET...]]    default: 20 seconds for each of all
# Prints how often each target ran in a second. What ends a target is kept in
# build/fuzz/findings: mend it, and keep the input in tests/fuzz/regressions/TARGET.
. "$(dirname "$0")/common.sh"

seconds=${1:-20}
[[ "$seconds" =~ ^[1-9][0-9]*$ ]] || die "usage: scripts/fuzz.sh [SECONDS [TARGET...]]"
shift $(($# > 0 ? 1 : 0))
targets=${*:-tree constraints strings file_list tables media_conf path description repair}

# shellcheck disable=SC2086
need_packages $packages_build $packages_test $packages_fuzz
build fuzz fuzz_targets

folder=$project/build/fuzz
"$folder/bin/fuzz_seeds" "$folder/seeds"
mkdir -p "$folder/findings"
failed=0 running=0

# longest TARGET: no input is longer. Where more bytes only make a run slower, it is less
longest() {
    case "$1" in
    tables) echo 512 ;;
    constraints | strings | file_list | description) echo 4096 ;;
    media_conf) echo 8192 ;;  # twice the longest line
    *) echo 16384 ;;
    esac
}

# run TARGET: its corpus grows from run to run
run() {
    local target=$1 corpus="$folder/corpus/$1" log="$folder/$1.log" inputs
    [ -x "$folder/bin/fuzz_$target" ] || die "there is no target $target"
    mkdir -p "$corpus"
    inputs=("$folder/seeds/$target")
    [ ! -d "$project/tests/fuzz/regressions/$target" ] || inputs+=("$project/tests/fuzz/regressions/$target")
    if (cd "$folder" && "bin/fuzz_$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -max_len="$(longest "$target")" -dict="$project/tests/fuzz/words.dict" -print_final_stats=1 \
        -artifact_prefix="$folder/findings/$target-" "$corpus" "${inputs[@]}" >"$log" 2>&1); then
        printf '%-12s %8s runs a second, %s in all, %s inputs kept\n' "$target" \
            "$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")" \
            "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")" "$(find "$corpus" -type f | wc -l)"
    else
        printf '%-12s FAILED, see %s\n' "$target" "${log#"$project/"}"
        grep -m3 -E '^==[0-9]+== ?ERROR|^SUMMARY|runtime error|Test unit written' "$log" || true
        return 1
    fi
}

say "fuzzing for $seconds s each"
# as many at once as there are processors
for target in $targets; do
    run "$target" &
    running=$((running + 1))
    if [ "$running" -ge "$jobs" ]; then
        wait -n || failed=$((failed + 1))
        running=$((running - 1))
    fi
done
while [ "$running" -gt 0 ]; do
    wait -n || failed=$((failed + 1))
    running=$((running - 1))
done
[ "$failed" -eq 0 ]
