#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Makes the reference manual, and fails when something in a header is not documented: a
# function, a parameter of a function that documents others, a type or a macro. A field
# needs no comment where its name says it all.
#   make.sh DOXYFILE OUTPUT    HTML goes into OUTPUT/reference
# Ends with 77 when doxygen is not installed.
set -eu
doxyfile=$1 output=$2

if ! command -v doxygen >/dev/null; then
    echo "doxygen is not installed" >&2
    exit 77
fi
mkdir -p "$output"
rm -rf "$output/reference"
{
    cat "$doxyfile"
    echo "OUTPUT_DIRECTORY = $output"
    echo "WARN_LOGFILE = $output/reference.log"
} | doxygen -
if grep -v '(variable) of .* is not documented\.$' "$output/reference.log" >&2; then
    exit 1
fi
test -s "$output/reference/index.html"
