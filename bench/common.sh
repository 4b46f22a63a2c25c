# Sourced by the measurement scripts in bench/ (from the repository's root).

# find_built SCRIPT PATH: the PATH under build/release, else build/default,
# that is executable; says what to build and fails when there is none.
find_built() {
  local b
  for b in build/release build/default; do
    [ -x "$b/$2" ] && { echo "$PWD/$b/$2"; return 0; }
  done
  echo "$1: build first (dev/build release)" >&2
  return 1
}

# make_work_dir [TEMPLATE]: $work, a scratch directory removed on exit, and
# $pids, the background processes to stop then.
make_work_dir() {
  work=$(mktemp -d ${1:+"$1"})
  pids=()
  trap bench_cleanup EXIT
}

bench_cleanup() {
  local p
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}

# start_signed_in_service BIN_DIR CLI: the local service from BIN_DIR on a
# free port with its data in $work, private XDG directories and a file
# secret store, and CLI signed in to it as the demo account.
start_signed_in_service() {
  export XDG_CACHE_HOME="$work/cache" XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data"
  export SORVELANDRIX_SECRETS=file
  local port=$((20000 + RANDOM % 20000))
  "$1/localservice/sorvelandrix-local-service" --port "$port" --data "$work/service" >/dev/null 2>&1 &
  pids+=($!)
  export SORVELANDRIX_SERVER="http://127.0.0.1:$port"
  for _ in $(seq 50); do
    echo demo | "$2" login --email demo@sorvelandrix.local --password-stdin >/dev/null 2>&1 && return 0
    sleep 0.2
  done
  echo "could not sign in to the local service" >&2
  return 1
}
