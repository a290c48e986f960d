#!/usr/bin/env bash
# Sets up, builds and runs every test: the shipped configuration (Release) and
# once more under ASan and UBSan; the procedure tests under TSan; each fuzz
# target for a fixed number of runs; and the Windows DLL in Release with its
# tests under wine.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
bash "$root/scripts/build.sh" build -DCMAKE_BUILD_TYPE=Release -DVRN_TESTS=ON -DVRN_BENCH=ON -DVRN_PG=ON
bash "$root/scripts/build.sh" build-san -DVRN_SANITIZE=ON -DVRN_BENCH=OFF
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir "$root/build" --output-on-failure -j "$(nproc)"
ctest --test-dir "$root/build-san" --output-on-failure -j "$(nproc)"

# Every procedure test once more under ThreadSanitizer, against its own libvrn.
cmake -S "$root" -B "$root/build-tsan" -DVRN_TSAN=ON -DVRN_BENCH=OFF >/dev/null
cmake --build "$root/build-tsan" -j "$(nproc)" --target test_procedures
TSAN_OPTIONS=halt_on_error=1 VRN_LIB="$root/build-tsan/libvrn.so" "$root/build-tsan/tests/test_procedures"

# Each fuzz target from its seeds for a fixed number of runs, about 20 s each.
mkdir -p "$root/build-fuzz"
for run in percstr:40000 symbolic:40000 formula:100000 params:800000 tds:800000; do
  target=${run%:*}
  log=$root/build-fuzz/$target.log
  if ! bash "$root/scripts/fuzz.sh" "$target" --runs "${run#*:}" >"$log" 2>&1; then
    tail -n 80 "$log"
    exit 1
  fi
  echo "fuzz_$target: $(grep -E '^Done' "$log")"
done

# The Windows tree: one wine server stays up for the suite, or every run lingers.
bash "$root/scripts/build.sh" build-win -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64.cmake" -DCMAKE_BUILD_TYPE=Release
"$root/build-win/wine-run.sh" --start
trap '"$root/build-win/wine-run.sh" --stop || true' EXIT
ctest --test-dir "$root/build-win" --output-on-failure -j "$(nproc)"
