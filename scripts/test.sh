#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the project and runs all tests. Installs what is missing (as root).
#   scripts/test.sh          the optimised build
#   scripts/test.sh --all    the same, then everything again under the address
#                            and undefined-behaviour sanitizers, as CI does
# Ends with the counts of all runs and the time they took.
. "$(dirname "$0")/common.sh"

all=no
case "${1:-}" in
    "") ;;
    --all) all=yes ;;
    *) die "usage: scripts/test.sh [--all]" ;;
esac

# shellcheck disable=SC2086
need_packages $packages_build $packages_test $packages_bench

passed=0 failed=0 skipped=0
started=$(date +%s)

# run PRESET: the tests of one build, added to the counts.
run() {
    local preset=$1 log total failures skips
    build "$preset"
    say "testing ($preset)"
    log="$project/build/$preset/tests.log"
    (cd "$project" && ctest --preset "$preset" >"$log" 2>&1) || true
    # "100% tests passed, 0 tests failed out of 5215"; the skipped ones count as passed there
    read -r failures total < <(sed -n 's/^.*% tests passed, \([0-9]*\) tests failed out of \([0-9]*\)$/\1 \2/p' "$log") ||
        { tail -20 "$log" >&2; die "the tests of $preset did not run"; }
    skips=$(grep -c '(Skipped)$' "$log" || true)
    failed=$((failed + failures)) skipped=$((skipped + skips)) passed=$((passed + total - failures - skips))
    sed -n '/^The following tests/,/^$/p' "$log"
    [ "$failures" -eq 0 ] || say "their output stands in build/$preset/tests.log"
}

run release
if [ "$all" = yes ]; then
    run sanitize
fi

say "took $(($(date +%s) - started)) s"
[ "$skipped" -eq 0 ] || say "why a test is skipped: ctest --test-dir build/release -V -R NAME"
printf '%d passed, %d failed, %d skipped\n' "$passed" "$failed" "$skipped"
[ "$failed" -eq 0 ]
