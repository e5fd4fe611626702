#!/usr/bin/env bash
# Usage: debian_tree.sh FOLDER
#
# Makes FOLDER a minimal installation of this machine's Debian, as it is before anything of ours is
# installed, from the mirror that apt knows here. Does nothing when it is there already.

set -euo pipefail

# shellcheck source=scripts/common.bash
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/common.bash"
# shellcheck source=tests/package/root.bash
. "$root/tests/package/root.bash"

# shellcheck source=/dev/null
suite=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
made=$1/.made
if [[ -f $made && $(<"$made") == "$suite" ]]; then
  exit
fi
mirror=$(debian_mirror "$suite")
include=()
if [[ $mirror == https:* ]]; then
  include=(--include=ca-certificates)
fi
rm -rf --one-file-system "$1" "$1.new"
unshare --mount --propagation private \
  debootstrap --variant=minbase "${include[@]}" "$suite" "$1.new" "$mirror"
cp /etc/resolv.conf "$1.new/etc/resolv.conf"
# How apt reaches the mirror from here.
apt-config dump | grep -i '^Acquire::[a-z]*::Proxy' >"$1.new/etc/apt/apt.conf.d/90proxy" || true
chroot "$1.new" useradd --create-home viewer
echo "$suite" >"$1.new/.made"
mv "$1.new" "$1"
