#!/usr/bin/env bash
# The two ways a video recording gets the screen, on the same picture:
# `sorvelandrix record --video` of GStreamer's test pattern scrolling at
# 1920×1080, 30 fps, for SORV_BENCH_SECONDS (default 20) each way —
#   portal: the stand-in ScreenCast portal (tests/video/screencastportal.py) on
#           a private session bus hands out the pattern from pipewiresink in a
#           private pipewire (SORVELANDRIX_SCREEN_CAPTURE=portal);
#   x11:    the same pattern in an ximagesink window on a 1920×1080 Xvfb
#           (SORVELANDRIX_SCREEN_CAPTURE=x11);
# first on the machine as it is (twice each way, see below), then beside two
# busy loops (load average ≈ 2 more; SORV_BENCH_LOAD_NICE sets their nice
# level, default 0). For each:
#   - CPU (user + system) of the recording process per second, from /proc,
#     between its first seconds and its stop (the pattern's own GStreamer
#     process is not counted)                  target: portal ≤ x11
#   - the MP4's frames (ffprobe) against 30 a second
#   - the frames the recorder logged as dropped  target: none at load ≤ 2
# SORV_BENCH_PERF=1 records a perf profile of each recording into
# $SORV_BENCH_PERF_DIR (default /tmp). Needs gstreamer1.0-x (ximagesink).
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/common.sh
seconds="${SORV_BENCH_SECONDS:-20}"
cli=$(find_built portal_vs_x11 src/cli/sorvelandrix)
for tool in Xvfb dbus-daemon pipewire wireplumber gst-launch-1.0 pw-dump ffprobe; do
  command -v "$tool" >/dev/null || { echo "portal_vs_x11: $tool is not installed" >&2; exit 1; }
done
gst-inspect-1.0 ximagesink >/dev/null 2>&1 ||
  { echo "portal_vs_x11: ximagesink is missing (apt-get install gstreamer1.0-x)" >&2; exit 1; }

make_work_dir
. dev/pulsesandbox.sh
start_pulse_sandbox "$work"
export XDG_CACHE_HOME="$work/cache" XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data"
export SORVELANDRIX_SECRETS=file

size=1920x1080
pattern="pattern=smpte horizontal-speed=4"
caps="video/x-raw,width=1920,height=1080,framerate=30/1"

# A desktop session of our own: its bus, PipeWire and the stand-in portal.
desk="$work/desk"
mkdir -m 700 "$desk"
export XDG_RUNTIME_DIR="$desk" DBUS_SESSION_BUS_ADDRESS="unix:path=$desk/bus"
dbus-daemon --session --nofork --address="$DBUS_SESSION_BUS_ADDRESS" >/dev/null 2>&1 &
pids+=($!)
for _ in $(seq 50); do [ -S "$desk/bus" ] && break; sleep 0.1; done
pipewire >/dev/null 2>&1 &
pids+=($!)
pw_pid=$!
for _ in $(seq 50); do [ -S "$desk/pipewire-0" ] && break; sleep 0.1; done
wireplumber >/dev/null 2>&1 &
pids+=($!)
echo BGRx >"$desk/format"
echo share >"$desk/behaviour"
SORV_SCREENCAST_SIZE="$size" SORV_SCREENCAST_PATTERN="$pattern" \
  /usr/bin/python3 tests/video/screencastportal.py "$desk/format" "$desk/behaviour" "$desk/calls.log" &
pids+=($!)
sleep 2
kill -0 "${pids[-1]}" 2>/dev/null || { echo "portal_vs_x11: the stand-in portal did not start" >&2; exit 1; }

# The X server with the same pattern in a window covering it.
Xvfb -displayfd 3 -screen 0 1920x1080x24 -nolisten tcp -noreset 3>"$work/display" 2>/dev/null &
pids+=($!)
xvfb_pid=$!
for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
export DISPLAY=":$(head -n1 "$work/display")"
# shellcheck disable=SC2086
gst-launch-1.0 -q videotestsrc is-live=true $pattern ! "$caps" ! videoconvert ! ximagesink >/dev/null 2>&1 &
pids+=($!)
sleep 2

ticks=$(getconf CLK_TCK)
cpu_ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }

