# A throw-away PostgreSQL cluster with the extension, for the tests and the
# benchmark. Source it, then: vrn_pg_start STAGE [setting...]; it stops by
# itself when the shell exits, whichever way.
#
# The server finds its share and lib folders relative to its own program, so
# a copy of the programs in a temporary tree, with the system's share and lib
# linked in and the staged extension beside them, serves the extension
# without installing anything into the system: it works as root or not, and
# two work trees never meet. Root can't run a server: the postgres user
# runs it then, in folders of its own. Only a Unix socket, no TCP.

vrn_pg_stop() {
  if [ -n "${VRN_PG_DIR:-}" ] && [ -f "$VRN_PG_DIR/data/postmaster.pid" ]; then
    $VRN_PG_AS "$VRN_PG_TREE$VRN_PG_BINDIR/pg_ctl" -D "$VRN_PG_DIR/data" -m immediate -w stop >/dev/null 2>&1 || true
  fi
  [ -n "${VRN_PG_DIR:-}" ] && rm -rf "$VRN_PG_DIR"
  VRN_PG_DIR=
}

# vrn_pg_start STAGE [name=value...]: STAGE is the extension's DESTDIR
# installation; the settings go into postgresql.conf.
vrn_pg_start() {
  local stage=$1; shift
  local pg_config=${PG_CONFIG:-pg_config}
  VRN_PG_BINDIR=$($pg_config --bindir)
  local libdir sharedir
  libdir=$($pg_config --pkglibdir)
  sharedir=$($pg_config --sharedir)

  VRN_PG_DIR=$(mktemp -d "${TMPDIR:-/tmp}/vrn-pg.XXXXXX")
  trap vrn_pg_stop EXIT
  trap 'exit 130' INT TERM
  VRN_PG_TREE=$VRN_PG_DIR/tree
  mkdir -p "$VRN_PG_TREE$VRN_PG_BINDIR" "$VRN_PG_TREE$libdir" "$VRN_PG_TREE$sharedir/extension" "$VRN_PG_DIR/socket"
  cp "$VRN_PG_BINDIR/postgres" "$VRN_PG_BINDIR/initdb" "$VRN_PG_BINDIR/pg_ctl" "$VRN_PG_TREE$VRN_PG_BINDIR/"
  ln -s "$libdir"/* "$VRN_PG_TREE$libdir/"
  local entry
  for entry in "$sharedir"/*; do
    [ "$(basename "$entry")" = extension ] || ln -s "$entry" "$VRN_PG_TREE$sharedir/"
  done
  ln -s "$sharedir"/extension/* "$VRN_PG_TREE$sharedir/extension/"
  cp "$stage$libdir"/vrn.so "$VRN_PG_TREE$libdir/"
  cp "$stage$sharedir"/extension/vrn* "$VRN_PG_TREE$sharedir/extension/"

  VRN_PG_AS=
  if [ "$(id -u)" -eq 0 ]; then
    VRN_PG_AS="runuser -u postgres --"
    chown -R postgres: "$VRN_PG_DIR"
    chmod 755 "$VRN_PG_DIR"
  fi
  export PGHOST=$VRN_PG_DIR/socket PGPORT=54329 PGUSER=postgres PGDATABASE=postgres
  $VRN_PG_AS "$VRN_PG_TREE$VRN_PG_BINDIR/initdb" -D "$VRN_PG_DIR/data" -U postgres --auth=trust --no-sync \
    -E UTF8 --locale=C.UTF-8 >"$VRN_PG_DIR/initdb.log" 2>&1 || { cat "$VRN_PG_DIR/initdb.log" >&2; return 1; }
  {
    echo "listen_addresses = ''"
    echo "unix_socket_directories = '$PGHOST'"
    echo "port = $PGPORT"
    echo "fsync = off"
    local setting
    for setting in "$@"; do echo "$setting"; done
  } | $VRN_PG_AS tee -a "$VRN_PG_DIR/data/postgresql.conf" >/dev/null
  $VRN_PG_AS "$VRN_PG_TREE$VRN_PG_BINDIR/pg_ctl" -D "$VRN_PG_DIR/data" -l "$VRN_PG_DIR/server.log" -w start \
    >/dev/null || { cat "$VRN_PG_DIR/server.log" >&2; return 1; }
}
