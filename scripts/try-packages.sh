#!/bin/sh
# Installs the packages of a directory in a throw-away layer over this system, uses
# and removes them. Called by scripts/package.sh, in a mount name space of its own:
#   unshare --mount scripts/try-packages.sh DIRECTORY PROGRAM.c
set -eu

layer=$1/layer
mkdir -p "$layer"
if ! { mount -t tmpfs none "$layer" && mkdir "$layer/new" "$layer/aside" "$layer/root" &&
  mount -t overlay overlay \
    -o "lowerdir=/,upperdir=$layer/new,workdir=$layer/aside" "$layer/root"; } 2>/dev/null; then
  echo "package: no layered file systems here: the packages are not tried"
  exit 0
fi
new=$layer/root
mkdir -p "$new/packages"
cp "$1"/*.deb "$2" "$new/packages"
# dpkg's scripts and the compiler want these; nothing of the system may be written.
mount -t proc none "$new/proc"
mount -t tmpfs none "$new/tmp"
mount --bind /dev "$new/dev"

chroot "$new" /bin/sh -eu <<'INSIDE'
fail() {
  echo "package: $*" >&2
  exit 1
}
names() {
  for deb in /packages/*.deb; do dpkg-deb -f "$deb" Package; done
}
# All that the packages could leave behind.
traces() {
  find /usr /etc /var/lib/dpkg/info /lib -xdev \( -name '*kelcore*' -o -name 'kelctl*' \
    -o -name 'kelstream*' \) 2>/dev/null | sort
}
export DEBIAN_FRONTEND=noninteractive LC_ALL=C
unset LD_LIBRARY_PATH || true

before=$(traces)
dpkg -i /packages/*.deb
dpkg --audit $(names) | grep . && fail "dpkg is not content"
dpkg --verify $(names) | grep . && fail "files differ from the packages'"
ldconfig -p | grep libkelcore.so || fail "the loader does not know the library"
kelctl --version
kelstream --version
if command -v cc >/dev/null && command -v pkg-config >/dev/null; then
  pkg-config --cflags --libs kelcore
  cc /packages/main.c $(pkg-config --cflags --libs kelcore) -o /packages/user
  [ "$(/packages/user)" = "hello 1" ] || fail "a program built with the package does not work"
  if command -v gdb >/dev/null; then
    gdb -nx -batch -ex "break main" -ex run -ex "info pretty-printer" /packages/user 2>&1 |
      grep KEL_QUEUE || fail "gdb did not load the printers"
  fi
fi

# The tools go first, and go alone.
dpkg -r kelcore-tools
[ ! -e /usr/bin/kelctl ] || fail "kelctl is still there"
dpkg -P $(names)
ldconfig -p | grep libkelcore && fail "the loader still knows the library"
[ "$(traces)" = "$before" ] || fail "before there was: $before, now there is: $(traces)"
echo "package: installed, used and removed"
INSIDE
