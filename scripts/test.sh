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
    local preset=$1 report
    build "$preset"
    say "testing ($preset)"
    report="$project/build/$preset/tests.xml"
    (cd "$project" && ctest --preset "$preset" --output-junit "$report" --progress >"$project/build/$preset/tests.log" 2>&1) || true
    [ -s "$report" ] || { cat "$project/build/$preset/tests.log" >&2; die "the tests of $preset did not run"; }
    local attribute count
    count() { attribute=$1; sed -n "s/.*<testsuite[^>]* $attribute=\"\([0-9]*\)\".*/\1/p" <(tr '\n' ' ' <"$report" | head -c 4000) | head -1; }
    local total f s
    total=$(count tests) f=$(count failures) s=$(count skipped)
    failed=$((failed + f)) skipped=$((skipped + s)) passed=$((passed + total - f - s))
    grep -E '^\s+[0-9]+ - .*\((Skipped|Not Run|Failed|Timeout|SEGFAULT|Subprocess aborted).*' "$project/build/$preset/tests.log" | sort -u || true
    [ "$f" -eq 0 ] || sed -n '/[Ff]ailure$\|FAILED\|Error/p' "$project/build/$preset/tests.log" | head -60
}

run release
if [ "$all" = yes ]; then
    run sanitize
fi

say "took $(($(date +%s) - started)) s"
[ "$skipped" -eq 0 ] || say "skipped tests print their reason in build/*/tests.log"
printf '%d passed, %d failed, %d skipped\n' "$passed" "$failed" "$skipped"
[ "$failed" -eq 0 ]
