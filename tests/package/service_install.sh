# Runs in the tree: makes it a system with the service, without starting it.
# shellcheck shell=bash

# shellcheck source=tests/package/check.bash
. /tests/check.bash

install /packages/libatscbusservice[0-9]*.deb /packages/atsc-tools*.deb systemd
psipmux /usr/share/atsc/lineups/metro-air.json --out /srv/air
sed -i -e 's,^#\(ATSC_AIR=\).*,\1/srv/air,' -e 's,^#\(SPDLOG_LEVEL=\),\1,' /etc/default/atsc-service
