#!/bin/sh
# Cross-compiles everything for arm64 and runs its tests under qemu-user.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-packages.sh" cmake make g++-aarch64-linux-gnu qemu-user googletest

cd "$root"
cmake --preset arm64
cmake --build --preset arm64 -j "$(nproc)"
ctest --preset arm64 -j "$(nproc)"
