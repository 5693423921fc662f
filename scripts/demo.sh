#!/usr/bin/env bash
# Builds the journal, the daemon, its command-line client and the switch simulator, then replays a
# day of calls at an office phone (examples/traces/office-day.xml) through the journal and prints
# the lists it kept.
# Extra arguments go to the replay (for example --json).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

echo "==== building the journal, calljournald, calljournal and cstaswitchsim"
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc 2>/dev/null || echo 2)" --target calljournal calljournald cstaswitchsim

echo "==== replaying examples/traces/office-day.xml"
exec build/default/bin/calljournal replay examples/traces/office-day.xml \
  --phonebook examples/phonebook.csv "$@"
