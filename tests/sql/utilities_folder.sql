-- vrn_GetFolderPath: the path of a special folder by its CSIDL number, narrow
-- or wide as the output is declared. Only the machine's fixed folders are
-- asked here (35 is /var/lib, 36 is /usr); the user's depend on the account.
DECLARE @p varchar(100) = 'untouched', @w nvarchar(100), @p8 varchar(8), @w7 nvarchar(7)
EXEC vrn_GetFolderPath 153, @p OUTPUT
EXEC vrn_GetFolderPath 35, @p OUTPUT
-- Flag 0x8000 would create the folder.
EXEC vrn_GetFolderPath 32804, @w OUTPUT
-- The exact length passes; one less is 0x8007007A.
EXEC vrn_GetFolderPath 35, @p8 OUTPUT
EXEC vrn_GetFolderPath 35, @w7 OUTPUT
EXEC vrn_GetFolderPath 35, @p
