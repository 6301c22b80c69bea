#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds and runs the benchmarks and prints their tables (docs/PERFORMANCE.md).
# Installs what is missing, other stores to compare with among it (as root).
#   scripts/bench.sh [--quick] [GROUP...]    default: all groups of tavdb_benchmark
# Every figure goes to build/release/benchmarks/figures.json, all runs of a group
# to GROUP.json beside it. --quick runs fewer rounds, for a first look.
. "$(dirname "$0")/common.sh"

# many short rounds: what slows the machine down for a while then hits few of them
rounds=101 seconds=0.006
if [ "${1:-}" = --quick ]; then
    rounds=5
    shift
fi

# shellcheck disable=SC2086
need_packages $packages_build $packages_test $packages_bench
build release tavdb_benchmark
program=$project/build/release/bin/tavdb_benchmark
results=$project/build/release/benchmarks
mkdir -p "$results"

groups=("$@")
if [ ${#groups[@]} -eq 0 ]; then
    mapfile -t groups < <("$program" 2>&1 | sed -n 's/^  //p')
fi
files=()
log=$(mktemp)
trap 'rm -f "$log"' EXIT
for group in "${groups[@]}"; do
    say "measuring $group"
    length=(--benchmark_repetitions=$rounds --benchmark_min_time=$seconds)
    # what is counted is the same each time, when all settings have had their turn
    [ "$group" != counted ] || length=(--benchmark_repetitions=1 --benchmark_min_time=0.5)
    # shuffled, so that what slows it down hits all alike
    "$program" "$group" --benchmark_enable_random_interleaving=true "${length[@]}" \
        --benchmark_out="$results/$group.json" >"$log" 2>&1 || { cat "$log" >&2; die "the group $group failed"; }
    files+=("$results/$group.json")
done
python3 "$project/benchmarks/table.py" "$results/figures.json" "${files[@]}"
