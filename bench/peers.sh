#!/usr/bin/env bash
# Whole-process thumbnailing against the programs a user would pick instead and against the
# least work a thumbnailer can do: ember-tide on a document; bench/floor.c (the floor: JPEG at
# the DCT scale that covers the target, area average, PNG with the SUB filter and the fastest
# deflate), gdk-pixbuf-thumbnailer, vipsthumbnail and ImageMagick's convert on the very image
# that document carries as its preview. Prints, per image and thumbnail size (128, 256, 512),
# the median wall time of every command, our ratio to gdk-pixbuf-thumbnailer and to the floor,
# the PSNR of every thumbnail against ImageMagick's Lanczos resize of the same picture to exactly
# our pixel size, output bytes and peak memory; then our start-up on a document without a preview
# against an empty C program. Targets, each marked met or MISSED: time <= 0.5x gdk-pixbuf's, or
# <= 1.15x the floor's where the floor itself needs more than 0.45x gdk-pixbuf's; PSNR >= 45 dB;
# bytes <= 1.1x gdk-pixbuf's; peak memory <= gdk-pixbuf's; start-up <= 1.5x.
#
# Usage: bench/peers.sh [BUILD_DIR]          (BUILD_DIR defaults to build/release)
#   RUNS=10 WARMUP=3 ROUNDS=8                runs per command per round, warm-ups, rounds
#   SIZES="128 256 512"                      thumbnail sizes
#   ONLY=REGEX                               only the images whose name matches
#   TIME_PEERS="vipsthumbnail convert"       the slow peers to time (their PSNR, bytes and memory
#                                            are measured either way); "" times ours, the floor
#                                            and gdk-pixbuf only
#   PEERS_CACHE=build/peers-cache            photographs and the images made from them
#   PEERS_OUT=build/peers-results            JSON exports, thumbnails, table.txt
#   REUSE_TIMES=1                            keep PEERS_OUT's timings of an interrupted run and
#                                            time only the images it had not reached
#
# The tools it needs (hyperfine, the three peers, GNU time, python3, cc, libdeflate's headers)
# are installed with apt-get when missing and the script runs as root; otherwise it prints the
# command and stops. The photographs are two of the CC-BY / CC-BY-SA wallpapers of Debian's
# lomiri-wallpapers-16.04 package (a mountain landscape of 3264x2448, a dragonfly on leaves of
# 4224x3168), fetched once with `apt-get download` into the cache and converted once with
# ImageMagick: JPEG (quality 90, 4:2:0) of 256x192 to 2048x1536, 1920x1080 (cropped to 16:9),
# a 2560x3840 portrait (the dragonfly turned on its side and cropped) and 4000x3000; PNG 512x384
# RGB, and RGBA of 512x384, 2000x1500 and 4000x3000 whose alpha rises from clear to opaque
# across the width; and an 8000x6000 RGB PNG (enlarged: a picture at the pixel budget), timed
# at 256 only.
#
# The machine may be shared, so every command of one image is timed in the same hyperfine
# invocation, and that invocation is repeated ROUNDS times with the order of the commands
# changed (see time_commands): load that comes and goes falls on ours and the peers alike. The
# medians are over all runs of all rounds; the ratio's range is that of the rounds' own ratios
# (each round's median of ours over its median of gdk-pixbuf's), which shows how much the load
# moved the figure: on a busy machine, raise ROUNDS. Peak memory is GNU time's maximum resident
# set size of one run (the process and the children it waited for).
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
sizes=${SIZES:-128 256 512}
only=${ONLY:-.}
time_peers=${TIME_PEERS-vipsthumbnail convert}
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
[[ -x /usr/bin/time ]] || missing+=(time)
[[ -f /usr/include/libdeflate.h ]] || missing+=(libdeflate-dev)
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
jpeg() { # NAME CONVERT_ARGUMENTS...
  local name=$1
  shift
  make_image "$images/$name.jpg" JPEG "$@" -strip -quality 90 -sampling-factor 2x2 -interlace none
}
for size in 256x192 512x384 1024x768 2048x1536; do
  jpeg "jpeg-$size" "$jpeg_source" -resize "$size!"
done
jpeg jpeg-1920x1080 "$jpeg_source" -gravity center -crop 3264x1836+0+0 +repage -resize '1920x1080!'
jpeg jpeg-2560x3840 "$png_source" -rotate 90 -gravity center -crop 2816x4224+0+0 +repage \
  -resize '2560x3840!'
