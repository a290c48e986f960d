#!/usr/bin/env bash
# Times each function over a million-row price list, beside the scan alone
# and the same chain of discounts in PL/pgSQL, in one backend; then the same
# sum over two shards with postgres_fdw, beside one cluster, and each
# shard's part of it. pg/bench.sh [BUILD_DIR]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build}" && pwd)
. "$root/pg/cluster.sh"
# One backend alone: the times are of the work per row, not of the cores.
vrn_pg_shards "$build/pg/stage" "shared_buffers = 256MB" "max_parallel_workers_per_gather = 0" "jit = off"
vrn_pg_shards_load 1000000
psql -X -q -f "$root/pg/bench.sql"
for shard in 1 2; do
  echo "Shard $shard alone:"
  psql -X -q -p $((PGPORT + shard)) -f "$root/pg/bench-shard.sql"
done
