#!/bin/bash
# Every function that the library imports is made to fail by the sweep, or excused
# with a reason.
#
#     imports.sh NM LIBRARY SOURCES
set -euo pipefail

nm=$1
library=$2
sources=$3
here=$(dirname "$0")

# The checked forms of functions count as the functions.
imported=$("$nm" -D --undefined-only "$library" | awk '{ print $2 }' |
  sed -E 's/@.*//; s/^__(.*)_chk$/\1/; s/^stack$/__stack_chk_fail/' | sort -u)
# Those that are made to fail, not those that the sweep itself calls or only follows. What
# stands for the streams' whole printing is called print.
swept=$(tr -d ' \n' <"$here/calls.cpp" |
  grep -oE '(Failing|Returning|Allocates)\(f::[a-z_0-9]+' | sed 's/.*f:://' |
  sed 's/^print$/printf\nfprintf\nvfprintf\nputs\nputchar/' | sort -u)
excused=$(grep -v '^#' "$here/excused.txt" | awk 'NF { print $1 }' | sort)

status=0
complain() {
  echo "$1"
  status=1
}

[ -n "$imported" ] || complain "no function is imported"
for name in $imported; do
  case $name in KEL* | kel*) continue ;; esac
  is_swept=$(grep -cx -- "$name" <<<"$swept" || true)
  is_excused=$(grep -cx -- "$name" <<<"$excused" || true)
  if [ "$is_swept$is_excused" = 00 ]; then
    complain "$name is imported, and neither swept nor excused"
  fi
done
for name in $excused; do
  if grep -qx -- "$name" <<<"$swept"; then
    complain "$name is swept and excused"
  fi
  case $name in _*) continue ;; esac
  grep -qrw -- "$name" "$sources" || complain "$name is excused and not used"
done
while read -r name reason; do
  [ -n "$reason" ] || complain "$name is excused without a reason"
done < <(grep -v '^#' "$here/excused.txt" | grep .)
exit $status
