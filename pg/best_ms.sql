-- The best of some runs of each of several queries, in milliseconds, run in turn, so that a change in the load of
-- a shared machine falls on all of them alike.
CREATE FUNCTION best_ms_each(queries text[], runs int) RETURNS TABLE (n int, ms numeric) LANGUAGE plpgsql AS $$
DECLARE
  best float8[] := array_fill(NULL::float8, ARRAY[cardinality(queries)]);
  started timestamptz;
BEGIN
  FOR run IN 1..runs LOOP
    FOR i IN 1..cardinality(queries) LOOP
      started := clock_timestamp();
      EXECUTE queries[i];
      best[i] := least(best[i], extract(epoch FROM clock_timestamp() - started) * 1000);
    END LOOP;
  END LOOP;
  RETURN QUERY SELECT i, round(best[i]::numeric, 1) FROM generate_series(1, cardinality(queries)) AS i;
END $$;

-- The same for one query.
CREATE FUNCTION best_ms(query text, runs int) RETURNS numeric LANGUAGE sql AS $$
  SELECT ms FROM best_ms_each(ARRAY[query], runs)
$$;
