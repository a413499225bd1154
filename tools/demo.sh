#!/usr/bin/env bash
# The main job on the bundled samples: what every document in examples/ carries, and its
# preview extracted to build/demo/. Usage: tools/demo.sh BUILD_DIR
set -euo pipefail
build=${1:-build/release}
tool="$build/ember-tide"
out=build/demo
mkdir -p "$out"
for doc in examples/*.etd; do
  name=$(basename "$doc" .etd)
  start=$(date +%s%N)
  summary=$("$tool" info "$doc")
  format=$("$tool" info --json "$doc" | sed -n 's/.*"format": "\([a-z]*\)".*/\1/p')
  if "$tool" extract "$doc" "$out/$name.${format:-bin}" 2>/dev/null; then
    ms=$(( ($(date +%s%N) - start) / 1000000 ))
    echo "$summary -> $out/$name.${format:-bin} (${ms} ms)"
  else
    echo "$summary -> nothing to extract"
  fi
done
