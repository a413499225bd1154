#!/usr/bin/env bash
# Runs the Google Benchmark programs of a build and prints their results: extraction on small
# and 300 MB documents (with the median ratio), GSFile's primitives and chunk forms (with the
# allocations per number operation), object tables of 10^4 to 10^6 objects, and strings (copies
# and their allocations, appending one character at a time, convertEncoding and the enumerator
# beside glibc's iconv on the same text), and the string tables (random inserts and lookups;
# filling tables of 10^5 entries takes about 20 s, so those runs need BENCH_FULL=1), and saving
# (a 100 MiB safe save to disk and to memory; bench/storage.sh sets it beside dd).
# Usage: bench/run.sh [BUILD_DIR] [BENCHMARK_FLAGS...]   (BUILD_DIR defaults to build/release)
# The minimum time per benchmark is kept short (BENCH_MIN_TIME, seconds, default 0.2) so that
# the whole run takes well under a minute; raise it for steadier figures. The extraction runs
# interleave their repetitions at random, so that load that comes and goes on the machine
# spreads over small and large documents alike instead of skewing their ratio.
set -euo pipefail
build=${1:-build/release}
shift $(( $# > 0 ? 1 : 0 ))
min_time=${BENCH_MIN_TIME:-0.2}

for program in bench_extraction bench_primitives bench_objects bench_strings bench_tables bench_storage; do
  exe="$build/bench/$program"
  if [[ ! -x $exe ]]; then
    echo "run.sh: $exe is not built (make bench)" >&2
    exit 2
  fi
done

for program in bench_extraction bench_primitives bench_objects bench_strings bench_tables bench_storage; do
  extra=()
  [[ $program == bench_extraction ]] && extra=(--benchmark_enable_random_interleaving=true)
  [[ $program == bench_tables && ${BENCH_FULL:-0} != 1 ]] && extra=(--benchmark_filter=-Insert/n:100000)
  echo
  echo "=== $program"
  "$build/bench/$program" --benchmark_min_time="$min_time" --benchmark_color=false "${extra[@]}" "$@"
done
