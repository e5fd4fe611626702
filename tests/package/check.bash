# Sourced by the scripts that run in the tree.
# shellcheck shell=bash

set -euo pipefail

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# install PACKAGE...: installs packages like a user, without recommended packages.
install() {
  apt-get -qq update
  apt-get -qq --yes --no-install-recommends install "$@" >/tmp/apt.log 2>&1 ||
    { cat /tmp/apt.log; fail "apt-get install $*"; }
}

# as_viewer COMMAND...: runs a command as an ordinary user, with the loopback interface only; abstract
# sockets are separate, too.
as_viewer() {
  # A minimal system has no ip: SIOCSIFFLAGS with IFF_UP.
  # shellcheck disable=SC2016 # variables of perl
  unshare --net perl -e 'socket(S, 2, 2, 0); my $up = pack("a16 s x22", "lo", 1);
    ioctl(S, 0x8914, $up) or die "lo: $!"; exec @ARGV or die' \
    runuser -u viewer -- env HOME=/home/viewer "$@"
}

# has FILE LINE...: checks that the file contains the complete lines.
has() {
  local file=$1 line
  shift
  for line in "$@"; do
    grep -qxF -e "$line" "$file" || { cat "$file"; fail "no line: $line"; }
  done
}

# start_service: starts atsc-service with the sample broadcast in the current folder and waits until
# it is ready.
start_service() {
  psipmux /usr/share/atsc/lineups/metro-air.json --out air --start 2026-04-22T19:00:00Z
  SPDLOG_LEVEL=warn atsc-service --air air --db "$PWD/db" >service.log 2>&1 &
  service=$!
  grep -q '^atsc-service: ready' < <(timeout 20 tail -n +1 -f service.log) ||
    { cat service.log; fail "atsc-service is not ready"; }
}

# stop_service: stops the service and checks that it ends correctly.
stop_service() {
  kill "$service"
  wait "$service" || { cat service.log; fail "atsc-service ended with status $?"; }
}
