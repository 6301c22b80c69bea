#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the project and runs all tests. Installs what is missing (as root).
#   scripts/test.sh          the optimised build
#   scripts/test.sh --all    the same, then everything again under the address and
#                            undefined-behaviour sanitizers, the tests of threads
#                            under the thread sanitizer, everything for powerpc
#                            under emulation, and a short fuzzing, as CI does
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
# tests that are skipped without them
# shellcheck disable=SC2086
[ "$all" = no ] || need_packages $packages_test_all

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
    count_verdicts "$project/build/$preset/Testing/Temporary/LastTest.log"
}

# count_verdicts LOG: programs that ran many tests themselves counted as one each so far
count_verdicts() {
    local p f s
    while read -r p f s; do
        passed=$((passed + p)) failed=$((failed + f)) skipped=$((skipped + s))
        if [ "$f" -eq 0 ]; then passed=$((passed - 1)); else failed=$((failed - 1)); fi
    done < <(sed -n 's/^verdicts: \([0-9]*\) passed, \([0-9]*\) failed, \([0-9]*\) skipped$/\1 \2 \3/p' "$1")
}

run release
if [ "$all" = yes ]; then
    run sanitize
    run threads
    # shellcheck disable=SC2086
    need_packages $packages_powerpc
    "$project/scripts/powerpc_packages.sh" ||
        { say "without yaml-cpp and pugixml: the command is neither built nor tested for powerpc"; without=OFF; }
    (cd "$project" && cmake --preset ppc -DTAVDB_BUILD_TOOLS="${without:-ON}" >/dev/null)
    run ppc
    "$project/scripts/fuzz.sh" || failed=$((failed + 1))
fi

say "took $(($(date +%s) - started)) s"
[ "$skipped" -eq 0 ] || say "why a test is skipped: docs/TESTING.md"
printf '%d passed, %d failed, %d skipped\n' "$passed" "$failed" "$skipped"
[ "$failed" -eq 0 ]
