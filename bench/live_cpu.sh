#!/usr/bin/env bash
# CPU the service's live transcript adds to a recording: user + system time
# of `sorvelandrix record` over a SORV_BENCH_SECONDS (default 60) recording,
# without and with `--live server`, against the local service on loopback
# (German, so the service answers with its scripted conversation and stays
# light beside us), in a private PulseAudio daemon whose microphone speaks
# espeak-ng sentences. Each way runs three times; the medians are compared.
# Target: at most 1 % of one core.
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/common.sh
seconds="${SORV_BENCH_SECONDS:-60}"
bin=""
for d in build/release build/default; do
  [ -x "$d/src/cli/sorvelandrix" ] && [ -x "$d/localservice/sorvelandrix-local-service" ] && { bin="$PWD/$d"; break; }
done
[ -n "$bin" ] || { echo "live_cpu: build first (dev/build release)" >&2; exit 1; }
cli="$bin/src/cli/sorvelandrix"

make_work_dir
. dev/pulsesandbox.sh
start_pulse_sandbox "$work"

parts=()
i=0
for s in "hello there, how are you today" "the weather is nice, we should go for a walk in the park" \
         "please send me the report by friday" "the meeting starts at ten o'clock"; do
  espeak-ng -w "$work/s$i.wav" "$s"
  sox -V1 "$work/s$i.wav" -r 48000 "$work/p$i.wav" pad 0 3
  parts+=("$work/p$i.wav")
  i=$((i + 1))
done
sox -V1 "${parts[@]}" "$work/round.wav"
sox -V1 "$work/round.wav" "$work/mic.wav" repeat $((seconds * 7 / 20 + 2))
paplay --latency-msec=20 --device=micsink "$work/mic.wav" 2>/dev/null &
pids+=($!)

start_signed_in_service "$bin" "$cli"

cpu_of() {
  /usr/bin/time -f "%U %S" -o "$work/time" "$@" >/dev/null 2>&1 || true
  awk '{print $1 + $2}' "$work/time"
}
median() { printf '%s\n' "$@" | sort -g | sed -n 2p; }

without=(); with=()
for _ in 1 2 3; do
  without+=("$(cpu_of "$cli" record --duration "$seconds" --discard)")
  with+=("$(cpu_of "$cli" record --duration "$seconds" --discard --live server --language de-DE)")
done
a=$(median "${without[@]}")
b=$(median "${with[@]}")
echo "without --live: ${without[*]} s CPU (median $a) in $seconds s"
echo "with --live server: ${with[*]} s CPU (median $b) in $seconds s"
awk -v a="$a" -v b="$b" -v s="$seconds" 'BEGIN {
  printf "the live transcript adds %.2f s CPU = %.2f %% of one core\n", b - a, 100 * (b - a) / s
}'
