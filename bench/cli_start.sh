#!/usr/bin/env bash
# Start-up cost of the command line. `sorvelandrix --help`: wall time (median
# of 20 runs), peak RSS, and the shared libraries the dynamic loader maps.
# `sorvelandrix record`: from the command's start to its first captured
# microphone buffer (the "🎤 Mic buffer #1" line on standard error), median
# of 5 runs inside a private PulseAudio daemon with a tone on the microphone.
# Targets: --help under 50 ms and 20 MiB; record to the first buffer under
# 300 ms.
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/common.sh
cli="${SORV_CLI:-$(find_built cli_start src/cli/sorvelandrix)}"

make_work_dir

# The median of the numbers on standard input, one a line.
median() {
  sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

for _ in $(seq 20); do
  start=$EPOCHREALTIME
  "$cli" --help >/dev/null
  end=$EPOCHREALTIME
  awk -v s="$start" -v e="$end" 'BEGIN { printf "%.1f\n", (e - s) * 1000 }'
done | median >"$work/help_ms"
/usr/bin/time -f %M -o "$work/help_rss" "$cli" --help >/dev/null
LD_DEBUG=files LD_DEBUG_OUTPUT="$work/ld" "$cli" --help >/dev/null
libraries=$(cat "$work"/ld.* | grep -o 'file=[^ ]*' | sort -u | wc -l)

. dev/pulsesandbox.sh
start_pulse_sandbox "$work"
sox -V1 -n -r 48000 -c 1 "$work/mic.wav" synth 120 sine 1000 vol 0.3
paplay --latency-msec=20 --device=micsink "$work/mic.wav" 2>/dev/null &
pids+=($!)

for _ in $(seq 5); do
  start=$EPOCHREALTIME
  # Each line of standard error is stamped as it arrives.
  XDG_CACHE_HOME="$work/cache" "$cli" record --duration 0.5 --discard 2>&1 >/dev/null |
    while IFS= read -r line; do
      case "$line" in *"Mic buffer #1:"*) echo "$EPOCHREALTIME" ;; esac
    done >"$work/first"
  first=$(head -n1 "$work/first")
  [ -n "$first" ] || { echo "cli_start: record captured nothing" >&2; exit 1; }
  awk -v s="$start" -v e="$first" 'BEGIN { printf "%.1f\n", (e - s) * 1000 }'
done | median >"$work/first_ms"

printf 'sorvelandrix --help:        %s ms (median of 20), %.1f MiB peak RSS, %d shared libraries\n' \
  "$(cat "$work/help_ms")" "$(awk '{ print $1 / 1024 }' "$work/help_rss")" "$libraries"
printf 'record to the first buffer: %s ms (median of 5)\n' "$(cat "$work/first_ms")"
