#!/bin/sh
# Goes the README's way in a bare Debian 12 (as root, with debootstrap): clones what
# is committed here, and runs for C, C++ and arm64 the commands that it gives, as
# they stand. The bare system is kept in build/bare for the next time.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-packages.sh" debootstrap git
bare=$root/build/bare
if [ "${1:-}" != inside ]; then
  if [ ! -d "$bare" ]; then
    mirror=$(grep -rhoE '^(URIs:|deb) *https?://[^ ]+' /etc/apt/sources.list* | head -n 1 |
      sed 's/^[^ ]* *//')
    debootstrap --variant=minbase bookworm "$bare.new" "$mirror"
    cp -a /etc/apt/sources.list* /etc/apt/apt.conf.d "$bare.new/etc/apt/"
    mv "$bare.new" "$bare"
  fi
  exec unshare --mount --ipc "$0" inside
fi

# All is written to a layer that goes with the mount name space.
layer=$(mktemp -d)
mount -t tmpfs none "$layer"
mkdir "$layer/new" "$layer/aside" "$layer/root"
mount -t overlay -o "lowerdir=$bare,upperdir=$layer/new,workdir=$layer/aside" none "$layer/root"
new=$layer/root
mount -t proc none "$new/proc"
mount --rbind /dev "$new/dev"
cp -L /etc/resolv.conf /etc/hosts "$new/etc/"
git clone --quiet "$root" "$new/root/kelcore"

cat >"$new/root/way.sh" <<'INSIDE'
cd /root/kelcore
section=$(sed -n '/^## Your own program/,/^## Use it/p' README.md)
for name in hello.c hello.cpp; do
  printf '%s\n' "$section" |
    awk -v begin="\`$name\`:" 'index($0, begin) { here = 1 } here && /^```$/ { exit }
      code { print } here && /^```c/ { code = 1 }' >$name
done
# Each block of commands by itself, as a reader would give it.
printf '%s\n' "$section" |
  awk '/^    [a-z.]/ && !code { if (!on) { ++block; on = 1 } print >("/root/block" block); next }
    { on = 0 } /^```c/ { code = 1 } /^```$/ { code = 0 }'
for block in /root/block*; do
  echo "== $(grep -v install "$block" | head -n 1)"
  sh -eu "$block" >/root/log 2>&1 || { cat /root/log; exit 1; }
  [ "$(tail -n 1 /root/log)" = "hello 1" ] || { cat /root/log; exit 1; }
  echo "hello 1"
done
INSIDE
chroot "$new" env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
  sh -eu /root/way.sh
