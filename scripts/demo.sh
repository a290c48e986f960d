#!/usr/bin/env bash
# Sets up, builds and runs an example batch through vrn-exec.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
bash "$root/scripts/build.sh" build
"$root/build/host/vrn-exec" -Q "DECLARE @o varchar(30); EXEC vrn_PercStrNormalize '10,5+5', @o OUTPUT; SELECT @o"
