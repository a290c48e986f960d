#!/usr/bin/env bash
# The service's unit files pass systemd-analyze verify, pointed at this build's
# programs: tests/host/units.sh SOURCE_DIR VRN_SERVER VRN_EXEC. Skipped (77)
# where systemd isn't installed.
set -euo pipefail
command -v systemd-analyze >/dev/null || { echo "no systemd-analyze here"; exit 77; }
source=$1 server=$(realpath "$2") exec=$(realpath "$3")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for unit in vrn-server.service vrn-run-due.service vrn-run-due.timer; do
  sed -e "s|/opt/vrn/vrn-server|$server|" -e "s|/opt/vrn/vrn-exec|$exec|" "$source/host/$unit" > "$work/$unit"
done
out=$(cd "$work" && systemd-analyze verify ./vrn-server.service ./vrn-run-due.service ./vrn-run-due.timer 2>&1) || { echo "$out"; exit 1; }
# verify only warns about some slips: any line it prints is one.
[ -z "$out" ] || { echo "$out"; exit 1; }
echo "ok   the unit files verify"
