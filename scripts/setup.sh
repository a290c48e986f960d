#!/usr/bin/env bash
# Installs what the build needs on a Debian machine, only where it is missing.
set -euo pipefail
need=()
for pkg in cmake g++ make libgtest-dev libgmock-dev libbenchmark-dev diffutils; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || need+=("$pkg")
done
if ((${#need[@]})); then
  sudo=""; [ "$(id -u)" -eq 0 ] || sudo=sudo
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${need[@]}"
fi
