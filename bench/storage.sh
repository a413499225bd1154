#!/usr/bin/env bash
# The stream worker's safe save beside dd on the same disk. Writes 100 MiB both ways:
#   dd if=/dev/zero of=FILE bs=1M count=100 conv=fsync   over an existing 100 MiB file, timed
#   whole (its truncation of the old file included)
#   bench_storage's SaveToFile: a GSFile safe save (temporary file, fsync, exchange, folder
#   fsync, the old document deleted) over an existing 100 MiB document, in 64 KiB writes
# in ROUNDS interleaved rounds (each: one dd, five saves), so that load that comes and goes on a
# shared machine falls on both; prints MiB/s per round, the medians and the ratio of the save to
# dd (target >= 0.8). Then, once: the save in 4 KiB writes, the memory worker's 100 MiB
# (medians of five) and its growth in ms per MiB at 1, 10 and 100 MiB.
#
# Usage: bench/storage.sh [BUILD_DIR] [FOLDER]
#   BUILD_DIR defaults to build/release (make bench builds bench_storage there);
#   FOLDER, where both write, defaults to $TMPDIR or /tmp: it should be on a real disk.
#   ROUNDS=5
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build/release}
folder=${2:-${TMPDIR:-/tmp}}
rounds=${ROUNDS:-5}
exe="$build/bench/bench_storage"
if [[ ! -x $exe ]]; then
  echo "storage.sh: $exe is not built (make bench)" >&2
  exit 2
fi
work=$(mktemp -d "$folder/et-storage-XXXXXX")
trap 'rm -rf "$work"' EXIT
export LC_ALL=C ET_BENCH_DIR="$work"

# One dd run over the existing 100 MiB file: MiB/s from the wall time of the whole command.
# dd's own figure leaves out its open, where O_TRUNC frees the old file's blocks; the save's
# time includes deleting the old document, so dd is timed whole as well.
dd_rate() {
  local start end
  start=$(date +%s%N)
  dd if=/dev/zero of="$work/dd.bin" bs=1M count=100 conv=fsync status=none
  end=$(date +%s%N)
  python3 -c "print(f'{100 / (($end - $start) / 1e9):.1f}')"
}

# The median MiB/s (or per_MB in ms) of each benchmark in a JSON report, one "name value" line.
medians() {
  python3 - "$1" <<'EOF'
import json, sys
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("aggregate_name") != "median":
        continue
    name = b["run_name"].split("/iterations")[0].split("/repeats")[0]
    if "per_MB" in b:
        print(name, f'{b["per_MB"] * 1000:.3f}')
    else:
        print(name, f'{b["bytes_per_second"] / 2**20:.1f}')
EOF
}

dd_rates=()
save_rates=()
dd if=/dev/zero of="$work/dd.bin" bs=1M count=100 conv=fsync status=none
for round in $(seq "$rounds"); do
  dd_rates+=("$(dd_rate)")
  "$exe" --benchmark_filter='^SaveToFile/piece:65536' --benchmark_format=json \
    --benchmark_out="$work/round.json" >/dev/null
  save_rates+=("$(medians "$work/round.json" | awk '{print $2}')")
  printf 'round %d: dd %8s MiB/s   safe save %8s MiB/s\n' "$round" "${dd_rates[-1]}" \
    "${save_rates[-1]}"
done
rm -f "$work/dd.bin"

"$exe" --benchmark_filter='^(SaveToFile/piece:4096|SaveToMemory|MemoryGrowth)' \
  --benchmark_format=json --benchmark_out="$work/rest.json" >/dev/null

python3 - "${dd_rates[*]}" "${save_rates[*]}" "$(medians "$work/rest.json")" <<'EOF'
import statistics, sys
dd = [float(x) for x in sys.argv[1].split()]
save = [float(x) for x in sys.argv[2].split()]
rest = dict(line.split() for line in sys.argv[3].splitlines() if line.strip())
dd_median, save_median = statistics.median(dd), statistics.median(save)
ratio = save_median / dd_median
print()
print(f"{'dd bs=1M count=100 conv=fsync':42s} {dd_median:9.1f} MiB/s   (median of {len(dd)})")
print(f"{'safe save, 64 KiB writes':42s} {save_median:9.1f} MiB/s   (median of {len(save)} "
      f"round medians)   ratio {ratio:.2f} {'ok' if ratio >= 0.8 else 'MISSED'} (target >= 0.8)")
print(f"{'safe save, 4 KiB writes':42s} {float(rest['SaveToFile/piece:4096']):9.1f} MiB/s")
print(f"{'memory worker, 100 MiB in 64 KiB writes':42s} {float(rest['SaveToMemory']):9.1f} MiB/s")
growth = ", ".join(f"{mb} MiB {float(rest[f'MemoryGrowth/MB:{mb}']):.3f} ms"
                   for mb in (1, 10, 100))
print(f"{'memory worker growth, per MiB':42s} {growth}")
EOF
