#!/usr/bin/env bash
# Calls per second of vrn_PercStrEval as an RPC through vrn-server (FreeTDS's
# DB-Library, bench/tds_rpc.cpp), and of SELECT vrn.percstr_eval('10+5-2', 1)
# through PostgreSQL with the extension (pgbench, prepared), both over
# loopback TCP with 1, 8 and 32 connections, taken in turns in one run, the
# best of ROUNDS turns each; beside each rate, the server's processor time
# per call (vrn-server's threads; the backends of PostgreSQL). The in-process
# call through the host is the yardstick.
#   bench/tds-bench.sh [BUILD_DIR] [SECONDS] [ROUNDS]
# The build needs VRN_BENCH=ON and VRN_PG=ON.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build}" && pwd)
seconds=${2:-3}
rounds=${3:-3}
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
ticks=$(getconf CLK_TCK)
postmaster=$(head -n 1 "$VRN_PG_DIR/data/postmaster.pid")
cpu() {  # PID -> its processor time and that of its children gone, in ticks
  awk '{ print $14 + $15 + $16 + $17 }' "/proc/$1/stat"
}
# One run of each side: calls per second, and microseconds of processor
# per call of the server and of the client (PostgreSQL's with its backends'
# start, which trust authentication keeps to a few milliseconds each; ours
# from when every connection has logged in).
TIMEFORMAT='%U %S'
ours() {
  local out clock
  clock=$( { time VRN_SERVER_PID=$pid "$build/bench/tds_rpc" "$port" bench "$seconds" - "$1" >"$work/ours"; } 2>&1)
  out=$(sed -n 's/.* \([0-9]*\) calls\/s .*server.s \([0-9.]*\) µs a call.*/\1 \2/p' "$work/ours")
  [ -n "$out" ] || return 0
  echo "$out $clock" | awk -v s="$seconds" '{ printf "%s %s %.1f", $1, $2, ($3 + $4) * 1e6 / ($1 * s) }'
}
theirs() {
  local before after rate clock
  before=$(cpu "$postmaster")
  clock=$( { time "$pgbench" -n -M prepared -h 127.0.0.1 -p "$PGPORT" -U postgres -c "$1" -j "$1" -T "$seconds" \
    -f "$work/call.sql" postgres >"$work/theirs" 2>&1; } 2>&1)
  rate=$(awk '/^tps/ { printf "%.0f", $3 }' "$work/theirs")
  [ -n "$rate" ] || return 0
  sleep 0.2  # the backends gone, their time is the postmaster's
  after=$(cpu "$postmaster")
  echo "$clock" | awk -v r="$rate" -v t=$((after - before)) -v hz="$ticks" -v s="$seconds" \
    '{ printf "%.0f %.1f %.1f", r, t / hz * 1e6 / (r * s), ($1 + $2) * 1e6 / (r * s) }'
}

"$build/bench/tds_rpc" "$port" bench "$seconds" "$build/libvrn.so"
echo "calls per second, and microseconds of processor a call: the server's (vrn-server / PostgreSQL)"
echo "and the client's (FreeTDS / pgbench)"
printf '%-11s %11s %11s %6s  %-15s %-15s\n' connections vrn-server PostgreSQL ratio 'server µs' 'client µs'
for n in "${counts[@]}"; do
  # The best of a few turns each: a busy machine only ever slows a run down.
  best_ours=(0 0 0) best_theirs=(0 0 0)
  for _ in $(seq "$rounds"); do
    read -r -a run <<<"$(ours "$n")"
    [ -n "${run[0]:-}" ] && [ "${run[0]}" -gt "${best_ours[0]}" ] && best_ours=("${run[@]}")
    read -r -a run <<<"$(theirs "$n")"
    [ -n "${run[0]:-}" ] && [ "${run[0]}" -gt "${best_theirs[0]}" ] && best_theirs=("${run[@]}")
  done
  [ "${best_ours[0]}" -gt 0 ] && [ "${best_theirs[0]}" -gt 0 ] || { echo "tds-bench: a run failed" >&2; exit 1; }
  awk -v n="$n" -v a="${best_ours[*]}" -v b="${best_theirs[*]}" 'BEGIN {
    split(a, o, " "); split(b, t, " ")
    printf "%-11s %11s %11s %6.2f  %-15s %-15s\n", n, o[1], t[1], o[1] / t[1], o[2] " / " t[2], o[3] " / " t[3] }'
done
