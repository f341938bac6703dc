#!/bin/sh
# Installs the Debian packages named as arguments, those that are missing only:
# a machine that has them needs neither network nor privileges.
set -eu

missing=
for package in "$@"; do
  state=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$state" = installed ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

as_root=
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || {
    echo "install-packages: run as root, or install sudo, to get:$missing" >&2
    exit 1
  }
  as_root=sudo
fi
export DEBIAN_FRONTEND=noninteractive
$as_root apt-get update
# Unquoted on purpose: one word per package.
$as_root apt-get install -y --no-install-recommends $missing
