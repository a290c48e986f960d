#!/usr/bin/env bash
# Calls per second of vrn_PercStrEval as an RPC through vrn-server (FreeTDS's
# DB-Library, bench/tds_rpc.cpp), and of SELECT vrn.percstr_eval('10+5-2', 1)
# through PostgreSQL with the extension (pgbench, prepared), both over
# loopback TCP with 1, 8 and 32 connections, taken in turns in one run; the
# in-process call through the host is the yardstick.
#   bench/tds-bench.sh [BUILD_DIR] [SECONDS]
# The build needs VRN_BENCH=ON and VRN_PG=ON.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build}" && pwd)
seconds=${2:-5}
counts=(1 8 32)
[ -d "$build/pg/stage" ] || { echo "tds-bench: build with -DVRN_PG=ON first" >&2; exit 1; }
. "$root/pg/cluster.sh"
vrn_pg_start "$build/pg/stage" "listen_addresses = '127.0.0.1'" "max_connections = 100"
work=$VRN_PG_DIR/tds  # removed with the cluster
mkdir -p "$work"
psql -X -q -c 'CREATE EXTENSION vrn'
echo "SELECT vrn.percstr_eval('10+5-2', 1);" >"$work/call.sql"
chmod -R a+rX "$work"
pgbench=$(pg_config --bindir)/pgbench

echo "bench:$(printf bench | "$build/host/vrn-server" --hash-password)" >"$work/users"
: >"$work/log"  # there before the server, so the first look never misses it
"$build/host/vrn-server" --lib "$build/libvrn.so" --listen 127.0.0.1:0 --users "$work/users" \
  --task-store "$work/tasks" 2>"$work/log" &
pid=$!
trap 'kill "$pid" 2>/dev/null; wait "$pid" 2>/dev/null; vrn_pg_stop' EXIT
for _ in $(seq 100); do
  port=$(sed -n 's/^vrn-server: listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$work/log")
  [ -n "$port" ] && break
  sleep 0.1
done
[ -n "$port" ] || { cat "$work/log" >&2; exit 1; }

export VRN_PASSWORD=bench
"$build/bench/tds_rpc" "$port" bench "$seconds" "$build/libvrn.so"
printf '%-12s %14s %14s %8s\n' connections vrn-server PostgreSQL ratio
for n in "${counts[@]}"; do
  ours=$("$build/bench/tds_rpc" "$port" bench "$seconds" - "$n" | awk '{ print $3 }')
  theirs=$("$pgbench" -n -M prepared -h 127.0.0.1 -p "$PGPORT" -U postgres -c "$n" -j "$n" -T "$seconds" \
    -f "$work/call.sql" postgres 2>&1 | awk '/^tps/ { printf "%.0f", $3 }')
  [ -n "$ours" ] && [ -n "$theirs" ] || { echo "tds-bench: a run failed" >&2; exit 1; }
  awk -v n="$n" -v a="$ours" -v b="$theirs" 'BEGIN { printf "%-12s %14s %14s %8.2f\n", n, a, b, a / b }'
done
