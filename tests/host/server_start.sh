#!/usr/bin/env bash
# vrn-server refuses to start where it would run unsafely or couldn't encrypt:
# tests/host/server_start.sh VRN_SERVER. Each case must exit 1 (2 for a usage
# error) with a line that says why, before it listens anywhere.
set -euo pipefail
server=$(realpath "$1")
command -v openssl >/dev/null || { echo "openssl is not installed (scripts/setup.sh tests)"; [ -n "${CI:-}" ] && exit 1; exit 77; }
work=$(mktemp -d)
pid=
trap '[ -n "$pid" ] && kill "$pid" 2>/dev/null; rm -rf "$work"' EXIT
cd "$work"

echo "pw$RANDOM" | "$server" --hash-password | sed "s/^/u:/" > users
cert() {  # cert NAME: a self-signed certificate NAME.pem and its key NAME.key
  openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=127.0.0.1 -days 2 -keyout "$1.key" -out "$1.pem" 2>/dev/null
}
cert good
cert other
# One that expired years ago: openssl ca takes any dates, req -x509 only days ahead.
mkdir ca && : > ca/index.txt && echo 01 > ca/serial
printf '[ca]\ndefault_ca=old\n[old]\ndatabase=ca/index.txt\nnew_certs_dir=ca\nserial=ca/serial\ndefault_md=sha256\npolicy=any\n[any]\ncommonName=supplied\n' > ca.conf
openssl req -new -newkey rsa:2048 -nodes -subj /CN=127.0.0.1 -keyout old.key -out old.csr 2>/dev/null
openssl ca -batch -config ca.conf -selfsign -keyfile old.key -in old.csr -out old.pem \
  -startdate 20200101000000Z -enddate 20200102000000Z 2>/dev/null
echo "not a certificate" > junk.pem

failed=0
# status|what the line must say|arguments
while IFS='|' read -r want text args; do
  read -ra argv <<< "$args"
  set +e
  out=$(timeout 10 "$server" --users users --listen 127.0.0.1:0 "${argv[@]}" 2>&1 </dev/null)
  got=$?
  set -e
  if [ "$got" -eq "$want" ] && grep -qF -- "$text" <<< "$out" && ! grep -q "listening on" <<< "$out"; then
    echo "ok   $args"
  else
    failed=1; echo "FAIL $args: exit $got, said:"; echo "$out"
  fi
done <<'EOF_CASES'
1|expired on Jan  2 00:00:00 2020 GMT|--tls-cert old.pem --tls-key old.key
1|does not match the certificate|--tls-cert good.pem --tls-key other.key
1|cannot read the TLS certificate missing.pem: No such file|--tls-cert missing.pem --tls-key good.key
1|cannot read the TLS key missing.key|--tls-cert good.pem --tls-key missing.key
1|is not a PEM certificate|--tls-cert junk.pem --tls-key good.key
1|is not a PEM private key|--tls-cert good.pem --tls-key junk.pem
2|--tls-cert and --tls-key go together|--tls-cert good.pem
1|will not listen on 0.0.0.0:0 without TLS|--listen 0.0.0.0:0
1|will not listen on 192.0.2.1:1433 without TLS|--listen 192.0.2.1:1433
EOF_CASES

# And a good pair starts, on loopback.
: > log
"$server" --users users --listen 127.0.0.1:0 --tls-cert good.pem --tls-key good.key 2> log &
pid=$!
for _ in $(seq 50); do grep -q "listening on" log && break; kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
if grep -q "listening on 127.0.0.1:" log && grep -q "clients encrypt" log; then echo "ok   a good certificate"; else
  failed=1; echo "FAIL a good certificate:"; cat log; fi
kill "$pid"; wait "$pid" 2>/dev/null || true; pid=
exit "$failed"
