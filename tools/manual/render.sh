#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Makes manual pages from their Markdown.
#   render.sh LOWDOWN PAGES MANUAL     PAGES/NAME.SECTION.md becomes MANUAL/manSECTION/NAME.SECTION
# What stands in the manual already is removed.
set -eu
lowdown=$1 pages=$2 manual=$3

rm -rf "$manual"
for page in "$pages"/*.md; do
    name=$(basename "$page" .md)
    mkdir -p "$manual/man${name##*.}"
    "$lowdown" -s -Tman --out-no-smarty --parse-no-autolink --parse-no-super -o "$page.roff" "$page"
    # literal words are bold, as in other manuals, and not hyphenated; a hyphen can be
    # copied into a shell; a term stays on the page of what it means
    sed -e 's/\\fC/\\%\\fB/g' -e '/^[.]/!s/-/\\-/g' "$page.roff" |
        sed -z -E 's/\.LP\n([^\n]*)\n\.if n \\\n\.sp -1v\n\.if t \\\n\.sp -0\.25v\n\.IP "" ([0-9]+n)\n/.TP \2\n\1\n/g' \
            >"$manual/man${name##*.}/$name"
    rm "$page.roff"
done
