# Throw-away PostgreSQL clusters with the extension, for the tests and the
# benchmark. Source it, then either vrn_pg_start STAGE [setting...] for one
# cluster, or vrn_pg_shards STAGE [setting...] for a coordinator and two
# shards (PGHOST and the rest point at the one, or the coordinator). They
# stop by themselves when the shell exits, whichever way.
#
# The server finds its share and lib folders relative to its own program, so
# a copy of the programs in a temporary tree, with the system's share and lib
# linked in and the staged extension beside them, serves the extension
# without installing anything into the system: it works as root or not, and
# two work trees never meet. Root can't run a server: the postgres user
# runs it then, in folders of its own. Only Unix sockets, no TCP.

VRN_PG_CLUSTERS=()

vrn_pg_stop() {
  local name
  for name in "${VRN_PG_CLUSTERS[@]}"; do
    # A backend that died takes the others down with it: say which and how.
    if grep -qE 'terminated by signal|exited with exit code|PANIC' "$VRN_PG_DIR/$name.log" 2>/dev/null; then
      echo "--- $name: the server log from the first fault" >&2
      sed -n '/terminated by signal\|exited with exit code\|PANIC/,$p' "$VRN_PG_DIR/$name.log" | head -n 40 >&2
    fi
    if [ -f "$VRN_PG_DIR/$name/postmaster.pid" ]; then
      $VRN_PG_AS "$VRN_PG_TREE$VRN_PG_BINDIR/pg_ctl" -D "$VRN_PG_DIR/$name" -m immediate -w stop >/dev/null 2>&1 || true
    fi
  done
  VRN_PG_CLUSTERS=()
  [ -n "${VRN_PG_DIR:-}" ] && rm -rf "$VRN_PG_DIR"
  VRN_PG_DIR=
}

