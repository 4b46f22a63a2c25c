#!/usr/bin/env bash
# run-with-sway.sh PROGRAM [ARGS...]: runs PROGRAM in a Wayland desktop of its
# own, as nobody when started as root (sway refuses root): sway on its
# headless backend (software rendering, no GPU needed) with a terminal
# scrolling the time on a red background, a private session bus, PipeWire with
# wireplumber and its PulseAudio server (a virtual microphone as default
# source), and xdg-desktop-portal with the wlr backend sharing the only output
# without asking. SORV_XDPW_SHIM is the library that lets that
# backend share shared-memory frames (xdpw_shm_frames.c). Exits 77 (skipped)
# when a part is not installed.
set -euo pipefail

for tool in sway swaymsg foot xdg-desktop-portal xdg-desktop-portal-wlr pipewire wireplumber \
  pipewire-pulse pactl dbus-daemon dbus-send setpriv; do
  if ! command -v "$tool" >/dev/null && [ ! -x "/usr/libexec/$tool" ]; then
    echo "run-with-sway: $tool is not installed (dev/setup installs it); skipped" >&2
    exit 77
  fi
done
[ -r "${SORV_XDPW_SHIM:-}" ] || { echo "run-with-sway: SORV_XDPW_SHIM is not set" >&2; exit 1; }

if [ "$(id -u)" -eq 0 ]; then
  as_nobody=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
  if ! "${as_nobody[@]}" test -x "$0" -a -x "$1"; then
    echo "run-with-sway: nobody cannot run $0 or $1 (a private home?); skipped" >&2
    exit 77
  fi
  exec "${as_nobody[@]}" "$0" "$@"
fi
# Everything started here, the bus's activated services too, shares this
# process group, which ends with it.
[ "$(cut -d" " -f5 /proc/$$/stat)" = "$$" ] || exec setsid --wait "$0" "$@"

dir=$(mktemp -d)
chmod 700 "$dir"
cleanup() {
  trap '' TERM
  kill -TERM -- -$$ 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$dir"
}
trap cleanup EXIT
trap 'exit 143' TERM INT

export HOME=$dir/home
unset XDG_CONFIG_HOME XDG_DATA_HOME XDG_CACHE_HOME XDG_STATE_HOME
export XDG_RUNTIME_DIR=$dir XDG_CURRENT_DESKTOP=sway
export DBUS_SESSION_BUS_ADDRESS=unix:path=$dir/bus
export WLR_BACKENDS=headless WLR_RENDERER=pixman WLR_LIBINPUT_NO_DEVICES=1
unset DISPLAY WAYLAND_DISPLAY SWAYSOCK PULSE_SERVER PULSE_RUNTIME_PATH PIPEWIRE_REMOTE \
  PIPEWIRE_RUNTIME_DIR
log=$dir/log
mkdir -p "$log" "$HOME"
fail() {
  echo "run-with-sway: $1; the logs:" >&2
  tail -n 20 "$log"/* >&2
  exit 1
}
wait_for() { # WHAT COMMAND...
  local what=$1
  shift
  for _ in $(seq 400); do "$@" >/dev/null 2>&1 && return 0; sleep 0.05; done
  fail "$what did not start"
}
has_name() {
  dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
    org.freedesktop.DBus.NameHasOwner "string:$1" 2>/dev/null | grep -q true
}
has_window() {
  SWAYSOCK=$(echo "$dir"/sway-ipc.*.sock) swaymsg -t get_tree 2>/dev/null |
    grep -q "\"app_id\": \"$1\""
}

dbus-daemon --session --nofork --address="$DBUS_SESSION_BUS_ADDRESS" >"$log/dbus" 2>&1 &
wait_for dbus-daemon test -S "$dir/bus"
cat >"$dir/sway.conf" <<EOF
output HEADLESS-1 resolution 640x480
exec foot -o colors.background=ff0000 -e sh -c 'while :; do date +%T.%N; sleep 0.03; done'
EOF
sway -c "$dir/sway.conf" >"$log/sway" 2>&1 &
wait_for sway compgen -G "$dir/wayland-?"
for socket in "$dir"/wayland-?; do export WAYLAND_DISPLAY=${socket##*/}; done
pipewire >"$log/pipewire" 2>&1 &
wait_for pipewire test -S "$dir/pipewire-0"
wireplumber >"$log/wireplumber" 2>&1 &
pipewire-pulse >"$log/pipewire-pulse" 2>&1 &
wait_for pipewire-pulse pactl info
{
  pactl load-module module-null-sink sink_name=micfeed &&
    pactl load-module module-remap-source source_name=virtmic master=micfeed.monitor &&
    pactl set-default-source virtmic
} >"$log/pactl" 2>&1 || fail "the virtual microphone could not be set up"
printf '[screencast]\nchooser_type=none\noutput_name=HEADLESS-1\n' >"$dir/xdpw.conf"
LD_PRELOAD=$SORV_XDPW_SHIM /usr/libexec/xdg-desktop-portal-wlr -l DEBUG -c "$dir/xdpw.conf" \
  >"$log/xdpw" 2>&1 &
wait_for xdg-desktop-portal-wlr has_name org.freedesktop.impl.portal.desktop.wlr
/usr/libexec/xdg-desktop-portal >"$log/xdg-desktop-portal" 2>&1 &
wait_for xdg-desktop-portal has_name org.freedesktop.portal.Desktop
wait_for foot has_window foot

status=0
"$@" || status=$?
[ "$status" -eq 0 ] || [ "$status" -eq 77 ] || fail "$1 exited with $status"
exit "$status"
