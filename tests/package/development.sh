# Runs in the tree: what a developer of TV applications does with the development package.
# shellcheck shell=bash

# shellcheck source=tests/package/check.bash
. /tests/check.bash

install /packages/*.deb g++ cmake make pkg-config libjsoncpp-dev libsqlite3-dev
cp -r /usr/share/doc/libatscbusservice-dev/examples/tv-app /home/viewer/tv-app
chown -R viewer /home/viewer/tv-app
as_viewer bash /tests/tv_app.sh
