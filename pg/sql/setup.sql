-- What the other scripts share. refusal(query) runs a query and tells how it
-- fails, as SQLSTATE: message (detail), so that a table of refused inputs
-- reads as one result.
CREATE FUNCTION refusal(query text) RETURNS text LANGUAGE plpgsql AS $$
DECLARE
  detail text;
BEGIN
  EXECUTE query;
  RETURN 'accepted';
EXCEPTION WHEN others THEN
  GET STACKED DIAGNOSTICS detail = PG_EXCEPTION_DETAIL;
  RETURN SQLSTATE || ': ' || SQLERRM || CASE WHEN detail <> '' THEN ' (' || detail || ')' ELSE '' END;
END $$;

-- Every function of the extension is immutable, strict and parallel safe.
SELECT count(*) AS functions,
       count(*) FILTER (WHERE provolatile <> 'i' OR NOT proisstrict OR proparallel <> 's') AS others
FROM pg_proc WHERE pronamespace = 'vrn'::regnamespace;
