#!/usr/bin/env bash
# Real SQL client drivers against vrn-server:  tests/clients/run.sh BUILD_DIR [tls]
# Starts a server of its own on a free port of 127.0.0.1, in a temporary folder
# with one user and a task store, takes the expected answers from vrn-exec, then
# runs tsql, pyodbc (FreeTDS ODBC), tedious and jTDS one after another.
# tls: the server has a certificate made here, and every client encrypts.
# Exit status 1 when any client failed, 77 when a client isn't installed
# (scripts/setup.sh clients installs them), but in CI, where that fails too.
set -euo pipefail
build=$(cd "$1" && pwd)
mode=${2:-plain}
here=$(cd "$(dirname "$0")" && pwd)
missing() { echo "not installed: $1 (scripts/setup.sh clients)"; [ -n "${CI:-}" ] && exit 1; exit 77; }
for need in /usr/bin/tsql /usr/lib/x86_64-linux-gnu/odbc/libtdsodbc.so /usr/share/java/jtds.jar \
            "$here/node/node_modules/tedious"; do
  [ -e "$need" ] || missing "$need"
done
/usr/bin/python3 -c 'import pyodbc' 2>/dev/null || missing python3-pyodbc
command -v javac >/dev/null && command -v node >/dev/null || missing "javac or node"
[ "$mode" = plain ] || command -v openssl >/dev/null || missing openssl
work=$(mktemp -d)
server=
stop_server() {
  [ -n "$server" ] || return 0
  kill "$server" 2>/dev/null || true
  for _ in $(seq 50); do kill -0 "$server" 2>/dev/null || break; sleep 0.1; done
  kill -KILL "$server" 2>/dev/null && echo "vrn-server did not stop on SIGTERM"
  server=
}
trap 'stop_server; rm -rf "$work"' EXIT

export VRN_USER=vrn_tester VRN_PASSWORD="pw$RANDOM$RANDOM" VRN_EXPECTED=$work/expected.json VRN_WORK=$work/server
mkdir "$work/server"
printf '%s\n' "$VRN_PASSWORD" | "$build/host/vrn-server" --hash-password | sed "s/^/$VRN_USER:/" > "$work/users"
/usr/bin/python3 "$here/expect.py" "$build/host/vrn-exec" "$work/reference-tasks" "$here/scenarios.json" "$VRN_EXPECTED"

tls=()
if [ "$mode" = tls ]; then
  openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=127.0.0.1 -days 2 \
    -keyout "$work/key.pem" -out "$work/cert.pem" 2>/dev/null
  tls=(--tls-cert "$work/cert.pem" --tls-key "$work/key.pem")
  export VRN_TLS=1
  printf '[global]\n\tencryption = require\n' > "$work/freetds.conf"
  export FREETDSCONF=$work/freetds.conf
fi

: >"$work/server.log"  # there before the server, so the first look never misses it
(cd "$work/server" && exec "$build/host/vrn-server" --lib "$build/libvrn.so" --listen 127.0.0.1:0 \
  --users "$work/users" --task-store "$work/tasks" "${tls[@]}") 2> "$work/server.log" &
server=$!
VRN_PORT=
for _ in $(seq 100); do
  VRN_PORT=$(sed -n 's/^\(vrn-server: \)\{0,1\}listening on 127\.0\.0\.1:\([0-9]\{1,5\}\)$/\2/p' "$work/server.log")
  [ -z "$VRN_PORT" ] && kill -0 "$server" 2>/dev/null || break
  sleep 0.1
done
[ -n "$VRN_PORT" ] || { echo "vrn-server did not start:"; cat "$work/server.log"; exit 1; } >&2
export VRN_PORT

# tsql: batches typed at its prompt, and the text each must print.
tsql_smoke() {
  local passed=0 failed=0 version batch want out
  while IFS='|' read -r version batch want; do
    out=$(printf '%b\ngo\nexit\n' "$batch" | LC_ALL=C.UTF-8 TDSVER=$version timeout 30 \
      tsql -H 127.0.0.1 -p "$VRN_PORT" -U "$VRN_USER" -P "$VRN_PASSWORD" -o q 2>&1) || true
    if grep -qF -- "$want" <<< "$out"; then
      passed=$((passed + 1)); echo "ok   tsql $version $want"
    else
      failed=$((failed + 1)); echo "FAIL tsql $version $want: got"; echo "$out"
    fi
  done <<'EOF'
7.4|DECLARE @o varchar(30)\nEXEC vrn_PercStrNormalize '10,5+5', @o OUTPUT\nSELECT @o AS o|10.5+5
7.3|DECLARE @r float\nEXEC vrn_PercStrEval '1+2+3+4+5+6+7+8+9+100', @r OUTPUT, 0|Il parametro 1 è troppo lungo: 21 (max 20).
7.1|DECLARE @o varchar(100)\nEXEC vrn_PFormula_Normalize '=100 22% -5& AC(2)', @o OUTPUT\nSELECT @o AS o|=100 +22% -5& AC(2)
7.2|EXEC vrn_NoSuchProc|Could not find stored procedure 'vrn_NoSuchProc'.
7.4|vrn_PercStrSymb_ReleaseMutex\nPRINT 'released'|released
EOF
  echo "$passed passed, $failed failed"
  [ "$failed" -eq 0 ]
}

# Under TLS: login-only encryption (the client asks it off, the server has a
# certificate) works; a client that can't encrypt is turned away.
tsql_encryption() {
  local failed=0 level want out
  for level in request off; do
    printf '[global]\n\tencryption = %s\n' "$level" > "$work/freetds-$level.conf"
    out=$(printf 'EXEC vrn_PercStrSymb_ReleaseMutex\nPRINT %s\ngo\nexit\n' "'in $level'" | FREETDSCONF=$work/freetds-$level.conf \
      TDSVER=7.4 timeout 30 tsql -H 127.0.0.1 -p "$VRN_PORT" -U "$VRN_USER" -P "$VRN_PASSWORD" -o q 2>&1) || true
    want="in $level"; [ "$level" = off ] && want="connection failed"
    if grep -qF -- "$want" <<< "$out"; then echo "ok   tsql encryption=$level"; else
      failed=1; echo "FAIL tsql encryption=$level: got"; echo "$out"; fi
  done
  grep -q "won't encrypt" "$work/server.log" || { failed=1; echo "FAIL the refusal is not in the log"; }
  return "$failed"
}

status=0
client() { echo "== $1"; shift; "$@" || status=1; }
client tsql tsql_smoke
[ "$mode" = tls ] && client "tsql encryption" tsql_encryption
client pyodbc timeout 300 /usr/bin/python3 "$here/python/scenarios.py"
client tedious timeout 300 node --test-reporter=tap "$here/node/scenarios.test.js"
javac -nowarn -d "$work/java" -cp /usr/share/java/jtds.jar "$here/java/Scenarios.java"
client jTDS timeout 300 java -cp "$work/java:/usr/share/java/jtds.jar" Scenarios
stop_server
# A sanitizer build's server reports there, and leaks only when it ends.
grep -q -e 'Sanitizer' -e 'runtime error' "$work/server.log" && status=1
if [ "$status" -ne 0 ]; then echo "== vrn-server's log (last 40 lines)"; tail -n 40 "$work/server.log"; fi
exit "$status"
