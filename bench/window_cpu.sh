#!/usr/bin/env bash
# What the main window adds to a recording: the application records audio
# (tones on the microphone and the speakers, in a private PulseAudio daemon)
# for SORV_BENCH_SECONDS (default 30) with the recorder screen shown, then as
# long with the window hidden, on Xvfb with Qt Quick's software renderer
# (as on a desktop without GPU acceleration).
# Target: shown at most 2x hidden.
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/common.sh
seconds="${SORV_BENCH_SECONDS:-30}"
bin="${SORV_WINDOW_CPU:-$(find_built window_cpu bench/window_cpu)}"

make_work_dir
. dev/pulsesandbox.sh
start_pulse_sandbox "$work"
sox -V1 -n -r 48000 -c 1 "$work/mic.wav" synth $((seconds * 2 + 20)) sine 1000 vol 0.3
sox -V1 -n -r 48000 -c 2 "$work/sys.wav" synth $((seconds * 2 + 20)) sine 440 vol 0.3
paplay --latency-msec=20 --device=micsink "$work/mic.wav" 2>/dev/null &
pids+=($!)
paplay --latency-msec=20 --device=speakers "$work/sys.wav" 2>/dev/null &
pids+=($!)

export XDG_CACHE_HOME="$work/cache" XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data"
export QT_QUICK_BACKEND=software
# With a tray, so that hiding the window does not quit the application.
SORV_X11_TIMEOUT=$((seconds * 2 + 60)) tests/app/run-with-tray.sh "$bin" "$seconds"
