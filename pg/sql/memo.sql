-- A query keeps the values of the texts it evaluated. Rows that repeat
-- texts, in every mode and with refused texts among them, get what a
-- query evaluating each text once gets, bit for bit.
CREATE TABLE discounts (d text, mode int);
INSERT INTO discounts
SELECT d, mode
FROM unnest(ARRAY['10+5', '10+5 ', '5+10', '', '-3.5+12.25', '10+a', '(((', 'è5', '99.9999+1']) AS d,
     unnest(ARRAY[0, 1, 2, 7]) AS mode;
CREATE TABLE once AS SELECT d, mode, vrn.percstr_eval_try(d, mode) AS v FROM discounts;

SELECT count(*) AS rows,
       count(*) FILTER (WHERE float8send(r.v) IS DISTINCT FROM float8send(o.v)) AS different,
       count(*) FILTER (WHERE r.v IS NULL) AS refused
FROM (SELECT d, mode, vrn.percstr_eval_try(d, mode) AS v
      FROM discounts, generate_series(1, 50) ORDER BY random()) AS r
JOIN once AS o USING (d, mode);

-- A refused text still fails after its neighbours were kept.
SELECT sum(vrn.percstr_eval(d, 1)) FROM (VALUES ('10'), ('10'), ('10+a'), ('10')) AS t(d);

-- More texts than a query keeps, each twice: the same values.
CREATE TABLE many AS SELECT i / 100 || '+' || i % 100 AS d FROM generate_series(1, 10000) AS i;
CREATE TABLE many_once AS SELECT d, vrn.percstr_eval(d, 1) AS v FROM many;
SELECT count(*) AS rows, count(*) FILTER (WHERE float8send(r.v) <> float8send(o.v)) AS different
FROM (SELECT d, vrn.percstr_eval(d, 1) AS v FROM many, generate_series(1, 2) ORDER BY random()) AS r
JOIN many_once AS o USING (d);
