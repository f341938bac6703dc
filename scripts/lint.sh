#!/bin/sh
# Formatting and static checks: clang-format and clang-tidy over all sources.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-packages.sh" g++ cmake make libgtest-dev clang-format clang-tidy

cd "$root"
git ls-files '*.h' '*.c' '*.cpp' | xargs clang-format --dry-run -Werror
cmake --preset release
git ls-files 'src/*.cpp' 'examples/*.cpp' |
  xargs -n 1 -P "$(nproc)" clang-tidy --quiet -p build/release
