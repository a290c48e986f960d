#!/usr/bin/env bash
# Times sum(list_price * vrn.percstr_eval(discount, 1)) over a million-row
# price list against the same chain of discounts in PL/pgSQL, in one run of
# a throw-away cluster, and prints the ratio: pg/bench.sh [BUILD_DIR]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build}" && pwd)
. "$root/pg/cluster.sh"
# One backend alone: the ratio is of the work per row, not of the cores.
vrn_pg_start "$build/pg/stage" "shared_buffers = 256MB" "max_parallel_workers_per_gather = 0" "jit = off"
psql -X -q -f "$root/pg/bench.sql"
