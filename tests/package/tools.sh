# Runs in the tree: installs the programs on a system that has nothing of ours, uses them as an
# ordinary user would, and removes them; last their man pages and completion.
# shellcheck shell=bash

# shellcheck source=tests/package/check.bash
. /tests/check.bash

# files: lists all installed and configured files, without those of apt and dpkg.
files() {
  find / -xdev \( -path /tests -o -path /packages -o -path /home -o -path '/var/lib/apt' \
    -o -path '/var/lib/dpkg' -o -path /var/cache -o -path /var/log \) -prune -o -print | sort
}

files >/tmp/before
install /packages/libatscbusservice[0-9]*.deb /packages/atsc-tools*.deb
for program in atsc-service atsc-tv atsc-web psipmux; do
  [[ $($program --version) == "$program "[0-9]*.* ]] || fail "$program --version"
done
as_viewer bash /tests/session.sh

apt-get -qq --yes purge --autoremove atsc-tools libatscbusservice0 >/tmp/apt.log 2>&1 ||
  { cat /tmp/apt.log; fail "apt-get purge"; }
files >/tmp/after
diff /tmp/before /tmp/after || fail "files are left after the removal"

install /packages/libatscbusservice[0-9]*.deb /packages/atsc-tools*.deb bash-completion man-db
as_viewer bash /tests/completion.sh
for program in atsc-service atsc-tv atsc-web psipmux; do
  man --warnings "$program" >/tmp/page 2>/tmp/warnings
  [[ ! -s /tmp/warnings ]] || fail "man $program: $(</tmp/warnings)"
  for part in NAME SYNOPSIS OPTIONS 'EXIT STATUS' FILES EXAMPLES 'SEE ALSO'; do
    has /tmp/page "$part"
  done
  [[ $(whatis "$program") == "$program (1)"* ]] || fail "whatis $program"
done
man atsc-tv >/tmp/page
has /tmp/page '   atsc-tv parental limit [OPTIONS] RATING...'
