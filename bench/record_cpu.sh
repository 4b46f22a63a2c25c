#!/usr/bin/env bash
# CPU cost of recording: user + system time of `sorvelandrix record` over a
# SORV_BENCH_SECONDS (default 60) audio-only recording, beside two `parecord`
# processes capturing the same two sources (microphone and the default sink's
# monitor) for the same time. Runs inside a private PulseAudio daemon with a
# tone on the microphone and another on the speakers.
# Targets: at most 2 % of one core, at most 1.5x the two parecord together.
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/common.sh
seconds="${SORV_BENCH_SECONDS:-60}"
cli="${SORV_CLI:-$(find_built record_cpu src/cli/sorvelandrix)}"

make_work_dir
. dev/pulsesandbox.sh
start_pulse_sandbox "$work"

sox -V1 -n -r 48000 -c 1 "$work/mic.wav" synth $((seconds * 2 + 10)) sine 1000 vol 0.3
sox -V1 -n -r 48000 -c 2 "$work/sys.wav" synth $((seconds * 2 + 10)) sine 440 vol 0.3
paplay --latency-msec=20 --device=micsink "$work/mic.wav" 2>/dev/null &
pids+=($!)
paplay --latency-msec=20 --device=speakers "$work/sys.wav" 2>/dev/null &
pids+=($!)

# user + system seconds of one command, from GNU time
cpu_of() {
  /usr/bin/time -f "%U %S" -o "$work/time" "$@" >/dev/null 2>&1 || true
  awk '{print $1 + $2}' "$work/time"
}

rec=$(XDG_CACHE_HOME="$work/cache" cpu_of "$cli" record --duration "$seconds" --discard)
# The two parecord run at the same time, each under its own timer.
/usr/bin/time -f "%U %S" -o "$work/time1" timeout -s INT "$seconds" parecord --device=virtmic \
  --format=float32le --rate=48000 --channels=1 "$work/a.wav" >/dev/null 2>&1 &
t1=$!
/usr/bin/time -f "%U %S" -o "$work/time2" timeout -s INT "$seconds" parecord --device=speakers.monitor \
  --format=float32le --rate=48000 --channels=1 "$work/b.wav" >/dev/null 2>&1 || true
wait "$t1" || true
pa=$(cat "$work/time1" "$work/time2" | awk '{s += $1 + $2} END {print s}')

awk -v rec="$rec" -v pa="$pa" -v s="$seconds" 'BEGIN {
  printf "sorvelandrix record: %.2f s CPU in %d s = %.2f %% of one core\n", rec, s, 100 * rec / s
  printf "2 x parecord:        %.2f s CPU in %d s = %.2f %% of one core\n", pa, s, 100 * pa / s
  if (pa > 0) printf "ratio:               %.2fx\n", rec / pa
}'
