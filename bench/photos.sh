#!/usr/bin/env bash
# Picture quality over every photograph of Debian's lomiri-wallpapers-16.04 package (fifteen of
# them, 1365x1074 to 5312x2988, JPEG as the package ships them): each is put into a document by
# `ember-tide create`, thumbnailed at 128, 256 and 512, and compared (bench/quality.py) with
# ImageMagick's Lanczos resize of the whole photograph to exactly our pixel size, vipsthumbnail's
# thumbnail of that size beside ours. Prints a line per photograph and size, then the lowest PSNR
# and how many thumbnails fall below 45 dB. bench/peers.sh times a few pictures made from two of
# these photographs; this checks sharpness on all of them, where a choice tuned on a few may not
# hold.
#
# Usage: bench/photos.sh [BUILD_DIR]          (BUILD_DIR defaults to build/release)
#   PEERS_CACHE=build/peers-cache             the package as bench/peers.sh fetched it
#   PHOTOS_OUT=build/photos-results           documents, thumbnails, references, table.txt
#
# Exit status: 0 when the figures were printed; 2 when the build, the photographs (run
# bench/peers.sh once) or a tool that bench/peers.sh installs is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build/release}
backgrounds=${PEERS_CACHE:-build/peers-cache}/wallpapers/usr/share/backgrounds
out=${PHOTOS_OUT:-build/photos-results}

die() {
  echo "photos.sh: $*" >&2
  exit 2
}

[[ -x $build/ember-tide ]] || die "$build/ember-tide is not built (cmake --preset release && cmake --build --preset release)"
compgen -G "$backgrounds/*.jpg" >/dev/null || die "no photographs in $backgrounds: run bench/peers.sh once"
for command in /usr/bin/convert vipsthumbnail python3; do
  command -v "$command" >/dev/null || die "$command is missing (bench/peers.sh installs it)"
done
tool=$(cd "$build" && pwd)/ember-tide
mkdir -p "$out"
out=$(cd "$out" && pwd) # vipsthumbnail writes a relative name beside its input

pixel_size() {
  python3 -c 'import struct,sys; d=open(sys.argv[1],"rb").read(24); print("%dx%d" % struct.unpack(">II", d[16:24]))' "$1"
}
psnr() {
  python3 bench/quality.py "$1" "$2" | awk '{print $3}'
}

{
  printf '%-40s %5s %9s %7s %7s\n' photograph size thumbnail ours vips
  for photo in "$backgrounds"/*.jpg; do
    name=$(basename "$photo" .jpg)
    [[ -f $out/$name.etd ]] || "$tool" create "$photo" "$out/$name.etd" >/dev/null
    for size in 128 256 512; do
      base=$out/$name@$size
      "$tool" thumbnail -s "$size" "$out/$name.etd" "$base.ours.png"
      geometry=$(pixel_size "$base.ours.png")
      [[ -f $base.reference.png ]] ||
        /usr/bin/convert "$photo" -filter Lanczos -resize "$geometry!" "PNG24:$base.reference.png"
      vipsthumbnail "$photo" -s "$geometry!" -o "$base.vips.png"
      printf '%-40s %5s %9s %7s %7s\n' "$name" "$size" "$geometry" \
        "$(psnr "$base.ours.png" "$base.reference.png")" "$(psnr "$base.vips.png" "$base.reference.png")"
    done
  done
} | tee "$out/table.txt"

# "inf" (identical pictures) sorts above every number.
awk 'NR > 1 {
       for (i = 4; i <= 5; ++i) {
         v = ($i == "inf") ? 1e9 : $i + 0
         if (!(i in low) || v < low[i]) { low[i] = v; at[i] = $1 "@" $2 }
         if (v < 45) ++below[i]
         ++count[i]
       }
     }
     END {
       printf "\nlowest PSNR: ours %.2f dB (%s), vips %.2f dB (%s)\n", low[4], at[4], low[5], at[5]
       printf "below 45 dB: ours %d of %d, vips %d of %d\n", below[4], count[4], below[5], count[5]
     }' "$out/table.txt"
