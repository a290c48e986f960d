-- vrn_GetSrvInfo: one fact about the server's network setting by name. What
-- the facts are depends on the machine, so only answers that are the same
-- everywhere are here; the values and their formats are covered by the
-- procedure tests.
DECLARE @v varchar(20) = 'x', @long varchar(100) = 'x'

PRINT 'a name outside the table, in any case: the empty text and status 0'
EXEC vrn_GetSrvInfo 'NoSuchProperty', @v OUTPUT
SET @v = 'x'
EXEC vrn_GetSrvInfo 'Flags ', @long OUTPUT
SET @v = 'x'
EXEC vrn_GetSrvInfo '', @v OUTPUT

PRINT 'wrong calls: the message, the output untouched'
SET @v = 'x'
DECLARE @v19 varchar(19) = 'x', @none varchar(10)
DECLARE @n nvarchar(40) = N'x'
EXEC vrn_GetSrvInfo 'ServerType', @v19 OUTPUT
EXEC vrn_GetSrvInfo @none, @v OUTPUT
EXEC vrn_GetSrvInfo 12, @v OUTPUT
EXEC vrn_GetSrvInfo 'Flags', @v
EXEC vrn_GetSrvInfo 'Flags', @n OUTPUT
