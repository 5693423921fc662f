#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, but only those that are missing,
# so that a second run costs nothing. Runs as root (or through sudo when it is available).
set -euo pipefail

packages=(
  g++ clang cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libsqlite3-dev sqlite3 libpugixml-dev libcsv-dev
  libasio-dev libwebsocketpp-dev libcli11-dev nlohmann-json3-dev libcurl4-openssl-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all build packages present"
  exit 0
fi

echo "setup: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
$SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
