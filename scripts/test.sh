#!/usr/bin/env bash
# Sets up, builds and runs every test: once plain, once under ASan and UBSan,
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

# The Windows tree: one wine server stays up for the suite, or every run lingers.
bash "$root/scripts/build.sh" build-win -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64.cmake"
"$root/build-win/wine-run.sh" --start
trap '"$root/build-win/wine-run.sh" --stop || true' EXIT
ctest --test-dir "$root/build-win" --output-on-failure -j "$(nproc)"
