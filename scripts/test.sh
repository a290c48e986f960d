#!/usr/bin/env bash
# Sets up, builds and runs every test: once plain, once under ASan and UBSan.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
bash "$root/scripts/build.sh" build
bash "$root/scripts/build.sh" build-san -DVRN_SANITIZE=ON -DVRN_BENCH=OFF
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir "$root/build" --output-on-failure -j "$(nproc)"
ctest --test-dir "$root/build-san" --output-on-failure -j "$(nproc)"
