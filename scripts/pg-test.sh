#!/usr/bin/env bash
# The PostgreSQL extension's regression scripts (pg/sql/*.sql against
# pg/expected/*.out) in a throw-away cluster: scripts/pg-test.sh [BUILD_DIR]
# (default build). ctest runs it as the test pg_regress. Skipped, with a
# word, where the build has no extension.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build}" && pwd)
stage=$build/pg/stage
if [ ! -d "$stage" ]; then
  echo "pg-test: no extension in $build (no PostgreSQL build support): skipped"
  exit 0
fi
. "$root/pg/cluster.sh"
vrn_pg_start "$stage" "max_worker_processes = 8" "max_parallel_workers = 8"

regress=$(dirname "$(pg_config --pgxs)")/../test/regress/pg_regress
# Results stay in the build tree, to read after a failing run.
out=$build/pg/regress
rm -rf "$out"; mkdir -p "$out"
# pg_regress makes the database afresh and creates the extension in it.
if ! "$regress" --bindir="$(pg_config --bindir)" --host="$PGHOST" --port="$PGPORT" --user=postgres \
    --dbname=vrn_regression --load-extension=vrn --inputdir="$root/pg" --outputdir="$out" --schedule="$root/pg/schedule"; then
  [ -f "$out/regression.diffs" ] && cat "$out/regression.diffs"
  exit 1
fi
