# Runs in the tree, started by systemd: the service as a unit, and a TV application outside of it.
# shellcheck shell=bash

# shellcheck source=tests/package/check.bash
. /tests/check.bash

unit=atsc-service@viewer.service
systemd-analyze verify --man=no "$unit"
# Exposure of at most 1.5 of 10 points.
systemd-analyze security --no-pager --offline=yes --threshold=15 atsc-service@.service >/tmp/security ||
  { cat /tmp/security; fail "the unit is exposed"; }
tail -n 1 /tmp/security

# show WORD: prints a property of the unit.
show() {
  systemctl show --property="$1" --value "$unit"
}

# The service is ready when it is started: the first command is answered.
systemctl enable --now "$unit" || { journalctl --no-pager --unit "$unit"; fail "start"; }
db=/var/lib/atsc-service/viewer
runuser -u viewer -- atsc-tv scan --db "$db" >/tmp/scan || fail "the first command"
has /tmp/scan 'Scan over: 12 services found'
[[ $(stat -c '%U %a' "$db") == 'viewer 700' ]] || fail "$db: $(stat -c '%U %a' "$db")"

# Restarts after a crash, and plays.
process=$(show MainPID)
kill -KILL "$process"
for ((i = 0; i < 100; i++)); do
  state=$(systemctl show --property=ActiveState,MainPID "$unit")
  [[ $state == *MainPID=$process* || $state != *ActiveState=active* ]] || break
  sleep 0.1
done
runuser -u viewer -- atsc-tv play 9-1 --db "$db" >/tmp/play || fail "no service after a crash: $state"
has /tmp/play '9-1 WOLM-HD'

# A second service of the user is refused.
status=0
runuser -u viewer -- atsc-service --db /tmp/other 2>/tmp/refused || status=$?
[[ $status == 1 ]] || fail "a second service: status $status"
grep -q 'a service runs already' /tmp/refused || fail "$(</tmp/refused)"

# After an upgrade the new program runs, with the stored state.
process=$(show MainPID)
dpkg --install /packages/libatscbusservice[0-9]*.deb /packages/atsc-tools*.deb >/tmp/dpkg.log 2>&1 ||
  { cat /tmp/dpkg.log; fail "upgrade"; }
[[ $(show ActiveState) == active && $(show MainPID) != "$process" ]] ||
  fail "after an upgrade the service is $(show ActiveState), process $(show MainPID), was $process"
runuser -u viewer -- atsc-tv channels --db "$db" >/tmp/channels || fail "channels after an upgrade"
has /tmp/channels 'Terrestrial (VSB): 12 channels'

systemctl stop "$unit"
[[ $(show Result) == success ]] || fail "stopped: $(show Result)"
[[ -z $(find /tmp -name '.BUS.*') ]] || fail "a socket is left"
# Removed while it runs.
systemctl start "$unit"
DEBIAN_FRONTEND=noninteractive apt-get -qq --yes purge atsc-tools >/tmp/apt.log 2>&1 ||
  { cat /tmp/apt.log; fail "purge"; }
[[ $(show ActiveState) != active ]] || fail "the service runs on after the removal of its package"
[[ ! -e /var/lib/atsc-service ]] || fail "databases are left"
[[ -z $(find /etc/systemd -name 'atsc-service@*') ]] || fail "the unit is still enabled"
