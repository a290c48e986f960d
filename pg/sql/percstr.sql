-- Percentage strings, with the inputs of the procedures' scripts: both hosts
-- give the same texts and numbers. Where a procedure answers a refused text
-- with the starting value, a function raises an error, and its ..._try twin
-- gives NULL.

-- The canonical form and the count of characters thrown away. 'è' is the
-- byte 0xE8 of Windows-1252, a defect like any other; blanks are skipped.
SELECT t AS text, vrn.percstr_normalize(t) AS normalized, vrn.percstr_defects(t) AS defects
FROM (VALUES ('10,5+5'), ('1234+5'), ('10è'), (''), ('111+222+333+444+555+6'), ('.55'), (rpad('7', 21)),
             ('10 5')) AS v(t);

-- One text, three modes; every mode word but 0 and 1 means mode 2.
SELECT t AS text, mode, vrn.percstr_eval(t, mode) AS value
FROM (VALUES ('10+5', 0), ('10+5', 1), ('10+5', 2), ('10-(5+2)', 1), ('10', 7), ('10', -1), ('10', 1),
             ('', 1), ('   ', 0), ('1+2+3+4+5+6+7+8+9+10', 0), (rpad('10+5', 20), 1)) AS v(t, mode);
SELECT vrn.percstr_eval('10+5') AS discounts_by_default;

-- Refusals: the engine's, with the place of the offending token counted
-- from 1, and texts over the procedures' limits.
SELECT t AS text, refusal(format('SELECT vrn.percstr_eval(%L, 1)', t))
FROM (VALUES ('10+a'), ('10,5'), ('+5'), ('1234'), ('10+'), ('10+(5'), ('1+2+3+4+5+6+7+8+9+100'),
             (rpad('10+5', 21))) AS v(t);
SELECT refusal($$SELECT vrn.percstr_normalize('111+222+333+444+555+66')$$);

-- NULL in, NULL out.
SELECT vrn.percstr_normalize(NULL) IS NULL AS normalize, vrn.percstr_defects(NULL) IS NULL AS defects,
       vrn.percstr_eval(NULL, 1) IS NULL AS eval, vrn.percstr_eval('10', NULL) IS NULL AS eval_mode;

-- A dirty price list: the ..._try functions find the bad rows without failing.
CREATE TEMP TABLE price_list (code text, discount text);
INSERT INTO price_list VALUES ('A', '10+5'), ('B', '10,5'), ('C', NULL), ('D', '1234'), ('E', ''),
                              ('F', '1+2+3+4+5+6+7+8+9+10+11');
SELECT code, discount, vrn.percstr_eval_try(discount) AS factor,
       vrn.percstr_normalize_try(discount) AS normalized, vrn.percstr_defects_try(discount) AS defects
FROM price_list ORDER BY code;
SELECT code FROM price_list WHERE discount IS NOT NULL AND vrn.percstr_eval_try(discount) IS NULL ORDER BY code;
