#!/bin/sh
# Builds and tests the presets given, "release" without any:
#   scripts/test.sh [release|debug|asan-ubsan|tsan ...]
# KELCORE_CMAKE_OPTIONS gives CMake more options.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-packages.sh" g++ cmake make libgtest-dev

cd "$root"
for preset in "${@:-release}"; do
  echo "== $preset"
  # Unquoted on purpose: one word per option.
  # shellcheck disable=SC2086
  cmake --preset "$preset" ${KELCORE_CMAKE_OPTIONS:-}
  cmake --build --preset "$preset" -j "$(nproc)"
  # Some machines place memory where ThreadSanitizer cannot; without address
  # randomisation it always finds its room.
  run=
  if [ "$preset" = tsan ] && setarch -R true 2>/dev/null; then
    run="setarch -R"
  fi
  $run ctest --preset "$preset" -j "$(nproc)"
done
