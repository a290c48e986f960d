#!/usr/bin/env bash
# The PostgreSQL extension's regression scripts (pg/sql/*.sql against
# pg/expected/*.out) in a throw-away cluster: scripts/pg-test.sh [BUILD_DIR]
# (default build). Skipped, with a word, where the build has no extension.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/${1:-build}
stage=$build/pg/stage
if [ ! -d "$stage" ]; then
  echo "pg-test: no extension in $build (no PostgreSQL build support): skipped"
  exit 0
fi
. "$root/pg/cluster.sh"
vrn_pg_start "$stage" "max_worker_processes = 8" "max_parallel_workers = 8"

regress=$(dirname "$(pg_config --pgxs)")/../test/regress/pg_regress
tests=$(cd "$root/pg/sql" && ls *.sql | sed 's/\.sql$//')
out=$VRN_PG_DIR/regress
mkdir -p "$out"
# pg_regress makes the database afresh and creates the extension in it.
if ! "$regress" --bindir="$(pg_config --bindir)" --host="$PGHOST" --port="$PGPORT" --user=postgres \
    --dbname=vrn_regression --load-extension=vrn --inputdir="$root/pg" --outputdir="$out" $tests; then
  [ -f "$out/regression.diffs" ] && cat "$out/regression.diffs"
  exit 1
fi