# vrn_pg_tree STAGE: the folder of the clusters, with the programs' tree and
# the socket folder ($VRN_PG_DIR/socket). STAGE is the extension's DESTDIR
# installation.
vrn_pg_tree() {
  local stage=$1
  local pg_config=${PG_CONFIG:-pg_config}
  VRN_PG_BINDIR=$($pg_config --bindir)
  local libdir sharedir
  libdir=$($pg_config --pkglibdir)
  sharedir=$($pg_config --sharedir)

  VRN_PG_DIR=$(mktemp -d "${TMPDIR:-/tmp}/vrn-pg.XXXXXX")
  trap vrn_pg_stop EXIT
  trap 'exit 130' INT TERM
  VRN_PG_TREE=$VRN_PG_DIR/tree
  VRN_PG_SOCKET=$VRN_PG_DIR/socket
  mkdir -p "$VRN_PG_TREE$VRN_PG_BINDIR" "$VRN_PG_TREE$libdir" "$VRN_PG_TREE$sharedir/extension" "$VRN_PG_SOCKET"
  cp "$VRN_PG_BINDIR/postgres" "$VRN_PG_BINDIR/initdb" "$VRN_PG_BINDIR/pg_ctl" "$VRN_PG_TREE$VRN_PG_BINDIR/"
  ln -s "$libdir"/* "$VRN_PG_TREE$libdir/"
  local entry
  for entry in "$sharedir"/*; do
    [ "$(basename "$entry")" = extension ] || ln -s "$entry" "$VRN_PG_TREE$sharedir/"
  done
  ln -s "$sharedir"/extension/* "$VRN_PG_TREE$sharedir/extension/"
  # An extension installed into the server's own folders comes in with the
  # links: unlink it first, or cp writes through the link into the system's
  # file while other clusters have it mapped (they die of SIGBUS).
  rm -f "$VRN_PG_TREE$libdir"/vrn.so "$VRN_PG_TREE$sharedir"/extension/vrn[-.]*
  cp "$stage$libdir"/vrn.so "$VRN_PG_TREE$libdir/"
  cp "$stage$sharedir"/extension/vrn* "$VRN_PG_TREE$sharedir/extension/"

  VRN_PG_AS=
  if [ "$(id -u)" -eq 0 ]; then
    VRN_PG_AS="runuser -u postgres --"
    chown -R postgres: "$VRN_PG_DIR"
    chmod 755 "$VRN_PG_DIR"
  fi
}

# vrn_pg_cluster NAME PORT [name=value...]: a cluster in $VRN_PG_DIR/NAME on
# the socket of PORT, started; the settings go into postgresql.conf.
vrn_pg_cluster() {
  local name=$1 port=$2; shift 2
  local data=$VRN_PG_DIR/$name
  VRN_PG_CLUSTERS+=("$name")
  $VRN_PG_AS "$VRN_PG_TREE$VRN_PG_BINDIR/initdb" -D "$data" -U postgres --auth=trust --no-sync \
    -E UTF8 --locale=C.UTF-8 >"$VRN_PG_DIR/$name-initdb.log" 2>&1 || { cat "$VRN_PG_DIR/$name-initdb.log" >&2; return 1; }
  {
    echo "listen_addresses = ''"
    echo "unix_socket_directories = '$VRN_PG_SOCKET'"
    echo "port = $port"
    echo "fsync = off"
    local setting
    for setting in "$@"; do echo "$setting"; done
  } | $VRN_PG_AS tee -a "$data/postgresql.conf" >/dev/null
  $VRN_PG_AS "$VRN_PG_TREE$VRN_PG_BINDIR/pg_ctl" -D "$data" -l "$VRN_PG_DIR/$name.log" -w start \
    >/dev/null || { cat "$VRN_PG_DIR/$name.log" >&2; return 1; }
}

# vrn_pg_start STAGE [name=value...]: one cluster, the default of psql.
vrn_pg_start() {
  local stage=$1; shift
  vrn_pg_tree "$stage"
  export PGHOST=$VRN_PG_SOCKET PGPORT=54329 PGUSER=postgres PGDATABASE=postgres
  vrn_pg_cluster data "$PGPORT" "$@"
}

# vrn_pg_shards STAGE [name=value...]: a coordinator (the default of psql)
# and two shards, each with the extension; on the coordinator postgres_fdw
# and the servers shard1 and shard2, which may ship the extension's
# functions and scan at the same time, and on each shard the empty table
# price_list_part that shards.sql partitions over them.
vrn_pg_shards() {
  local stage=$1; shift
  vrn_pg_tree "$stage"
  export PGHOST=$VRN_PG_SOCKET PGPORT=54340 PGUSER=postgres PGDATABASE=postgres
  local shard
  for shard in 1 2; do
    vrn_pg_cluster "shard$shard" $((PGPORT + shard)) "$@"
    psql -X -q -v ON_ERROR_STOP=1 -p $((PGPORT + shard)) <<'SQL'
CREATE EXTENSION vrn;
CREATE TABLE price_list_part (list_code int, item int, list_price float8, discount text, formula text,
                              symb text, vars jsonb);
SQL
  done
  vrn_pg_cluster coordinator "$PGPORT" "$@"
  psql -X -q -v ON_ERROR_STOP=1 -v socket="$VRN_PG_SOCKET" -v port="$PGPORT" <<'SQL'
CREATE EXTENSION vrn;
CREATE EXTENSION postgres_fdw;
SELECT :port + 1 AS port1, :port + 2 AS port2 \gset
CREATE SERVER shard1 FOREIGN DATA WRAPPER postgres_fdw OPTIONS (host :'socket', port :'port1', dbname 'postgres',
    extensions 'vrn', async_capable 'true', batch_size '1000', fetch_size '10000');
CREATE SERVER shard2 FOREIGN DATA WRAPPER postgres_fdw OPTIONS (host :'socket', port :'port2', dbname 'postgres',
    extensions 'vrn', async_capable 'true', batch_size '1000', fetch_size '10000');
CREATE USER MAPPING FOR CURRENT_USER SERVER shard1 OPTIONS (user 'postgres');
CREATE USER MAPPING FOR CURRENT_USER SERVER shard2 OPTIONS (user 'postgres');
SQL
}

# vrn_pg_shards_load ROWS: the price lists of shards.sql, with the statistics
# of the shards' tables and of their foreign partitions.
vrn_pg_shards_load() {
  psql -X -q -v rows="$1" -f "$(dirname "${BASH_SOURCE[0]}")/shards.sql"
  local shard
  for shard in 1 2; do psql -X -q -p $((PGPORT + shard)) -c 'VACUUM ANALYZE price_list_part'; done
  psql -X -q -c 'ANALYZE price_list'
}
