-- A symbolic calculation in mode 1 (chain of discounts), in one batch.
DECLARE @rc int, @r varchar(30), @pos int, @len int
EXEC @rc = vrn_PercStrSymb_GetMutex 1000
EXEC @rc = vrn_PercStrSymb_Init 1
EXEC @rc = vrn_PercStrSymb_SetVar 'Cliente', '10+5'
EXEC @rc = vrn_PercStrSymb_SetVar 'Articolo', '20'
EXEC @rc = vrn_PercStrSymb_Eval 'MAX(Cliente,Articolo)+2', @r OUTPUT
-- Listino was never set: the reduction fails and tells where.
EXEC @rc = vrn_PercStrSymb_Eval 'Cliente+Listino', @r OUTPUT
EXEC @rc = vrn_PercStrSymb_ErrorInfo @pos OUTPUT, @len OUTPUT
EXEC @rc = vrn_PercStrSymb_ReleaseMutex
