#!/usr/bin/env bash
# A long recording on a bad day: `sorvelandrix record --live server` (and with
# --video a 1920×1080 screen in continuous motion at 30 fps) for
# SORV_SOAK_MINUTES (default 60) in a private PulseAudio daemon whose
# microphone speaks, against the local service. A third of the way in the
# output switches to headphones; half-way the sound server is killed and
# started again. It reports:
#   - RSS every minute; target: the last within 5 MiB of the 5-minute value
#   - the WAV's length against the time recorded, less the server's absence
#     (nothing else missing), and that it decodes to the end
#   - with --video: the MP4's frames against 30 a second, and that it decodes
# SORV_SOAK_SECONDS overrides the length (for a quick try of the script),
# SORV_BENCH_BUILD the build directory (default build/release, else
# build/default).
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/common.sh
video=0
[ "${1:-}" = "--video" ] && video=1
seconds="${SORV_SOAK_SECONDS:-$(( ${SORV_SOAK_MINUTES:-60} * 60 ))}"
bin=""
for d in ${SORV_BENCH_BUILD:-build/release build/default}; do
  [ -x "$d/src/cli/sorvelandrix" ] && [ -x "$d/localservice/sorvelandrix-local-service" ] && { bin="$PWD/$d"; break; }
done
[ -n "$bin" ] || { echo "soak: build first (dev/build release)" >&2; exit 1; }
cli="$bin/src/cli/sorvelandrix"

make_work_dir
. dev/pulsesandbox.sh
start_pulse_sandbox "$work"
daemon=${pids[0]}
pactl load-module module-null-sink sink_name=headphones \
  sink_properties=device.description=Headphones rate=48000 >/dev/null

# Speech on the microphone, a tone on both outputs: what the file must hold.
parts=()
i=0
for s in "hello there, how are you today" "please send me the report by friday" \
         "the meeting starts at ten o'clock"; do
  espeak-ng -w "$work/s$i.wav" "$s"
  sox -V1 "$work/s$i.wav" -r 48000 "$work/p$i.wav" pad 0 2
  parts+=("$work/p$i.wav")
  i=$((i + 1))
done
sox -V1 "${parts[@]}" "$work/round.wav"
sox -V1 -n -r 48000 -c 1 "$work/tone.wav" synth 600 sine 440 vol 0.2
feed() {
  # Loops so that the feeds outlive the sound server's restart.
  ( while :; do paplay --latency-msec=20 --device="$1" "$2" 2>/dev/null || sleep 0.5; done ) &
  pids+=($!)
}
feed micsink "$work/round.wav"
feed speakers "$work/tone.wav"
feed headphones "$work/tone.wav"
parec --device=headphones.monitor --latency-msec=10 --raw --format=u8 --rate=8000 --channels=1 >/dev/null 2>&1 &
pids+=($!)

start_signed_in_service "$bin" "$cli"

args=(record --duration "$seconds" --live server --language de-DE)
if [ "$video" = 1 ]; then
  motion=$(find_built soak bench/x11motion)
  Xvfb -displayfd 3 -screen 0 1920x1080x24 -nolisten tcp -noreset 3>"$work/display" 2>/dev/null &
  pids+=($!)
  for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
  export DISPLAY=":$(head -n1 "$work/display")"
  "$motion" >"$work/motion" &
  pids+=($!)
  for _ in $(seq 300); do grep -q ready "$work/motion" 2>/dev/null && break; sleep 0.1; done
  args+=(--video)
fi

"$cli" --json "${args[@]}" >"$work/events" 2>"$work/log" &
rec=$!
started=$(date +%s.%N)
rss() { awk '/^VmRSS/ { printf "%.1f", $2 / 1024 }' "/proc/$rec/status" 2>/dev/null || true; }
restart_daemon() {
  kill -9 "$daemon"
  wait "$daemon" 2>/dev/null || true
  sleep 1
  pulse_sandbox_daemon "$work" daemon2.log \
    -L "module-null-sink sink_name=headphones sink_properties=device.description=Headphones rate=48000" &
  pids+=($!)
  until pactl info >/dev/null 2>&1; do sleep 0.05; done
  pactl set-default-sink headphones
  pactl set-default-source virtmic
  for m in micsink.monitor speakers.monitor headphones.monitor; do
    parec --device="$m" --latency-msec=10 --raw --format=u8 --rate=8000 --channels=1 >/dev/null 2>&1 &
    pids+=($!)
  done
}

