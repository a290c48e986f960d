-- The checks of pg/shards.sh on the coordinator, after shards.sql: the
-- shards do the work, and give what the one cluster gives.
\set ON_ERROR_STOP on
SET enable_partitionwise_aggregate = on;

CREATE FUNCTION check_that(ok bool, what text) RETURNS void LANGUAGE plpgsql AS $$
BEGIN
  IF ok IS NOT TRUE THEN RAISE EXCEPTION 'failed: %', what; END IF;
  RAISE NOTICE 'ok: %', what;
END $$;

-- The plan of a query, one text.
CREATE FUNCTION plan_of(query text) RETURNS text LANGUAGE plpgsql AS $$
DECLARE
  line text;
  plan text := '';
BEGIN
  FOR line IN EXECUTE 'EXPLAIN (VERBOSE, COSTS OFF) ' || query LOOP
    plan := plan || line || E'\n';
  END LOOP;
  RETURN plan;
END $$;

-- How many of the plan's remote statements match a pattern.
CREATE FUNCTION remote_sql_count(query text, pattern text) RETURNS int LANGUAGE sql AS $$
  SELECT regexp_count(plan_of(query), 'Remote SQL: [^\n]*' || pattern)
$$;

-- The queries a user writes, over a table (price_list or price_list_local).
CREATE FUNCTION user_query(what text, tab text) RETURNS text LANGUAGE sql AS $$
  SELECT format(CASE what
    WHEN 'filter' THEN 'SELECT list_code, item FROM %I WHERE vrn.percstr_eval(discount, 1) < 0.8'
    -- Grouped by the partition key, each shard aggregates its own lists.
    WHEN 'percstr' THEN 'SELECT list_code, sum((list_price * vrn.percstr_eval(discount, 1))::numeric) AS total
                         FROM %I GROUP BY list_code'
    WHEN 'pformula' THEN 'SELECT list_code, sum(vrn.pformula_eval(formula, list_price)::numeric) AS total
                          FROM %I GROUP BY list_code'
    WHEN 'symbolic' THEN 'SELECT list_code, sum(vrn.percstr_eval(vrn.percstr_symb_reduce(symb, vars, 1), 1)::numeric)
                          AS total FROM %I GROUP BY list_code'
  END, tab)
$$;

CREATE FUNCTION query_rows(query text) RETURNS TABLE (list_code int, total numeric) LANGUAGE plpgsql AS $$
BEGIN
  RETURN QUERY EXECUTE query;
END $$;

SELECT check_that(remote_sql_count(user_query(what, 'price_list'), pattern) = 2,
                  format('both shards run the %s query', what))
FROM (VALUES ('filter', 'WHERE \(\(vrn\.percstr_eval\(discount, 1\) < '),
             ('percstr', 'sum\(\(list_price \* vrn\.percstr_eval\(discount, 1\)\)::numeric\)[^\n]* GROUP BY 1'),
             ('pformula', 'sum\(vrn\.pformula_eval\(formula, list_price\)::numeric\)[^\n]* GROUP BY 1'),
             ('symbolic', 'vrn\.percstr_symb_reduce\(symb, vars, 1\)[^\n]* GROUP BY 1')) AS q(what, pattern);
SELECT check_that(regexp_count(plan_of(user_query('percstr', 'price_list')), 'Async Foreign Scan') = 2,
                  'the shards scan at the same time');

SELECT check_that(count(*) = 2 AND min(n) > 0, format('each shard holds part of the rows: %s', string_agg(n::text, ', ')))
FROM (SELECT tableoid, count(*) AS n FROM price_list GROUP BY tableoid) AS parts;

-- Per list and in all: a numeric sum has no order of addition to differ by.
SELECT check_that(sharded.n = 64 AND sharded.lists = one.lists AND sharded.total = one.total,
                  format('the %s sums of the shards are those of one cluster: %s', what, sharded.total))
FROM (VALUES ('percstr'), ('pformula'), ('symbolic')) AS q(what),
     LATERAL (SELECT count(*) AS n, array_agg(ROW(list_code, total) ORDER BY list_code)::text AS lists, sum(total)
              FROM query_rows(user_query(what, 'price_list'))) AS sharded(n, lists, total),
     LATERAL (SELECT array_agg(ROW(list_code, total) ORDER BY list_code)::text, sum(total)
              FROM query_rows(user_query(what, 'price_list_local'))) AS one(lists, total);

SELECT check_that(sharded.n > 0 AND sharded.n = one.n AND sharded.items = one.items,
                  format('the shards find the %s rows of one cluster below 0.8', sharded.n))
FROM (SELECT count(*), sum(item) FROM price_list WHERE vrn.percstr_eval(discount, 1) < 0.8) AS sharded(n, items),
     (SELECT count(*), sum(item) FROM price_list_local WHERE vrn.percstr_eval(discount, 1) < 0.8) AS one(n, items);

-- A discount the engine refuses, in list 7 of one shard: the shard's error
-- reaches the coordinator as it was raised, and the _try twin finds the row.
INSERT INTO price_list (list_code, item, list_price, discount) VALUES (7, 0, 1, '10+a');
DO $$
DECLARE
  state text;
  message text;
  detail text;
  context text;
BEGIN
  PERFORM * FROM query_rows(user_query('percstr', 'price_list'));
  PERFORM check_that(false, 'the refused discount fails the query');
EXCEPTION WHEN data_exception THEN
  GET STACKED DIAGNOSTICS state = RETURNED_SQLSTATE, message = MESSAGE_TEXT, detail = PG_EXCEPTION_DETAIL,
                          context = PG_EXCEPTION_CONTEXT;
  PERFORM check_that(state = '22P02' AND message = 'invalid percentage string "10+a": syntax error'
                     AND detail = 'error at position 4, length 1' AND context LIKE '%remote SQL command:%',
                     format('the shard''s error: %s %s (%s)', state, message, detail));
END $$;
SELECT check_that(remote_sql_count('SELECT item FROM price_list WHERE vrn.percstr_eval_try(discount, 1) IS NULL',
                                   'WHERE \(\(vrn\.percstr_eval_try\(discount, 1\) IS NULL\)\)') = 2
                  AND (SELECT array_agg(ROW(list_code, item))::text FROM price_list
                       WHERE vrn.percstr_eval_try(discount, 1) IS NULL) = '{"(7,0)"}',
                  'the shards find the refused row with percstr_eval_try');
