#!/usr/bin/env bash
# A machine with pg_config but without the server's headers (the client
# package alone): a plain configure skips the extension with one line, and
# VRN_PG=ON fails. pg/configure-test.sh SOURCE_DIR
set -euo pipefail
source_dir=$1
work=$(mktemp -d "${TMPDIR:-/tmp}/vrn-pgcfg.XXXXXX")
trap 'rm -rf "$work"' EXIT
cat >"$work/pg_config" <<'FAKE'
#!/bin/sh
case "$1" in
  --includedir-server) echo /nonexistent/server ;;
  *) exec pg_config "$@" ;;
esac
FAKE
chmod +x "$work/pg_config"
options=(-DVRN_TESTS=OFF -DVRN_BENCH=OFF "-DVRN_PG_CONFIG=$work/pg_config")

cmake -S "$source_dir" -B "$work/plain" "${options[@]}" >"$work/plain.log" 2>&1 || {
  cat "$work/plain.log"; echo "a plain configure failed without the server's headers"; exit 1; }
grep -q -- "-- PostgreSQL extension skipped: no postgres.h in '/nonexistent/server'" "$work/plain.log" || {
  cat "$work/plain.log"; echo "no line saying why the extension is skipped"; exit 1; }
if cmake -S "$source_dir" -B "$work/forced" "${options[@]}" -DVRN_PG=ON >"$work/forced.log" 2>&1; then
  cat "$work/forced.log"; echo "VRN_PG=ON configured without the server's headers"; exit 1
fi
grep -q "VRN_PG=ON, but the PostgreSQL extension can't be built" "$work/forced.log"
echo "skipped without the headers, refused with VRN_PG=ON"
