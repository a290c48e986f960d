-- Price formulas, with the inputs of the procedures' scripts: a formula is
-- checked once into its normal form, which then prices any number of values.

SELECT CASE WHEN length(f) > 40 THEN length(f) || ' characters' ELSE f END AS formula,
       vrn.pformula_normalize(f) AS normal_form
FROM (VALUES ('100'), ('=100 22% -5& AC(2)'), ('ad(+3) 1.2.3 00012 *1.50 .5'), ('=0 +5'), ('0'),
             ('1%1%1%1%1%1%1%'), ('.1.1.1.1'), (rpad('1', 998))) AS v(f);

-- Refusals: the engine's error in English, the offending text counted from 1.
SELECT CASE WHEN length(f) > 40 THEN length(f) || ' characters' ELSE f END AS formula,
       refusal(format('SELECT vrn.pformula_normalize(%L)', f))
FROM (VALUES (''), ('5 x'), ('/0'), ('*500'), ('123456789'), ('1.23456'), ('AC(4)'), ('2900.0001%'),
             ('100&'), ('5+'), (rpad('1', 999))) AS v(f);

-- A normal form on a value; the reader takes what it is given, /0 too.
SELECT f AS normal_form, value, vrn.pformula_eval(f, value) AS result
FROM (VALUES ('=100 +22% -5& *2 /4 AD(-1) ', 100), ('', 100), ('/0', 100), ('+10 ', 0),
             (rpad('*2 AC(0)', 12), 1.25)) AS v(f, value);
SELECT vrn.pformula_eval(vrn.pformula_normalize('=100 22% -5& AC(2)'), 0) AS normalized_then_applied;

SELECT f AS normal_form, refusal(format('SELECT vrn.pformula_eval(%L, 100)', f))
FROM (VALUES ('x'), ('AC(7)'), ('5 %'), ('AC('), ('ac(2)')) AS v(f);

-- The soft form, and NULLs.
SELECT vrn.pformula_normalize_try('5 x') IS NULL AS refused_formula,
       vrn.pformula_eval_try('5 %', 100) IS NULL AS refused_normal_form,
       vrn.pformula_normalize_try('5') AS accepted,
       vrn.pformula_normalize(NULL) IS NULL AS null_formula,
       vrn.pformula_eval('+10 ', NULL) IS NULL AS null_value;
