#!/usr/bin/env bash
# The main job on the bundled samples: a thumbnail of every document in examples/, written to
# build/demo/, one line per file, then a contact sheet of them all (build/demo/contact-sheet.png)
# where a document without a thumbnail shows as an empty frame.
# Usage: tools/demo.sh BUILD_DIR [SIZE]
set -euo pipefail
build=${1:-build/release}
size=${2:-256}
tool="$build/ember-tide"
out=${DEMO_OUT:-build/demo}
mkdir -p "$out"

# Width x height from a PNG's header: big-endian at bytes 16 and 20.
png_size() {
    local b
    read -ra b < <(od -An -tu1 -j16 -N8 "$1")
    echo "$((b[0] << 24 | b[1] << 16 | b[2] << 8 | b[3]))x$((b[4] << 24 | b[5] << 16 | b[6] << 8 | b[7]))"
}

printf '%-40s %-34s %-10s %s\n' document preview thumbnail time
thumbnails=()
for doc in examples/*.etd; do
    png="$out/$(basename "$doc" .etd).png"
    thumbnails+=("$png")
    rm -f "$png" # a document that gives none must not show an older run's picture
    # "FILE: document, version 3.2, preview jpeg (kind 2) 320x240, 6999 bytes" -> what follows
    # the version, without the word "preview".
    info=$("$tool" info "$doc")
    preview=${info#*, version *, }
    preview=${preview#preview }
    start=$(date +%s%N)
    if error=$("$tool" thumbnail -s "$size" "$doc" "$png" 2>&1); then
        ms=$((($(date +%s%N) - start) / 1000000))
        printf '%-40s %-34s %-10s %s ms\n' "$(basename "$doc")" "$preview" "$(png_size "$png")" "$ms"
    else
        printf '%-40s %-34s %-10s %s\n' "$(basename "$doc")" "$preview" none "(${error##*: })"
    fi
done
"$build/contact-sheet" "$out/contact-sheet.png" "${thumbnails[@]}"
echo "Thumbnails are in $out/, all of them side by side in $out/contact-sheet.png ($(png_size "$out/contact-sheet.png"))"
