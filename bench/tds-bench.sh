#!/usr/bin/env bash
# Round trips per second of vrn_PercStrEval through vrn-server on loopback,
# with 1 and 8 connections (FreeTDS's ODBC driver), beside the same call in process.
#   bench/tds-bench.sh [BUILD_DIR] [SECONDS]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build}" && pwd)
seconds=${2:-5}
work=$(mktemp -d)
pid=
trap '[ -n "$pid" ] && kill "$pid" 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT
echo "bench:$(printf bench | "$build/host/vrn-server" --hash-password)" >"$work/users"
: >"$work/log"  # there before the server, so the first look never misses it
"$build/host/vrn-server" --lib "$build/libvrn.so" --listen 127.0.0.1:0 --users "$work/users" \
  --task-store "$work/tasks" 2>"$work/log" &
pid=$!
for _ in $(seq 100); do
  port=$(sed -n 's/^vrn-server: listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$work/log")
  [ -n "$port" ] && break
  sleep 0.1
done
[ -n "$port" ] || { cat "$work/log" >&2; exit 1; }
VRN_PASSWORD=bench "$build/bench/tds_rpc" "$port" bench "$seconds" "$build/libvrn.so" 1 8
