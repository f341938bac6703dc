#!/bin/sh
# Builds the Debian packages into build/package (BUILD_DIR chooses another place),
# looks into them and, as root, installs, uses and removes them in a throw-away
# copy of this system:
#   scripts/package.sh
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build/package}
"$root/scripts/install-packages.sh" g++ cmake make dpkg-dev file pkg-config

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
  -DKELCORE_BUILD_TESTS=OFF
cmake --build "$build" -j "${JOBS:-$(nproc)}"
rm -f "$build"/*.deb "$build"/*.ddeb
(cd "$build" && cpack)

fail() {
  echo "package: $*" >&2
  exit 1
}

look_into() {
  deb=$1
  name=$(dpkg-deb -f "$deb" Package)
  dpkg-deb -c "$deb" >"$build/$name.list"
  awk '$2 != "root/root"' "$build/$name.list" | grep . && fail "$name: files that are not root's"
  grep -E '^(-..s|-.....s|.{8}w)' "$build/$name.list" | grep -v '^l' &&
    fail "$name: files with dangerous rights"
  awk '{print $6}' "$build/$name.list" | grep -v '^\./usr/' && fail "$name: files outside /usr"
  tree=$build/trees/$name
  rm -rf "$tree"
  mkdir -p "$tree"
  dpkg-deb -x "$deb" "$tree"
  grep -rlF "$root" "$tree" && fail "$name: files that name the place of the sources"
  for elf in $(find "$tree" -type f \( -path '*/bin/*' -o -name '*.so.*' \) ! -name '*.py'); do
    readelf -d "$elf" | grep -E 'RPATH|RUNPATH' && fail "$elf: looks for libraries elsewhere"
    readelf -S "$elf" | grep '\.debug_info' && fail "$elf: is not stripped"
  done
  for page in $(find "$tree/usr/share/man" -type f 2>/dev/null); do
    gzip -t "$page" || fail "$page: is not compressed"
  done
  [ -e "$tree/usr/share/doc/$name/copyright" ] || echo "package: note: $name has no copyright file"
}
# Each grep above finds nothing, as it should be: that is no failure.
look() {
  for deb in "$@"; do
    look_into "$deb" || exit 1
    echo "package: $(basename "$deb") is sound"
  done
}

depends_on() {
  dpkg-deb -f "$build/$1"_*.deb Depends | grep -qF "$2" || fail "$1 does not depend on $2"
}

look "$build"/*.deb
version=$(dpkg-deb -f "$build"/libkelcore-dev_*.deb Version)
library=$(basename "$build"/libkelcore[0-9]*.deb | cut -d_ -f1)
depends_on "$library" "libc6 (>= "
dpkg-deb -f "$build/$library"_*.deb Depends | grep -q 'stdc++\|libgcc' &&
  fail "$library needs more than the C library"
depends_on libkelcore-dev "$library (= $version)"
depends_on kelcore-tools "$library (= $version)"
depends_on kelcore-tools libstdc++6
for name in "$library" kelcore-tools; do
  [ "$(dpkg-deb -f "$build/$name-dbgsym"_*.ddeb Depends)" = "$name (= $version)" ] ||
    fail "$name-dbgsym is not for $name of the same build"
done

if [ "$(id -u)" -ne 0 ]; then
  echo "package: NOT TRIED: installing, using and removing (not root)"
  exit 0
fi
exec unshare --mount "$root/scripts/try-packages.sh" "$build" "$root/tests/install/plain_c/main.c"
