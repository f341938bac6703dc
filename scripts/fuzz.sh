#!/bin/sh
# Builds the fuzz targets and runs each of them on its kept inputs and on what
# comes of them:
#   scripts/fuzz.sh                    all, 5 seconds each
#   scripts/fuzz.sh 3600               all, for an hour each
#   scripts/fuzz.sh 60 hash byte       these two
#   scripts/fuzz.sh 3600 -runs=10000000
#                                      ten million executions, at most an hour
# Words that begin with a hyphen are options for libFuzzer.
# What reaches new code is kept in build/fuzz/corpus/ for the next run. Exits
# with 1 when something was found, and tells which input shows it.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-packages.sh" clang libclang-rt-dev llvm cmake make

seconds=5
case ${1:-} in
  [0-9]*)
    seconds=$1
    shift
    ;;
esac

cd "$root"
cmake --preset fuzz
cmake --build --preset fuzz -j "$(nproc)"

build=build/fuzz
options=
names=
for word in "$@"; do
  case $word in
    -*) options="$options $word" ;;
    *) names="$names $word" ;;
  esac
done
if [ -z "$names" ]; then
  for source in tests/fuzz/*_fuzz.cpp; do
    names="$names $(basename "$source" _fuzz.cpp)"
  done
fi
mkdir -p "$build/findings" "$build/logs"
export UBSAN_OPTIONS=print_stacktrace=1
# Small blocks come and go all the time; keeping many of them, and who asked for
# them, costs speed. Run the target on a finding without this to see more.
export ASAN_OPTIONS=quarantine_size_mb=8:malloc_context_size=2
# Files are edited in memory where that can be had.
[ ! -w /dev/shm ] || export TMPDIR=/dev/shm

found=0
for name in $names; do
  [ -f "tests/fuzz/${name}_fuzz.cpp" ] || {
    echo "fuzz: there is no target $name" >&2
    exit 2
  }
  # Many short runs tell more about operations; streams need their length.
  case $name in
    adts | h264 | ts) length=3000 ;;
    checksum) length=1000 ;;
    *) length=600 ;;
  esac
  mkdir -p "$build/corpus/$name"
  kept="tests/fuzz/corpus/$name"
  [ -d "$kept" ] || kept=
  log="$build/logs/$name"
  # The entropic schedule costs more than a run. Unquoted on purpose: perhaps
  # there are no kept inputs, or no options.
  # shellcheck disable=SC2086
  if "$build/tests/fuzz/${name}_fuzz" -max_total_time="$seconds" -max_len="$length" \
    -entropic=0 -timeout=20 -rss_limit_mb=4096 -print_final_stats=1 \
    -artifact_prefix="$build/findings/$name-" $options \
    "$build/corpus/$name" $kept >"$log" 2>&1; then
    result=ok
  else
    result=FOUND
    found=1
  fi
  executed=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  printf '%-12s %-5s %12s executions\n' "$name" "$result" "${executed:-?}"
  if [ "$result" = FOUND ]; then
    grep -a -m 3 'does not hold\|runtime error\|ERROR: ' "$log" || tail -n 20 "$log"
    sed -n "s,.*Test unit written to ,  input: $root/,p" "$log"
    echo "  log:   $root/$log"
  fi
done
exit "$found"
