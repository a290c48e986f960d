-- vrn_GetFolderPath: the path of a special folder by its CSIDL number, narrow
-- or wide as the output is declared. Only the machine's fixed folders are
-- asked here (35 is /var/lib, 36 is /usr); the user's folders depend on the
-- account and are covered by the unit tests.
DECLARE @p varchar(100), @w nvarchar(100)
DECLARE @p8 varchar(8), @p7 varchar(7), @w8 nvarchar(8), @w7 nvarchar(7)

EXEC vrn_GetFolderPath 35, @p OUTPUT
EXEC vrn_GetFolderPath 36, @w OUTPUT
PRINT 'flag 0x4000 asks for no check, 0x8000 to create a missing folder'
EXEC vrn_GetFolderPath 16419, @p OUTPUT
EXEC vrn_GetFolderPath 32804, @w OUTPUT

PRINT 'the exact length passes, one less is 0x8007007A and leaves the output'
EXEC vrn_GetFolderPath 35, @p8 OUTPUT
EXEC vrn_GetFolderPath 35, @p7 OUTPUT
EXEC vrn_GetFolderPath 35, @w8 OUTPUT
EXEC vrn_GetFolderPath 35, @w7 OUTPUT
SELECT @p8, @p7, @w8, @w7

PRINT 'a number the system does not know: its error, the output untouched'
SET @p = 'untouched'
EXEC vrn_GetFolderPath 153, @p OUTPUT
EXEC vrn_GetFolderPath 291, @p OUTPUT
EXEC vrn_GetFolderPath -1, @p OUTPUT

PRINT 'wrong calls: 0x80030057'
DECLARE @c char(100), @small smallint = 35, @none int, @t text
EXEC vrn_GetFolderPath 35, @c OUTPUT
EXEC vrn_GetFolderPath @small, @p OUTPUT
EXEC vrn_GetFolderPath @none, @p OUTPUT
EXEC vrn_GetFolderPath 35, @p
EXEC vrn_GetFolderPath 35
EXEC vrn_GetFolderPath 35, @p OUTPUT, 1
EXEC vrn_GetFolderPath 35, @t OUTPUT
