#!/bin/sh
# Builds the library and kelstream and runs it on the streams that ship with the
# project, or on the files given.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-packages.sh" g++ cmake make

cmake -S "$root" -B "$root/build" -DKELCORE_BUILD_TESTS=OFF
cmake --build "$root/build" -j "$(nproc)"

if [ $# -eq 0 ]; then
  cd "$root"
  set -- examples/media/bars.h264 examples/media/show.ts examples/media/tone.aac
fi
exec "$root/build/kelstream" "$@"