samples=()
switched=0; restarted=0; away=0
for ((t = 1; t <= seconds; t++)); do
  sleep 1
  kill -0 "$rec" 2>/dev/null || break
  if [ "$switched" = 0 ] && [ "$t" -ge $((seconds / 3)) ]; then
    pactl set-default-sink headphones
    switched=1
  fi
  if [ "$restarted" = 0 ] && [ "$t" -ge $((seconds / 2)) ]; then
    a=$(date +%s.%N)
    restart_daemon
    away=$(awk -v a="$a" -v b="$(date +%s.%N)" 'BEGIN { printf "%.2f", b - a }')
    restarted=1
  fi
  if [ $((t % 60)) = 0 ] && [ "$t" -lt "$seconds" ]; then
    samples+=("$(rss)")
    echo "minute $((t / 60)): RSS ${samples[-1]} MiB"
  fi
done
wait "$rec" || { echo "soak: the recording failed:" >&2; tail -5 "$work/log" >&2; exit 1; }
# SORV_BENCH_LOG=DIR keeps the events and the log.
[ -n "${SORV_BENCH_LOG:-}" ] && cp "$work/events" "$work/log" "$SORV_BENCH_LOG"/
trap '[ -n "${SORV_BENCH_LOG:-}" ] && cp "$work/decode-errors" "$SORV_BENCH_LOG"/ 2>/dev/null; bench_cleanup' EXIT
wall=$(awk -v a="$started" -v b="$(date +%s.%N)" 'BEGIN { printf "%.2f", b - a }')

wav=$(sed -n 's/.*"event":"saved".*"wav":"\([^"]*\)".*/\1/p' "$work/events" | tail -n1)
[ -n "$wav" ] && [ -f "$wav" ] || { echo "soak: no WAV saved" >&2; tail -5 "$work/log" >&2; exit 1; }
length=$(soxi -D "$wav")
# Errors decoding the whole file. ffmpeg's null output rounds a variable
# frame rate's times to 1/30 s and then complains of equal ones: that is its
# own output, not the file; the file's own order is checked separately.
decodes() {
  ffmpeg -v error -i "$1" -f null - 2>&1 | grep -v 'non monotonically increasing dts to muxer' |
    head -n3 | tee -a "$work/decode-errors"
}
unordered() {
  ffprobe -v error -select_streams v:0 -show_entries packet=dts -of csv=p=0 "$1" |
    awk 'NR > 1 && $1 <= prev { bad++ } { prev = $1 } END { print bad + 0 }'
}
# --duration counts recorded sound: the server's absence makes the run longer.
echo "recorded ${seconds} s; the process ran ${wall} s; the sound server was away ${away} s"
echo "WAV: ${length} s; the run less sound and absence (start, stop, anything lost): $(awk -v w="$wall" -v l="$length" -v a="$away" 'BEGIN { printf "%.2f", w - a - l }') s; decode errors: $(decodes "$wav" | wc -l)"
echo "systemAudioDevice events: $(grep -c '"event":"systemAudioDevice"' "$work/events" || true); systemAudio active: $(grep -c '"active":true,"event":"systemAudio"' "$work/events" || true); transcript segments: $(grep -c '"event":"segment"' "$work/events" || true)"
if [ "$video" = 1 ]; then
  mp4=$(sed -n 's/.*"event":"saved".*"mp4":"\([^"]*\)".*/\1/p' "$work/events" | tail -n1)
  frames=$(ffprobe -v error -select_streams v:0 -count_packets -show_entries stream=nb_read_packets -of csv=p=0 "$mp4")
  echo "MP4: $frames frames of $((seconds * 30)) due; decode errors: $(decodes "$mp4" | wc -l); packets out of order: $(unordered "$mp4")"
fi
if [ "${#samples[@]}" -ge 5 ]; then
  printf '%s\n' "${samples[@]:4}" | awk -v five="${samples[4]}" '
    { if ($1 > top) top = $1 }
    END {
      printf "RSS at 5 min %.1f MiB, highest after it %.1f MiB: %s (target within 5 MiB)\n",
        five, top, top - five <= 5 ? "held" : "GREW"
    }'
fi
