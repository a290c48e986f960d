-- The engines read Windows-1252: texts come from the database encoding and
-- results go back to it. A character that code page lacks is refused, with
-- its place counted in characters.

-- 'è' and '€' are bytes of Windows-1252 from 0x80 up: a defect to the
-- normaliser, the end of the text to the scanners, a failure to the reader.
SELECT vrn.percstr_normalize('10€') AS normalized, vrn.percstr_defects('10€') AS defects,
       vrn.percstr_eval('10è+5', 1) AS ends_at_e_grave,
       vrn.percstr_symb_reduce('Cliente+1', '{"Cliente": "è5"}') AS value_back_in_utf8;
SELECT refusal($$SELECT vrn.pformula_eval('+5 è', 1)$$);

-- Characters that Windows-1252 lacks, in each kind of text.
SELECT q AS query, refusal(q)
FROM (VALUES ($$SELECT vrn.percstr_eval('10Ω')$$), ($$SELECT vrn.percstr_normalize('èΩ')$$),
             ($$SELECT vrn.percstr_symb_reduce('Cliente', '{"Cliente": "5Ω"}')$$),
             ($$SELECT vrn.percstr_symb_reduce('Clienteè', '{"Clienteè": "5"}')$$),
             ($$SELECT vrn.pformula_normalize('5 Ω')$$)) AS v(q);
SELECT vrn.percstr_eval_try('10Ω') IS NULL AS eval, vrn.pformula_eval_try('Ω', 1) IS NULL AS formula;

-- A Windows-1252 database hands its texts over as they are.
\set home :DBNAME
CREATE DATABASE vrn_win1252 ENCODING 'WIN1252' LC_COLLATE 'C' LC_CTYPE 'C' TEMPLATE template0;
\c vrn_win1252
CREATE EXTENSION vrn;
SELECT vrn.percstr_symb_reduce('Cliente+1', '{"Cliente": "è5"}') AS value, vrn.percstr_normalize('10€') AS normalized;
\c :home
DROP DATABASE vrn_win1252;
