#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Shows what tavdb does: builds the example gateway's database, lets several
# programs work on it at once, shows its hooks and the tavdb command, and prints
# the whole tree. Installs what is missing (as root), leaves nothing behind but
# the build.
#   scripts/demo.sh               builds first
#   scripts/demo.sh --built DIR   with the programs of a build folder
# Exit code 0 only when every step did what it should.
. "$(dirname "$0")/common.sh"

watched="/network /wireless /services /system"
ready_tries=300  # of 0.1 s each

built=
case "${1:-}" in
    "") [ $# -eq 0 ] || die "usage: scripts/demo.sh [--built DIR]" ;;
    --built) [ $# -eq 2 ] || die "usage: scripts/demo.sh [--built DIR]"; built=$(realpath -e "$2") ;;
    *) die "usage: scripts/demo.sh [--built DIR]" ;;
esac

started=() place=
clean_up() {
    local pid
    exec 2>/dev/null  # what went wrong is told; the shell would name every process that ends here
    # What ended well was taken off the list, so these are ours.
    for pid in "${started[@]}"; do kill -KILL "$pid" 2>/dev/null || true; done
    wait
    [ -z "$place" ] || rm -rf "$place"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

# A process in the background, with its output in a file.
start() {
    local output=$1
    shift
    "$@" >>"$output" 2>&1 &
    started+=($!)
}

# finish PID NAME: waits for one of them and insists on exit code 0.
finish() {
    local pid left=()
    wait "$1" || die "$2 failed with exit code $?"
    for pid in "${started[@]}"; do [ "$pid" = "$1" ] || left+=("$pid"); done
    started=("${left[@]}")
}

heading() { printf '\n== %s\n' "$*"; }
print_command() { printf '$'; printf ' %q' "$@"; printf '\n'; }

# Shows a command and what it prints.
show() {
    print_command "$@"
    "$@" 2>&1 || die "this failed with exit code $?: $*"
}

# show_refused CODE COMMAND...: the same for one that has to end with that exit code.
show_refused() {
    local expected=$1 code=0
    shift
    print_command "$@"
    "$@" 2>&1 || code=$?
    [ "$code" -eq "$expected" ] || die "exit code $code instead of $expected: $*"
    printf '(exit code %d)\n' "$code"
}

build_database() {
    heading "a database from a description"
    show tavdb build examples/gateway/gateway.yaml -o "$TAVDB_DIR" --hooks examples/gateway/hooks.conf
    cp "$built/lib/libgateway_hooks.so" "$TAVDB_DIR/"
}

await_watchers() {
    local try count
    count=$(wc -w <<<"$watched")
    for ((try = 0; try < ready_tries; try++)); do
        [ "$(grep -c '^watcher .*: watching' "$place/events" || true)" -lt "$count" ] || return 0
        sleep 0.1
    done
    cat "$place/events" >&2
    die "the watchers did not get ready"
}

run_programs() {
    local path pid writer refused printer watchers=()
    heading "one process writes, four watch, one tries what is refused: all at once"
    for path in $watched; do print_command gateway-watcher "$TAVDB_DIR" "$path"; done
    print_command gateway-writer "$TAVDB_DIR"
    touch "$place/events"
    for path in $watched; do
        start "$place/events" gateway-watcher "$TAVDB_DIR" "$path"
        watchers+=($!)
    done
    await_watchers
    start "$place/events" gateway-writer "$TAVDB_DIR"
    writer=$!
    start "$place/refused" gateway-refused "$TAVDB_DIR"
    refused=$!
    # Prints while they run, and ends with the last of them.
    tail -n +1 -s 0.1 -f --pid="${watchers[-1]}" "$place/events" &
    printer=$!
    started+=("$printer")
    finish "$writer" gateway-writer
    for pid in "${watchers[@]}"; do kill -TERM "$pid" || die "a watcher ended too early"; done
    for pid in "${watchers[@]}"; do finish "$pid" gateway-watcher; done
    finish "$printer" tail
    heading "what was refused meanwhile"
    print_command gateway-refused "$TAVDB_DIR"
    finish "$refused" "gateway-refused ($(cat "$place/refused"))"
    cat "$place/refused"
}

show_hooks() {
    heading "hooks run in every program, the tavdb command too"
    show tavdb set /wireless/radio0/channel 3
    show_refused 10 tavdb set /wireless/radio0/channel 13
    show tavdb get /wireless/radio0/channel
    show_refused 6 tavdb get /users/admin/passwordHash
    show tavdb get --secrets /users/admin/passwordHash
}

show_commands() {
    heading "reading and writing by hand"
    show tavdb list
    show tavdb list -l /network/dns
    show tavdb describe /network/lan/mtuBytes
    show tavdb get /network/wan/protocol /system/location/latitudeDeg /system/contact
    show tavdb get --json /services/syslog/level
    show tavdb get --factory /network/dns/primary
    show tavdb set /network/dns/cacheEntries=7500 /services/syslog/level=debug
    show_refused 4 tavdb set /network/dns/cacheEntries 7550
    show_refused 4 tavdb set /services/syslog/level loud
    show_refused 3 tavdb get /network/dns/tertiary
    show tavdb info
}

if [ -z "$built" ]; then
    # The build is configured as a whole, tests and benchmarks included.
    # shellcheck disable=SC2086
    need_packages $packages_build $packages_test $packages_bench
    build release tavdb_command gateway_example
    built="$project/build/release"
fi
for program in tavdb gateway-writer gateway-watcher gateway-refused; do
    [ -x "$built/bin/$program" ] || die "$built has no bin/$program"
done

began=$(date +%s)
place=$(mktemp -d)
cd "$project"
export PATH="$built/bin:$PATH"
export TAVDB_DIR="$place/gateway"
export TAVDB_DBTABLE="$place/databases"  # the machine's own table stays as it is

build_database
run_programs
show_hooks
show_commands
heading "the whole tree, secrets masked"
show tavdb tree
heading "done in $(($(date +%s) - began)) s"
