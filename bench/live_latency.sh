#!/usr/bin/env bash
# Delay from a mixed buffer entering LiveAudioStreamer::sendAudio() to its
# frame arriving at a WebSocket peer on loopback, the recorder's buffers fed
# at real pace for SORV_BENCH_SECONDS (default 60). Targets: median ≤ 10 ms,
# 99th percentile ≤ 20 ms.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=""
for c in build/release/bench/live_latency build/default/bench/live_latency; do
  [ -x "$c" ] && { bin="$PWD/$c"; break; }
done
[ -x "$bin" ] || { echo "live_latency: build it first (dev/build release)" >&2; exit 1; }
"$bin" "${SORV_BENCH_SECONDS:-60}"
