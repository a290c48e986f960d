#!/usr/bin/env bash
# Sets up, builds the library and vrn-exec, and runs an example batch through it.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
cmake -S "$root" -B "$root/build" >/dev/null
cmake --build "$root/build" -j "$(nproc)" --target vrn-exec
exec="$root/build/host/vrn-exec"

echo "== as a SQL client shows it"
"$exec" -Q "DECLARE @o varchar(30), @rc int
EXEC @rc = vrn_PercStrNormalize '10,5+5', @o OUTPUT
SELECT @rc AS defects, @o AS normalised"

echo "== as JSON, for scripts"
"$exec" --json -Q "DECLARE @o varchar(30); EXEC vrn_PercStrNormalize '10,5+5', @o OUTPUT"
