#!/bin/sh
# Builds and runs the benchmarks, prints the table of ratios, and draws it:
#   scripts/bench.sh                      everything, into build/bench/
#   scripts/bench.sh FILTER [ARGUMENT..]  jobs whose names match, for example
#   scripts/bench.sh queue --benchmark_min_time=1
# Peers that Debian has are installed; KELCORE_BENCH_PEERS=0 leaves them out.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-packages.sh" g++ cmake make libbenchmark-dev python3 pkg-config
if [ "${KELCORE_BENCH_PEERS:-1}" != 0 ]; then
  "$root/scripts/install-packages.sh" libglib2.0-dev libgstreamer1.0-dev libboost-dev \
    zlib1g-dev libisal-dev libspdlog-dev libmimalloc-dev ffmpeg
fi

build="$root/build/bench"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DKELCORE_BUILD_BENCH=ON \
  -DKELCORE_BUILD_TESTS=OFF
cmake --build "$build" -j "$(nproc)"

filter=${1:--growth}
[ $# -eq 0 ] || shift
"$build/bench/kelcore_bench" --benchmark_filter="$filter" --benchmark_repetitions=5 \
  --benchmark_report_aggregates_only=true --benchmark_out="$build/results.json" \
  --benchmark_out_format=json "$@"
python3 "$root/bench/table.py" "$build/results.json" "$build/results.svg"
size "$build/libkelcore.so"
