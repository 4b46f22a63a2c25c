#!/usr/bin/env bash
# Upload of a large recording to the local service on loopback:
# `sorvelandrix upload` (the body streamed from the file) beside `curl -F file=@…`
# posting the same file to the same endpoint, and the client's peak resident
# memory. SORV_UPLOAD_MIB sets the size (default 1024).
# Targets: throughput at least 0.95x curl's, peak RSS under 64 MiB.
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/common.sh
mib="${SORV_UPLOAD_MIB:-1024}"
build=""
for b in build/release build/default; do
  [ -x "$b/src/cli/sorvelandrix" ] && [ -x "$b/localservice/sorvelandrix-local-service" ] && { build="$PWD/$b"; break; }
done
[ -n "$build" ] || { echo "upload_1gib: build first (dev/build release)" >&2; exit 1; }

make_work_dir "${TMPDIR:-/var/tmp}/sorv-upload-XXXXXX"
export XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data" XDG_CACHE_HOME="$work/cache"
export SORVELANDRIX_SECRETS=file
port=$((20000 + RANDOM % 20000))
export SORVELANDRIX_SERVER="http://127.0.0.1:$port"
"$build/localservice/sorvelandrix-local-service" --port "$port" --data "$work/service" >"$work/service.log" 2>&1 &
pids+=($!)
for _ in $(seq 50); do curl -s "$SORVELANDRIX_SERVER/api/auth/me" >/dev/null && break; sleep 0.1; done

echo demo | "$build/src/cli/sorvelandrix" login --email demo@sorvelandrix.local --password-stdin >/dev/null 2>&1
# Outside the recordings directory, so the upload leaves it for curl.
head -c $((mib * 1048576)) /dev/urandom >"$work/recording.wav"
sync

/usr/bin/time -f "%e %M" -o "$work/time" "$build/src/cli/sorvelandrix" upload "$work/recording.wav" \
  >"$work/client.out" 2>"$work/client.err" || { cat "$work/client.err" >&2; exit 1; }
read -r client_s client_kb <"$work/time"
rm -rf "$work/service/uploads"

token=$(curl -s -X POST -H 'Content-Type: application/json' \
  -d '{"email":"demo@sorvelandrix.local","password":"demo"}' "$SORVELANDRIX_SERVER/api/auth/login" |
  sed -E 's/.*"token":"([^"]+)".*/\1/')
curl_s=$(curl -s -o /dev/null -w '%{time_total}' -H "Authorization: Bearer $token" -H 'Expect:' \
  -F "file=@$work/recording.wav" "$SORVELANDRIX_SERVER/api/upload")

awk -v mib="$mib" -v c="$client_s" -v k="$client_kb" -v u="$curl_s" 'BEGIN {
  printf "sorvelandrix upload: %.2f s for %d MiB = %.0f MiB/s\n", c, mib, mib / c
  printf "curl -F:             %.2f s for %d MiB = %.0f MiB/s\n", u, mib, mib / u
  printf "throughput ratio:    %.2fx curl (target >= 0.95)\n", u / c
  printf "peak RSS (client):   %.1f MiB (target < 64)\n", k / 1024
}'
