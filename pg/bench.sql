-- The benchmark of pg/bench.sh, on the coordinator of shards.sql: each
-- function over the million rows of price_list_local (the one cluster)
-- beside the scan alone, percstr_eval beside the same chain of discounts in
-- PL/pgSQL, and the sum over the shards beside the one cluster's.
\set ON_ERROR_STOP on

-- What one would write without the extension: the factor of a chain of
-- discounts (mode 1) of a normalised percentage string. A term after '-'
-- is a mark-up: the engine mirrors the discount's factor around 1, and the
-- same arithmetic here gives the same doubles.
CREATE FUNCTION discount_factor(discount text) RETURNS float8
LANGUAGE plpgsql IMMUTABLE STRICT PARALLEL SAFE AS $$
DECLARE
  factor float8 := 1.0;
  term text[];
BEGIN
  FOR term IN SELECT regexp_matches(discount, '([+-]?)([0-9]*\.?[0-9]+)', 'g') LOOP
    IF term[1] = '-' THEN
      factor := factor * (2.0 - (1.0 - term[2]::float8 / 100.0));
    ELSE
      factor := factor * (1.0 - term[2]::float8 / 100.0);
    END IF;
  END LOOP;
  RETURN factor;
END $$;

\ir best_ms.sql

SELECT count(*) AS rows FROM price_list_local \gset
-- The list's codes, prices and discounts alone, as narrow as the price list
-- of the yardstick before the shards came, which the scan's time depends on.
CREATE TABLE discounts AS SELECT item AS code, list_price, discount FROM price_list_local;
-- As many rows, each with a discount of its own: what a query pays when no
-- value it kept comes back.
CREATE TABLE unique_discounts AS
SELECT item AS code, list_price, i % 50 || '+' || i / 50 % 1000 || '.' || i / 50000 AS discount
FROM price_list_local, LATERAL (SELECT item - 1) AS n(i);
-- And each row with variables of its own.
CREATE TABLE unique_vars AS
SELECT item AS code, list_price, symb, jsonb_build_object('Cliente', item % 1000 || '+' || item / 1000, 'Articolo', 20)
       AS vars
FROM price_list_local;
VACUUM ANALYZE discounts, unique_discounts, unique_vars;
SELECT count(DISTINCT discount) AS distinct_discounts FROM discounts \gset
SELECT count(DISTINCT discount) AS unique_discounts FROM unique_discounts \gset
\echo discounts holds :distinct_discounts distinct discounts, unique_discounts :unique_discounts

\echo Both give the same factor, to the last bit, on every discount of the table:
SELECT count(*) AS rows, count(*) FILTER (WHERE vrn.percstr_eval(discount, 1) IS DISTINCT FROM discount_factor(discount))
       AS different
FROM discounts \gset
\echo :rows rows, :different different
SELECT :different = 0 AS same \gset
\if :same
\else
  \echo the PL/pgSQL function disagrees with vrn.percstr_eval
  \quit
\endif

\echo Milliseconds over :rows rows, best of the runs, one backend, no parallel workers, and the
\echo nanoseconds per row of each function beyond the scan:
CREATE TEMP TABLE queries (n int, what text, query text, scan int);
INSERT INTO queries VALUES
  (1, 'scan only, discounts', 'SELECT sum(list_price) FROM discounts', 1),
  (2, 'percstr_eval', 'SELECT sum(list_price * vrn.percstr_eval(discount, 1)) FROM discounts', 1),
  (3, 'scan only, unique_discounts', 'SELECT sum(list_price) FROM unique_discounts', 3),
  (4, 'percstr_eval', 'SELECT sum(list_price * vrn.percstr_eval(discount, 1)) FROM unique_discounts', 3),
  (5, 'scan only, price_list_local', 'SELECT sum(list_price) FROM price_list_local', 5),
  (6, 'pformula_eval', 'SELECT sum(vrn.pformula_eval(formula, list_price)) FROM price_list_local', 5),
  (7, 'percstr_normalize', 'SELECT sum(list_price), count(vrn.percstr_normalize(discount)) FROM price_list_local', 5),
  (8, 'percstr_symb_reduce', 'SELECT sum(list_price), count(vrn.percstr_symb_reduce(symb, vars, 1)) FROM price_list_local', 5),
  (9, 'scan only, unique_vars', 'SELECT sum(list_price) FROM unique_vars', 9),
  (10, 'percstr_symb_reduce', 'SELECT sum(list_price), count(vrn.percstr_symb_reduce(symb, vars, 1)) FROM unique_vars', 9);
CREATE TEMP TABLE timing AS
SELECT q.*, b.ms FROM queries AS q JOIN best_ms_each((SELECT array_agg(query ORDER BY n) FROM queries), 7) AS b USING (n);
INSERT INTO timing
SELECT 11, 'PL/pgSQL discount_factor', query, 1, best_ms(query, 2)
FROM (VALUES ('SELECT sum(list_price * discount_factor(discount)) FROM discounts')) AS q(query);
SELECT t.what AS "query", t.ms, round(t.ms / s.ms, 2) AS "x scan",
       round((t.ms - s.ms) * 1e6 / :rows) AS "ns/row beyond the scan"
FROM timing AS t JOIN timing AS s ON s.n = t.scan ORDER BY t.n;
SELECT ms AS scan FROM timing WHERE n = 1 \gset
SELECT (SELECT ms FROM timing WHERE what = 'PL/pgSQL discount_factor') AS plpgsql,
       (SELECT ms FROM timing WHERE n = 2) AS vrn \gset
SELECT round(:plpgsql / :vrn, 1) AS "PL/pgSQL over percstr_eval",
       round((:plpgsql - :scan) / (:vrn - :scan), 1) AS "the same beyond the scan";

\echo The same sum over two shards (postgres_fdw), grouped by the partition key so that each shard
\echo sums its own lists, beside the one cluster; and written as one sum, which PostgreSQL 15 does not
\echo ship, so that every row travels to the coordinator:
SET enable_partitionwise_aggregate = on;
\set eval_query 'SELECT sum(total) FROM (SELECT list_code, sum(list_price * vrn.percstr_eval(discount, 1)) AS total FROM %I GROUP BY list_code) AS lists'
\set scan_query 'SELECT sum(total) FROM (SELECT list_code, sum(list_price) AS total FROM %I GROUP BY list_code) AS lists'
SELECT "where", max(ms) FILTER (WHERE n % 2 = 1) AS "percstr_eval",
       max(ms) FILTER (WHERE n % 2 = 0) AS "scan only"
FROM best_ms_each(ARRAY[format(:'eval_query', 'price_list_local'), format(:'scan_query', 'price_list_local'),
                        format(:'eval_query', 'price_list'), format(:'scan_query', 'price_list'),
                        'SELECT sum(list_price * vrn.percstr_eval(discount, 1)) FROM price_list',
                        'SELECT sum(list_price) FROM price_list'], 7),
     LATERAL (SELECT (ARRAY['one cluster, grouped', 'two shards, grouped', 'two shards, one sum'])[(n + 1) / 2])
       AS w("where")
GROUP BY "where" ORDER BY min(n);
