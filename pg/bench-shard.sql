-- The part of one shard in the sharded sum of pg/bench.sql: its remote SQL, run on the shard.
\set ON_ERROR_STOP on
\ir best_ms.sql
SELECT (SELECT count(*) FROM price_list_part) AS rows,
       max(ms) FILTER (WHERE n = 1) AS "percstr_eval, grouped", max(ms) FILTER (WHERE n = 2) AS "scan only, grouped"
FROM best_ms_each(ARRAY['SELECT list_code, sum(list_price * vrn.percstr_eval(discount, 1)) FROM price_list_part GROUP BY 1',
                        'SELECT list_code, sum(list_price) FROM price_list_part GROUP BY 1'], 7);
