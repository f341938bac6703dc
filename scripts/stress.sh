#!/bin/sh
# Builds the stress programs and runs all of them at length, one after the other, then
# prints a Markdown table of what they counted, for docs/reliability.md:
#   scripts/stress.sh [SECONDS]       each program's time, 60 without; 3600 is an hour
# The programs (build/PRESET/tests/stress/stress_*) also run alone, and like here heed
#   KELCORE_STRESS_SECONDS   the program's time, 2 without; this script sets it
#   KELCORE_STRESS_SEED      repeats the choices of a run, whose head line tells it
#   KELCORE_STRESS_JOBS      so many jobs the thread pool's program does in one pool,
#                            run and stopped all the time, however long it takes:
#     KELCORE_STRESS_JOBS=1000000 build/release/tests/stress/stress_threadpool
# KELCORE_STRESS_PRESET names another preset than release for the script. An interrupt
# ends the program that runs, and the script.
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

# counted NAME | TIME | WHAT=NUMBER WHAT=NUMBER ... | INVARIANT
echo
awk -F ' [|] *' '
  function grouped(number) {
    while (match(number, /[0-9][0-9][0-9][0-9]($|,)/))
      number = substr(number, 1, RSTART) "," substr(number, RSTART + 1)
    return number
  }
  BEGIN { print "| program | time | work | invariant |"; print "| --- | --- | --- | --- |" }
  /^counted / {
    work = ""
    for (i = split($3, counts, " "); i >= 1; i--) {
      split(counts[i], pair, "=")
      gsub(/-/, " ", pair[1])
      work = grouped(pair[2]) " " pair[1] (work == "" ? "" : ", ") work
    }
    printf "| %s | %s | %s | %s |\n", substr($1, 9), $2, work, $4
  }' "$results/all"
echo

[ "$interrupted" = 0 ] || { echo "interrupted"; exit 130; }
[ -z "$failed" ] || { echo "FAILED:$failed"; exit 1; }
echo "all passed"