jpeg jpeg-4000x3000 "$png_source" -resize '4000x3000!'
make_image "$images/png-rgb-512x384.png" PNG24 "$png_source" -strip -resize '512x384!' -depth 8
# A linear gradient (clear on the left, opaque on the right) becomes the alpha channel.
for size in 512x384 2000x1500 4000x3000; do
  make_image "$images/png-rgba-$size.png" PNG32 "$png_source" -strip -resize "$size!" \
    \( -size "${size#*x}x${size%x*}" gradient:white-black -rotate 90 \) -alpha off \
    -compose CopyOpacity -composite -depth 8
done
make_image "$images/png-rgb-8000x6000.png" PNG24 "$png_source" -strip -resize '8000x6000!' -depth 8

# ---------------------------------------------------------------- documents and the commands
[[ -n ${REUSE_TIMES:-} ]] || rm -rf "$out"
mkdir -p "$out"
out=$(cd "$out" && pwd)
ln -sfn "$(cd "$build" && pwd)/ember-tide" "$out/ember-tide"
cd "$out"

# case name, image, thumbnail size
cases=()
for image in jpeg-256x192.jpg jpeg-512x384.jpg jpeg-1024x768.jpg jpeg-1920x1080.jpg \
  jpeg-2048x1536.jpg jpeg-2560x3840.jpg jpeg-4000x3000.jpg png-rgb-512x384.png \
  png-rgba-512x384.png png-rgba-2000x1500.png png-rgba-4000x3000.png; do
  for size in $sizes; do
    cases+=("${image%.*}@$size $image $size")
  done
done
cases+=("png-rgb-8000x6000@256 png-rgb-8000x6000.png 256")
selected=()
for c in "${cases[@]}"; do
  [[ ${c%% *} =~ $only ]] && selected+=("$c")
