#!/usr/bin/env bash
# Builds the default preset and runs the benchmarks on the real SQLite store (temporary files under
# TMPDIR or /tmp). Extra arguments go to Google Benchmark, e.g. --benchmark_filter=Load.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default -j"$(nproc)" --target journal_bench
exec build/default/bin/journal_bench "$@"
