#!/bin/sh
# Runs a command inside a private D-Bus session with an unlocked
# gnome-keyring (Secret Service only), in a throw-away home, so a test
# exercises the real keyring path without touching the user's.
set -eu
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export HOME="$home" XDG_DATA_HOME="$home/data" XDG_RUNTIME_DIR="$home/run"
mkdir -p "$XDG_DATA_HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
unset DISPLAY
exec dbus-run-session -- sh -c '
  printf test-password | gnome-keyring-daemon --unlock --components=secrets >/dev/null 2>&1
  exec "$@"' sh "$@"
