#!/usr/bin/env bash
# Delay from the end of an utterance to its final segment in the on-device
# preview (target: median ≤ 1 s), with the general English model and with
# a grammar of the spoken phrases. See bench/speech_latency.cpp.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=""
for c in build/release/bench/speech_latency build/default/bench/speech_latency; do
  [ -x "$c" ] && { bin="$c"; break; }
done
[ -n "$bin" ] || { echo "speech_latency: build it first (dev/build release)" >&2; exit 1; }
"$bin"
"$bin" --grammar | head -2
