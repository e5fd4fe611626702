#!/usr/bin/env bash
# Usage: content.sh BUILD MULTIARCH
#
# Makes the packages of a build folder and compares their files with the list files.txt.

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=tests/package/check.bash
. "$here/check.bash"
source=$(cd "$here/../.." && pwd)
cd "$1"
multiarch=$2

rm -f ./*.deb
cpack >cpack.log 2>&1 || { cat cpack.log; fail cpack; }
for package in *.deb; do
  echo "${package%%_*}:"
  # The list has no documents, examples and headers.
  dpkg-deb --fsys-tarfile "$package" | tar -t | grep -v '/$' |
    sed -e 's,^\.,,' -e "s,/$multiarch/,/MULTIARCH/," -e 's,\.so\.[0-9]*\.[0-9.]*$,.so.VERSION,' |
    grep -v '^/usr/share/doc/.*-dev/\(docs\|examples\)/\|CHANGELOG.md$\|^/usr/include/' |
    LC_ALL=C sort
done >files.txt
diff -u "$here/files.txt" files.txt || fail "other files than tests/package/files.txt lists"

depends() {
  dpkg-deb --field "$1"_*.deb Depends
}
version=$(dpkg-deb --field libatscbusservice-dev_*.deb Version)
for package in libatscbusservice-dev atsc-tools; do
  [[ $(depends "$package") == *"libatscbusservice0 (= $version)"* ]] ||
    fail "$package depends on: $(depends "$package")"
done
for file in postinst postrm prerm conffiles; do
  dpkg-deb --info atsc-tools_*.deb "$file" >/dev/null || fail "atsc-tools has no $file"
done
dpkg-deb --info libatscbusservice0_*.deb shlibs >/dev/null || fail "no shlibs"
[[ $(dpkg-deb --info libatscbusservice0_*.deb postinst) == *ldconfig* ]] || fail "no ldconfig"

# The headers are those of the source. The files contain no path of the build machine and no debug
# information.
rm -rf unpacked
for package in *.deb; do
  dpkg-deb --extract "$package" unpacked
done
# headers FOLDER...: lists the headers below folders.
headers() {
  find "$@" -name '*.h' -printf '%f\n' | sort
}
diff <(cd "$source" && headers include platform/include platform/host/include) \
  <(headers unpacked/usr/include) || fail "other headers than in the source"
for file in unpacked/usr/bin/* unpacked/usr/lib/"$multiarch"/*.so.*.*; do
  readelf --dynamic "$file" | grep -E 'RPATH|RUNPATH' && fail "$file has a search path"
  readelf --sections "$file" | grep -E '\.symtab|\.debug' && fail "$file is not stripped"
done
grep -rlF "$source" unpacked && fail "a path of the source tree is in a package"
rm -rf unpacked
