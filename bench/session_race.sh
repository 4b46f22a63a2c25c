#!/usr/bin/env bash
# Several command-line programs sharing one session while its access token
# keeps expiring: the local service with 2 s tokens, SORV_LOOPS shell loops
# (default 2) of SORV_ITERATIONS `sorvelandrix whoami` each (default 60) side
# by side, SORV_TRIALS times (default 4), each trial from a fresh sign-in.
# The secrets are in the private file (no session bus), as on a machine
# without a keyring. Prints, per trial, whether and where the session was
# lost. Target: signed out in 0 trials.
# SORV_CLI and SORV_SERVICE name other binaries (an older build, to compare).
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/common.sh
trials="${SORV_TRIALS:-4}"
loops="${SORV_LOOPS:-2}"
iterations="${SORV_ITERATIONS:-60}"
cli="${SORV_CLI:-$(find_built session_race src/cli/sorvelandrix)}"
service="${SORV_SERVICE:-$(find_built session_race localservice/sorvelandrix-local-service)}"

make_work_dir "${TMPDIR:-/var/tmp}/sorv-race-XXXXXX"
unset DBUS_SESSION_BUS_ADDRESS DISPLAY WAYLAND_DISPLAY SORVELANDRIX_SECRETS
export XDG_RUNTIME_DIR="$work/run" XDG_CONFIG_HOME="$work/config" XDG_CACHE_HOME="$work/cache"
mkdir -m 700 -p "$XDG_RUNTIME_DIR"
port=$((20000 + RANDOM % 20000))
export SORVELANDRIX_SERVER="http://127.0.0.1:$port"
"$service" --port "$port" --data "$work/service" --token-lifetime 2 >"$work/service.log" 2>&1 &
pids+=($!)
for _ in $(seq 50); do curl -s "$SORVELANDRIX_SERVER/api/auth/me" >/dev/null && break; sleep 0.1; done

lost=0
for trial in $(seq "$trials"); do
  export XDG_DATA_HOME="$work/data$trial"
  echo demo | "$cli" login --email demo@sorvelandrix.local --password-stdin >/dev/null 2>&1
  loop_pids=()
  for l in $(seq "$loops"); do
    (
      for i in $(seq "$iterations"); do
        if ! "$cli" whoami >/dev/null 2>"$work/err.$trial.$l"; then
          grep -q "Not signed in" "$work/err.$trial.$l" && { echo "$i" >"$work/out.$trial.$l"; exit 1; }
        fi
      done
    ) &
    loop_pids+=($!)
  done
  first=""
  for l in $(seq "$loops"); do
    wait "${loop_pids[$((l - 1))]}" || true
    [ -f "$work/out.$trial.$l" ] && first="${first:+$first, }loop $l at iteration $(cat "$work/out.$trial.$l")"
  done
  if [ -n "$first" ]; then
    lost=$((lost + 1))
    echo "trial $trial: signed out ($first)"
  else
    echo "trial $trial: still signed in after $loops x $iterations runs"
  fi
done
echo "signed out in $lost of $trials trials (target 0)"
