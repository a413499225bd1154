#!/usr/bin/env bash
# A real fuzzing campaign: every target for SECONDS (default 600) on a working corpus that
# grows from run to run (build/fuzz-corpus/<target>, seeded from fuzz/corpus/<target>), with
# the format's dictionary. Limits: 1 s per input (a slower one is a hang), 512 MB (more is an
# out-of-memory). Findings are written to build/fuzz-findings/; minimise one with
#   build/fuzz/fuzz/fuzz_X -minimize_crash=1 -runs=10000 FILE
# and save it under fuzz/crashers/<target>/ once fixed (`make test` replays it from then on).
# Prints per target: executions, coverage (edges) and findings.
# Usage: fuzz/campaign.sh [BUILD_DIR] [SECONDS]
set -uo pipefail
build=${1:-build/fuzz}
seconds=${2:-600}
here=$(cd "$(dirname "$0")" && pwd)
findings="$build/../fuzz-findings"
mkdir -p "$findings"
summary=()
for target in "$build"/fuzz/fuzz_*; do
  [ -x "$target" ] || continue
  name=$(basename "$target")
  corpus="$build/../fuzz-corpus/${name#fuzz_}"
  mkdir -p "$corpus"
  [ -d "$here/corpus/${name#fuzz_}" ] && cp -rn "$here/corpus/${name#fuzz_}"/. "$corpus"/ 2>/dev/null
  before=$(ls "$findings" | grep -c "^$name-" || true)
  log=$(mktemp)
  echo "== $name for ${seconds}s"
  "$target" -max_total_time="$seconds" -timeout=1 -rss_limit_mb=512 -max_len=65536 \
    -dict="$here/ember-tide.dict" -print_final_stats=1 -artifact_prefix="$findings/$name-" \
    "$corpus" >"$log" 2>&1
  runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' | tail -1)
  edges=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | grep -o '[0-9]*')
  after=$(ls "$findings" | grep -c "^$name-" || true)
  tail -n 5 "$log"
  summary+=("$name: ${runs:-?} executions, ${edges:-?} edges, $((after - before)) findings")
  rm -f "$log"
done
echo
printf '%s\n' "${summary[@]}"
