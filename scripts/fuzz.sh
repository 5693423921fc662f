#!/usr/bin/env bash
# Fuzzes every reader of outside input with libFuzzer: builds the fuzz preset (clang with the
# address and undefined-behaviour sanitizers) and runs each target for a while.
#
#   bash scripts/fuzz.sh [SECONDS] [TARGET...]
#
# SECONDS per target (default 60); TARGETs by name (csta_event, trace, ...; default all of them).
# Each target reads its seeds from fuzz/corpus/<target> and keeps the inputs it finds in
# build/fuzz/corpus/<target>, so that a later run goes on from there. A crash (or a broken check,
# or an input that takes longer than 10 s) stops the run of that target and is written to
# build/fuzz/crashes/<target>-...; the script ends with status 1 and names the files. Rerun one
# with `build/fuzz/bin/fuzz_<target> FILE`. Once it is fixed, copy it into fuzz/corpus/<target>/:
# the default test command replays every file there (ctest -L fuzz).
#
# The targets that run a journal keep its database in a scratch directory under $TMPDIR; without
# one set it is /dev/shm where there is one, as they write it on every input.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
shift || true

bash scripts/setup.sh
missing=()
for p in clang libclang-rt-14-dev; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then missing+=("$p"); fi
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "fuzz: installing ${missing[*]}"
  SUDO=""
  if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -q
  $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

cmake --preset fuzz
cmake --build --preset fuzz -j"$(nproc)"

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for program in build/fuzz/bin/fuzz_*; do targets+=("${program##*/fuzz_}"); done
fi

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
if [ -z "${TMPDIR:-}" ] && [ -d /dev/shm ] && [ -w /dev/shm ]; then export TMPDIR=/dev/shm; fi
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
mkdir -p build/fuzz/crashes
failed=()
for target in "${targets[@]}"; do
  program=build/fuzz/bin/fuzz_$target
  [ -x "$program" ] || { echo "fuzz: no target $target" >&2; exit 2; }
  mkdir -p "build/fuzz/corpus/$target"
  echo "fuzz: $target for ${seconds}s"
  if ! "$program" "build/fuzz/corpus/$target" "fuzz/corpus/$target" -dict=fuzz/xml.dict \
      -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -artifact_prefix="build/fuzz/crashes/$target-" -print_final_stats=1; then
    failed+=("$target")
  fi
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: findings in ${failed[*]}:" >&2
  ls -1 build/fuzz/crashes/ >&2
  exit 1
fi
echo "fuzz: no findings in ${targets[*]}"
