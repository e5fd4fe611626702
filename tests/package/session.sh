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
stop_service
[[ -z $(find /tmp -name '.BUS.*') ]] || fail "a socket is left"
