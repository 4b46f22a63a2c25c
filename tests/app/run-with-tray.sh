#!/usr/bin/env bash
# run-with-tray.sh PROGRAM [ARGS...]: runs PROGRAM on a private X server with
# a stand-alone system tray (trayer) and no other desktop, then stops both.
set -euo pipefail
fifo=$(mktemp -u)
mkfifo "$fifo"
Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$fifo" 2>/dev/null &
xvfb=$!
if ! read -r -t 20 display <"$fifo"; then echo "run-with-tray: Xvfb did not start" >&2; kill "$xvfb" 2>/dev/null; exit 1; fi
rm -f "$fifo"
export DISPLAY=":$display"
trayer --edge bottom --align right --widthtype request --height 24 --SetDockType true \
  >/dev/null 2>&1 &
tray=$!
cleanup() { kill "$tray" "$xvfb" 2>/dev/null || true; wait 2>/dev/null || true; }
trap cleanup EXIT
# The tray must own its selection before the program looks for it.
for _ in $(seq 100); do
  if timeout 5 xwininfo -root -tree 2>/dev/null | grep -qi "panel\|trayer"; then break; fi
  sleep 0.05
done
QT_QPA_PLATFORM=xcb timeout "${SORV_X11_TIMEOUT:-50}" "$@"
