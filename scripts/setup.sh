#!/usr/bin/env bash
# Installs what the build needs on a Debian machine, only where it is missing.
#   scripts/setup.sh [PART...]   parts: build, tests, fuzz, windows, pg, clients; none: all
# build: the library, vrn-exec and vrn-server. tests: GoogleTest and Google Benchmark.
# fuzz: clang with libFuzzer. windows: the cross compiler and wine.
# pg: a PostgreSQL server to test the extension in, and its build support.
# clients: the SQL client drivers that tests/clients/run.sh drives vrn-server with,
# and FreeTDS's C library for bench/tds-bench.sh.
set -euo pipefail
parts=("$@")
((${#parts[@]})) || parts=(build tests fuzz windows pg clients)

install() {  # install [--no-install-recommends] PACKAGE...
  local options=()
  [ "$1" = --no-install-recommends ] && { options+=("$1"); shift; }
  local need=()
  for pkg in "$@"; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || need+=("$pkg")
  done
  ((${#need[@]})) || return 0
  local sudo=""; [ "$(id -u)" -eq 0 ] || sudo=sudo
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${options[@]}" "${need[@]}"
}

for part in "${parts[@]}"; do
  case $part in
    build) install cmake g++ make libssl-dev ;;
    tests) install libgtest-dev libgmock-dev libbenchmark-dev valgrind diffutils openssl ;;
    fuzz) install clang-14 libclang-rt-14-dev ;;
    # The cross compiler with posix threads (for std::thread and std::mutex), the
    # gtest sources to cross-build, and wine to run the result. Recommends would
    # pull in a desktop's worth of graphics and sound; a headless run needs none.
    windows) install --no-install-recommends g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 googletest wine64 wine ;;
    pg) install --no-install-recommends postgresql-15 postgresql-server-dev-15 ;;
    # Debian's npm conflicts with a nodejs that brings its own npm: keep that one.
    clients)
      install freetds-bin freetds-dev tdsodbc unixodbc python3-pyodbc libjtds-java default-jdk-headless nodejs openssl
      command -v npm >/dev/null || install npm
      (cd "$(dirname "$0")/../tests/clients/node" && npm ci --no-audit --no-fund --loglevel=error) ;;
    *) echo "unknown part: $part (build, tests, fuzz, windows, pg, clients)" >&2; exit 2 ;;
  esac
done
