#!/usr/bin/env bash
# The local service under a flood of idle connections: SORV_FLOOD_CONNECTIONS
# (default 1100) connections that send nothing, against a service limited to
# 1024 file descriptors. Prints the service's CPU use while they are held
# (5 s) and how long a normal request then waits for its answer (at most
# 40 s). Arguments go to the service (e.g. --header-timeout 2);
# SORV_LOCAL_SERVICE picks another build of it.
# Targets: under 5 % of a core while held; answered once the header timeout
# has closed the idle connections.
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/common.sh
service="${SORV_LOCAL_SERVICE:-$(find_built idle_flood localservice/sorvelandrix-local-service)}"
make_work_dir
python3 - "$service" "$work/service" "${SORV_FLOOD_CONNECTIONS:-1100}" "$@" <<'PY'
import os, re, socket, subprocess, sys, time
service, data, count, extra = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4:]
p = subprocess.Popen(["prlimit", "--nofile=1024", service, "--port", "0", "--data", data] + extra,
                     stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
port = None
for line in p.stdout:
    m = re.search(r"Listening on http://127\.0\.0\.1:(\d+)", line)
    if m:
        port = int(m.group(1))
        break
def cpu_seconds():
    fields = open(f"/proc/{p.pid}/stat").read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
idle = [socket.create_connection(("127.0.0.1", port)) for _ in range(count)]
c0, t0 = cpu_seconds(), time.monotonic()
time.sleep(5)
c1, t1 = cpu_seconds(), time.monotonic()
print(f"service CPU while {count} idle connections are held: {100 * (c1 - c0) / (t1 - t0):.0f} % of a core")
s = socket.create_connection(("127.0.0.1", port))
s.settimeout(40)
s.sendall(b"GET /updates/appcast.xml HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n")
start = time.monotonic()
try:
    head = s.recv(64).split(b"\r\n")[0].decode()
    print(f"a normal request: {head!r} after {time.monotonic() - start:.1f} s")
except socket.timeout:
    print("a normal request: no answer in 40 s")
for c in idle:
    c.close()
p.terminate()
p.wait()
PY
