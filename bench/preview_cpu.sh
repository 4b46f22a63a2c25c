#!/usr/bin/env bash
# CPU the on-device preview adds to a recording: the same SORV_BENCH_SECONDS
# (default 60) recording with and without LocalTranscriptManager on the
# general English model, in a private PulseAudio daemon whose microphone
# speaks espeak-ng sentences with pauses (and whose speakers play a tone).
# Both runs count from the moment the recording starts; the preview's run
# includes loading the model (about 0.5 s of CPU, once per start).
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/common.sh
seconds="${SORV_BENCH_SECONDS:-60}"
bin="${SORV_PREVIEW_CPU:-$(find_built preview_cpu bench/preview_cpu)}"

make_work_dir
. dev/pulsesandbox.sh
start_pulse_sandbox "$work"

# About 40 % speech, as in a conversation where the other side talks too.
parts=()
i=0
for s in "hello there, how are you today" "the weather is nice, we should go for a walk in the park" \
         "please send me the report by friday" "the meeting starts at ten o'clock" \
         "i think we need more time to finish this" "can you hear me now" \
         "let us move on to the next topic" "thank you all for joining"; do
  espeak-ng -w "$work/s$i.wav" "$s"
  sox -V1 "$work/s$i.wav" -r 48000 "$work/p$i.wav" pad 0 3
  parts+=("$work/p$i.wav")
  i=$((i + 1))
done
sox -V1 "${parts[@]}" "$work/round.wav"
sox -V1 "$work/round.wav" "$work/mic.wav" repeat $((seconds * 2 / 30 + 2))
sox -V1 -n -r 48000 -c 2 "$work/sys.wav" synth $((seconds * 2 + 10)) sine 440 vol 0.1
paplay --latency-msec=20 --device=micsink "$work/mic.wav" 2>/dev/null &
pids+=($!)
paplay --latency-msec=20 --device=speakers "$work/sys.wav" 2>/dev/null &
pids+=($!)

export XDG_CACHE_HOME="$work/cache" XDG_CONFIG_HOME="$work/config"
without=$("$bin" "$seconds")
with=$("$bin" "$seconds" --preview)
echo "$without"
echo "$with"
awk -v a="$without" -v b="$with" -v s="$seconds" 'BEGIN {
  split(a, x, " "); split(b, y, " ");
  printf "the preview adds %.2f s CPU = %.2f %% of one core\n", y[3] - x[3], 100 * (y[3] - x[3]) / s
}'
