#!/bin/sh
# Runs the tests with every line and branch of src/ counted, prints what is
# missing, and fails below 100 %. Pages to look at are in build/coverage/report/.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-packages.sh" g++ cmake make libgtest-dev gcovr

cd "$root"
cmake --preset coverage
find build/coverage -name '*.gcda' -delete
# The modules' own tests and those of their failures; programs and stress reach
# nothing more.
tests=$(cd tests && ls ./*_test.cpp | sed 's,^./\(.*\)\.cpp$,\1,')
# Unquoted on purpose: one word per test.
# shellcheck disable=SC2086
cmake --build --preset coverage -j "$(nproc)" --target $tests sweep_test c_caller
ctest --preset coverage -j "$(nproc)" -R '_test$|^c_caller$'

# Code for instructions that this processor lacks cannot run here.
exclude=
case $(grep -m 1 '^flags' /proc/cpuinfo) in
  *avx512bw*gfni*vpclmulqdq*) ;;
  *)
    echo "coverage: this processor lacks AVX-512 or GFNI, checksum_avx512.cpp is left out"
    exclude="--exclude src/internal/checksum_avx512.cpp"
    ;;
esac
mkdir -p build/coverage/report
gcovr --root . --object-directory build/coverage/src --filter src/ $exclude \
  --html-details build/coverage/report/index.html --txt - --print-summary \
  --fail-under-line 100 --fail-under-branch 100
