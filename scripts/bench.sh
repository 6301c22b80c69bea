#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds and runs the benchmarks. Installs what is missing (as root). Arguments
# are handed on to the benchmark program, for example --benchmark_filter=tr-181.
. "$(dirname "$0")/common.sh"

# shellcheck disable=SC2086
need_packages $packages_build $packages_test $packages_bench
build release tavdb_benchmark
exec "$project/build/release/bin/tavdb_benchmark" "$@"
