# Runs in the tree as an ordinary user: a broadcast is made, received and shown.
# shellcheck shell=bash

# shellcheck source=tests/package/check.bash
. /tests/check.bash
cd "$(mktemp -d)" || exit
tab=$'\t'

start_service
atsc-tv scan --src VSB --db db >scan.txt
has scan.txt 'Scan over: 12 services found' \
  '  31-1  Nürn TV  TV     31  575.000  2855       1  49 MPEG-2  52 deu AC-3, 53 eng AC-3, 54 fra AC-3'
atsc-tv channels --db db >channels.txt
has channels.txt 'Terrestrial (VSB): 12 channels' 'Cable (QAM): 0 channels' \
  '  22-3  Jazz 22  RADIO  22  521.000  2841    4099  -          84 eng AAC'
TZ=UTC atsc-tv guide --at first --db db >guide.txt
has guide.txt "VSB${tab}22-3${tab}Jazz 22${tab}2026-04-22T14:20:00+00:00${tab}2026-04-22T18:20:00+00:00${tab}All That${tab}No rating${tab}-${tab}Big bands, live recordings and a request or two.${tab}-"
atsc-tv play 9-1 --db db >play.txt
has play.txt '9-1 WOLM-HD'
atsc-web --db db --state state >web.log 2>&1 &
web=$!
grep -q 'http://127.0.0.1:8077/' < <(timeout 20 tail -n +1 -f web.log) || { cat web.log; fail "atsc-web is not ready"; }
exec 3<>/dev/tcp/127.0.0.1/8077
printf 'GET /api/channels?src=VSB HTTP/1.1\r\nHost: localhost:8077\r\nConnection: close\r\n\r\n' >&3
timeout 20 grep -oa '"name":"WOLM-HD"' <&3 >web.txt || true
has web.txt '"name":"WOLM-HD"'
kill "$web"
wait "$web" || { cat web.log; fail "atsc-web ended with status $?"; }
stop_service
[[ -z $(find /tmp -name '.BUS.*') ]] || fail "a socket is left"
