#!/usr/bin/env bash
# The phone's screen live in a browser: builds the programs when needed, starts the switch simulator
# playing the office day (examples/traces/office-day.xml, about 80 s) and the daemon serving its web
# page on 127.0.0.1:8080 (another port: scripts/screen.sh PORT), prints the address to open, and
# stops both on Ctrl-C. The journal starts empty each time and is removed at the end.
set -euo pipefail
cd "$(dirname "$0")/.."
port=${1:-8080}

bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc 2>/dev/null || echo 2)" --target calljournal calljournald cstaswitchsim

bin=build/default/bin
work=$(mktemp -d /tmp/calljournal-screen-XXXXXX)
sim_pid=""
daemon_pid=""
stop() {
  [ -n "$daemon_pid" ] && kill "$daemon_pid" 2>/dev/null && wait "$daemon_pid" 2>/dev/null
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null
  rm -rf "$work"
}
trap stop EXIT
trap 'echo; exit 0' INT TERM

"$bin/cstaswitchsim" --port 0 --trace examples/traces/office-day.xml --pace 100 --max-gap 600 >"$work/switch.log" 2>&1 &
sim_pid=$!
for _ in $(seq 100); do
  switch_port=$(sed -n 's/.*listening on 127.0.0.1:\([0-9]*\).*/\1/p' "$work/switch.log")
  [ -n "$switch_port" ] && break
  sleep 0.1
done
if [ -z "$switch_port" ]; then
  echo "screen: the switch simulator did not start: $(cat "$work/switch.log")" >&2
  exit 1
fi

"$bin/calljournald" --config examples/calljournald.conf --set "switch=127.0.0.1:$switch_port" \
  --set "database=$work/journal.db" --set "client-socket=$work/calljournal.sock" \
  --set "client-web=127.0.0.1:$port" 2>"$work/daemon.log" &
daemon_pid=$!
if ! "$bin/calljournal" --socket "$work/calljournal.sock" wait --timeout 20 >/dev/null 2>&1; then
  echo "screen: the daemon did not start: $(tail -3 "$work/daemon.log")" >&2
  exit 1
fi

echo "The phone's screen: http://127.0.0.1:$port/"
echo "The office day plays for about 80 s; Ctrl-C stops the daemon and the simulator."
if ! wait "$daemon_pid"; then
  daemon_pid=""
  echo "screen: the daemon stopped: $(tail -3 "$work/daemon.log")" >&2
  exit 1
fi
