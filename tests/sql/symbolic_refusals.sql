-- Each way the symbolic procedures refuse a call.
DECLARE @r varchar(30), @short varchar(5), @pos int, @noMode int
EXEC vrn_PercStrSymb_GetMutex '500'
EXEC vrn_PercStrSymb_Init
EXEC vrn_PercStrSymb_Init @noMode
EXEC vrn_PercStrSymb_Init 3
EXEC vrn_PercStrSymb_SetVar 'Cliente'
EXEC vrn_PercStrSymb_SetVar 'AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA', '5'
EXEC vrn_PercStrSymb_SetVar 'Cliente', '1+2+3+4+5+6+7+8+9+100'
-- No such variable: a char name keeps its blanks.
EXEC vrn_PercStrSymb_SetVar CAST('Cliente' AS char(10)), '5'
EXEC vrn_PercStrSymb_Eval 'Cliente'
EXEC vrn_PercStrSymb_Eval '((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((5)))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))))', @r OUTPUT
EXEC vrn_PercStrSymb_Eval '100+20', @short OUTPUT
EXEC vrn_PercStrSymb_ErrorInfo @pos OUTPUT
