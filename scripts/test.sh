#!/usr/bin/env bash
# Sets up, builds and runs every test: once plain, once under ASan and UBSan
# (and the lock tests under TSan),
# and once as Windows programs against vrn.dll under wine.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
bash "$root/scripts/build.sh" build
bash "$root/scripts/build.sh" build-san -DVRN_SANITIZE=ON -DVRN_BENCH=OFF
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir "$root/build" --output-on-failure -j "$(nproc)"
ctest --test-dir "$root/build-san" --output-on-failure -j "$(nproc)"

# The client-held lock and the formula lock once more under ThreadSanitizer:
# only the library and its lock tests.
cmake -S "$root" -B "$root/build-tsan" -DVRN_TSAN=ON -DVRN_BENCH=OFF >/dev/null
cmake --build "$root/build-tsan" -j "$(nproc)" --target test_procedures
VRN_LIB="$root/build-tsan/libvrn.so" "$root/build-tsan/tests/test_procedures" \
  --gtest_filter='Concurrency.*'

# The Windows tree: one wine server stays up for the suite, or every run lingers.
bash "$root/scripts/build.sh" build-win -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64.cmake"
"$root/build-win/wine-run.sh" --start
trap '"$root/build-win/wine-run.sh" --stop || true' EXIT
ctest --test-dir "$root/build-win" --output-on-failure -j "$(nproc)"
