#!/usr/bin/env bash
# Runs a golden script through vrn-server instead of the library: golden.cmake
# calls it as the EMULATOR of "vrn-exec --lib LIB [OPTIONS] SCRIPT". It starts
# vrn-server on a free loopback port in the script's folder (the instance and
# task store the script would have), and runs vrn-exec as its client with
# TDS_VERSION; the server stops on every way out.
set -euo pipefail
server=$VRN_SERVER
exec=$1; shift
lib= instance=() options=()
while (($# > 1)); do
  case $1 in
    --lib) lib=$2; shift 2 ;;
    --instance) instance=(--instance "$2"); shift 2 ;;
    *) options+=("$1"); shift ;;
  esac
done
script=$1
work=$(mktemp -d "$PWD/server.XXXXXX")
pid=
stop() { [ -n "$pid" ] && kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null; rm -rf "$work"; }
trap stop EXIT
echo "golden:$(printf 'golden' | "$server" --hash-password)" >"$work/users"
: >"$work/log"  # there before the server, so the first look never misses it
"$server" --lib "$lib" --listen 127.0.0.1:0 --users "$work/users" --task-store "$VRN_TASK_STORE" \
  "${instance[@]}" 2>"$work/log" &
pid=$!
for _ in $(seq 100); do
  port=$(sed -n 's/^vrn-server: listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$work/log")
  [ -n "$port" ] && break
  kill -0 "$pid" 2>/dev/null || { cat "$work/log" >&2; exit 1; }
  sleep 0.1
done
[ -n "$port" ] || { echo "vrn-server did not start" >&2; exit 1; }
VRN_PASSWORD=golden "$exec" --server "127.0.0.1:$port" --user golden --tds "$TDS_VERSION" "${options[@]}" "$script"
