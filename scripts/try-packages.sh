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
  echo "package: NOT TRIED: installing, using and removing (no layered file systems here)"
  exit 0
fi
new=$layer/root
mkdir -p "$new/packages"
cp "$1"/*.deb "$1"/*.ddeb "$2" "$new/packages"
# dpkg's scripts and the compiler want these; nothing of the system may be written.
mount -t proc none "$new/proc"
mount -t tmpfs none "$new/tmp"
mount --bind /dev "$new/dev"

chroot "$new" /bin/sh -eu <<'INSIDE'
fail() {
  echo "package: $*" >&2
  exit 1
}
left_out=
not_tried() {
  left_out="$left_out
package: NOT TRIED: $*"
}
# names SUFFIX
names() {
  for deb in /packages/*."$1"; do dpkg-deb -f "$deb" Package; done
}
# content NAMES: dpkg is.
content() {
  dpkg --audit $1 | grep . && fail "dpkg is not content"
  dpkg --verify $1 | grep . && fail "files differ from the packages'"
  return 0
}
# All that the packages could leave behind.
traces() {
  find /usr /etc /var/lib/dpkg/info /lib -xdev \( -name '*kelcore*' -o -name 'kelctl*' \
    -o -name 'kelstream*' \) 2>/dev/null | sort
}
# in_gdb TEXT: the program's queue is shown with TEXT in it, printed either way.
in_gdb() {
  gdb -nx -batch -ex "break KEL_QueueDestroy" -ex run -ex up -ex "print queue" \
    -ex "print *queue" /packages/user >/packages/gdb.txt 2>&1 || true
  if [ "$(grep '^\$' /packages/gdb.txt | grep -cF "$1")" != 2 ]; then
    cat /packages/gdb.txt
    fail "gdb does not show: $1"
  fi
  grep '^\$' /packages/gdb.txt
}
# What stops gdb here; nothing when it can work.
gdb_stopped_by() {
  if ! [ -x /packages/user ]; then
    echo "no program"
  elif ! command -v gdb >/dev/null; then
    echo "no gdb"
  elif gdb -nx -batch -ex run /packages/user 2>&1 |
    grep -qE "ptrace: Operation not permitted|Could not trace the inferior"; then
    echo "no process may be traced"
  fi
}
export DEBIAN_FRONTEND=noninteractive LC_ALL=C
unset LD_LIBRARY_PATH DEBUGINFOD_URLS || true

before=$(traces)
packages=$(names deb)
debug=$(names ddeb)
dpkg -i /packages/*.deb
content "$packages"
ldconfig -p | grep libkelcore.so || fail "the loader does not know the library"
kelctl --version
kelstream --version
if command -v cc >/dev/null && command -v pkg-config >/dev/null; then
  pkg-config --cflags --libs kelcore
  cc -g /packages/main.c $(pkg-config --cflags --libs kelcore) -o /packages/user
  [ "$(/packages/user)" = "hello 1" ] || fail "a program built with the package does not work"
else
  not_tried "building a program (no cc or no pkg-config)"
fi

# Before and after the debug information is there, which only handles need.
reason=$(gdb_stopped_by)
[ -n "$reason" ] && not_tried "what gdb shows ($reason)"
[ -n "$reason" ] || in_gdb "queue (libkelcore.so has no debug information)"
dpkg -i /packages/*.ddeb
content "$debug"
[ -n "$reason" ] || in_gdb 'queue "greetings", 0 of 8'
dpkg -P $debug

# The tools go first, and go alone.
dpkg -r kelcore-tools
[ ! -e /usr/bin/kelctl ] || fail "kelctl is still there"
dpkg -P $packages
ldconfig -p | grep libkelcore && fail "the loader still knows the library"
[ "$(traces)" = "$before" ] || fail "before there was: $before, now there is: $(traces)"
echo "package: installed, used and removed$left_out"
INSIDE
