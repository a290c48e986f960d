-- vrn-exec: --instance SQL2
-- On instance SQL2 only the tasks marked $SQL2 belong to this engine.
DECLARE @d1 int, @sql2 int, @sql2b int
DECLARE @t1 nvarchar(100) = N'{00000000-0000-0000-0000-0000000000E1}-DITTA1'
DECLARE @tsql2 nvarchar(100) = N'{00000000-0000-0000-0000-0000000000E4}-DITTA1$SQL2'
DECLARE @tsql2b nvarchar(100) = N'{00000000-0000-0000-0000-0000000000E5}-DITTA2$sql2'
EXEC vrn_Wts_TaskCreate @t1, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 0
EXEC vrn_Wts_TaskCreate @tsql2, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 0
EXEC vrn_Wts_TaskCreate @tsql2b, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 0
EXEC vrn_Wts_TaskDisableAll N''
EXEC vrn_Wts_TaskGetFlags @t1, @d1 OUTPUT
EXEC vrn_Wts_TaskGetFlags @tsql2, @sql2 OUTPUT
EXEC vrn_Wts_TaskGetFlags @tsql2b, @sql2b OUTPUT
SELECT @d1 AS DITTA1, @sql2 AS DITTA1_SQL2, @sql2b AS DITTA2_SQL2
