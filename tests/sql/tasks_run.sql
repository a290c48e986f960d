-- A task really runs, when asked even if disabled: the first writes a file
-- beside the script's task store, the second exits with what it reads there.
-- A long one is stopped.
DECLARE @status int
DECLARE @write nvarchar(100) = N'{00000000-0000-0000-0000-0000000000A1}-DITTA1'
DECLARE @read nvarchar(100) = N'{00000000-0000-0000-0000-0000000000A2}-DITTA1'
DECLARE @long nvarchar(100) = N'{00000000-0000-0000-0000-0000000000A3}-DITTA1'
EXEC vrn_Wts_TaskCreate @write, NULL, N'/bin/sh', N'', NULL, NULL, N'-c "echo 7 > $VRN_TASK_STORE/../ran.txt"', NULL, 1, 0, 0
EXEC vrn_Wts_TaskCreate @read, NULL, N'/bin/sh', N'', NULL, NULL, N'-c "exit $(cat $VRN_TASK_STORE/../ran.txt)"', NULL, 1, 4, 0
EXEC vrn_Wts_TaskRun @write
WAITFOR DELAY '00:00:02'
EXEC vrn_Wts_TaskRun @read
WAITFOR DELAY '00:00:02'
EXEC vrn_Wts_TaskInfo @read

-- Terminate: not running, then running and stopped.
EXEC vrn_Wts_TaskCreate @long, NULL, N'/bin/sleep', N'', NULL, NULL, N'60', NULL, 1, 0, 0
EXEC vrn_Wts_TaskTerminate @long
EXEC vrn_Wts_TaskRun @long
EXEC vrn_Wts_TaskGetStatus @long, @status OUTPUT
EXEC vrn_Wts_TaskTerminate @long
WAITFOR DELAY '00:00:01'
EXEC vrn_Wts_TaskGetStatus @long, @status OUTPUT
