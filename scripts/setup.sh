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
# The Windows side: cross compiler (posix threads, for std::thread and std::mutex),
# the gtest sources to cross-build, and wine to run the result. Recommends would
# pull in a desktop's worth of graphics and sound; a headless run needs none of it.
need=()
for pkg in g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 googletest wine64 wine; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || need+=("$pkg")
done
if ((${#need[@]})); then
  sudo=""; [ "$(id -u)" -eq 0 ] || sudo=sudo
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${need[@]}"
fi
# PostgreSQL: the server to test the extension in, and its build support (PGXS).
need=()
for pkg in postgresql-15 postgresql-server-dev-15; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || need+=("$pkg")
done
if ((${#need[@]})); then
  sudo=""; [ "$(id -u)" -eq 0 ] || sudo=sudo
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${need[@]}"
fi
