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

-- The same for symbolic strings: a reduction is kept for its mode, text and
-- vars together (1 and 1.0 are different bytes).
CREATE TABLE calls AS
SELECT s, v::jsonb, mode
FROM unnest(ARRAY['MAX(Cliente,Articolo)+2', 'Cliente+Articolo', 'Cliente+', 'Nessuno']) AS s,
     unnest(ARRAY['{"Cliente": "10+5", "Articolo": "20"}', '{"Cliente": 1, "Articolo": 1.0}',
                  '{"Cliente": "5", "Articolo": null}', '{"Cliente": "5"}']) AS v,
     unnest(ARRAY[0, 1, 2]) AS mode;
CREATE TABLE calls_once AS SELECT s, v, mode, vrn.percstr_symb_reduce_try(s, v, mode) AS r FROM calls;
SELECT count(*) AS rows, count(*) FILTER (WHERE r.r IS DISTINCT FROM o.r) AS different,
       count(*) FILTER (WHERE r.r IS NULL) AS refused, count(DISTINCT r.r) AS results
FROM (SELECT s, v, mode, vrn.percstr_symb_reduce_try(s, v, mode) AS r
      FROM calls, generate_series(1, 20) ORDER BY random()) AS r
JOIN calls_once AS o ON o.s = r.s AND o.v = r.v AND o.mode = r.mode;
