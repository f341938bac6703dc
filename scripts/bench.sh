#!/bin/sh
# Builds and runs the benchmarks; arguments go to the program, for example
#   scripts/bench.sh --benchmark_filter=queue --benchmark_repetitions=5
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-packages.sh" g++ cmake make libbenchmark-dev

cmake -S "$root" -B "$root/build/bench" -DCMAKE_BUILD_TYPE=Release -DKELCORE_BUILD_BENCH=ON \
  -DKELCORE_BUILD_TESTS=OFF -DKELCORE_BUILD_EXAMPLES=OFF
cmake --build "$root/build/bench" -j "$(nproc)"
exec "$root/build/bench/bench/kelcore_bench" "$@"
