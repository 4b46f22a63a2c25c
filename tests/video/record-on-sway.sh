#!/usr/bin/env bash
# record-on-sway.sh SORVELANDRIX: under run-with-sway.sh, records three
# seconds of the screen through the ScreenCast portal and checks that the MP4
# holds more than one picture and that they show the red terminal.
set -euo pipefail
SORVELANDRIX_SCREEN_CAPTURE=portal "$1" record --video --target portal:monitor --duration 3 \
  >"$XDG_RUNTIME_DIR/record.log" 2>&1 || { cat "$XDG_RUNTIME_DIR/record.log" >&2; exit 1; }
mp4=$(sed -n 's/^Saved video: //p' "$XDG_RUNTIME_DIR/record.log")
[ -f "$mp4" ] || { echo "no video saved:" >&2; cat "$XDG_RUNTIME_DIR/record.log" >&2; exit 1; }
frames=$(ffprobe -v error -count_frames -select_streams v:0 \
  -show_entries stream=nb_read_frames -of csv=p=0 "$mp4")
# Mean red-difference chroma of every picture: about 128 for grey or black,
# near 240 for red.
cr=$(ffprobe -v error -f lavfi "movie=$mp4,signalstats" \
  -show_entries frame_tags=lavfi.signalstats.VAVG -of csv=p=0 | sort -n | head -n 1)
echo "record-on-sway: $frames pictures, lowest mean Cr $cr"
[ "$frames" -gt 1 ] && awk -v cr="$cr" 'BEGIN { exit !(cr > 200) }'
