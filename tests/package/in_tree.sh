#!/usr/bin/env bash
# Usage: in_tree.sh CLEAN WORK PACKAGES PROGRAM [BOOTED]
#
# Runs the script PROGRAM of this folder as root in WORK, a copy of the clean tree CLEAN, with
# separate processes and mounts that do not outlive it. The tree has this folder as /tests and the
# packages of the folder PACKAGES in /packages. If the script BOOTED is given, then starts systemd
# in the tree without network, which runs that script.

set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=tests/package/root.bash
. "$here/root.bash"

clean=$(realpath "$1")
work=$(realpath --canonicalize-missing "$2")
packages=$3
program=$4
booted=${5-}

mkdir -p "$(dirname "$work")" "$clean.archives/partial"
rm -rf --one-file-system "$work"
trap 'rm -rf --one-file-system "$work"' EXIT
cp -a --reflink=auto "$clean" "$work"
mkdir "$work/packages" "$work/tests"
cp "$packages"/*.deb "$work/packages"
cp "$here"/* "$work/tests"

# Runs in namespaces of its own: mounts what a system has, makes the tree the root and becomes the
# command. Nothing that the tree can write is the machine's.
# shellcheck disable=SC2016 # expanded there
enter='
set -e
mount --bind "$1" "$1"
cd "$1"
mount -t proc proc proc
for part in sys sysrq-trigger; do
  [ ! -e "proc/$part" ] || mount --bind -o ro "proc/$part" "proc/$part"
done
mount -t tmpfs -o mode=1777 tmpfs tmp
mount -t tmpfs -o mode=755 tmpfs run
mount -t tmpfs -o mode=755 tmpfs dev
mkdir dev/pts dev/shm
for node in null:3 zero:5 full:7 random:8 urandom:9; do
  mknod -m 666 "dev/${node%:*}" c 1 "${node#*:}"
done
mknod -m 666 dev/tty c 5 0
mount -t devpts -o newinstance,ptmxmode=0666 devpts dev/pts
mount -t tmpfs -o mode=1777 tmpfs dev/shm
ln -s pts/ptmx dev/ptmx
ln -s /proc/self/fd dev/fd
if [ "$2" = booted ]; then
  mount -t sysfs -o ro sysfs sys
  mount -t cgroup2 cgroup2 sys/fs/cgroup
else
  mount --bind "$2" var/cache/apt/archives
fi
pivot_root . mnt
shift 2
exec chroot . sh -c "umount -l /mnt; exec \"\$@\"" sh "$@"
'

# contain OPTIONS... -- ARCHIVES|booted COMMAND...: runs the command in the tree; it ends with this
# script.
contain() {
  local -a options=()
  while [[ $1 != -- ]]; do
    options+=("$1")
    shift
  done
  shift
  setpriv --pdeathsig KILL unshare --mount --pid --fork --kill-child --ipc --propagation private \
    "${options[@]}" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 \
    DEBIAN_FRONTEND=noninteractive container=test ${http_proxy:+http_proxy="$http_proxy"} \
    sh -c "$enter" sh "$work" "$@" </dev/null
}

# with_cgroups COMMAND...: runs a command with the machine's control groups in the folder mnt of the
# tree. The group of the systemd in the tree is atsc-package-test.
with_cgroups() {
  # shellcheck disable=SC2016 # expanded there
  unshare --mount --propagation private sh -c '
    folder=$1
    shift
    mount -t cgroup2 cgroup2 "$folder" && cd "$folder" && "$@"' sh "$work/mnt" "$@"
}

contain -- "$clean.archives" bash "/tests/$program"
[[ -n $booted ]] || exit 0

end_cgroup() {
  with_cgroups sh -c '[ ! -d atsc-package-test ] || find atsc-package-test -depth -type d -exec rmdir {} +'
}
if ! end_cgroup; then
  echo "skipped: systemd would need control groups, version 2" >&2
  exit 77
fi
trap 'end_cgroup; rm -rf --one-file-system "$work"' EXIT
status=0
(
  # This process goes into the group, which the tree then sees as the whole.
  # shellcheck disable=SC2016 # expanded there
  with_cgroups sh -c 'mkdir atsc-package-test && echo "$1" >atsc-package-test/cgroup.procs' sh "$BASHPID"
  # The unit of this command ends systemd with the command's status.
  contain --net --uts --cgroup -- booted /lib/systemd/systemd --show-status=0 \
    "systemd.run=\"bash -c 'timeout 100 bash /tests/$booted >/output 2>&1'\""
) || status=$?
cat "$work/output"
exit "$status"
