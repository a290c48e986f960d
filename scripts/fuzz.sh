#!/usr/bin/env bash
# Builds and runs one fuzz target (percstr, symbolic, formula, params, tds):
#   scripts/fuzz.sh TARGET MINUTES     runs it that long
#   scripts/fuzz.sh TARGET --runs N    runs N inputs, the same ones every time (CI)
# It starts from the seeds in tests/fuzz/corpus/TARGET and keeps what it learns
# in build-fuzz/corpus/TARGET; a crash lands in build-fuzz/artifacts/.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
target=${1:?target: percstr, symbolic, formula, params or tds}
shift
case ${1:-} in
  --runs) limit=(-runs="${2:?number of runs}" -seed=1) ;;
  '' ) echo "minutes or --runs N" >&2; exit 2 ;;
  *) limit=(-max_total_time=$(( $1 * 60 ))) ;;
esac

build=$root/build-fuzz
cmake -S "$root" -B "$build" -DCMAKE_CXX_COMPILER=clang++-14 -DVRN_FUZZ=ON >/dev/null
cmake --build "$build" -j "$(nproc)" --target "fuzz_$target"

corpus=$build/corpus/$target
mkdir -p "$corpus" "$build/artifacts"
options=(-artifact_prefix="$build/artifacts/$target-" -print_final_stats=1 -max_len=1200)
dict=$root/tests/fuzz/$target.dict
[ -f "$dict" ] && options+=(-dict="$dict")
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
"$build/tests/fuzz/fuzz_$target" "${options[@]}" "${limit[@]}" "$corpus" "$root/tests/fuzz/corpus/$target"
