-- vrn_CountBitsOn, vrn_Debugout and vrn_GetSrvInfo. The server's facts depend
-- on the machine: only an answer that is the same everywhere is here.
DECLARE @n int = -1, @v varchar(20) = 'x', @v19 varchar(19) = 'x'
EXEC vrn_CountBitsOn 0x, @n OUTPUT
EXEC vrn_CountBitsOn 0x804020100804020180, @n OUTPUT
EXEC vrn_CountBitsOn 'a', @n OUTPUT
EXEC vrn_Debugout 12
-- A name outside the table gives the empty text.
EXEC vrn_GetSrvInfo 'NoSuchProperty', @v OUTPUT
EXEC vrn_GetSrvInfo 'ServerType', @v19 OUTPUT
