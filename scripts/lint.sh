#!/bin/sh
# Formatting and static checks: clang-format, cppcheck and clang-tidy.
#   scripts/lint.sh          all sources
#   scripts/lint.sh FILE...  clang-tidy for these only
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-packages.sh" g++ cmake make libgtest-dev clang-format clang-tidy cppcheck

cd "$root"
git ls-files '*.h' '*.hpp' '*.c' '*.cpp' | xargs clang-format --dry-run -Werror
cppcheck --enable=warning,performance,portability --inline-suppr --std=c++20 --language=c++ \
  -I include -I src --error-exitcode=1 --quiet -j "$(nproc)" src examples/kelstream tools
cmake --preset release
[ $# -gt 0 ] || set -- $(git ls-files 'src/*.cpp' 'examples/*.cpp' 'tools/*.cpp')
printf '%s\n' "$@" | xargs -n 1 -P "$(nproc)" clang-tidy --quiet -p build/release
