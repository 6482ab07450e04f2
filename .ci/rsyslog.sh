#!/usr/bin/env bash
# The rsyslog pipeline of packaging/rsyslog/ end to end, on the loopback interface only: two
# rsyslogd (device and collector, each with its own pid file and work folder in a temporary
# folder) that speak TLS with certificates made here for the run (a CA, the collector and one
# device), qellog-ship between the log folder and the device, 20,000 records from 4 threads
# into 64 KiB log files, a stop and restart of the reader in the middle, and a Ctrl-C followed
# by a SIGTERM to the shipper's whole process group (as an impatient operator or `timeout`
# sends them) and a restart later on. The collector must
# hold every record exactly once, whole, with its fields, and nothing that came in plain TCP.
# Stops what it started, by pid.
# Usage: .ci/rsyslog.sh [BUILD_DIR]   (default build; qel and qellog are built there)
set -euo pipefail
cd "$(dirname "$0")/.."
bash .ci/install-missing.sh  # what the build needs
root=$PWD
build=${1:-build}

bash .ci/install-missing.sh rsyslog rsyslog-gnutls openssl python3
cmake --build "$build" -j2 --target qel qellog

work=$(mktemp -d /tmp/qel-rsyslog.XXXXXX)
pids=()
cleanup() {
    local pid
    for pid in "${pids[@]}"; do
        kill -TERM "$pid" 2>/dev/null || true
    done
    for pid in "${pids[@]}"; do
        wait "$pid" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap cleanup EXIT

# Two free ports above 20000: ask the kernel for them.
read -r device_port collector_port < <(python3 - <<'PY'
import socket
socks = [socket.socket() for _ in range(2)]
for s in socks:
    s.bind(("127.0.0.1", 0))
print(*[s.getsockname()[1] for s in socks])
for s in socks:
    s.close()
PY
)

# A CA of the run's own, and certificates for the names the templates expect: the collector's
# and one device's name among those the collector permits.
mkdir -p "$work/tls"
certificate() {  # NAME FILE: a certificate for NAME, signed by the CA, in FILE.pem/.key
    openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$2.key" \
        -out "$2.csr" -subj "/CN=$1" 2>/dev/null
    openssl x509 -req -in "$2.csr" -CA "$work/tls/ca.pem" -CAkey "$work/tls/ca.key" \
        -CAcreateserial -days 2 -out "$2.pem" 2>/dev/null \
        -extfile <(printf 'subjectAltName=DNS:%s\nextendedKeyUsage=serverAuth,clientAuth\n' "$1")
}
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 \
    -keyout "$work/tls/ca.key" -out "$work/tls/ca.pem" -subj "/CN=qellog test CA" \
    -addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign 2>/dev/null
certificate collector.example.net "$work/tls/collector"
certificate cam-01.cameras.example.net "$work/tls/device"

mkdir -p "$work/device-spool" "$work/collector-spool" "$work/out" "$work/logs"
sed -e "s|/var/spool/rsyslog|$work/device-spool|" -e "s|/etc/qellog/tls|$work/tls|" \
    -e "s|port=\"5140\"|port=\"$device_port\"|" \
    -e "s|target=\"collector.example.net\" port=\"6514\"|target=\"127.0.0.1\" port=\"$collector_port\"|" \
    -e "s|/var/log/qellog-unparsed.log|$work/out/device-unparsed.log|" \
    packaging/rsyslog/qellog-device.conf > "$work/device.conf"
sed -e "s|/var/spool/rsyslog|$work/collector-spool|" -e "s|/etc/qellog/tls|$work/tls|" \
    -e "s|address=\"0.0.0.0\" port=\"6514\"|address=\"127.0.0.1\" port=\"$collector_port\"|" \
    -e "s|/var/log/qellog|$work/out|g" \
    packaging/rsyslog/qellog-collector.conf > "$work/collector.conf"
grep -q "$device_port" "$work/device.conf" && grep -q "$collector_port" "$work/collector.conf"
grep -q "$work/tls/ca.pem" "$work/device.conf" && grep -q "$work/tls/ca.pem" "$work/collector.conf"

for side in collector device; do
    rsyslogd -N1 -f "$work/$side.conf" >/dev/null
    rsyslogd -n -f "$work/$side.conf" -i "$work/$side.pid" >"$work/$side.stdout" 2>&1 &
    pids+=($!)
done
port_open() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
for _ in $(seq 100); do
    port_open "$device_port" && port_open "$collector_port" && break
    sleep 0.1
done
port_open "$device_port" && port_open "$collector_port"

# A record sent to the collector in plain TCP must not get in.
plain='<14>1 2026-11-25T00:00:00Z plainhost qellog - - - {"module":"plain","text":"plain TCP"}'
printf '%d %s' "${#plain}" "$plain" > "/dev/tcp/127.0.0.1/$collector_port" || true

g++ -std=c++17 -O1 -I include .ci/rsyslog_writer.cpp -o "$work/writer" \
    -L "$build" -lqel -Wl,-rpath,"$root/$build" -pthread

export QELLOG="$root/$build/tools/qellog/qellog"
ship() {  # in a process group of its own, as a terminal would start it
    setsid packaging/rsyslog/qellog-ship "$work/logs" "$work/follow.state" "$device_port" \
        2>>"$work/ship.err" &
    ship_pid=$!
    pids+=("$ship_pid")
}
ship
"$work/writer" "$work/logs" &
writer_pid=$!
pids+=("$writer_pid")
collected() { cat "$work"/out/*.json 2>/dev/null | wc -l || true; }
for _ in $(seq 400); do
    [ "$(ls "$work/logs" | wc -l)" -ge 60 ] && break
    sleep 0.01
done
kill -TERM "$ship_pid"   # the reader stops in the middle of the stream ...
wait "$ship_pid"
restart_at=$(collected)
ship                     # ... and goes on where it stopped;
for _ in $(seq 400); do
    [ "$(ls "$work/logs" | wc -l)" -ge 150 ] && break
    sleep 0.01
done
kill -INT -- "-$ship_pid"  # then Ctrl-C and a SIGTERM to the shipper's process group ...
sleep 0.02
kill -TERM -- "-$ship_pid" 2>/dev/null || true
wait "$ship_pid"
interrupted_at=$(collected)
ship                     # ... and on again
wait "$writer_pid"
echo "log files written: $(ls "$work/logs" | wc -l); restarted the reader at $restart_at" \
    "and after Ctrl-C at $interrupted_at records"

for _ in $(seq 240); do
    [ "$(collected)" -ge 20000 ] && break
    sleep 0.5
done
sleep 1  # anything beyond 20,000 would be a duplicate: give it the time to show
kill -TERM "$ship_pid"
wait "$ship_pid"

python3 - "$work" <<'PY'
import glob, json, sys
work = sys.argv[1]

def record_text(thread, index):
    text = "w%d-%d " % (thread, index)
    text += chr(ord("a") + index % 26) * ((index * 7919 + thread * 104729) % 1900)
    if index % 5 == 0: text += "\nsecond line"
    if index % 7 == 0: text += "\n\n[after an empty line]"
    if index % 11 == 0: text += ' "quoted" \\ tab\t'
    return text

seen = {}
problems = []
lines = [l for f in sorted(glob.glob(work + "/out/*.json")) for l in open(f, encoding="utf-8")]
for line in lines:
    o = json.loads(line)
    if o.get("module") == "plain":
        continue  # reported below
    key = (o["module"], o["text"].split(" ", 1)[0])
    seen[key] = seen.get(key, 0) + 1
    thread, index = (int(x) for x in o["text"].split(" ", 1)[0][1:].split("-"))
    if o["module"] != "w%d" % thread or o["text"] != record_text(thread, index) \
            or o["level"] != "IWE"[index % 3] or o["version"] != "1.8.63" \
            or not isinstance(o["tid"], int) or not o["file"].startswith("QelLog") \
            or len(o["date"]) != 10 or len(o["time"].split(":")) != 4:
        problems.append("wrong fields: " + line[:200])
expected = {("w%d" % t, "w%d-%d" % (t, i)) for t in range(4) for i in range(5000)}
missing = expected - set(seen)
twice = [k for k, n in seen.items() if n > 1]
print("collected %d lines, %d distinct records, %d missing, %d more than once, %d wrong"
      % (len(lines), len(seen), len(missing), len(twice), len(problems)))
for p in problems[:5]: print(p)
for k in sorted(missing)[:5]: print("missing", k)
for k in twice[:5]: print("twice", k)
sys.exit(1 if problems or missing or twice or set(seen) - expected else 0)
PY
if grep -rl "plain TCP" "$work/out"; then
    echo "the collector took a record sent in plain TCP"; exit 1
fi
if [ -s "$work/out/device-unparsed.log" ] || [ -s "$work/out/unparsed.log" ]; then
    echo "rsyslog could not parse some messages"; exit 1
fi
if [ -s "$work/ship.err" ]; then
    echo "qellog-ship reported:"; cat "$work/ship.err"; exit 1
fi
echo "rsyslog pipeline: every record exactly once"
