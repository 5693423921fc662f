#!/usr/bin/env bash
# Builds the default preset and runs the benchmarks (temporary files under TMPDIR or /tmp):
#   scripts/bench.sh                the real daemon with full lists (5 repetitions), then the store
#                                   benchmarks, the replay of a day of calls and the clients
#   scripts/bench.sh daemon [args]  the real daemon only; arguments: --reps=K --calls=N
#   scripts/bench.sh store [args]   the store benchmarks only; extra arguments go to Google Benchmark,
#                                   e.g. --benchmark_filter=Load
#   scripts/bench.sh replay [args]  the replay only; arguments: --calls=N --seed=N --flavour=kpx|sip|all
#   scripts/bench.sh client [args]  clients over the Unix socket: a full list's round trip and one
#                                   change fanned out to 10 subscribers
# The daemon benchmark's and the replay's exit status is 2 when their checks failed (the lists
# were not full, the store or the occurrences did not match): their figures are then withheld.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default -j"$(nproc)" --target journal_daemon_bench calljournald cstaswitchsim journal_bench \
  journal_replay_bench journal_client_bench
case "${1:-}" in
  daemon) shift; exec build/default/bin/journal_daemon_bench "$@" ;;
  store) shift; exec build/default/bin/journal_bench "$@" ;;
  replay) shift; exec build/default/bin/journal_replay_bench "$@" ;;
  client) shift; exec build/default/bin/journal_client_bench "$@" ;;
esac
status=0
build/default/bin/journal_daemon_bench --reps=5 || status=$?
echo
build/default/bin/journal_bench "$@" || status=$?
echo
build/default/bin/journal_replay_bench || status=$?
echo
build/default/bin/journal_client_bench || status=$?
exit "$status"
