#!/bin/sh
# emulated_names.sh CASES PROGRAM...
# Fails for each of CASES (as in a filter, with colons) that none of the test programs
# has: it was renamed, and runs where it cannot pass.
set -eu
cases=$1
shift
unset GTEST_FILTER
all=$(
  for program; do
    "$program" --gtest_list_tests | awk '/^[^ ]/ { suite = $1 } /^  / { print suite $1 }'
  done
)
status=0
for name in $(echo "$cases" | tr : ' '); do
  if ! echo "$all" | grep -qxF -- "$name"; then
    echo "tests/emulated.cmake: there is no test $name"
    status=1
  fi
done
exit $status
