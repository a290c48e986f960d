-- The benchmark of pg/bench.sh: a million-row price list priced with
-- vrn.percstr_eval, and with the same chain of discounts in PL/pgSQL.
\set ON_ERROR_STOP on
CREATE EXTENSION vrn;

CREATE TABLE price_list AS
SELECT i AS code, ((i % 1000) + 0.99)::float8 AS list_price,
       CASE WHEN i % 13 = 0 THEN '-' ELSE '' END || (i % 50)::text
       || CASE WHEN i % 3 = 0 THEN '+' || i % 7 ELSE '' END
       || CASE WHEN i % 11 = 0 THEN '-' || i % 4 + 1 || '.5' ELSE '' END
       || CASE WHEN i % 17 = 0 THEN '+12.25' ELSE '' END AS discount
FROM generate_series(1, 1000000) AS i;
VACUUM ANALYZE price_list;

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

-- The best of some runs of a query, in milliseconds.
CREATE FUNCTION best_ms(query text, runs int) RETURNS numeric LANGUAGE plpgsql AS $$
DECLARE
  best float8;
  started timestamptz;
BEGIN
  FOR i IN 1..runs LOOP
    started := clock_timestamp();
    EXECUTE query;
    best := least(best, extract(epoch FROM clock_timestamp() - started) * 1000);
  END LOOP;
  RETURN round(best::numeric, 1);
END $$;

\echo Both give the same factor, to the last bit, on every discount of the table:
SELECT count(*) AS rows, count(*) FILTER (WHERE vrn.percstr_eval(discount, 1) IS DISTINCT FROM discount_factor(discount))
       AS different
FROM price_list \gset
\echo :rows rows, :different different
SELECT :different = 0 AS same \gset
\if :same
\else
  \echo the PL/pgSQL function disagrees with vrn.percstr_eval
  \quit
\endif

\echo Milliseconds, best of the runs, one backend, no parallel workers:
SELECT best_ms('SELECT sum(list_price) FROM price_list', 5) AS scan,
       best_ms('SELECT sum(list_price * vrn.percstr_eval(discount, 1)) FROM price_list', 5) AS vrn,
       best_ms('SELECT sum(list_price * discount_factor(discount)) FROM price_list', 2) AS plpgsql \gset
SELECT :scan AS "scan only", :vrn AS "vrn.percstr_eval", :plpgsql AS "PL/pgSQL",
       round(:plpgsql / :vrn, 1) AS "ratio",
       round((:plpgsql - :scan) / (:vrn - :scan), 1) AS "ratio beyond the scan";
