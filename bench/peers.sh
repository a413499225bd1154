#!/usr/bin/env bash
# Whole-process thumbnailing against the programs a user would pick instead: ember-tide on a
# document, and gdk-pixbuf-thumbnailer, vipsthumbnail and ImageMagick's convert on the very
# image that document carries as its preview. Prints, per image, the median wall time of every
# command, our ratio to gdk-pixbuf-thumbnailer (target <= 0.7), the output sizes and ours against
# gdk-pixbuf's (target <= 1.3), and the PSNR of our thumbnail against ImageMagick's careful
# downscale of the same picture to exactly our pixel size (target >= 33 dB); then our start-up
# on a document without a preview against an empty C program (target <= 1.5).
#
# Usage: bench/peers.sh [BUILD_DIR]          (BUILD_DIR defaults to build/release)
#   RUNS=10 WARMUP=3 ROUNDS=8                runs per command per round, warm-ups, rounds
#   PEERS_CACHE=build/peers-cache            photographs and the images made from them
#   PEERS_OUT=build/peers-results            JSON exports, thumbnails, table.txt
#
# The tools it needs (hyperfine, the three peers, python3, cc) are installed with apt-get when
# missing and the script runs as root; otherwise it prints the command and stops. The
# photographs are two of the CC-BY / CC-BY-SA wallpapers of Debian's lomiri-wallpapers-16.04
# package (a mountain landscape, leaves against the sky), fetched once with `apt-get download`
# into the cache and converted once with ImageMagick: JPEG 256x192 to 2048x1536 (quality 90,
# 4:2:0), PNG 512x384 RGB, and PNG 512x384 RGBA whose alpha rises from clear to opaque across
# the width.
#
# The machine may be shared, so every command of one image is timed in the same hyperfine
# invocation, and that invocation is repeated ROUNDS times with the order of the commands
# changed (see time_commands): load that comes and goes falls on ours and the peers alike. The
# medians are over all runs of all rounds; the ratio's range is that of the rounds' own ratios
# (each round's median of ours over its median of gdk-pixbuf's), which shows how much the load
# moved the figure: on a busy machine, raise ROUNDS. CPU ms (user + system, hyperfine's means
# over the rounds) are printed beside the medians.
#
# Exit status: 0 when the table was made (a missed target is marked MISSED in it, not an
# error); 2 when a tool, the build or the photographs cannot be had.
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$(pwd)

build=${1:-build/release}
runs=${RUNS:-10}
warmup=${WARMUP:-3}
rounds=${ROUNDS:-8}
cache=${PEERS_CACHE:-build/peers-cache}
out=${PEERS_OUT:-build/peers-results}
convert=/usr/bin/convert # the PATH may hold another program of that name

die() {
  echo "peers.sh: $*" >&2
  exit 2
}

(( runs >= 10 )) || die "RUNS must be at least 10"
[[ -x $build/ember-tide ]] || die "$build/ember-tide is not built (cmake --preset release && cmake --build --preset release)"

# ---------------------------------------------------------------- tools
apt_updated=0
apt_update() {
  if (( ! apt_updated )); then
    apt-get update -qq
    apt_updated=1
  fi
}

