#!/usr/bin/env bash
# Builds and runs every test: the whole suite on the default preset and under address+undefined
# sanitizers, the concurrency tests (with those of the switch link, the client server and the
# daemon) under the thread sanitizer, and the whole suite once more built by clang with its
# thread-safety analysis of the lock annotations (any finding fails that build). Prints ctest's
# summary for each.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

jobs=$(nproc 2>/dev/null || echo 2)

run_preset() {
  local preset=$1; shift
  echo "==== ${preset}: configure and build"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  echo "==== ${preset}: tests $*"
  ctest --preset "$preset" "$@"
}

run_preset default
# The README's walk-through plays a day live (about 80 s) and the web page's test drives a browser;
# the default build runs them.
run_preset asan -LE 'readme|browser'
run_preset tsan -L concurrency
# The threads of the daemon's parts: the CSTA link, the client server, and the daemon end to end.
echo "==== tsan: tests of the switch link, the client server and the daemon"
ctest --preset tsan -R 'CstaLinkTest|ClientServerTest|DaemonTest'
# The lock rules the compiler checks (GUARDED_BY, REQUIRES, lock order): a finding is a build error.
run_preset clang-tsa -LE 'readme|browser'
echo "==== all test runs passed"
