-- Every way the symbolic procedures refuse a call.
DECLARE @rc int, @r varchar(30), @short varchar(5), @pos int, @len int, @spos smallint, @i int, @t varchar(10), @noMode int, @noText varchar(20), @step varchar(60)

-- GetMutex: a wrong call is a message and 0, never the default wait; no completion.
SET @step = 'GetMutex refusals'
PRINT @step
EXEC @rc = vrn_PercStrSymb_GetMutex '500'
EXEC @rc = vrn_PercStrSymb_GetMutex @noMode
EXEC @rc = vrn_PercStrSymb_GetMutex @i OUTPUT
EXEC @rc = vrn_PercStrSymb_GetMutex 10, 20
-- ReleaseMutex without the lock: 0 and no message.
SET @step = 'ReleaseMutex and re-entry'
PRINT @step
EXEC @rc = vrn_PercStrSymb_ReleaseMutex
EXEC @rc = vrn_PercStrSymb_GetMutex 0
EXEC @rc = vrn_PercStrSymb_GetMutex
EXEC @rc = vrn_PercStrSymb_ReleaseMutex
EXEC @rc = vrn_PercStrSymb_ReleaseMutex 'ignored'
EXEC @rc = vrn_PercStrSymb_ReleaseMutex

-- Init: wrong calls (a NULL literal has no integer type), a NULL mode, modes above 2; nothing changes.
SET @step = 'Init refusals'
PRINT @step
EXEC @rc = vrn_PercStrSymb_Init 0
EXEC @rc = vrn_PercStrSymb_SetVar 'Cliente', '7'
EXEC @rc = vrn_PercStrSymb_Init
EXEC @rc = vrn_PercStrSymb_Init 1, 2
EXEC @rc = vrn_PercStrSymb_Init @i OUTPUT
EXEC @rc = vrn_PercStrSymb_Init NULL
EXEC @rc = vrn_PercStrSymb_Init @noMode
EXEC @rc = vrn_PercStrSymb_Init 3
EXEC @rc = vrn_PercStrSymb_Init -1
EXEC @rc = vrn_PercStrSymb_Init CAST(-1 AS smallint)
EXEC @rc = vrn_PercStrSymb_Eval 'Cliente', @r OUTPUT
EXEC @rc = vrn_PercStrSymb_Init CAST(2 AS tinyint)

-- SetVar: wrong calls; a NULL name (no message); names above 40 and values above 20 characters.
SET @step = 'SetVar refusals'
PRINT @step
EXEC @rc = vrn_PercStrSymb_SetVar 'Cliente'
EXEC @rc = vrn_PercStrSymb_SetVar 'Cliente', 5
EXEC @rc = vrn_PercStrSymb_SetVar N'Cliente', '5'
EXEC @rc = vrn_PercStrSymb_SetVar 'Cliente', @t OUTPUT
EXEC @rc = vrn_PercStrSymb_SetVar NULL, '5'
EXEC @rc = vrn_PercStrSymb_SetVar @noText, '5'
EXEC @rc = vrn_PercStrSymb_SetVar 'AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA', '5'
EXEC @rc = vrn_PercStrSymb_SetVar 'Articolo_ClienteSottogruppoXXXXXXXXXXXXX', '5'
EXEC @rc = vrn_PercStrSymb_SetVar 'Cliente', '1+2+3+4+5+6+7+8+9+100'
EXEC @rc = vrn_PercStrSymb_SetVar 'Cliente', '1+2+3+4+5+6+7+8+9+10'
EXEC @rc = vrn_PercStrSymb_Eval 'Cliente', @r OUTPUT
EXEC @rc = vrn_PercStrSymb_SetVar 'Clienti', '5'
-- A char name keeps its blanks and isn't found; a char value keeps them and is trimmed at use.
SET @step = 'char parameters'
PRINT @step
EXEC @rc = vrn_PercStrSymb_SetVar CAST('Cliente' AS char(10)), '5'
EXEC @rc = vrn_PercStrSymb_SetVar 'Articolo', CAST('5' AS char(10))
EXEC @rc = vrn_PercStrSymb_Eval 'Articolo+1', @r OUTPUT
EXEC @rc = vrn_PercStrSymb_SetVar 'Articolo', @noText
EXEC @rc = vrn_PercStrSymb_Eval 'Articolo+1', @r OUTPUT

-- Eval: wrong calls leave the output untouched and return -1.
SET @step = 'Eval refusals'
PRINT @step
SET @r = 'untouched'
EXEC @rc = vrn_PercStrSymb_Eval 'Cliente'
EXEC @rc = vrn_PercStrSymb_Eval 'Cliente', @r OUTPUT, 1
EXEC @rc = vrn_PercStrSymb_Eval @t OUTPUT, @r OUTPUT
EXEC @rc = vrn_PercStrSymb_Eval 'Cliente', @i OUTPUT
EXEC @rc = vrn_PercStrSymb_Eval N'Cliente', @r OUTPUT
-- Texts up to 1001 characters are reduced.
SET @step = 'Eval text limit'
PRINT @step
EXEC @rc = vrn_PercStrSymb_Eval '((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((5))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))', @r OUTPUT
EXEC @rc = vrn_PercStrSymb_Eval '((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((5)))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))) ', @r OUTPUT
-- An output shorter than the result: message, empty output, 0. A failure fits any output.
SET @step = 'Eval output length'
PRINT @step
EXEC @rc = vrn_PercStrSymb_Eval '100+20', @short OUTPUT
EXEC @rc = vrn_PercStrSymb_Eval '10+20', @short OUTPUT
EXEC @rc = vrn_PercStrSymb_Eval 'MIN(100+200,)', @short OUTPUT

-- ErrorInfo: both parameters must be integer OUTPUTs.
SET @step = 'ErrorInfo refusals'
PRINT @step
EXEC @rc = vrn_PercStrSymb_ErrorInfo @pos OUTPUT
EXEC @rc = vrn_PercStrSymb_ErrorInfo @pos, @len OUTPUT
EXEC @rc = vrn_PercStrSymb_ErrorInfo @pos OUTPUT, @r OUTPUT
EXEC @rc = vrn_PercStrSymb_ErrorInfo @spos OUTPUT, @len OUTPUT