# run NAME BACKEND: one recording; prints "cpu_per_s frames dropped load
# xvfb_cpu_per_s pipewire_cpu_per_s distinct_pictures".
run() {
  local name="$1" backend="$2" rec t0 c0 t1 c1 x0 x1 p0 p1 perf_pid=""
  SORVELANDRIX_SCREEN_CAPTURE="$backend" "$cli" record --video --duration "$seconds" \
    >"$work/$name.out" 2>"$work/$name.log" &
  rec=$!
  for _ in $(seq 200); do grep -q "Video recording started" "$work/$name.log" && break; sleep 0.1; done
  sleep 2
  if [ "${SORV_BENCH_PERF:-0}" = 1 ]; then
    perf record -q -g -p "$rec" -o "${SORV_BENCH_PERF_DIR:-/tmp}/portal_vs_x11.$name.perf" \
      >/dev/null 2>&1 &
    perf_pid=$!
  fi
  t0=$(date +%s.%N); c0=$(cpu_ticks "$rec"); x0=$(cpu_ticks "$xvfb_pid"); p0=$(cpu_ticks "$pw_pid")
  sleep $((seconds - 5))
  t1=$(date +%s.%N); c1=$(cpu_ticks "$rec"); x1=$(cpu_ticks "$xvfb_pid"); p1=$(cpu_ticks "$pw_pid")
  [ -n "$perf_pid" ] && kill -INT "$perf_pid" && wait "$perf_pid" || true
  local load
  load=$(cut -d' ' -f1 /proc/loadavg)
  wait "$rec" || { echo "portal_vs_x11: the $name recording failed:" >&2; tail -5 "$work/$name.log" >&2; return 1; }
  local mp4 frames dropped distinct
  mp4=$(sed -n 's/^Saved video: //p' "$work/$name.out" | tail -n1)
  frames=$(ffprobe -v error -select_streams v -count_packets -show_entries stream=nb_read_packets \
    -of csv=p=0 "$mp4")
  # Pictures that differ from the one before: a starved pattern window
  # gives the X11 grab repeats, which cost the encoder next to nothing.
  distinct=$(ffmpeg -v error -i "$mp4" -an -f framemd5 - | awk '!/^#/ { if ($6 != last) n++; last = $6 } END { print n + 0 }')
  dropped=$(sed -n 's/.*Video finalised.* \([0-9]*\) dropped with five waiting.*/\1/p' "$work/$name.log")
  [ "${SORV_BENCH_KEEP:-0}" = 1 ] && cp "$work/$name.log" "/tmp/portal_vs_x11.$name.log"
  rm -f "$mp4" "${mp4%.mp4}.wav"
  awk -v c0="$c0" -v c1="$c1" -v t0="$t0" -v t1="$t1" -v hz="$ticks" -v f="$frames" \
      -v d="${dropped:-?}" -v l="$load" -v x="$((x1 - x0))" -v p="$((p1 - p0))" -v n="$distinct" 'BEGIN {
    w = t1 - t0
    printf "%.4f %d %s %s %.4f %.4f %d\n", (c1 - c0) / hz / w, f, d, l, x / hz / w, p / hz / w, n }'
}

report() {
  local label="$1" portal="$2" x11="$3"
  read -r pc pf pd pl px pp pn <<<"$portal"
  read -r xc xf xd xl xx xp xn <<<"$x11"
  # A starved recorder encodes fewer frames and so spends less: per frame
  # written compares the two when the machine is busy.
  awk -v label="$label" -v pc="$pc" -v pf="$pf" -v pd="$pd" -v pl="$pl" -v xc="$xc" -v xf="$xf" \
      -v xd="$xd" -v xl="$xl" -v px="$px" -v pp="$pp" -v xx="$xx" -v xp="$xp" -v pn="$pn" -v xn="$xn" \
      -v due=$((seconds * 30)) -v s="$seconds" 'BEGIN {
    printf "%s\n", label
    printf "  portal: CPU %.1f %% of one core (%.2f ms a frame written), frames %d / %d due, dropped %s (load %s)\n", 100 * pc, 1000 * pc * s / pf, pf, due, pd, pl
    printf "  x11:    CPU %.1f %% of one core (%.2f ms a frame written), frames %d / %d due, dropped %s (load %s)\n", 100 * xc, 1000 * xc * s / xf, xf, due, xd, xl
    printf "  distinct pictures among them: portal %d, x11 %d\n", pn, xn
    printf "  portal / x11 CPU: %.2fx a second, %.2fx a frame (target <= 1)\n", pc / xc, (pc / pf) / (xc / xf)
    printf "  servers, %% of one core during each: Xvfb %.1f (portal run) vs %.1f (x11 run: + the grabs), pipewire %.1f vs %.1f\n", 100 * px, 100 * xx, 100 * pp, 100 * xp
  }'
}

echo "portal_vs_x11: ${seconds} s of ${size} at 30 fps each way, $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg)"
# Twice each way, in the order portal, x11, x11, portal, so that whatever
# drifts on the machine in the meantime weighs on both alike; the report
# takes the mean of each pair (CPU a second, loads and servers averaged,
# frames, drops and distinct pictures added up, so per-frame figures hold).
mean_of() {
  awk -v a="$1" -v b="$2" 'BEGIN {
    split(a, x, " "); split(b, y, " ")
    printf "%.4f %d %d %.2f %.4f %.4f %d\n", (x[1] + y[1]) / 2, x[2] + y[2], x[3] + y[3], (x[4] + y[4]) / 2, (x[5] + y[5]) / 2, (x[6] + y[6]) / 2, x[7] + y[7] }'
}
quiet_portal=$(run quiet-portal portal)
quiet_x11=$(run quiet-x11 x11)
report "as the machine is (first portal, then x11):" "$quiet_portal" "$quiet_x11"
quiet_x11_2=$(run quiet-x11-2 x11)
quiet_portal_2=$(run quiet-portal-2 portal)
report "again (first x11, then portal):" "$quiet_portal_2" "$quiet_x11_2"
seconds=$((seconds * 2)) report "both pairs together:" "$(mean_of "$quiet_portal" "$quiet_portal_2")" \
  "$(mean_of "$quiet_x11" "$quiet_x11_2")"

for _ in 1 2; do
  nice -n "${SORV_BENCH_LOAD_NICE:-0}" bash -c 'while :; do :; done' &
  pids+=($!)
done
sleep 5
loaded_portal=$(run loaded-portal portal)
loaded_x11=$(run loaded-x11 x11)
report "beside two busy loops:" "$loaded_portal" "$loaded_x11"