done
cases=("${selected[@]}")
(( ${#cases[@]} )) || die "no image matches ONLY=$only"
for c in "${cases[@]}"; do
  read -r name image size <<<"$c"
  base=${image%.*}
  [[ -f $image ]] || cp "$images/$image" "$image"
  [[ -f $base.etd ]] || ./ember-tide create "$image" "$base.etd" >/dev/null ||
    die "ember-tide create $image failed"
done

floor_flags=(-DFLOOR_LIBDEFLATE -ldeflate)
cc -O2 -o floor "$repo/bench/floor.c" -ljpeg -lpng -lz -lm "${floor_flags[@]}" ||
  die "cannot build bench/floor.c"

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
  commands=("ember-tide=./ember-tide thumbnail -s $size $base.etd $name.ours.png"
    "gdk-pixbuf=$gdk -s $size $image $name.gdk.png"
    "floor=./floor $size $image $name.floor.png")
  # The 8000x6000 picture takes the slow peers seconds a run: they are not timed there.
  if [[ $name != *8000x6000* ]]; then
    [[ $time_peers == *vips* ]] && commands+=("vipsthumbnail=vipsthumbnail $image -s $size -o $name.vips.png")
    [[ $time_peers == *convert* ]] && commands+=("convert=$convert $image -thumbnail ${size}x$size $name.convert.png")
  fi
  [[ -n ${REUSE_TIMES:-} && -f $name.round$(( rounds - 1 )).json ]] && continue
  # -i: a picture we refuse is timed all the same, and marked MISSED in the table.
  time_commands "$name" --warmup "$warmup" --runs "$runs" -i -- "${commands[@]}"
done

# Start-up: a document with no preview (version 1.0, no items) ends right after the header, so
# what is timed is process start, option parsing, one open and one read. Exit status 1 there.
# OUT missing (as GNOME's factory gives it) is what the target is checked on: the picture is then
# made by a confined child. OUT already there (as tumbler gives it, and as the table above times
# every run after the first) lets the tool confine itself and read FILE without the child.
printf 'Ember Tide Document\0\001\000\377\377\377\377' >nopreview.etd
: >nopreview-open.png
echo 'int main(void) { return 0; }' >empty.c
cc -O2 empty.c -o empty
echo "  start-up"
time_commands startup --warmup $(( warmup * 5 )) --runs $(( runs * 10 )) -i -- \
  "empty C program=./empty" \
  "ember-tide, no preview=./ember-tide thumbnail -s 256 nopreview.etd nopreview.png" \
  "ember-tide, no preview, OUT there=./ember-tide thumbnail -s 256 nopreview.etd nopreview-open.png"

# ---------------------------------------------------------------- outputs, sizes and quality
# Written afresh, once each, after the timing, under GNU time for the peak memory; the reference
# is made at our own pixel size with ImageMagick's Lanczos filter named: without it, ImageMagick
# takes Mitchell's for pictures with alpha and for enlarging.
peak() { # LABEL COMMAND...: appends "LABEL KB" to memory.txt
  local label=$1
  shift
  /usr/bin/time -f "$label %M" -a -o memory.txt "$@" >/dev/null 2>&1 || echo "$label -" >>memory.txt
}
rm -f memory.txt
for c in "${cases[@]}"; do
  read -r name image size <<<"$c"
  base=${image%.*}
  peak "$name.ours" ./ember-tide thumbnail -s "$size" "$base.etd" "$name.ours.png"
  peak "$name.gdk" "$gdk" -s "$size" "$image" "$name.gdk.png"
  peak "$name.floor" ./floor "$size" "$image" "$name.floor.png"
  peak "$name.vips" vipsthumbnail "$image" -s "$size" -o "$name.vips.png"
  peak "$name.convert" "$convert" "$image" -thumbnail "${size}x$size" "$name.convert.png"
  made=$name.ours.png
  [[ -s $made ]] || made=$name.gdk.png # we refused it: the reference at gdk-pixbuf's size
  geometry=$(python3 -c 'import struct,sys; d=open(sys.argv[1],"rb").read(24); print("%dx%d" % struct.unpack(">II", d[16:24]))' "$made")
  format=PNG24
  [[ $image == png-rgba* ]] && format=PNG32
  reference=${image%.*}.$geometry.reference.png
  [[ -f $reference ]] || "$convert" "$image" -filter Lanczos -resize "$geometry!" "$format:$reference"
  ln -sf "$reference" "$name.reference.png"
done

ET_QUALITY=$repo/bench/quality.py python3 - "$rounds" "${cases[@]}" <<'EOF' | tee table.txt
import concurrent.futures, json, os, statistics, subprocess, sys

rounds = int(sys.argv[1])
cases = [c.split() for c in sys.argv[2:]]
commands = ["ember-tide", "floor", "gdk-pixbuf", "vipsthumbnail", "convert"]
suffix = {"ember-tide": "ours", "floor": "floor", "gdk-pixbuf": "gdk", "vipsthumbnail": "vips",
          "convert": "convert"}


def load(name):
    """Per command: the median run time (ms) over all rounds, the number of runs, each round's
    own median, and the mean CPU time (ms, user + system)."""
    times, per_round, cpu = {}, {}, {}
    for r in range(rounds):
        with open("%s.round%d.json" % (name, r)) as f:
            for result in json.load(f)["results"]:
                command = result["command"]
                times.setdefault(command, []).extend(t * 1000 for t in result["times"])
                per_round.setdefault(command, []).append(result["median"] * 1000)
                cpu.setdefault(command, []).append((result["user"] + result["system"]) * 1000)
    return ({k: statistics.median(v) for k, v in times.items()},
            {k: len(v) for k, v in times.items()}, per_round,
            {k: statistics.mean(v) for k, v in cpu.items()})


def round_range(per_round, ours, theirs):
    ratios = [a / b for a, b in zip(per_round[ours], per_round[theirs])]
    return "%.2f-%.2f" % (min(ratios), max(ratios))


def psnr(files):
    run = subprocess.run([sys.executable, os.environ["ET_QUALITY"], "--json", *files],
                         capture_output=True, text=True)
    if run.returncode != 0:
        return None
    value = json.loads(run.stdout)["psnr"]
    return float("inf") if value is None else value


def fmt(value, form):
    if value is None:
        return "-"
    return "inf" if value == float("inf") else form % value


memory = {}
with open("memory.txt") as f:
    for line in f:  # GNU time adds a line of its own when a command fails
        if len(line.split()) == 2:
            label, kb = line.split()
            memory[label] = None if kb == "-" else int(kb) / 1024

jobs = {(name, c): ("%s.%s.png" % (name, suffix[c]), name + ".reference.png")
        for name, _, _ in cases for c in commands}
with concurrent.futures.ThreadPoolExecutor(os.cpu_count() or 1) as pool:
    db = dict(zip(jobs, pool.map(psnr, jobs.values())))

missed = []
print()
print("Median wall time in ms over all runs; ours over gdk-pixbuf-thumbnailer's and over the")
print("floor's, with the range of the rounds' own ratios to gdk-pixbuf's; 'speed' is the time")
print("target met (ok) or MISSED. PSNR in dB of each thumbnail against ImageMagick's Lanczos resize")
print("to our pixel size ('-': another size). Bytes: ours and over gdk-pixbuf's. Peak RSS in MiB.")
print("cpu: our CPU time (user + system) over gdk-pixbuf's, which a busy machine moves far less.")
print("Every timed run of ours but the first finds its OUT there (tumbler's case); for a missing")
print("OUT (GNOME's) see the two start-up figures at the end.")
print()
header = ("%-22s %9s" + " %7s" * 5 + " %5s %5s %9s %6s %5s" + " %5s" * 5 + " %7s %5s" +
          " %6s" * 5) % (
    "image@size", "thumbnail", "ours", "floor", "gdk", "vips", "conv", "/gdk", "/flr", "rounds",
    "speed", "cpu", "PSNR", "floor", "gdk", "vips", "conv", "bytes", "/gdk", "RSS", "floor",
    "gdk", "vips", "conv")
print(header)
print("-" * len(header))
for name, image, size in cases:
    median, count, per_round, cpu = load(name)
    made = name + ".ours.png"
    if not os.path.exists(made) or os.path.getsize(made) == 0:
        print("%-22s refused by ember-tide" % name)
        missed.append("%s: no thumbnail" % name)
        continue
    with open(made, "rb") as f:
        head = f.read(24)
    geometry = "%dx%d" % (int.from_bytes(head[16:20], "big"), int.from_bytes(head[20:24], "big"))
    ours, gdk, floor = median["ember-tide"], median["gdk-pixbuf"], median["floor"]
    to_gdk, to_floor = ours / gdk, ours / floor
    speed_ok = to_gdk <= 0.5 or (floor / gdk > 0.45 and to_floor <= 1.15)
    ours_bytes = os.path.getsize(made)
    size_ratio = ours_bytes / os.path.getsize(name + ".gdk.png")
    rss = {c: memory.get("%s.%s" % (name, suffix[c])) for c in commands}
    print(("%-22s %9s" + " %7s" * 5 + " %5.2f %5.2f %9s %6s %5.2f" + " %5s" * 5 + " %7d %5.2f" +
           " %6s" * 5) % (
        name, geometry, *[fmt(median.get(c), "%.1f") for c in commands], to_gdk, to_floor,
        round_range(per_round, "ember-tide", "gdk-pixbuf"), "ok" if speed_ok else "MISSED",
        cpu["ember-tide"] / cpu["gdk-pixbuf"], *[fmt(db[name, c], "%.1f") for c in commands],
        ours_bytes, size_ratio, *[fmt(rss[c], "%.1f") for c in commands]))
    if not speed_ok:
        missed.append("%s: time %.2fx gdk-pixbuf's, %.2fx the floor's (the floor %.2fx gdk's)"
                      % (name, to_gdk, to_floor, floor / gdk))
    if db[name, "ember-tide"] is None or db[name, "ember-tide"] < 45:
        missed.append("%s: PSNR %s dB < 45" % (name, fmt(db[name, "ember-tide"], "%.1f")))
    if size_ratio > 1.1:
        missed.append("%s: bytes %.2fx gdk-pixbuf's > 1.1" % (name, size_ratio))
    if rss["ember-tide"] is None or rss["gdk-pixbuf"] is None or rss["ember-tide"] > rss["gdk-pixbuf"]:
        missed.append("%s: peak memory %s MiB > gdk-pixbuf's %s" % (
            name, fmt(rss["ember-tide"], "%.1f"), fmt(rss["gdk-pixbuf"], "%.1f")))

median, count, per_round, _ = load("startup")
empty, ours = median["empty C program"], median["ember-tide, no preview"]
print()
print("Start-up, %d runs each: empty C program %.2f ms, ember-tide on a document without preview"
      % (count["empty C program"], empty))
print("%.2f ms: ratio %.2f, rounds %s (target <= 1.5)"
      % (ours, ours / empty, round_range(per_round, "ember-tide, no preview", "empty C program")))
there = median["ember-tide, no preview, OUT there"]
print("(OUT already there: %.2f ms, ratio %.2f, rounds %s)"
      % (there, there / empty,
         round_range(per_round, "ember-tide, no preview, OUT there", "empty C program")))
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
