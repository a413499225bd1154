#!/usr/bin/env bash
# Runs every fuzz target for a short while on its seed corpus (a copy: the corpus in the
# repository is not grown by smoke runs). Usage: fuzz/smoke.sh BUILD_DIR [SECONDS]
set -euo pipefail
build=${1:-build/fuzz}
seconds=${2:-30}
here=$(cd "$(dirname "$0")" && pwd)
status=0
for target in "$build"/fuzz/fuzz_*; do
  [ -x "$target" ] || continue
  name=$(basename "$target")
  seeds="$here/corpus/${name#fuzz_}"
  work=$(mktemp -d)
  [ -d "$seeds" ] && cp -r "$seeds"/. "$work"/ 2>/dev/null || true
  echo "== $name for ${seconds}s"
  if ! "$target" -max_total_time="$seconds" -timeout=2 -rss_limit_mb=512 -max_len=65536 -dict="$here/ember-tide.dict" -print_final_stats=1 \
       -artifact_prefix="$build/$name-" "$work" 2>&1 | tail -n 12; then
    status=1
  fi
  rm -rf "$work"
done
exit $status
