#!/usr/bin/env bash
# Usage: debian_tree.sh FOLDER
#
# Creates a minimal installation of this machine's Debian in FOLDER, without files of this project,
# from apt's configured mirror. Does nothing when FOLDER already contains it.

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
rm -rf --one-file-system "$1" "$1.new"
unshare --mount --propagation private \
  debootstrap --variant=minbase --include=ca-certificates "$suite" "$1.new" "$mirror"
cp /etc/resolv.conf "$1.new/etc/resolv.conf"
# The proxy settings of apt on this machine.
apt-config dump | grep -i '^Acquire::[a-z]*::Proxy' >"$1.new/etc/apt/apt.conf.d/90proxy" || true
chroot "$1.new" useradd --create-home viewer
echo "$suite" >"$1.new/.made"
mv "$1.new" "$1"
