# Runs in the tree as an ordinary user: builds the example in both ways and runs it.
# shellcheck shell=bash

# shellcheck source=tests/package/check.bash
. /tests/check.bash
cd /home/viewer || exit

cmake -S tv-app -B by-cmake
cmake --build by-cmake
# shellcheck disable=SC2046 # words
g++ -std=c++17 -Wall -Wextra -Werror tv-app/main.cpp -o by-pkg-config \
  $(pkg-config --cflags --libs atscbusservice jsoncpp sqlite3)

start_service
export ATSC_CNAHHEL_DB=$PWD/db/ATSCChannelData.db3
for program in by-cmake/tv-app ./by-pkg-config; do
  "$program" >tv-app.txt || { cat tv-app.txt service.log; fail "$program: status $?"; }
  has tv-app.txt '9-1 WOLM-HD' "5-2 L'Été" '31-1 Nürn TV'
done
stop_service
