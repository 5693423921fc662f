#!/usr/bin/env bash
# The browser test as ctest runs it: installs playwright-core, at the version package-lock.json
# pins, into the build tree when it is not there or the lock file changed (npm ci), then runs the
# node test against the programs of the build. A missing node, npm or chromium fails the test.
#
#   run.sh SOURCE_DIR BUILD_DIR PROGRAM_DIR
set -euo pipefail
source_dir=$1
build_dir=$2
program_dir=$3
here=$source_dir/tests/browser
modules=$build_dir/tests/browser

for tool in node npm; do
  if ! command -v "$tool" >/dev/null 2>&1; then
    echo "browser test: $tool is missing (bash scripts/setup.sh installs it)" >&2
    exit 1
  fi
done
chromium=${CHROMIUM:-/usr/bin/chromium}
if [ ! -x "$chromium" ]; then
  echo "browser test: $chromium is missing (bash scripts/setup.sh installs Debian's chromium)" >&2
  exit 1
fi

mkdir -p "$modules"
if ! cmp -s "$here/package-lock.json" "$modules/node_modules/.installed-package-lock.json"; then
  cp "$here/package.json" "$here/package-lock.json" "$modules/"
  (cd "$modules" && npm ci --no-audit --no-fund --loglevel=error)
  cp "$here/package-lock.json" "$modules/node_modules/.installed-package-lock.json"
fi

export NODE_PATH=$modules/node_modules
export CHROMIUM=$chromium
export CALLJOURNAL_BIN_DIR=$program_dir
export CALLJOURNAL_SOURCE_DIR=$source_dir
export CALLJOURNAL_SCREENSHOT_DIR=$build_dir/screenshots
exec node --test "$here/web_page.test.js"
