#!/usr/bin/env bash
# bench/watch-latency.sh [NIMHOST]
#
# How late `nimhost watch` reports a link change, and how often it wakes up
# when nothing happens. In the network sandbox: one sysFile port on a veth
# pair; `ip -ts monitor link` records the kernel's notifications, the peer is
# toggled 50 times (down and up, each waiting for watch's line), and every
# watch line is compared with the monitor's line for the same change. Then
# 10 s of idle: voluntary context switches of the watch from
# /proc/<pid>/status. Prints the figures; bench/RESULTS.md keeps them.
#
# NIMHOST defaults to build/release/tools/nimhost. Needs root (namespaces)
# and python3 for the arithmetic.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/.." && pwd)
nimhost=$(realpath "${1:-$root/build/release/tools/nimhost}")
toggles=${ZEL_WATCH_TOGGLES:-50}

if [ "${ZEL_SANDBOX:-}" != "1" ]; then
  exec "$root/tests/support/sandbox/nsrun" -- bash "${BASH_SOURCE[0]}" "$nimhost"
fi

work=$(mktemp -d)
pids=()
trap 'for p in ${pids[@]+"${pids[@]}"}; do kill "$p" 2>/dev/null || true; done; wait 2>/dev/null; rm -rf "$work"' EXIT

ip link add eth0 type veth peer name eth0p
ip link set eth0p up
ip link set eth0 up
until grep -qx up /sys/class/net/eth0/operstate; do sleep 0.05; done

cat >"$work/board.toml" <<'TOML'
["Zel.Hardware.Nim.Modules.IEthernetInfoModule"]
mandatoryInterfaces = "1"
"path.1.1.sysFile" = "/sys/class/net/eth0/"

["Zel.Hardware.Nim.Modules.IEthernetInfoModule".fields]
interfaces = [
  ["1", "X1", "eth0", "1", "sysFile", "P1", "Ethernet"],
]
TOML

ip -ts monitor link >"$work/monitor.log" &
pids+=($!)
"$nimhost" --config "$work/board.toml" --log-level 0 watch >"$work/watch.log" &
watch=$!
pids+=("$watch")

lines() { wc -l <"$work/watch.log"; }
# Waits (at most 10 s) until watch has printed `n` lines.
wait_lines() {
  local n=$1 deadline=$((SECONDS + 10))
  while [ "$(lines)" -lt "$n" ]; do
    [ "$SECONDS" -lt "$deadline" ] || { echo "watch-latency: no line $n from watch" >&2; exit 1; }
    sleep 0.01
  done
}

wait_lines 1
expected=1
for ((i = 0; i < toggles; i++)); do
  for state in down up; do
    ip link set eth0p "$state"
    expected=$((expected + 1))
    wait_lines "$expected"
    # Spaced out, so each change is its own notification.
    sleep 0.05
  done
done

before=$(awk '/^voluntary_ctxt_switches/ {print $2}' "/proc/$watch/status")
sleep 10
after=$(awk '/^voluntary_ctxt_switches/ {print $2}' "/proc/$watch/status")
sleep 0.2

python3 - "$work/monitor.log" "$work/watch.log" "$toggles" "$((after - before))" <<'PY'
import re, statistics, sys
from datetime import datetime

monitor, watch, toggles, idle = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
# eth0's own notifications with the operational state they announce.
kernel = []
for line in open(monitor):
    m = re.match(r"\[(\S+)\]\s+\d+: eth0@eth0p: .* state (\S+)", line)
    if m:
        kernel.append((datetime.fromisoformat(m.group(1)), "up" if m.group(2) == "UP" else "not up"))
changes = []
for line in open(watch).read().splitlines()[1:]:
    m = re.match(r"(\S+)  device 1 \(eth0\) port 1 \(P1\): link (\S+)", line)
    changes.append((datetime.fromisoformat(m.group(1)), "up" if m.group(2) == "up" else "not up"))
lags, k = [], 0
for when, state in changes:
    # The first notification of this state after the previous match.
    while k < len(kernel) and kernel[k][1] != state:
        k += 1
    if k == len(kernel):
        sys.exit("watch-latency: a watch line without a kernel notification")
    lags.append((when - kernel[k][0]).total_seconds() * 1000)
    k += 1
lags.sort()
p99 = lags[min(len(lags) - 1, int(round(0.99 * (len(lags) - 1))))]
print(f"changes: {len(lags)} ({toggles} toggles of the peer, down and up)")
print(f"lag after ip -ts monitor (ms; watch stamps whole ms): median {statistics.median(lags):.1f}, "
      f"p99 {p99:.1f}, max {lags[-1]:.1f}, min {lags[0]:.1f}")
print(f"idle 10 s, kernel-backed ports only: {idle} voluntary context switches")
PY
