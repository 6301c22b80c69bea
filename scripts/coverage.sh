#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs the library's tests on a build that counts, and prints which lines and
# branches of src/ they reached, the lines that they did not, and for each result
# code whether a line that raises it ran. Installs what is missing (as root).
# Exit code 0 only when every code was raised.
. "$(dirname "$0")/common.sh"

# shellcheck disable=SC2086
need_packages $packages_build $packages_test gcovr
build coverage

folder=$project/build/coverage
find "$folder" -name '*.gcda' -delete
say "testing (coverage)"
(cd "$project" && ctest --preset coverage --exclude-regex '^Osw|^Fake' >"$folder/tests.log" 2>&1) ||
    { tail -20 "$folder/tests.log" >&2; die "tests failed"; }

say "lines and branches of src/"
gcovr --root "$project" --filter "$project/src/" --object-directory "$folder" \
    --exclude-throw-branches --json "$folder/coverage.json" --print-summary --txt "$folder/coverage.txt" "$folder" 2>/dev/null
cat "$folder/coverage.txt"

say "result codes"
python3 "$project/scripts/raised_codes.py" "$folder/coverage.json" "$project"
