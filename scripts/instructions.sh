#!/usr/bin/env bash
# Instructions per call of each engine case and of its yardstick, counted by
# callgrind (steady on a loaded machine, unlike times):
#   scripts/instructions.sh [BUILD_DIR] [CALLS]
# BUILD_DIR defaults to build; the benchmarks must be built there.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/${1:-build}
calls=${2:-2000}
probe=$build/bench/vrn_instructions
command -v valgrind >/dev/null || { echo "valgrind is needed" >&2; exit 1; }
[ -x "$probe" ] || { echo "build vrn_instructions in $build first" >&2; exit 1; }

count() {  # case side -> instructions per call
  valgrind --tool=callgrind --callgrind-out-file=/dev/null --toggle-collect=MeasuredCalls \
    "$probe" "$1" "$2" "$calls" 2>&1 >/dev/null |
    awk -v calls="$calls" '/Collected :/ { printf "%.0f", $4 / calls }'
}

printf '%-34s %12s %12s %8s\n' case engine yardstick ratio
"$probe" | while read -r name hasYardstick; do
  engine=$(count "$name" engine)
  if [ "$hasYardstick" = 1 ]; then
    yardstick=$(count "$name" yardstick)
    awk -v n="$name" -v e="$engine" -v y="$yardstick" 'BEGIN { printf "%-34s %12s %12s %8.2f\n", n, e, y, e / y }'
  else
    printf '%-34s %12s %12s %8s\n' "$name" "$engine" - -
  fi
done
