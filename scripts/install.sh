#!/bin/sh
# Installs what is needed to build the library, builds it with its programs, and
# installs it where compilers, pkg-config and the loader look:
#   scripts/install.sh                    for this machine, into /usr/local
#   scripts/install.sh /opt/kelcore       somewhere else
#   scripts/install.sh --arm64 sysroot    cross-compiled, for a device
set -eu

preset=release
packages="g++ cmake make pkg-config"
if [ "${1:-}" = --arm64 ]; then
  preset=arm64
  packages="cmake make g++-aarch64-linux-gnu qemu-user"
  shift
  [ $# -gt 0 ] || set -- ""
fi
case ${1-/usr/local} in
  "" | -*)
    echo "usage: scripts/install.sh [PREFIX] | scripts/install.sh --arm64 PREFIX" >&2
    exit 2
    ;;
esac
prefix=${1:-/usr/local}
case $prefix in
  /*) ;;
  *) prefix=$PWD/$prefix ;;
esac

root=$(cd "$(dirname "$0")/.." && pwd)
# Unquoted on purpose: one word per package.
# shellcheck disable=SC2086
"$root/scripts/install-packages.sh" $packages

# Apart from a developer's own build: no tests here, and another prefix.
build=$root/build/install-$preset
cd "$root"
cmake --preset "$preset" -B "$build" -DKELCORE_BUILD_TESTS=OFF -DCMAKE_INSTALL_PREFIX="$prefix"
cmake --build "$build" -j "$(nproc)" --target kelcore kelcore_static kelstream kelctl

privileged() {
  if mkdir -p "$prefix" 2>/dev/null && [ -w "$prefix" ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    echo "install: run as root, or install sudo, to write $prefix" >&2
    exit 1
  fi
}
privileged cmake --install "$build"
# There the loader knows what its cache holds, and nothing else.
if [ "$preset" = release ] && [ "$prefix" = /usr/local ]; then
  privileged ldconfig
fi
