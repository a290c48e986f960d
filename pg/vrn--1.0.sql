\echo Use "CREATE EXTENSION vrn" to load this file. \quit

-- Every function is immutable and parallel safe: it reads nothing but its
-- arguments, so the planner may fold it, index it and run it in parallel
-- workers. Each ..._try twin gives NULL where the plain function raises a
-- data error.

-- Percentage strings: chains of discounts and mark-ups such as 10+5-2.
CREATE FUNCTION percstr_normalize(text) RETURNS text
    AS 'MODULE_PATHNAME', 'vrn_percstr_normalize' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION percstr_normalize_try(text) RETURNS text
    AS 'MODULE_PATHNAME', 'vrn_percstr_normalize_try' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION percstr_normalize(text) IS
    'canonical form of a percentage string of at most 21 characters';

CREATE FUNCTION percstr_defects(text) RETURNS int
    AS 'MODULE_PATHNAME', 'vrn_percstr_defects' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION percstr_defects_try(text) RETURNS int
    AS 'MODULE_PATHNAME', 'vrn_percstr_defects_try' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION percstr_defects(text) IS
    'number of characters that percstr_normalize throws away';

CREATE FUNCTION percstr_eval(text, mode int DEFAULT 1) RETURNS float8
    AS 'MODULE_PATHNAME', 'vrn_percstr_eval' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION percstr_eval_try(text, mode int DEFAULT 1) RETURNS float8
    AS 'MODULE_PATHNAME', 'vrn_percstr_eval_try' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION percstr_eval(text, int) IS
    'number of a percentage string: mode 0 sums, 1 chains discounts, 2 chains mark-ups';

-- Symbolic percentage strings, with their variables as a JSON object.
CREATE FUNCTION percstr_symb_reduce(text, vars jsonb DEFAULT '{}', mode int DEFAULT 1) RETURNS text
    AS 'MODULE_PATHNAME', 'vrn_percstr_symb_reduce' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION percstr_symb_reduce_try(text, vars jsonb DEFAULT '{}', mode int DEFAULT 1) RETURNS text
    AS 'MODULE_PATHNAME', 'vrn_percstr_symb_reduce_try' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION percstr_symb_reduce(text, jsonb, int) IS
    'plain percentage string of a symbolic one, with the variables of vars';

-- Price formulas: a formula is checked once into its normal form, which is
-- then applied to any number of values.
CREATE FUNCTION pformula_normalize(text) RETURNS text
    AS 'MODULE_PATHNAME', 'vrn_pformula_normalize' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION pformula_normalize_try(text) RETURNS text
    AS 'MODULE_PATHNAME', 'vrn_pformula_normalize_try' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION pformula_normalize(text) IS
    'normal form of a price formula';

CREATE FUNCTION pformula_eval(normal_form text, value float8) RETURNS float8
    AS 'MODULE_PATHNAME', 'vrn_pformula_eval' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION pformula_eval_try(normal_form text, value float8) RETURNS float8
    AS 'MODULE_PATHNAME', 'vrn_pformula_eval_try' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION pformula_eval(text, float8) IS
    'a value after the operations of a normal form';
