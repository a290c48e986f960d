-- A price list of :rows rows in 64 lists, twice on the coordinator of
-- vrn_pg_shards: price_list_local in the coordinator itself, the one
-- cluster, and price_list partitioned by hash of the list's code over the
-- two shards.
\set ON_ERROR_STOP on
CREATE TABLE price_list_local AS
SELECT i % 64 AS list_code, i AS item, ((i % 1000) + 0.99)::float8 AS list_price,
       CASE WHEN i % 13 = 0 THEN '-' ELSE '' END || (i % 50)::text
       || CASE WHEN i % 3 = 0 THEN '+' || i % 7 ELSE '' END
       || CASE WHEN i % 11 = 0 THEN '-' || i % 4 + 1 || '.5' ELSE '' END
       || CASE WHEN i % 17 = 0 THEN '+12.25' ELSE '' END AS discount,
       vrn.pformula_normalize(i % 40 || '% -' || i % 9 || '& AC(' || i % 3 || ')') AS formula,
       (ARRAY['MAX(Cliente,Articolo)+2', 'Cliente+Articolo', 'MIN(Cliente,Articolo)'])[i % 3 + 1] AS symb,
       jsonb_build_object('Cliente', i % 30 || '+5', 'Articolo', i % 25) AS vars
FROM generate_series(1, :rows) AS i;

CREATE TABLE price_list (LIKE price_list_local) PARTITION BY HASH (list_code);
CREATE FOREIGN TABLE price_list_1 PARTITION OF price_list FOR VALUES WITH (MODULUS 2, REMAINDER 0)
    SERVER shard1 OPTIONS (table_name 'price_list_part');
CREATE FOREIGN TABLE price_list_2 PARTITION OF price_list FOR VALUES WITH (MODULUS 2, REMAINDER 1)
    SERVER shard2 OPTIONS (table_name 'price_list_part');
INSERT INTO price_list SELECT * FROM price_list_local;

VACUUM ANALYZE price_list_local;
