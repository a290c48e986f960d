-- Symbolic percentage strings, with the inputs of the procedures' scripts.
-- Each call brings its variables as a JSON object and leaves nothing behind:
-- there is no lock to take and no state to clear.

-- The worked example in mode 1, then the same variables in modes 2 and 0.
SELECT t AS text, mode, vrn.percstr_symb_reduce(t, v::jsonb, mode) AS reduced
FROM (VALUES ('MAX(Cliente,Articolo)+2', '{"Cliente": "10+5", "Articolo": "20"}', 1),
             ('MIN(Cliente,Articolo)', '{"Cliente": "10+5", "Articolo": "20"}', 1),
             ('IIF(ISEMPTY(Listino),Articolo,Cliente)-Cliente',
              '{"Cliente": "10+5", "Articolo": "20", "Listino": null}', 1),
             ('MAX(Cliente,Articolo)+2', '{"Cliente": "10+5", "Articolo": "20"}', 2),
             ('MIN(Cliente,Articolo)', '{"Cliente": "10+5", "Articolo": "15"}', 0),
             ('', '{}', 1), ('   ', '{}', 1)) AS c(t, v, mode);

-- The mode decides what MIN, MAX and the comparisons pick.
SELECT t AS text, vrn.percstr_symb_reduce(t, '{}', 0) AS mode_0, vrn.percstr_symb_reduce(t, '{}', 1) AS mode_1,
       vrn.percstr_symb_reduce(t, '{}', 2) AS mode_2
FROM (VALUES ('MIN(10+5,15)'), ('MAX(10,20,5)'), ('IIF(10>5,1,2)'), ('IIF(ZERO(10-10),1,2)'), ('10-(5-2)')) AS v(t);

-- Values: a number stands for its text, null for the empty text, blanks
-- are trimmed at use; names ignore case.
SELECT vrn.percstr_symb_reduce('Articolo+1', '{"Articolo": "5         "}') AS blanks,
       vrn.percstr_symb_reduce('articolo+cliente', '{"ARTICOLO": 5, "Cliente": 2.50}') AS numbers,
       vrn.percstr_symb_reduce('Articolo+1', '{"Articolo": null}') AS null_value,
       vrn.percstr_symb_reduce('Cliente', '{"Cliente": "12345678901234567890"}') AS longest_value;

-- Nothing stays behind: a variable of one call is unset in the next.
SELECT vrn.percstr_symb_reduce('Cliente', '{"Cliente": "5"}') AS first,
       vrn.percstr_symb_reduce_try('Cliente') AS second;

-- Texts of up to 1001 characters are reduced, longer ones refused.
SELECT vrn.percstr_symb_reduce(repeat('(', 498) || '5' || repeat(')', 498) || '   ') AS deep;
SELECT refusal(format('SELECT vrn.percstr_symb_reduce(%L)', repeat('(', 500) || '5' || repeat(')', 501)));

-- Refusals of the text: the offending token counted from 1, as
-- vrn_PercStrSymb_ErrorInfo gives it from 0; a result past 21 characters.
SELECT t AS text, refusal(format('SELECT vrn.percstr_symb_reduce(%L, %L)', t, v))
FROM (VALUES ('Cliente+Listino', '{"Cliente": "10+5"}'), ('IIF(1=1,2,Listino)', '{}'),
             ('10+Clienti', '{}'), ('10+  ', '{}'), ('MIN(1 2)', '{}'), ('MIN(Cliente', '{"Cliente": "5"}'),
             ('100.123456+200.123456', '{}'), ('100.123456+200.123456+3', '{}')) AS c(t, v);

-- Refusals of the variables and the mode.
SELECT v AS vars, refusal(format('SELECT vrn.percstr_symb_reduce(%L, %L, %s)', 'Cliente', v, mode))
FROM (VALUES ('{"Clienti": "5"}', 1), ('{"Articolo_ClienteSottogruppoXXXXXXXXXXXXXX": "5"}', 1),
             ('{"Cliente": "1+2+3+4+5+6+7+8+9+100"}', 1), ('{"Cliente": true}', 1), ('{"Cliente": [5]}', 1),
             ('[5]', 1), ('"Cliente"', 1), ('{"cliente": "1", "CLIENTE": "2"}', 1), ('{}', 3),
             ('{}', -1)) AS c(v, mode);

-- The soft form gives NULL for each of those, and NULL in gives NULL out.
SELECT vrn.percstr_symb_reduce_try('Cliente+Listino', '{"Cliente": "10+5"}') IS NULL AS refused_text,
       vrn.percstr_symb_reduce_try('Cliente', '{"Clienti": "5"}') IS NULL AS refused_vars,
       vrn.percstr_symb_reduce_try('Cliente', '{}', 3) IS NULL AS refused_mode,
       vrn.percstr_symb_reduce(NULL, '{}') IS NULL AS null_text,
       vrn.percstr_symb_reduce('5', NULL) IS NULL AS null_vars;
