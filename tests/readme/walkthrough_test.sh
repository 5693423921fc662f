#!/usr/bin/env bash
# Runs the README's walk-through the way a reader pastes it into a shell: the shell block that
# follows the line "<!-- walk-through -->", from the repository's root, every command checked (a
# command that fails stops the run and fails the test). Only the folder of the programs differs:
# build/default/bin becomes the folder of the build under test.
#
#   walkthrough_test.sh REPOSITORY_ROOT PROGRAM_FOLDER
set -euo pipefail
root=$1
bin=$2

block=$(awk '/<!-- walk-through -->/ {found = 1; next}
             found && /^```sh$/ {inside = 1; next}
             inside && /^```$/ {exit}
             inside {print}' "$root/README.md")
if [ -z "$block" ]; then
  echo "walkthrough_test: no shell block after <!-- walk-through --> in $root/README.md" >&2
  exit 1
fi

# The walk-through's switch listens on the example's port: one taken by another program would
# have the daemon follow that one instead.
if (exec 3<>/dev/tcp/127.0.0.1/1040) 2>/dev/null; then
  echo "walkthrough_test: port 1040 is in use; the walk-through's switch needs it" >&2
  exit 1
fi

script=$(mktemp)
trap 'rm -f "$script"; jobs -p | xargs -r kill 2>/dev/null || true' EXIT
{
  echo 'set -eo pipefail'
  # Each command is echoed before it runs, so the log shows which one failed.
  echo 'set -x'
  printf '%s\n' "$block" | sed "s#build/default/bin/#$bin/#g"
  # Whatever the block left running is stopped with it.
  echo 'set +x; jobs -p | xargs -r kill 2>/dev/null || true; wait || true'
} >"$script"

cd "$root"
bash "$script"
echo "walkthrough_test: every command of the walk-through worked"
