#!/bin/bash
# The functions on the sweep's list of what is left on purpose are those that the
# documentation names.
#
#     keeps.sh DOCUMENT
set -euo pipefail

here=$(dirname "$0")
listed=$(sed -n '/kKeeps\[\]/,/^};/p' "$here/keeps.cpp" | grep -oE '\{"KEL[A-Za-z_]*"' |
  tr -d '{"' | sort -u)
# The first column's names, whatever the others say.
told=$(sed -n '/^## What stays on purpose/,/^## Limits/p' "$1" | grep '^| `' | cut -d'|' -f2 |
  grep -oE 'KEL[A-Za-z_]*' | sort -u)
diff <(echo "$listed") <(echo "$told") ||
  { echo "< keeps.cpp, > $1"; exit 1; }
