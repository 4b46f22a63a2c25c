#!/usr/bin/env bash
# The application's memory. Signed in to a local service, with a tone on the
# microphone of a private PulseAudio daemon, on Xvfb with Qt Quick's software
# renderer: its resident size idle, then after SORV_BENCH_CYCLES (default 50)
# rounds of record (1 s) → stop → upload → the Recordings tab → the live
# transcript panel opened and closed on a meeting.
# Targets: idle under 120 MB; the cycles add under 10 MB.
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/common.sh
cycles="${SORV_BENCH_CYCLES:-50}"
bin="${SORV_APP_MEMORY:-$(find_built app_memory bench/app_memory)}"
cli="$(dirname "$(dirname "$bin")")/src/cli/sorvelandrix"
service_dir="$(dirname "$(dirname "$bin")")"

make_work_dir
. dev/pulsesandbox.sh
start_pulse_sandbox "$work"
sox -V1 -n -r 48000 -c 1 "$work/mic.wav" synth $((cycles * 6 + 60)) sine 1000 vol 0.3
paplay --latency-msec=20 --device=micsink "$work/mic.wav" 2>/dev/null &
pids+=($!)

start_signed_in_service "$service_dir" "$cli"
meeting=$("$cli" --json join https://meet.google.com/abc-defg-hij |
  sed -n 's/.*"id":"\([^"]*\)".*/\1/p' | head -1 || true)

export QT_QUICK_BACKEND=software
SORV_X11_TIMEOUT=$((cycles * 10 + 120)) tests/app/run-with-tray.sh "$bin" "$cycles" "${meeting:-bench}"
