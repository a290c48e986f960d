#!/usr/bin/env bash
# A price list sharded with postgres_fdw over two throw-away clusters, its
# coordinator a third (pg/cluster.sh): the shards run the extension's
# functions, and their sums are those of one cluster. pg/shards.sh
# [BUILD_DIR]; ctest runs it as the test pg_shards.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build}" && pwd)
. "$root/pg/cluster.sh"
vrn_pg_shards "$build/pg/stage"
vrn_pg_shards_load 20000
psql -X -q -o /dev/null -f "$root/pg/shards-test.sql" 2>&1 | sed 's/^psql:[^:]*:[0-9]*: //'
