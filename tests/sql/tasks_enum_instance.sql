-- vrn-exec: --instance SQL2
-- Listing on instance SQL2: only the tasks marked $SQL2 are of this engine.
EXEC vrn_Wts_TaskCreate N'{00000000-0000-0000-0000-0000000000C1}-DITTA1', NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 0
EXEC vrn_Wts_TaskCreate N'{00000000-0000-0000-0000-0000000000C4}-DITTA1$SQL2', NULL, N'/bin/true', N'', NULL, NULL, N'/Ditta=DITTA1', NULL, 1, 0, 0
EXEC vrn_Wts_TaskCreate N'{00000000-0000-0000-0000-0000000000C6}-DITTA2$sql2', NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 0
EXEC vrn_Wts_TaskCreate N'{00000000-0000-0000-0000-0000000000C7}-DITTA1$SQL3', NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 0
EXEC vrn_Wts_TaskEnum
EXEC vrn_Wts_TaskEnum N'DITTA1'
