-- One client's symbolic calculation, from taking the lock to giving it back.
DECLARE @rc int, @r varchar(30), @pos int, @len int, @null varchar(20), @step varchar(60)

-- Nothing has failed yet in this process.
SET @step = 'before any failure'
PRINT @step
EXEC @rc = vrn_PercStrSymb_ErrorInfo @pos OUTPUT, @len OUTPUT

EXEC @rc = vrn_PercStrSymb_GetMutex 1000
EXEC @rc = vrn_PercStrSymb_Init 1
EXEC @rc = vrn_PercStrSymb_SetVar 'Cliente', '10+5'
EXEC @rc = vrn_PercStrSymb_SetVar 'Articolo', '20'
EXEC @rc = vrn_PercStrSymb_Eval 'Cliente+Listino', @r OUTPUT
EXEC @rc = vrn_PercStrSymb_ErrorInfo @pos OUTPUT, @len OUTPUT

-- Variables and mode stay for further reductions; a success keeps the last error.
SET @step = 'a success keeps the last error'
PRINT @step
EXEC @rc = vrn_PercStrSymb_Eval 'MIN(Cliente,Articolo)', @r OUTPUT
EXEC @rc = vrn_PercStrSymb_ErrorInfo @pos OUTPUT, @len OUTPUT

-- An unset variable fails even in the branch that isn't taken.
SET @step = 'unset variable in the branch not taken'
PRINT @step
EXEC @rc = vrn_PercStrSymb_Eval 'IIF(1=1,2,Listino)', @r OUTPUT
EXEC @rc = vrn_PercStrSymb_ErrorInfo @pos OUTPUT, @len OUTPUT

-- Set to the empty text, it takes part; a text overflow leaves the error values.
SET @step = 'empty variable, then a text overflow'
PRINT @step
EXEC @rc = vrn_PercStrSymb_SetVar 'LISTINO', @null
EXEC @rc = vrn_PercStrSymb_Eval 'IIF(ISEMPTY(Listino),Articolo,Cliente)-Cliente', @r OUTPUT
EXEC @rc = vrn_PercStrSymb_Eval '100.123456+200.123456+3', @r OUTPUT
EXEC @rc = vrn_PercStrSymb_ErrorInfo @pos OUTPUT, @len OUTPUT

-- A string that stops too soon points behind its last byte.
SET @step = 'end of the text'
PRINT @step
EXEC @rc = vrn_PercStrSymb_Eval '10+  ', @r OUTPUT
EXEC @rc = vrn_PercStrSymb_ErrorInfo @pos OUTPUT, @len OUTPUT

-- Empty, blank and NULL texts give the empty result.
SET @step = 'empty, blank and NULL texts'
PRINT @step
SET @r = 'x'
EXEC @rc = vrn_PercStrSymb_Eval '', @r OUTPUT
SET @r = 'x'
EXEC @rc = vrn_PercStrSymb_Eval '   ', @r OUTPUT
SET @r = 'x'
EXEC @rc = vrn_PercStrSymb_Eval @null, @r OUTPUT

-- Init unsets the variables and changes the mode: in mode 2 MAX picks the smaller percentage.
SET @step = 'new modes'
PRINT @step
EXEC @rc = vrn_PercStrSymb_Init 2
EXEC @rc = vrn_PercStrSymb_Eval 'Cliente', @r OUTPUT
EXEC @rc = vrn_PercStrSymb_SetVar 'Cliente', '10+5'
EXEC @rc = vrn_PercStrSymb_SetVar 'Articolo', '20'
EXEC @rc = vrn_PercStrSymb_Eval 'MAX(Cliente,Articolo)+2', @r OUTPUT
EXEC @rc = vrn_PercStrSymb_Init 0
EXEC @rc = vrn_PercStrSymb_SetVar 'Cliente', '10+5'
EXEC @rc = vrn_PercStrSymb_SetVar 'Articolo', '15'
EXEC @rc = vrn_PercStrSymb_Eval 'MIN(Cliente,Articolo)', @r OUTPUT

EXEC @rc = vrn_PercStrSymb_ReleaseMutex
EXEC @rc = vrn_PercStrSymb_ReleaseMutex
