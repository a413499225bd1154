#!/usr/bin/env bash
# The main job on the bundled samples: a thumbnail of every document in examples/, written to
# build/demo/, one line per file. Usage: tools/demo.sh BUILD_DIR [SIZE]
set -euo pipefail
build=${1:-build/release}
size=${2:-256}
tool="$build/ember-tide"
out=build/demo
mkdir -p "$out"
printf '%-40s %-28s %-10s %s\n' document preview thumbnail time
for doc in examples/*.etd; do
  name=$(basename "$doc" .etd)
  json=$("$tool" info --json "$doc")
  preview=$(python3 -c 'import json,sys; p=json.loads(sys.argv[1])["preview"]; print("none" if p is None else "%s %sx%s, %d bytes" % (p["format"], p["width"], p["height"], p["bytes"]))' "$json")
  start=$(date +%s%N)
  if "$tool" thumbnail -s "$size" "$doc" "$out/$name.png" 2>/dev/null; then
    ms=$(( ($(date +%s%N) - start) / 1000000 ))
    dims=$(python3 -c 'import struct,sys; d=open(sys.argv[1],"rb").read(24); print("%dx%d" % struct.unpack(">II", d[16:24]))' "$out/$name.png")
    printf '%-40s %-28s %-10s %s ms\n' "$(basename "$doc")" "$preview" "$dims" "$ms"
  else
    printf '%-40s %-28s %-10s\n' "$(basename "$doc")" "$preview" "none"
  fi
done
echo "Thumbnails are in $out/"
