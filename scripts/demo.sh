#!/usr/bin/env bash
# Sets up only what the library and vrn-exec need, builds them in Release, and
# runs an example batch.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh" build
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=Release -DVRN_TESTS=OFF -DVRN_BENCH=OFF >/dev/null
cmake --build "$root/build" -j "$(nproc)" --target vrn-exec
exec="$root/build/host/vrn-exec"

echo "== as a SQL client shows it"
"$exec" -Q "DECLARE @o varchar(30), @rc int
EXEC @rc = vrn_PercStrNormalize '10,5+5', @o OUTPUT
SELECT @rc AS defects, @o AS normalised"

echo "== as JSON, for scripts"
"$exec" --json -Q "DECLARE @o varchar(30); EXEC vrn_PercStrNormalize '10,5+5', @o OUTPUT"
