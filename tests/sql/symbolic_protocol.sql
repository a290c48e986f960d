-- One client's symbolic calculation, from taking the lock to giving it back.
DECLARE @r varchar(30), @pos int, @len int, @null varchar(20)
-- Nothing has failed yet in this process.
EXEC vrn_PercStrSymb_ErrorInfo @pos OUTPUT, @len OUTPUT
EXEC vrn_PercStrSymb_GetMutex 1000
EXEC vrn_PercStrSymb_Init 1
EXEC vrn_PercStrSymb_SetVar 'Cliente', '10+5'
EXEC vrn_PercStrSymb_SetVar 'Articolo', '20'
EXEC vrn_PercStrSymb_Eval 'MAX(Cliente,Articolo)+2', @r OUTPUT
-- Listino was never set: the reduction fails and tells where.
EXEC vrn_PercStrSymb_Eval 'Cliente+Listino', @r OUTPUT
EXEC vrn_PercStrSymb_ErrorInfo @pos OUTPUT, @len OUTPUT
-- Set to NULL, a variable is empty and takes part; a NULL text gives the empty
-- result. Neither a success nor a result too long moves the last error.
EXEC vrn_PercStrSymb_SetVar 'LISTINO', @null
EXEC vrn_PercStrSymb_Eval 'IIF(ISEMPTY(Listino),Articolo,Cliente)-Cliente', @r OUTPUT
EXEC vrn_PercStrSymb_Eval @null, @r OUTPUT
EXEC vrn_PercStrSymb_Eval '100.123456+200.123456+3', @r OUTPUT
EXEC vrn_PercStrSymb_ErrorInfo @pos OUTPUT, @len OUTPUT
-- Init unsets the variables.
EXEC vrn_PercStrSymb_Init 2
EXEC vrn_PercStrSymb_Eval 'Cliente', @r OUTPUT
EXEC vrn_PercStrSymb_ReleaseMutex
