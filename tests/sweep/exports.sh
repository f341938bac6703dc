#!/bin/bash
# Every function that the library exports is called by an operation of the sweep, or
# excused with a reason.
#
#     exports.sh NM LIBRARY
set -euo pipefail

nm=$1
library=$2
here=$(dirname "$0")

exported=$("$nm" -D --defined-only "$library" | awk '{ print $3 }' | sed 's/@.*//' |
  grep '^KEL' | sort -u)
# CALL(function, ...), Step("function", ...), or a plain call for them.
called=$(cat "$here"/*.cpp | tr -d ' \n' |
  grep -oE '(CALL\(|Step\(")KEL[A-Za-z0-9_]+|KEL[A-Za-z0-9_]+\(' |
  sed -E 's/^(CALL\(|Step\(")//; s/\($//' | sort -u)

status=0
complain() {
  echo "$1"
  status=1
}

[ -n "$exported" ] || complain "no function is exported"
uncalled=$(comm -23 <(echo "$exported") <(echo "$called"))
names=()
while read -r name reason; do
  [ -n "$reason" ] || complain "$name is excused without a reason"
  names+=("$name")
done < <(grep -v '^#' "$here/unswept.txt" | grep .)

declare -A used=()
for function in $uncalled; do
  excused=
  for name in "${names[@]}"; do
    # A star stands for any ending.
    # shellcheck disable=SC2053
    if [[ $function == $name ]]; then
      excused=1
      used[$name]=1
    fi
  done
  [ -n "$excused" ] || complain "$function is exported, and neither swept nor excused"
done
for name in "${names[@]}"; do
  [ -n "${used[$name]:-}" ] || complain "$name is excused, and swept or not exported"
done
exit $status