missing=()
command -v hyperfine >/dev/null || missing+=(hyperfine)
[[ -x /usr/bin/gdk-pixbuf-thumbnailer ]] || missing+=(libgdk-pixbuf2.0-bin)
command -v vipsthumbnail >/dev/null || missing+=(libvips-tools)
{ [[ -x $convert ]] && "$convert" -version 2>/dev/null | grep -q ImageMagick; } || missing+=(imagemagick)
command -v python3 >/dev/null || missing+=(python3)
command -v cc >/dev/null || missing+=(gcc)
if (( ${#missing[@]} )); then
  if [[ $(id -u) == 0 ]]; then
    echo "Installing: ${missing[*]}"
    apt_update
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
  else
    die "missing tools; run: sudo apt-get install ${missing[*]}"
  fi
fi
gdk=/usr/bin/gdk-pixbuf-thumbnailer

# ---------------------------------------------------------------- photographs, made once
mkdir -p "$cache"
cache=$(cd "$cache" && pwd)
backgrounds=$cache/wallpapers/usr/share/backgrounds
jpeg_source=$backgrounds/picosdeeuropa_by_Aitzol_Berasategi.jpg # CC-BY-4.0, 3264x2448
png_source=$backgrounds/Dragonfly_by_Bolly.jpg                  # CC-BY-SA-4.0, 4224x3168
if [[ ! -f $jpeg_source || ! -f $png_source ]]; then
  echo "Fetching the photographs (lomiri-wallpapers-16.04) into $cache"
  rm -f "$cache"/lomiri-wallpapers-16.04_*.deb
  (cd "$cache" && { apt-get download -qq lomiri-wallpapers-16.04 2>/dev/null ||
                    { apt_update && apt-get download -qq lomiri-wallpapers-16.04; }; }) ||
    die "cannot download lomiri-wallpapers-16.04"
  dpkg -x "$cache"/lomiri-wallpapers-16.04_*.deb "$cache/wallpapers"
  [[ -f $jpeg_source && -f $png_source ]] || die "the package holds other photographs than expected"
fi

# Each image is written under a temporary name and renamed, so that an interrupted run leaves
# no half image for the next one.
images=$cache/images
mkdir -p "$images"
make_image() { # FILE FORMAT CONVERT_ARGUMENTS...
  local file=$1 format=$2
  shift 2
  [[ -f $file ]] && return
  "$convert" "$@" "$format:$file.part" && mv "$file.part" "$file" || die "cannot make $file"
}
for size in 256x192 512x384 1024x768 2048x1536; do
  make_image "$images/jpeg-$size.jpg" JPEG "$jpeg_source" -strip -resize "$size!" -quality 90 \
    -sampling-factor 2x2 -interlace none
done
make_image "$images/png-rgb-512x384.png" PNG24 "$png_source" -strip -resize '512x384!' -depth 8
# A linear gradient (clear on the left, opaque on the right) becomes the alpha channel.
make_image "$images/png-rgba-512x384.png" PNG32 "$png_source" -strip -resize '512x384!' \
  \( -size 384x512 gradient:white-black -rotate 90 \) -alpha off -compose CopyOpacity -composite \
  -depth 8

# ---------------------------------------------------------------- documents and the commands
rm -rf "$out"
mkdir -p "$out"
out=$(cd "$out" && pwd)
ln -s "$(cd "$build" && pwd)/ember-tide" "$out/ember-tide"
cd "$out"

# case name, image, thumbnail size
cases=(
  "jpeg-256x192 jpeg-256x192.jpg 256"
  "jpeg-512x384 jpeg-512x384.jpg 256"
  "jpeg-1024x768 jpeg-1024x768.jpg 256"
  "jpeg-2048x1536 jpeg-2048x1536.jpg 256"
  "jpeg-1024x768@128 jpeg-1024x768.jpg 128"
  "png-rgb-512x384 png-rgb-512x384.png 256"
  "png-rgba-512x384 png-rgba-512x384.png 256"
)
for c in "${cases[@]}"; do
  read -r name image size <<<"$c"
  base=${image%.*}
  [[ -f $image ]] || cp "$images/$image" "$image"
  [[ -f $base.etd ]] || ./ember-tide create "$image" "$base.etd" >/dev/null ||
    die "ember-tide create $image failed"
done

# One hyperfine invocation per round. The commands go in pairs (ours and gdk-pixbuf first), each
# pair's two commands always side by side so that their ratio is taken at the same load; odd
# rounds swap the two of each pair, and rounds 2 and 3 (of every 4) put the pairs in reverse.
# time_commands NAME HYPERFINE_OPTIONS... -- NAME=COMMAND...
time_commands() {
  local name=$1
  shift
  local options=()
  while [[ $1 != -- ]]; do
    options+=("$1")
    shift
  done
  shift
  local commands=("$@") n=$# r i
  for (( r = 0; r < rounds; ++r )); do
    local order=() arguments=()
    for (( i = 0; i < n; i += 2 )); do
      if (( i + 1 < n && r % 2 )); then order+=($(( i + 1 )) $i)
      elif (( i + 1 < n )); then order+=($i $(( i + 1 )))
      else order+=($i)
      fi
    done
    if (( r / 2 % 2 )); then
      local reversed=()
      for (( i = n - 2 + n % 2; i >= 0; i -= 2 )); do
        reversed+=("${order[@]:i:2}")
      done
      order=("${reversed[@]}")
    fi
    for i in "${order[@]}"; do
      local entry=${commands[i]}
      arguments+=(-n "${entry%%=*}" "${entry#*=}")
    done
    hyperfine -N --style basic "${options[@]}" --export-json "$name.round$r.json" \
      "${arguments[@]}" >>hyperfine.log 2>&1 || die "hyperfine failed on $name (see $out/hyperfine.log)"
  done
}

echo "Timing with hyperfine: $rounds rounds x $runs runs per command, $warmup warm-ups ($(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg))"
for c in "${cases[@]}"; do
  read -r name image size <<<"$c"
  base=${image%.*}
  echo "  $name"
  time_commands "$name" --warmup "$warmup" --runs "$runs" -- \
    "ember-tide=./ember-tide thumbnail -s $size $base.etd $name.ours.png" \
    "gdk-pixbuf=$gdk -s $size $image $name.gdk.png" \
    "vipsthumbnail=vipsthumbnail $image -s $size -o $name.vips.png" \
    "convert=$convert $image -thumbnail ${size}x$size $name.convert.png"
done

# Start-up: a document with no preview (version 1.0, no items) ends right after the header, so
# what is timed is process start, option parsing, one open and one read. Exit status 1 there.
printf 'Ember Tide Document\0\001\000\377\377\377\377' >nopreview.etd
echo 'int main(void) { return 0; }' >empty.c
cc -O2 empty.c -o empty
echo "  start-up"
time_commands startup --warmup $(( warmup * 5 )) --runs $(( runs * 10 )) -i -- \
  "empty C program=./empty" \
  "ember-tide, no preview=./ember-tide thumbnail -s 256 nopreview.etd nopreview.png"

# ---------------------------------------------------------------- outputs, sizes and quality
# Written afresh, once each, after the timing; the reference is made at our own pixel size.
for c in "${cases[@]}"; do
  read -r name image size <<<"$c"
  base=${image%.*}
  ./ember-tide thumbnail -s "$size" "$base.etd" "$name.ours.png"
  "$gdk" -s "$size" "$image" "$name.gdk.png"
  vipsthumbnail "$image" -s "$size" -o "$name.vips.png"
  "$convert" "$image" -thumbnail "${size}x$size" "$name.convert.png"
  geometry=$(python3 -c 'import struct,sys; d=open(sys.argv[1],"rb").read(24); print("%dx%d" % struct.unpack(">II", d[16:24]))' "$name.ours.png")
  format=PNG24
  [[ $image == png-rgba* ]] && format=PNG32
  "$convert" "$image" -resize "$geometry!" "$format:$name.reference.png"
done

ET_QUALITY=$repo/bench/quality.py python3 - "$rounds" "${cases[@]}" <<'EOF' | tee table.txt
import json, os, statistics, subprocess, sys

rounds = int(sys.argv[1])
cases = [c.split() for c in sys.argv[2:]]
commands = ["ember-tide", "gdk-pixbuf", "vipsthumbnail", "convert"]
suffix = {"ember-tide": "ours", "gdk-pixbuf": "gdk", "vipsthumbnail": "vips", "convert": "convert"}


def load(name):
    """Per command: the median run time (ms) over all rounds, the mean CPU time (ms), the number
    of runs, and each round's own median."""
    times, cpu, per_round = {}, {}, {}
    for r in range(rounds):
        with open("%s.round%d.json" % (name, r)) as f:
            for result in json.load(f)["results"]:
                command = result["command"]
                times.setdefault(command, []).extend(t * 1000 for t in result["times"])
                cpu.setdefault(command, []).append((result["user"] + result["system"]) * 1000)
                per_round.setdefault(command, []).append(result["median"] * 1000)
    return ({k: statistics.median(v) for k, v in times.items()},
            {k: statistics.mean(v) for k, v in cpu.items()},
            {k: len(v) for k, v in times.items()}, per_round)


def round_range(per_round, ours, theirs):
    ratios = [a / b for a, b in zip(per_round[ours], per_round[theirs])]
    return "%.2f-%.2f" % (min(ratios), max(ratios))


def psnr(test, reference):
    script = os.environ["ET_QUALITY"]
    run = subprocess.run([sys.executable, script, "--json", test, reference],
                         capture_output=True, text=True)
    if run.returncode != 0:
        return None
    value = json.loads(run.stdout)["psnr"]
    return float("inf") if value is None else value


def fmt_db(value):
    if value is None:
        return "-"
    return "inf" if value == float("inf") else "%.1f" % value


missed = []
print()
print("Median wall time in ms over all runs (CPU ms: user + system); ratios are ours over")
print("gdk-pixbuf-thumbnailer's, with the range of the rounds' own ratios. Output bytes. PSNR in dB")
print("of each program's thumbnail against ImageMagick's -resize of the same image to our pixel")
print("size, ours first ('-' where a program's thumbnail has another size).")
print()
header = ("%-18s %9s" + " %16s" * 4 + " %6s %9s  %7s %7s %7s %7s %6s  %6s %6s %6s %6s") % (
    "image", "thumbnail", "ember-tide", "gdk-pixbuf", "vipsthumbnail", "convert", "ratio", "rounds",
    "ours B", "gdk B", "vips B", "conv B", "ratio", "PSNR", "gdk", "vips", "conv")
print(header)
print("-" * len(header))
for name, image, size in cases:
    median, cpu, count, per_round = load(name)
    sizes = {c: os.path.getsize("%s.%s.png" % (name, suffix[c])) for c in commands}
    db = {c: psnr("%s.%s.png" % (name, suffix[c]), name + ".reference.png") for c in commands}
    with open(name + ".ours.png", "rb") as f:
        head = f.read(24)
    geometry = "%dx%d" % (int.from_bytes(head[16:20], "big"), int.from_bytes(head[20:24], "big"))
    time_ratio = median["ember-tide"] / median["gdk-pixbuf"]
    size_ratio = sizes["ember-tide"] / sizes["gdk-pixbuf"]
    cells = ["%7.1f (%5.1f)" % (median[c], cpu[c]) for c in commands]
    print(("%-18s %9s" + " %16s" * 4 + " %6.2f %9s  %7d %7d %7d %7d %6.2f  %6s %6s %6s %6s") % (
        name, geometry, *cells, time_ratio, round_range(per_round, "ember-tide", "gdk-pixbuf"),
        *[sizes[c] for c in commands], size_ratio,
        *[fmt_db(db[c]) for c in commands]))
    if time_ratio > 0.7:
        missed.append("%s: time ratio %.2f > 0.7" % (name, time_ratio))
    if size_ratio > 1.3:
        missed.append("%s: size ratio %.2f > 1.3" % (name, size_ratio))
    if db["ember-tide"] is None or db["ember-tide"] < 33:
        missed.append("%s: PSNR %s dB < 33" % (name, fmt_db(db["ember-tide"])))

median, cpu, count, per_round = load("startup")
empty, ours = median["empty C program"], median["ember-tide, no preview"]
print()
print("Start-up, %d runs each: empty C program %.2f ms (CPU %.2f), ember-tide on a document"
      % (count["empty C program"], empty, cpu["empty C program"]))
print("without preview %.2f ms (CPU %.2f): ratio %.2f, rounds %s (target <= 1.5)"
      % (ours, cpu["ember-tide, no preview"], ours / empty,
         round_range(per_round, "ember-tide, no preview", "empty C program")))
if ours / empty > 1.5:
    missed.append("start-up: ratio %.2f > 1.5" % (ours / empty))
print()
if missed:
    for m in missed:
        print("MISSED  " + m)
else:
    print("All targets met.")
EOF
echo "Results (JSON, thumbnails, references, table.txt) in $out"
