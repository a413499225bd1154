#!/usr/bin/env bash
# Filling the desktop's thumbnail cache for a folder of 1,000 documents, three ways, in one run:
#   gdk-pixbuf   a shell loop that runs gdk-pixbuf-thumbnailer once per preview (extracted
#                beforehand, not timed): what a desktop does today, one process per file;
#   thumbnail    a shell loop that runs `ember-tide thumbnail` once per document;
#   cache        `ember-tide cache --jobs JOBS` over the whole folder (and --jobs 1 for scale);
# then `ember-tide cache` again over the same folder, where everything is up to date (median of
# 5 runs). All at 256 x 256 (the "large" size). Prints files per second, our ratio to the
# gdk-pixbuf loop (target >= 3 with 2 jobs) and the no-op time per 1,000 files (target < 0.1 s).
#
# Usage: bench/cache.sh [BUILD_DIR]           (BUILD_DIR defaults to build/release)
#   DOCUMENTS=1000 JOBS=2                     documents made, worker threads of the cache run
#   PEERS_CACHE=build/peers-cache             the photographs (shared with bench/peers.sh)
#   CACHE_BENCH=build/cache-bench             documents, previews, outputs and caches
#
# The documents are made by `ember-tide create` from six photographs, 512 to 2048 pixels wide
# (JPEG, quality 90), resized with ImageMagick from the CC-BY / CC-BY-SA wallpapers of Debian's
# lomiri-wallpapers-16.04 package, fetched once with `apt-get download` (as bench/peers.sh
# does). gdk-pixbuf-thumbnailer and ImageMagick are installed with apt-get when missing and the
# script runs as root; otherwise it prints the command and stops.
#
# Exit status: 0 when the figures were printed (a missed target is marked MISSED, not an
# error); 2 when a tool, the build or the photographs cannot be had.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build/release}
documents=${DOCUMENTS:-1000}
jobs=${JOBS:-2}
photos_cache=${PEERS_CACHE:-build/peers-cache}
work=${CACHE_BENCH:-build/cache-bench}
convert=/usr/bin/convert # the PATH may hold another program of that name

die() {
  echo "cache.sh: $*" >&2
  exit 2
}

[[ -x $build/ember-tide ]] || die "$build/ember-tide is not built (cmake --preset release && cmake --build --preset release)"
tool=$(cd "$build" && pwd)/ember-tide

