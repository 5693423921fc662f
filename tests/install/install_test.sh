#!/usr/bin/env bash
# The installed system, from the user's side: `cmake --install` into a temporary prefix, then the
# installed programs against each other (simulator -> daemon -> client) with nothing of the build
# tree on their paths; then the Debian package that cpack builds.
#
# usage: install_test.sh BUILD_DIR VERSION
set -uo pipefail

build=$(cd "$1" && pwd)
version=$2
work=$(mktemp -d /tmp/journal-install-XXXXXX)
prefix=$work/prefix
failures=0
sim_pid=""
daemon_pid=""

cleanup() {
  [ -n "$daemon_pid" ] && kill "$daemon_pid" 2>/dev/null
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null
  wait 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

fail() {
  echo "FAILED: $*" >&2
  failures=$((failures + 1))
}

# expect_eq WHAT EXPECTED ACTUAL
expect_eq() {
  if [ "$2" != "$3" ]; then fail "$1: expected \"$2\", got \"$3\""; fi
}

# Polls the command every 100 ms for up to 20 s.
eventually() {
  for _ in $(seq 200); do
    if "$@"; then return 0; fi
    sleep 0.1
  done
  "$@"
}

# ---- install: the layout
if ! cmake --install "$build" --prefix "$prefix" --strip >"$work/install.log" 2>&1; then
  cat "$work/install.log" >&2
  echo "FAILED: cmake --install (is the whole project built?)" >&2
  exit 1
fi
for f in bin/calljournald bin/calljournal bin/cstaswitchsim lib/calljournal/libjournalservice.so \
         lib/calljournal/libphoneplatform.so lib/systemd/system/calljournald.service \
         etc/calljournal/calljournald.conf share/doc/calljournal/README.md share/doc/calljournal/install.md \
         share/doc/calljournal/examples/traces/office-day.xml share/calljournal/web/index.html \
         share/calljournal/web/app.js share/calljournal/web/style.css; do
  [ -f "$prefix/$f" ] || fail "not installed: $f"
done
# Nothing of the tests, benchmarks or fuzz targets; only the three programs and two libraries.
expect_eq "installed programs" "calljournal calljournald cstaswitchsim" "$(ls "$prefix/bin" | xargs)"
expect_eq "installed libraries" "libjournalservice.so libphoneplatform.so" "$(ls "$prefix/lib/calljournal" | xargs)"

# ---- versions, and no path into the build tree
for program in calljournald calljournal cstaswitchsim; do
  expect_eq "$program --version" "$program $version" "$("$prefix/bin/$program" --version)"
  expect_eq "RUNPATH of $program" '$ORIGIN/../lib/calljournal' \
    "$(readelf -d "$prefix/bin/$program" | sed -n 's/.*Library runpath: \[\(.*\)\]/\1/p')"
  expect_eq "libraries of $program not found or in the build tree" "" \
    "$(ldd "$prefix/bin/$program" | grep -E "not found|$build")"
done
for program in calljournald calljournal; do
  expect_eq "libphoneplatform of $program" "$prefix/bin/../lib/calljournal/libphoneplatform.so" \
    "$(ldd "$prefix/bin/$program" | sed -n 's/.*libphoneplatform.so => \(.*\) (.*/\1/p')"
done
expect_eq "RUNPATH of the module" '$ORIGIN' \
  "$(readelf -d "$prefix/lib/calljournal/libjournalservice.so" | sed -n 's/.*Library runpath: \[\(.*\)\]/\1/p')"
expect_eq "files naming the build tree" "" "$(grep -rlF "$build" "$prefix")"

# ---- the unit and the configuration file name the installed paths
unit=$prefix/lib/systemd/system/calljournald.service
expect_eq "ExecStart" "ExecStart=$prefix/bin/calljournald --config $prefix/etc/calljournal/calljournald.conf" \
  "$(grep '^ExecStart=' "$unit")"
if command -v systemd-analyze >/dev/null; then
  systemd-analyze verify "$unit" >"$work/verify.log" 2>&1 || fail "systemd-analyze verify: $(cat "$work/verify.log")"
else
  echo "systemd-analyze not found: the unit's syntax is not checked"
fi
conf=$prefix/etc/calljournal/calljournald.conf
expect_eq "database of the installed configuration" "database = /var/lib/calljournal/journal.db" \
  "$(grep '^database' "$conf")"
expect_eq "socket of the installed configuration" "client-socket = /run/calljournal/calljournal.sock" \
  "$(grep '^client-socket' "$conf")"
# It is what the installed daemon prints for it: a file the daemon reads as it is.
expect_eq "--print-config of the installed configuration" "" \
  "$("$prefix/bin/calljournald" --config "$conf" --print-config | diff - "$conf")"

# ---- the installed programs at work: the simulator plays the office day to the daemon
examples=$prefix/share/doc/calljournal/examples
"$prefix/bin/cstaswitchsim" --port 0 --trace "$examples/traces/office-day.xml" >"$work/sim.out" 2>&1 &
sim_pid=$!
sim_port() { sed -n 's/.*listening on 127.0.0.1:\([0-9]*\).*/\1/p' "$work/sim.out"; }
sim_listening() { [ -n "$(sim_port)" ]; }
eventually sim_listening || fail "the simulator did not listen"
socket=$work/run/calljournal.sock
"$prefix/bin/calljournald" --config "$examples/calljournald.conf" --set "switch=127.0.0.1:$(sim_port)" \
  --set "database=$work/db/journal.db" --set "client-socket=$socket" \
  --set "phonebook=$examples/phonebook.csv" --set "client-web=127.0.0.1:0" 2>"$work/daemon.err" &
daemon_pid=$!
client() { "$prefix/bin/calljournal" --socket "$socket" "$@"; }
client wait --timeout 20 || fail "calljournal wait: $(cat "$work/daemon.err")"
# The installed daemon serves the installed page (its web root found from the program's folder).
web_port=$(sed -n 's#.*clients on the web at http://127.0.0.1:\([0-9]*\)/.*#\1#p' "$work/daemon.err" | head -1)
if [ -n "$web_port" ] && exec 3<>"/dev/tcp/127.0.0.1/$web_port"; then
  printf 'GET / HTTP/1.1\r\nHost: 127.0.0.1:%s\r\nConnection: close\r\n\r\n' "$web_port" >&3
  page=$(cat <&3 | tr -d '\r' | sed '1,/^$/d')
  exec 3<&-
  expect_eq "the page served at /" "$(cat "$prefix/share/calljournal/web/index.html")" "$page"
else
  fail "the installed daemon serves no web page: $(grep -i web "$work/daemon.err")"
fi
eventually grep -q "46 events sent" "$work/sim.out" || fail "the simulator did not play the trace"
entries() { client list "$1" --json | grep -c '"uniqueId"'; }
# The office day's lists, as calljournal replay files them: 2 missed, 3 received, 3 dialled, 1 forwarded.
day_filed() { [ "$(entries forwarded)" = 1 ]; }
eventually day_filed
expect_eq "missed entries" 2 "$(entries missed)"
expect_eq "received entries" 3 "$(entries received)"
expect_eq "dialled entries" 3 "$(entries dialled)"
expect_eq "forwarded entries" 1 "$(entries forwarded)"
client status >/dev/null
expect_eq "calljournal status exit code" 0 $?
kill -TERM "$daemon_pid"
wait "$daemon_pid"
expect_eq "daemon exit code after SIGTERM" 0 $?
daemon_pid=""
[ -e "$socket" ] && fail "the socket is left after the stop"
client wait --timeout 1 2>"$work/wait.err"
expect_eq "calljournal wait exit code without a daemon" 1 $?

# ---- the Debian package
if (cd "$build" && cpack -G DEB -B "$work/deb" >"$work/cpack.log" 2>&1); then
  deb=$(ls "$work"/deb/*.deb)
  contents=$(dpkg-deb -c "$deb" | awk '{print $6}')
  for f in ./usr/bin/calljournald ./usr/bin/calljournal ./usr/bin/cstaswitchsim \
           ./usr/lib/calljournal/libjournalservice.so ./usr/lib/calljournal/libphoneplatform.so \
           ./usr/lib/systemd/system/calljournald.service ./etc/calljournal/calljournald.conf \
           ./usr/share/doc/calljournal/README.md ./usr/share/calljournal/web/index.html \
           ./usr/share/calljournal/web/app.js ./usr/share/calljournal/web/style.css; do
    grep -qxF "$f" <<<"$contents" || fail "not in the package: $f"
  done
  expect_eq "package files naming tests" "" "$(grep -E 'test|bench|fuzz' <<<"$contents")"
  expect_eq "package version" "$version" "$(dpkg-deb -f "$deb" Version)"
  expect_eq "conffiles" "/etc/calljournal/calljournald.conf" "$(dpkg-deb -I "$deb" conffiles)"
  grep -q "libcurl4" <<<"$(dpkg-deb -f "$deb" Depends)" || fail "Depends lacks libcurl4"
  grep -q "libsqlite3" <<<"$(dpkg-deb -f "$deb" Depends)" || fail "Depends lacks libsqlite3"
  dpkg-deb -x "$deb" "$work/deb/root"
  expect_eq "ExecStart in the package" \
    "ExecStart=/usr/bin/calljournald --config /etc/calljournal/calljournald.conf" \
    "$(grep '^ExecStart=' "$work/deb/root/usr/lib/systemd/system/calljournald.service")"
else
  fail "cpack -G DEB: $(tail -5 "$work/cpack.log")"
fi

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed" >&2
  exit 1
fi
echo "install test passed"
