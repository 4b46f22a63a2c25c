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
