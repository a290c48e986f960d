-- vrn-exec: --json
-- The order in which a refused or failed call answers: "events" lists each
-- message, output, done and column of the call as it came.
DECLARE @v int, @t nvarchar(100) = N'{00000000-0000-0000-0000-0000000000D1}-DITTA1'
EXEC vrn_Wts_TaskCreate @t, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 0
-- Task creation: a wrong count, type or NULL gives the message alone; a mode above 2 the done first.
EXEC vrn_Wts_TaskCreate @t, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0
EXEC vrn_Wts_TaskCreate NULL, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 0
EXEC vrn_Wts_TaskCreate 'varchar', NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 0
EXEC vrn_Wts_TaskCreate @t, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 3
EXEC vrn_Wts_TaskCreate @t, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, -1
-- One task: the message alone; a failing scheduler the done alone, also for an empty name.
EXEC vrn_Wts_TaskGetFlags @t, @v
EXEC vrn_Wts_TaskSetFlags @t, NULL
EXEC vrn_Wts_TaskRun N'missing'
EXEC vrn_Wts_TaskDelete N''
EXEC vrn_Wts_TaskCreate N'', NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 0
-- All tasks, listing and information: the message, then the done.
EXEC vrn_Wts_TaskEnableAll NULL
EXEC vrn_Wts_TaskEnum N'DITTA1', N'DITTA2'
EXEC vrn_Wts_TaskEnum CAST(N'DITTA1' AS nchar(6))
EXEC vrn_Wts_TaskInfo NULL
-- Listing and information failing in the scheduler: neither message nor done.
EXEC vrn_Wts_TaskInfo N'missing'
-- Triggers: a wrong count the message alone; any other refusal the done, then the message.
EXEC vrn_Wts_TriggerCreate @t, @v OUTPUT, 1, 0
EXEC vrn_Wts_TriggerCreate @t, @v, 1, 0, 1
EXEC vrn_Wts_TriggerUpdate @t, -1, 1, 0, 1
EXEC vrn_Wts_TriggerDelete @t, NULL
-- Triggers failing in the scheduler: the done; the message too for 0x80070057.
EXEC vrn_Wts_TriggerDelete @t, 5
EXEC vrn_Wts_TriggerDelete N'', 0
