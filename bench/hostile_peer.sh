#!/usr/bin/env bash
# What a broken or hostile service costs the command line: peak RSS, bytes
# written to standard output, and the time from SIGTERM to exit.
#
#   bench/hostile_peer.sh interim BYTES [SECONDS]   record --live server --json
#                                                    against interim pieces that
#                                                    never extend the text
#   bench/hostile_peer.sh message BYTES [SECONDS]   the same against one message
#                                                    of BYTES
#   bench/hostile_peer.sh finals BYTES [SECONDS]    the same against final
#                                                    segments, BYTES in all
#   bench/hostile_peer.sh line BYTES [SECONDS]      follow --json against a data
#                                                    line of BYTES without an end
#   bench/hostile_peer.sh deaf FRAMES [SECONDS]     record --live server --json
#                                                    against a service that takes
#                                                    FRAMES audio frames per
#                                                    connection, then reads
#                                                    nothing (nor answers pings)
#
# The command's RSS is sampled every 10 s as well.
# SIGTERM goes out SECONDS (default 10) after the command started; a command
# still running 30 s later is killed and reported as deaf. SORV_CLI names
# another build of the command line to measure (an older one, to compare).
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/common.sh
usage="usage: bench/hostile_peer.sh interim|message|finals|line|deaf BYTES [SECONDS]"
mode="${1:?$usage}"
bytes="${2:?$usage}"
seconds="${3:-10}"
cli="${SORV_CLI:-$(find_built hostile_peer src/cli/sorvelandrix)}"
peer=$(find_built hostile_peer bench/hostile_peer)

make_work_dir
export XDG_CACHE_HOME="$work/cache" XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data"
export SORVELANDRIX_SECRETS=file
port=$((20000 + RANDOM % 20000))
"$peer" "$port" "$work/service" "$mode" "$bytes" >"$work/peer.out" &
peer_pid=$!
pids+=("$peer_pid")
for _ in $(seq 100); do
  grep -q '^meeting ' "$work/peer.out" 2>/dev/null && break
  sleep 0.1
done
meeting=$(sed -n 's/^meeting //p' "$work/peer.out")
export SORVELANDRIX_SERVER="http://127.0.0.1:$port"
echo demo | "$cli" login --email demo@sorvelandrix.local --password-stdin >/dev/null

if [ "$mode" = line ]; then
  command=(follow "$meeting")
else
  . dev/pulsesandbox.sh
  start_pulse_sandbox "$work"
  command=(record --live server --language de-DE --discard)
fi

/usr/bin/time -v -o "$work/time" "$cli" --json "${command[@]}" >"$work/out" 2>"$work/err" &
timer=$!
sleep 0.5
child=$(pgrep -P "$timer")
samples=()
queued=()
for ((t = 10; t <= seconds; t += 10)); do
  sleep 10
  samples+=("$(awk '/^VmRSS:/ { printf "%.1f", $2 / 1024 }' "/proc/$child/status" 2>/dev/null)")
  # What the kernel holds unsent towards the service, beside the process.
  queued+=("$(ss -tnH state established "( dport = :$port )" |
    awk '{ q += $2 } END { printf "%.0f", q / 1024 }')")
done
sleep $((seconds % 10))
start=$(date +%s.%N)
kill -TERM "$child" 2>/dev/null || true
deaf=""
for _ in $(seq 300); do
  kill -0 "$child" 2>/dev/null || break
  sleep 0.1
done
if kill -0 "$child" 2>/dev/null; then
  deaf=" (deaf: killed 30 s after SIGTERM)"
  kill -KILL "$child"
fi
end=$(date +%s.%N)
wait "$timer" || true

rss=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$work/time")
echo "sorvelandrix --json ${command[*]} against $mode of $bytes bytes, SIGTERM after $seconds s:"
awk -v kb="$rss" 'BEGIN { printf "  peak RSS %.1f MiB\n", kb / 1024 }'
if [ ${#samples[@]} -gt 0 ]; then
  echo "  RSS every 10 s (MiB): ${samples[*]}"
  echo "  unsent in the kernel's socket buffers every 10 s (KiB): ${queued[*]}"
fi
echo "  standard output $(wc -c <"$work/out") bytes, $(wc -l <"$work/out") lines"
if [ "$mode" = line ]; then
  grep -q 'after the line' "$work/out" && echo "  the words after the line arrived" ||
    echo "  the words after the line did not arrive"
fi
awk -v a="$start" -v b="$end" -v d="$deaf" 'BEGIN { printf "  exit %.2f s after SIGTERM%s\n", b - a, d }'
if [ "$mode" = deaf ]; then
  kill -TERM "$peer_pid" 2>/dev/null || true
  wait "$peer_pid" 2>/dev/null || true
  echo "  the service saw: $(sed -n 's/^live //p' "$work/peer.out")"
fi
