-- Disabling and enabling all tasks of a company: DITTA1 leaves DITTA12, the
-- tasks of instance SQL2 and tasks of other names alone.
DECLARE @d1 int, @d1b int, @d12 int, @sql2 int, @other int
DECLARE @t1 nvarchar(100) = N'{00000000-0000-0000-0000-0000000000E1}-DITTA1'
DECLARE @t1b nvarchar(100) = N'{00000000-0000-0000-0000-0000000000E2}-DITTA1'
DECLARE @t12 nvarchar(100) = N'{00000000-0000-0000-0000-0000000000E3}-DITTA12'
DECLARE @tsql2 nvarchar(100) = N'{00000000-0000-0000-0000-0000000000E4}-DITTA1$SQL2'
DECLARE @tother nvarchar(100) = N'Nightly backup'
EXEC vrn_Wts_TaskCreate @t1, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 1, 0
EXEC vrn_Wts_TaskCreate @t1b, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 9, 0
EXEC vrn_Wts_TaskCreate @t12, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 1, 0
EXEC vrn_Wts_TaskCreate @tsql2, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 1, 0
EXEC vrn_Wts_TaskCreate @tother, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 1, 0

-- Flag 4 set on both tasks of DITTA1 (case doesn't count), the other bits kept.
EXEC vrn_Wts_TaskDisableAll N'ditta1'
EXEC vrn_Wts_TaskGetFlags @t1, @d1 OUTPUT
EXEC vrn_Wts_TaskGetFlags @t1b, @d1b OUTPUT
EXEC vrn_Wts_TaskGetFlags @t12, @d12 OUTPUT
EXEC vrn_Wts_TaskGetFlags @tsql2, @sql2 OUTPUT
EXEC vrn_Wts_TaskGetFlags @tother, @other OUTPUT
SELECT @d1 AS DITTA1, @d1b AS DITTA1_b, @d12 AS DITTA12, @sql2 AS DITTA1_SQL2, @other AS other

-- An empty company means every company of this engine (no instance here).
EXEC vrn_Wts_TaskDisableAll N''
EXEC vrn_Wts_TaskGetFlags @t1, @d1 OUTPUT
EXEC vrn_Wts_TaskGetFlags @t1b, @d1b OUTPUT
EXEC vrn_Wts_TaskGetFlags @t12, @d12 OUTPUT
EXEC vrn_Wts_TaskGetFlags @tsql2, @sql2 OUTPUT
EXEC vrn_Wts_TaskGetFlags @tother, @other OUTPUT
SELECT @d1 AS DITTA1, @d1b AS DITTA1_b, @d12 AS DITTA12, @sql2 AS DITTA1_SQL2, @other AS other

-- Enabling DITTA1 leaves DITTA12 disabled.
EXEC vrn_Wts_TaskEnableAll N'DITTA1'
EXEC vrn_Wts_TaskGetFlags @t1, @d1 OUTPUT
EXEC vrn_Wts_TaskGetFlags @t1b, @d1b OUTPUT
EXEC vrn_Wts_TaskGetFlags @t12, @d12 OUTPUT
EXEC vrn_Wts_TaskGetFlags @tsql2, @sql2 OUTPUT
EXEC vrn_Wts_TaskGetFlags @tother, @other OUTPUT
SELECT @d1 AS DITTA1, @d1b AS DITTA1_b, @d12 AS DITTA12, @sql2 AS DITTA1_SQL2, @other AS other

-- A company that has no task changes nothing.
EXEC vrn_Wts_TaskEnableAll N'DITTA'
EXEC vrn_Wts_TaskGetFlags @t12, @d12 OUTPUT
