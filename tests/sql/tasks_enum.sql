-- Listing the tasks of this engine, of every company or of one. "/Task=" counts
-- when it names the task's own identifier; "/Ditta=" is taken as it stands.
EXEC vrn_Wts_TaskCreate N'{00000000-0000-0000-0000-0000000000C1}-DITTA1', N'ours', N'/bin/true', N'', NULL, NULL, N'/Task=00000000-0000-0000-0000-0000000000c1 /Ditta=DITTA1 /X=1', NULL, 1, 0, 0
EXEC vrn_Wts_TaskCreate N'{00000000-0000-0000-0000-0000000000C2}-DITTA1', NULL, N'/bin/true', N'', NULL, NULL, N'/Task=00000000-0000-0000-0000-0000000000FF /X=1 /Ditta=D2', NULL, 1, 0, 0
EXEC vrn_Wts_TaskCreate N'{00000000-0000-0000-0000-0000000000C3}-DITTA12', NULL, N'/bin/true', N'svc', NULL, NULL, N'/task=00000000-0000-0000-0000-0000000000C3 /ditta=DITTA12', NULL, 1, 0, 0
EXEC vrn_Wts_TaskCreate N'{00000000-0000-0000-0000-0000000000C4}-DITTA1$SQL2', NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 0
EXEC vrn_Wts_TaskCreate N'Nightly backup', NULL, N'/bin/true', N'', NULL, NULL, N'/Task=00000000-0000-0000-0000-0000000000C1 /Ditta=DITTA1', NULL, 1, 0, 0
-- No account set: the scheduler can't say it, so the task isn't listed.
EXEC vrn_Wts_TaskCreate N'{00000000-0000-0000-0000-0000000000C5}-DITTA1', NULL, N'/bin/true', NULL, NULL, NULL, NULL, NULL, 1, 0, 0
EXEC vrn_Wts_TaskEnum N''
EXEC vrn_Wts_TaskEnum N'ditta1'

-- One task by its name, whoever it belongs to.
EXEC vrn_Wts_TaskInfo N'Nightly backup'
EXEC vrn_Wts_TaskInfo N'{00000000-0000-0000-0000-0000000000C5}-DITTA1'
