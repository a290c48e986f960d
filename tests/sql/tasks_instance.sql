-- vrn-exec: --instance SQL2
-- On instance SQL2 only the tasks marked $SQL2, in any case, are this engine's.
-- An empty company is every company of this engine; enabling DITTA1 leaves
-- DITTA12 alone and other flags as they are.
DECLARE @f int
EXEC vrn_Wts_TaskCreate N'{00000000-0000-0000-0000-0000000000C1}-DITTA1', NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 1, 0
EXEC vrn_Wts_TaskCreate N'{00000000-0000-0000-0000-0000000000C4}-DITTA1$SQL2', NULL, N'/bin/true', N'', NULL, NULL, N'/Ditta=DITTA1', NULL, 1, 1, 0
EXEC vrn_Wts_TaskCreate N'{00000000-0000-0000-0000-0000000000C6}-DITTA12$sql2', NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 1, 0
EXEC vrn_Wts_TaskCreate N'{00000000-0000-0000-0000-0000000000C7}-DITTA1$SQL3', NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 1, 0
EXEC vrn_Wts_TaskDisableAll N''
EXEC vrn_Wts_TaskEnableAll N'ditta1'
EXEC vrn_Wts_TaskGetFlags N'{00000000-0000-0000-0000-0000000000C1}-DITTA1', @f OUTPUT
EXEC vrn_Wts_TaskGetFlags N'{00000000-0000-0000-0000-0000000000C4}-DITTA1$SQL2', @f OUTPUT
EXEC vrn_Wts_TaskGetFlags N'{00000000-0000-0000-0000-0000000000C6}-DITTA12$sql2', @f OUTPUT
EXEC vrn_Wts_TaskGetFlags N'{00000000-0000-0000-0000-0000000000C7}-DITTA1$SQL3', @f OUTPUT
