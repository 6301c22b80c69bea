#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Whether two machines make the same images: each builds a description in its own
# byte order and in the other one's, each converts what the other one built, and all
# that is of one order must be equal, byte for byte.
#   compare.sh DESCRIPTION NATIVE-TAVDB OTHER-TAVDB...
# The other command may be several words, an emulator in front. Ends with 77 when
# there is nothing to compare with.
set -eu
description=$1 native=$2
shift 2

skip() { echo "skipped: $*"; exit 77; }
[ -x "$native" ] || skip "no tavdb of this machine at '$native' (TAVDB_NATIVE_COMMAND)"
[ -f "$description" ] || skip "no description at '$description'"

place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
unset TAVDB_DIR

# The tables of a machine are in its own order, so each has a control table.
here() { TAVDB_DBTABLE="$place/here.tbl" "$native" "$@"; }
order_of() { sed -n 's/^byte order *\([a-z]*\)-endian$/\1/p'; }

# equal A B: the same files but for the tables, which belong to processes.
equal() {
    for file in component.med value.med constraint.med string.med data.med text.med media.conf schema.json; do
        cmp "$place/$1/$file" "$place/$2/$file"
    done
}

export TAVDB_DBTABLE="$place/there.tbl"
here build "$description" -o "$place/here"
"$@" build "$description" -o "$place/there"
order_here=$(here info -d "$place/here" | order_of)
order_there=$("$@" info -d "$place/there" | order_of)
[ -n "$order_here" ] && [ -n "$order_there" ] && [ "$order_here" != "$order_there" ] ||
    { echo "orders '$order_here' and '$order_there': nothing is compared"; exit 1; }

here build "$description" -o "$place/for-there" --byte-order "$order_there"
equal for-there there
"$@" build "$description" -o "$place/for-here" --byte-order "$order_here"
equal for-here here
here convert "$place/there" -o "$place/brought-here"
equal brought-here here
"$@" convert "$place/here" -o "$place/brought-there"
equal brought-there there

# What is in the wrong place is refused, on either machine.
status=0
"$@" get -d "$place/here" / 2>"$place/refusal" || status=$?
[ "$status" -eq 9 ] || { cat "$place/refusal"; echo "exit code $status instead of 9"; exit 1; }
echo "$order_here and $order_there: equal"
