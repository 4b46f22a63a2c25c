#!/usr/bin/env bash
# Video recording on a 1920×1080 X screen in continuous motion (scrolling
# bands, a moving 480×270 plasma tile, a circling pointer), measured against
# ffmpeg's own x11grab doing the same job with the same encoder settings:
#   - frames written ÷ frames due (30 a second)     target: no drops
#   - CPU (user + system) of the whole process       target: ≤ 1.1× ffmpeg's
#   - peak RSS, the stop's duration (the index moved to the front)
#   - the audio/video offset at the end (flashes and clicks in the last seconds)
# SORV_BENCH_MINUTES (default 10) or SORV_BENCH_SECONDS set the length of each
# of the two recordings; SORV_BENCH_DIR the directory with bench_video_record
# and x11motion (default: build/release/bench, else build/default/bench);
# SORV_BENCH_DISPLAY a display number to use (default: one Xvfb picks).
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/common.sh
seconds="${SORV_BENCH_SECONDS:-$(( ${SORV_BENCH_MINUTES:-10} * 60 ))}"
dir="${SORV_BENCH_DIR:-}"
if [ -z "$dir" ]; then
  recorder=$(find_built video_cpu bench/bench_video_record)
  dir=$(dirname "$recorder")
fi

make_work_dir

# A private X server.
if [ -n "${SORV_BENCH_DISPLAY:-}" ]; then
  Xvfb "$SORV_BENCH_DISPLAY" -screen 0 1920x1080x24 -nolisten tcp -noreset 2>/dev/null &
  pids+=($!)
  echo "${SORV_BENCH_DISPLAY#:}" >"$work/display"
  sleep 1
else
  Xvfb -displayfd 3 -screen 0 1920x1080x24 -nolisten tcp -noreset 3>"$work/display" 2>/dev/null &
  pids+=($!)
  for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
fi
export DISPLAY=":$(head -n1 "$work/display")"
"$dir/x11motion" >"$work/motion" &
pids+=($!)
for _ in $(seq 300); do grep -q ready "$work/motion" 2>/dev/null && break; sleep 0.1; done

# The recorder's x264 settings (src/video/mp4writer.cpp).
preset=superfast
tune=zerolatency

echo "video_cpu: ${seconds} s of 1920x1080 at 30 fps on $DISPLAY, $(nproc) cores"
/usr/bin/time -f "%U %S %M" -o "$work/ours.time" \
  "$dir/bench_video_record" record "$seconds" "$work/ours.mp4" "$work/flashes.txt" \
  >"$work/ours.txt" 2>"$work/ours.log"

/usr/bin/time -f "%U %S %M" -o "$work/ffmpeg.time" \
  ffmpeg -nostdin -v error -y \
    -f x11grab -framerate 30 -draw_mouse 1 -video_size 1920x1080 -i "$DISPLAY" \
    -re -f lavfi -i "sine=frequency=440:sample_rate=48000" -t "$seconds" \
    -pix_fmt yuv420p -c:v libx264 -preset "$preset" -tune "$tune" -profile:v high -b:v 4M -g 60 \
    -c:a aac -b:a 128k -ac 1 -ar 44100 -movflags +faststart "$work/ffmpeg.mp4"

value() { awk -v k="$1" '$1 == k {print $2}' "$work/ours.txt"; }
ffmpeg_frames=$(ffprobe -v error -select_streams v -count_packets \
  -show_entries stream=nb_read_packets -of csv=p=0 "$work/ffmpeg.mp4")
"$dir/bench_video_record" analyse "$work/ours.mp4" "$work/flashes.txt" >"$work/analysis.txt" || true

awk -v s="$seconds" -v due="$(value frames_due)" -v written="$(value frames_written)" \
    -v grabbed="$(value frames_grabbed)" -v dropped="$(value frames_dropped_queue_full)" -v waiting="$(value max_frames_waiting)" \
    -v stop="$(value stop_seconds)" -v ffframes="$ffmpeg_frames" \
    -v ours="$(cat "$work/ours.time")" -v ff="$(cat "$work/ffmpeg.time")" \
    -v size="$(stat -c %s "$work/ours.mp4")" -v ffsize="$(stat -c %s "$work/ffmpeg.mp4")" '
BEGIN {
  split(ours, o, " "); split(ff, f, " ")
  oc = o[1] + o[2]; fc = f[1] + f[2]
  printf "frames written / due:   %d / %d = %.4f (grabbed %d; not grabbed with five waiting: %d; most waiting: %d)\n", written, due, written / due, grabbed, dropped, waiting
  printf "ffmpeg frames / due:    %d / %d = %.4f\n", ffframes, s * 30, ffframes / (s * 30)
  printf "CPU, sorvelandrix:      %.1f s = %.1f %% of one core\n", oc, 100 * oc / s
  printf "CPU, ffmpeg x11grab:    %.1f s = %.1f %% of one core\n", fc, 100 * fc / s
  printf "ratio:                  %.2fx (target <= 1.1x)\n", oc / fc
  printf "peak RSS:               %.1f MiB (ffmpeg %.1f MiB)\n", o[3] / 1024, f[3] / 1024
  printf "file size:              %.1f MiB (ffmpeg %.1f MiB)\n", size / 1048576, ffsize / 1048576
  printf "stop (index to front):  %.2f s\n", stop
}'
sed 's/^/analysis: /' "$work/analysis.txt"