missing=()
[[ -x /usr/bin/gdk-pixbuf-thumbnailer ]] || missing+=(libgdk-pixbuf2.0-bin)
{ [[ -x $convert ]] && "$convert" -version 2>/dev/null | grep -q ImageMagick; } || missing+=(imagemagick)
if (( ${#missing[@]} )); then
  [[ $(id -u) == 0 ]] || die "missing tools. Run: sudo apt-get install ${missing[*]}"
  apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
fi

# ---------------------------------------------------------------- photographs and documents
mkdir -p "$photos_cache" "$work"
photos_cache=$(cd "$photos_cache" && pwd)
work=$(cd "$work" && pwd)
backgrounds=$photos_cache/wallpapers/usr/share/backgrounds
if [[ ! -d $backgrounds ]]; then
  echo "Fetching the photographs (lomiri-wallpapers-16.04) into $photos_cache"
  rm -f "$photos_cache"/lomiri-wallpapers-16.04_*.deb
  (cd "$photos_cache" && { apt-get download -qq lomiri-wallpapers-16.04 2>/dev/null ||
                           { apt-get update -qq && apt-get download -qq lomiri-wallpapers-16.04; }; }) ||
    die "cannot download lomiri-wallpapers-16.04"
  dpkg -x "$photos_cache"/lomiri-wallpapers-16.04_*.deb "$photos_cache/wallpapers"
fi

photos=$work/photos
mkdir -p "$photos"
# source photograph : resize geometry (widths 512 to 2048; one portrait)
sources=(
  "Bridge_by_Sander_Klootwijk.jpg:2048x"
  "picosdeeuropa_by_Aitzol_Berasategi.jpg:1600x"
  "friends_by_Aitzol_Berasategi.jpg:1365x"
  "sunset_by_Aitzol_Berasategi.jpg:1024x"
  "Dragonfly_by_Bolly.jpg:800x"
  "life_by_Aitzol_Berasategi.jpg:512x"
)
i=0
for entry in "${sources[@]}"; do
  f=$photos/photo-$i.jpg
  [[ -f $f ]] || "$convert" "$backgrounds/${entry%%:*}" -strip -resize "${entry##*:}" -quality 90 \
                   -sampling-factor 4:2:0 "$f" || die "cannot convert ${entry%%:*}"
  i=$((i + 1))
done
nphotos=$i

docs=$work/docs-$documents
previews=$work/previews-$documents
if [[ ! -f $docs/.complete ]]; then
  echo "Making $documents documents in $docs"
  rm -rf "$docs" "$previews"
  mkdir -p "$docs" "$previews"
  for ((n = 0; n < documents; n++)); do
    folder=$docs/folder-$((n / 100))
    mkdir -p "$folder"
    "$tool" create "$photos/photo-$((n % nphotos)).jpg" "$folder/photo $n.etd"
    "$tool" extract "$folder/photo $n.etd" "$previews/photo-$n.jpg"
  done
  touch "$docs/.complete"
fi

# ---------------------------------------------------------------- timing
# Each measurement: wall seconds and CPU seconds (user + system, children included), from
# bash's `time`. The machine may be shared: CPU seconds show the work done whatever the load.
TIMEFORMAT='%R %U %S'
measure() { # COMMAND... -> "wall cpu" on stdout; the command's own output goes to $out/last.txt
  local t
  t=$( { time "$@" >"$out/last.txt" 2>&1; } 2>&1 ) || die "failed: $* ($(tail -n 3 "$out/last.txt"))"
  awk '{ printf "%.4f %.4f", $1, $2 + $3 }' <<<"$t"
}
rate() { awk -v n="$1" -v s="$2" 'BEGIN { printf "%.1f", n / s }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

out=$work/out
rm -rf "$out"
mkdir -p "$out/gdk" "$out/thumbnail"
cat "$docs"/*/*.etd "$previews"/*.jpg >/dev/null # warm the page cache for every contender

gdk_loop() {
  for f in "$previews"/*.jpg; do
    gdk-pixbuf-thumbnailer -s 256 "$f" "$out/gdk/$(basename "$f" .jpg).png" || return 1
  done
}
thumbnail_loop() {
  local n=0
  for f in "$docs"/*/*.etd; do
    "$tool" thumbnail -s 256 "$f" "$out/thumbnail/$n.png" || return 1
    n=$((n + 1))
  done
}
cache_run() { # JOBS CACHE_FOLDER
  XDG_CACHE_HOME=$2 "$tool" cache --json --size large --jobs "$1" "$docs"
}
written() { sed -nE 's/.*"written": ([0-9]+).*/\1/p' "$out/last.txt"; }

echo "Timing on $(nproc) cores (load average now: $(cut -d' ' -f1-3 /proc/loadavg)),"
echo "$documents documents from $nphotos photographs (512 to 2048 wide), thumbnails of 256 pixels"

read -r gdk_wall gdk_cpu <<<"$(measure gdk_loop)"
read -r thumb_wall thumb_cpu <<<"$(measure thumbnail_loop)"
read -r one_wall one_cpu <<<"$(measure cache_run 1 "$out/cache-1")"
[[ $(written) == "$documents" ]] || die "the --jobs 1 run wrote $(written) thumbnails: $(cat "$out/last.txt")"
read -r cache_wall cache_cpu <<<"$(measure cache_run "$jobs" "$out/cache-$jobs")"
[[ $(written) == "$documents" ]] || die "the --jobs $jobs run wrote $(written) thumbnails: $(cat "$out/last.txt")"

noop_wall=() noop_cpu=()
for r in 1 2 3 4 5; do
  read -r w c <<<"$(measure cache_run "$jobs" "$out/cache-$jobs")"
  grep -q "\"up_to_date\": $documents" "$out/last.txt" || die "the second run was no no-op: $(cat "$out/last.txt")"
  noop_wall+=("$w") noop_cpu+=("$c")
done
median() { printf '%s\n' "$@" | sort -g | sed -n "$(( ($# + 1) / 2 ))p"; }
noop_w=$(median "${noop_wall[@]}")
noop_c=$(median "${noop_cpu[@]}")
noop_per_1000=$(awk -v s="$noop_w" -v n="$documents" 'BEGIN { printf "%.4f", s * 1000 / n }')

echo
printf '%-46s %9s %9s %9s %8s\n' "" "wall s" "CPU s" "files/s" "vs gdk"
row() { # NAME WALL CPU
  printf '%-46s %9.3f %9.3f %9s %8s\n' "$1" "$2" "$3" "$(rate "$documents" "$2")" "$(ratio "$gdk_wall" "$2")"
}
row "gdk-pixbuf-thumbnailer loop (previews)" "$gdk_wall" "$gdk_cpu"
row "ember-tide thumbnail loop" "$thumb_wall" "$thumb_cpu"
row "ember-tide cache --jobs 1" "$one_wall" "$one_cpu"
row "ember-tide cache --jobs $jobs" "$cache_wall" "$cache_cpu"
printf '%-46s %9.4f %9.4f %9s\n' "ember-tide cache, all up to date (median of 5)" "$noop_w" "$noop_c" \
  "$(rate "$documents" "$noop_w")"
echo
verdict() { awk -v v="$1" -v t="$2" -v op="$3" 'BEGIN { ok = op == ">=" ? v >= t : v < t; print ok ? "met" : "MISSED" }'; }
speedup=$(ratio "$gdk_wall" "$cache_wall")
echo "target: cache --jobs $jobs at least 3x the gdk-pixbuf loop's files/s: ${speedup}x, $(verdict "$speedup" 3 ">=")"
echo "target: no-op run under 0.1 s per 1,000 files: ${noop_per_1000} s, $(verdict "$noop_per_1000" 0.1 "<")"
