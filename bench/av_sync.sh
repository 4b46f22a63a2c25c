#!/usr/bin/env bash
# Audio/video sync of `record --video`, against its targets: the suite's
# tst_av_sync (and its PipeWire variant) in strict mode, a flashing window
# and its clicks over SORV_AV_SYNC_SECONDS (default 63). Targets: each
# microphone click within 60 ms of its flash, each system-audio click within
# 130 ms (one 4 096-frame buffer waits in its ring), the video ending with
# the audio within 0.1 s and a frame; and tst_videorecorder's own recording
# (each click within 60 ms of its flash, 30 frames a second less a fifth)
# and tst_videomode's (the MP4's audio ending within 50 ms of its video).
# The suite itself checks only that every flash has its own click and that
# frames keep coming, which a loaded machine cannot break.
set -euo pipefail
cd "$(dirname "$0")/.."
[ -d build/default ] || { echo "av_sync.sh: build first (dev/build)" >&2; exit 1; }
cmake --build build/default --target tst_av_sync tst_videorecorder tst_videomode sorvelandrix >/dev/null
SORV_AV_SYNC_STRICT=1 SORV_AV_SYNC_SECONDS="${SORV_AV_SYNC_SECONDS:-63}" \
  ctest --test-dir build/default -R '^tst_(av_sync|videorecorder|videomode)' --output-on-failure -V |
  grep -E 'QINFO|PASS|FAIL|Loc:|tests passed' ||
  echo "av_sync.sh: a target was missed (the FAIL lines above)"
