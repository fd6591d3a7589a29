#!/usr/bin/env bash
# metrics-e2e.sh NIMHOST
#
# A port's link, toggled with `ip link set`, seen in Prometheus's query API:
# nimhost watch (the machine's own interfaces, no settings file) keeps a file
# in node_exporter's textfile directory current, which a Prometheus server scrapes every second.
# nim_port_link_up must go 1 -> 0 -> 1, and the fleet's alerting rules
# (tools/prometheus, their "for:" times cut to a second) fire NimPortLinkDown
# while the link is down. Runs itself in the network sandbox (exit 77 when none
# is possible, a failure under CI=true).
set -euo pipefail

nimhost=$(realpath "$1")
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

if [ "${ZEL_SANDBOX:-}" != "1" ]; then
  "$root/scripts/setup.sh"
  exec "$root/tests/support/sandbox/nsrun" -- bash "${BASH_SOURCE[0]}" "$nimhost"
fi

work=$(mktemp -d)
# The servers and the watch are this script's background jobs.
trap 'kill $(jobs -p) 2>/dev/null || true; wait; rm -rf "$work"' EXIT

fail() {
  echo "metrics-e2e: $*" >&2
  for log in "$work"/*.log; do echo "--- $log" >&2; tail -n 20 "$log" >&2; done
  exit 1
}

wait_for() {
  local seconds=$1 what=$2
  shift 2
  local deadline=$((SECONDS + seconds))
  until "$@"; do
    [ "$SECONDS" -lt "$deadline" ] || fail "gave up after ${seconds}s waiting for $what"
    sleep 0.2
  done
}

ip link add eth0 type veth peer name eth0p
ip link set eth0p up
ip link set eth0 up
wait_for 10 "eth0's carrier" grep -qx up /sys/class/net/eth0/operstate

mkdir "$work/textfile"
prometheus-node-exporter --web.listen-address=127.0.0.1:9100 --collector.disable-defaults \
  --collector.textfile --collector.textfile.directory="$work/textfile" >"$work/node-exporter.log" 2>&1 &
"$nimhost" --log-level 3 watch --metrics-file "$work/textfile/nim.prom" >"$work/watch.log" 2>&1 &

sed -E 's/^( *for:) .*/\1 1s/' "$root/tools/prometheus/nimhost-alerts.yml" >"$work/alerts.yml"
echo '{global: {scrape_interval: 1s, evaluation_interval: 1s}, rule_files: [alerts.yml],
  scrape_configs: [{job_name: board, static_configs: [{targets: ["127.0.0.1:9100"]}]}]}' >"$work/prometheus.yml"
prometheus --config.file="$work/prometheus.yml" --storage.tsdb.path="$work/tsdb" \
  --web.listen-address=127.0.0.1:9090 >"$work/prometheus.log" 2>&1 &

# value_is QUERY VALUE: Prometheus answers VALUE now; a metric name alone
# stands for eth0's port.
value_is() {
  local query=$1
  [[ $query == *[{\(]* ]] || query="$1{interface=\"eth0\",port=\"1\"}"
  [ "$(curl -fsS --get --data-urlencode "query=$query" \
    http://127.0.0.1:9090/api/v1/query 2>/dev/null | sed -n 's/.*"value":\[[^,]*,"\([^"]*\)"\].*/\1/p')" = "$2" ]
}

wait_for 120 "Prometheus to see the link up" value_is nim_port_link_up 1
# node_exporter runs as its own user on the board, not as the watch's.
mode=$(stat -c %a "$work/textfile/nim.prom")
[ "$mode" = 644 ] || fail "nim.prom has mode $mode: node_exporter's user cannot read it"
# The stale-file alert's selector finds the file node_exporter serves.
value_is 'count(node_textfile_mtime_seconds{file=~"(.*/)?nim\\.prom"})' 1 \
  || fail "node_textfile_mtime_seconds has no series NimMetricsStale selects"
ip link set eth0 down
wait_for 60 "Prometheus to see the link down" value_is nim_port_link_up 0
wait_for 60 "NimPortLinkDown to fire" value_is 'ALERTS{alertname="NimPortLinkDown",alertstate="firing",interface="eth0"}' 1
ip link set eth0 up
wait_for 60 "Prometheus to see the link up again" value_is nim_port_link_up 1
wait_for 60 "NimPortLinkDown to end" value_is 'absent(ALERTS{alertname="NimPortLinkDown",interface="eth0"})' 1
# The counter counts the change lines the watch printed for eth0 (all but its
# first line): at least two, and one more where a read came while the kernel
# was still bringing the port up (neither "up" nor "down": link unknown).
changes_counted() {
  local printed
  printed=$(($(grep -c ' (eth0) port 1 ' "$work/watch.log") - 1))
  [ "$printed" -ge 2 ] && value_is nim_port_link_changes_total "$printed"
}
wait_for 30 "the changes counted" changes_counted
echo "metrics-e2e: nim_port_link_up went 1 -> 0 -> 1 in Prometheus, every change counted, NimPortLinkDown fired and ended"
