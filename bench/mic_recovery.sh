#!/usr/bin/env bash
# How fast a recording gets its microphone back, with the application's own
# timing, as `sorvelandrix record --json` reports it inside a private
# PulseAudio daemon:
#  - unplugged: the chosen microphone's module is unloaded; time until the
#    micEngineRestarted event (restarted on the default). Target: < 2 s.
#  - server crash: the daemon is killed and started again on the same socket;
#    time from the new daemon answering until the soundServer available event
#    (both streams restarted). Target: < 2 s; the device monitor tries every
#    second, so expect about 1 s, a little more when the new server is slow.
# It also prints how much audio the file holds against the wall time: the
# time the server was away is missing from the file, nothing else.
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/common.sh
cli="${SORV_CLI:-$(find_built mic_recovery src/cli/sorvelandrix)}"

make_work_dir
. dev/pulsesandbox.sh
start_pulse_sandbox "$work"
daemon=${pids[0]}
now() { date +%s.%N; }
# Stamps each line as it arrives (a fork per line would lag behind).
stamp() { perl -MTime::HiRes=time -ne 'BEGIN { $| = 1 } printf "%.6f %s", time, $_'; }

sox -V1 -n -r 48000 -c 1 "$work/mic.wav" synth 60 sine 1000 vol 0.3
pactl load-module module-null-sink sink_name=usb_feed rate=48000 >/dev/null
pactl load-module module-remap-source source_name=usbmic master=usb_feed.monitor \
  "source_properties=\"device.description='Headset'\"" >"$work/usbmodule"
parec --device=usb_feed.monitor --latency-msec=10 --raw --format=u8 --rate=8000 --channels=1 >/dev/null 2>&1 &
pids+=($!)
play() {
  paplay --latency-msec=20 --device=micsink "$work/mic.wav" 2>/dev/null &
  pids+=($!)
  paplay --latency-msec=20 --device=usb_feed "$work/mic.wav" 2>/dev/null &
  pids+=($!)
  paplay --latency-msec=20 --device=speakers "$work/mic.wav" 2>/dev/null &
  pids+=($!)
}
play
sleep 2
usb=$("$cli" --json devices | sed -n 's/.*"id":\([0-9]*\).*"name":"Headset".*/\1/p')

# Every event line, stamped when it arrived.
XDG_CACHE_HOME="$work/cache" "$cli" --json record --duration 14 --device "$usb" \
  2> >(stamp >"$work/log") | stamp >"$work/events" &
rec=$!
started=$(now)
sleep 3
t_unplug=$(now)
pactl unload-module "$(cat "$work/usbmodule")"
t_unloaded=$(now)
sleep 2
kill -9 "$daemon"
t_kill=$(now)
sleep 1
# The new daemon logs, relative to its own start, when it takes clients.
t_launch=$(now)
XDG_RUNTIME_DIR="$work" HOME="$work" pulseaudio -n --daemonize=no --exit-idle-time=-1 \
  --disallow-exit --use-pid-file=no --realtime=no --high-priority=no \
  --log-target=file:"$work/daemon2.log" --log-level=info --log-time=1 \
  -L "module-native-protocol-unix auth-anonymous=1 socket=$work/native" \
  -L "module-null-sink sink_name=speakers sink_properties=device.description=Speakers rate=48000" \
  -L "module-null-sink sink_name=micsink sink_properties=device.description=MicFeed rate=48000" \
  -L "module-remap-source source_name=virtmic master=micsink.monitor source_properties=device.description=VirtualMic" \
  -L module-always-sink &
pids+=($!)
until pactl info >/dev/null 2>&1; do sleep 0.01; done
up=$(sed -n 's/^(\s*\([0-9.]*\)|.*Daemon startup complete.*/\1/p' "$work/daemon2.log")
t_answer=$(awk -v l="$t_launch" -v u="${up:-0}" 'BEGIN { printf "%.6f", l + u }')
pactl set-default-sink speakers
pactl set-default-source virtmic
for m in micsink.monitor speakers.monitor; do
  parec --device="$m" --latency-msec=10 --raw --format=u8 --rate=8000 --channels=1 >/dev/null 2>&1 &
  pids+=($!)
done
play
wait "$rec" || true
ended=$(now)
# SORV_BENCH_LOG=FILE keeps the engine's stamped log lines.
[ -n "${SORV_BENCH_LOG:-}" ] && cp "$work/log" "$SORV_BENCH_LOG"

restart=$(awk '/"micEngineRestarted"/ {print $1; exit}' "$work/events")
back=$(awk '/"soundServer"/ && /"available":true/ {print $1; exit}' "$work/events")
wav=$(sed -n 's/.*"saved","wav":"\([^"]*\)".*/\1/p' "$work/events")
seconds=$(soxi -D "$wav" 2>/dev/null || echo 0)
awk -v u="$t_unplug" -v ud="$t_unloaded" -v r="$restart" -v a="$t_answer" -v b="$back" -v k="$t_kill" \
    -v s="$started" -v e="$ended" -v f="$seconds" 'BEGIN {
  printf "unplugged -> restarted on the default: %s (pactl unload-module itself: %.0f ms)\n",
         r == "" ? "never" : sprintf("%.0f ms", 1000 * (r - u)), 1000 * (ud - u)
  printf "server answers -> recording resumed:   %s\n", b == "" ? "never" : sprintf("%.0f ms", 1000 * (b - a))
  printf "file: %.1f s of audio in %.1f s of wall time; server away %.1f s\n", f, e - s, a - k
}'
