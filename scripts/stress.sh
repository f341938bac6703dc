#!/bin/sh
# Builds the stress programs and runs all of them at length, one after the other, then
# sums up what they counted:
#   scripts/stress.sh [SECONDS]       each program's time, 60 without
# KELCORE_STRESS_PRESET names another preset than release, KELCORE_STRESS_SEED repeats
# the choices of a run. An interrupt ends the program that runs, and the script.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
preset=${KELCORE_STRESS_PRESET:-release}
"$root/scripts/install-packages.sh" g++ cmake make libgtest-dev

cd "$root"
cmake --preset "$preset"
cmake --build --preset "$preset" --target kelcore_stress_programs -j "$(nproc)"

run=
case $preset in
asan-ubsan)
  export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:strict_string_checks=1}"
  export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1}"
  ;;
tsan)
  export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}"
  # Some machines place memory where ThreadSanitizer cannot.
  if setarch -R true 2>/dev/null; then run="setarch -R"; fi
  ;;
esac

results=$(mktemp -d)
trap 'rm -rf "$results"' EXIT
# The programs catch these and end in order; then the script does.
interrupted=0
trap 'interrupted=1' INT TERM HUP

export KELCORE_STRESS_SECONDS="$seconds"
failed=
for program in build/"$preset"/tests/stress/stress_*; do
  if [ -d "$program" ] || [ ! -x "$program" ]; then continue; fi
  [ "$interrupted" = 0 ] || break
  status=0
  $run "$program" >"$results/one" || status=$?
  cat "$results/one"
  cat "$results/one" >>"$results/all"
  [ "$status" = 0 ] || failed="$failed $(basename "$program")($status)"
done

echo
echo "counted by all:"
awk '/^(ok|FAILED) / {
       for (i = 6; i <= NF; i++) {
         split($i, pair, "=")
         split($2, name, "/")
         key = name[1] " " pair[1]
         if (!(key in sum)) order[++keys] = key
         sum[key] += pair[2]
       }
     }
     END { for (i = 1; i <= keys; i++) printf "  %-32s %15d\n", order[i], sum[order[i]] }' "$results/all"

[ "$interrupted" = 0 ] || { echo "interrupted"; exit 130; }
[ -z "$failed" ] || { echo "FAILED:$failed"; exit 1; }
echo "all passed"
