#!/bin/sh
# Compares what programs can see of the library (functions, their types, the
# layout of public structures) with what abi/libkelcore.abi keeps:
#   scripts/abi.sh            fails on any difference, and says which kind it is
#   scripts/abi.sh --update   keeps the library as it is now
#   scripts/abi.sh --build    builds the library, with debug information, and stops
# BUILD_DIR chooses where to build, build/abi else.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
baseline=$root/abi/libkelcore.abi
build=${BUILD_DIR:-$root/build/abi}

# The type descriptions come from debug information; the sources' place on this
# machine must not get into them.
mkdir -p "$build"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Debug -DKELCORE_BUILD_TESTS=OFF \
  -DKELCORE_BUILD_EXAMPLES=OFF -DKELCORE_BUILD_TOOLS=OFF -DKELCORE_INSTALL=OFF \
  -DCMAKE_CXX_FLAGS="-ffile-prefix-map=$root/=" >"$build.log" 2>&1 &&
  cmake --build "$build" --target kelcore >>"$build.log" 2>&1 || {
  cat "$build.log" >&2
  exit 2
}

[ "${1:-}" != --build ] || exit 0

machine=$(uname -m)
if [ "$machine" != x86_64 ]; then
  echo "skipped: the baseline is of x86_64, this is $machine"
  exit 0
fi
if ! command -v abidw >/dev/null || ! command -v abidiff >/dev/null; then
  "$root/scripts/install-packages.sh" abigail-tools
fi

current=$build/libkelcore.abi
# Private types may change at will. Ids that are hashes of the types, and no
# line numbers, keep the file's own differences small.
abidw --headers-dir "$root/include" --drop-private-types --type-id-style hash \
  --no-corpus-path --no-comp-dir-path --no-show-locs --no-parameter-names \
  --no-elf-needed --exported-interfaces-only --out-file "$current" "$build/libkelcore.so"

if [ "${1:-}" = --update ]; then
  mkdir -p "$root/abi"
  cp "$current" "$baseline"
  echo "abi: $baseline is renewed"
  exit 0
fi

report=$build/abidiff.txt
status=0
abidiff --suppressions "$root/abi/ignored.ini" --harmless "$baseline" "$current" \
  >"$report" || status=$?
cat "$report"
# Bits 1 and 2 of the answer are failures of abidiff itself. Whether programs
# break stands in the numbers: what is new breaks none.
if [ "$status" -eq 0 ]; then
  echo "abi: as it was"
elif [ $((status & 3)) -ne 0 ]; then
  echo "abi: the comparison failed" >&2
  exit 2
elif grep 'changes summary:' "$report" | grep -qv ': 0 Removed, 0 Changed'; then
  echo "abi: programs built before may break; see CONTRIBUTING.md, Exports and versions" >&2
  exit 1
else
  echo "abi: there is something new; keep it with scripts/abi.sh --update" >&2
  exit 1
fi
