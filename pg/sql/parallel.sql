-- A million-row price list priced in one query, in parallel workers (each a
-- process with engines of its own) and serially, to the same totals. The
-- totals add numerics: a float sum would depend on the order of the rows.
CREATE TABLE price_list AS
SELECT i AS code, ((i % 1000) + 0.99)::float8 AS list_price,
       (i % 50)::text || CASE WHEN i % 3 = 0 THEN '+' || i % 7 ELSE '' END
                      || CASE WHEN i % 11 = 0 THEN '-' || i % 4 + 1 || '.5' ELSE '' END AS discount,
       (ARRAY['+10 ', '=100 +22% ', '-5& AC(2) ', ''])[i % 4 + 1] AS normal_form
FROM generate_series(1, 1000000) AS i;
ANALYZE price_list;

CREATE FUNCTION totals(OUT priced numeric, OUT formulas numeric, OUT reduced numeric) LANGUAGE sql AS $$
  SELECT sum((list_price * vrn.percstr_eval(discount, 1))::numeric),
         sum(vrn.pformula_eval(normal_form, list_price)::numeric),
         sum(vrn.percstr_eval(vrn.percstr_symb_reduce('MAX(Cliente,Articolo)+2',
                                                      jsonb_build_object('Cliente', discount, 'Articolo', '20')))
             ::numeric) FILTER (WHERE code % 10 = 0)
  FROM price_list $$;

-- The plan's shape and its workers, without the counts that vary by run.
CREATE FUNCTION plan(query text) RETURNS SETOF text LANGUAGE plpgsql AS $$
DECLARE
  line text;
BEGIN
  FOR line IN EXECUTE 'EXPLAIN (ANALYZE, COSTS OFF, TIMING OFF, SUMMARY OFF) ' || query LOOP
    RETURN NEXT regexp_replace(line, ' \(actual.*$', '');
  END LOOP;
END $$;

SET max_parallel_workers_per_gather = 0;
SELECT * FROM totals() \gset serial_

SET max_parallel_workers_per_gather = 2;
SET parallel_setup_cost = 0;
SET parallel_tuple_cost = 0;
SET min_parallel_table_scan_size = 0;
SELECT plan($$SELECT sum((list_price * vrn.percstr_eval(discount, 1))::numeric) FROM price_list$$);
SELECT * FROM totals() \gset parallel_

SELECT :'serial_priced' AS priced, :'serial_priced' = :'parallel_priced' AS same_priced,
       :'serial_formulas' AS formulas, :'serial_formulas' = :'parallel_formulas' AS same_formulas,
       :'serial_reduced' AS reduced, :'serial_reduced' = :'parallel_reduced' AS same_reduced;
