-- Creating tasks in the three modes, and reading back what the store kept.
DECLARE @flags int, @status int
DECLARE @a nvarchar(100) = N'{00000000-0000-0000-0000-00000000000A}-DITTA1'

-- 0, create new: a second time the name is taken (0x80070050).
EXEC vrn_Wts_TaskCreate @a, N'first', N'/bin/true', N'', NULL, N'/tmp', N'/Task=00000000-0000-0000-0000-00000000000A /Ditta=DITTA1', 0x0102, 5, 0, 0
EXEC vrn_Wts_TaskCreate @a, N'second', N'/bin/true', N'', NULL, NULL, NULL, NULL, 5, 0, 0
EXEC vrn_Wts_TaskGetFlags @a, @flags OUTPUT
EXEC vrn_Wts_TaskGetStatus @a, @status OUTPUT
EXEC vrn_Wts_TaskInfo @a

-- 2, create or update: what is absent stays, time and flags are written anew.
EXEC vrn_Wts_TaskCreate @a, NULL, N'/bin/false', NULL, NULL, NULL, NULL, NULL, 71583, 4, 2
EXEC vrn_Wts_TaskGetFlags @a, @flags OUTPUT
EXEC vrn_Wts_TaskGetStatus @a, @status OUTPUT
EXEC vrn_Wts_TaskInfo @a

-- 1, replace: the old task goes, with its comment and its triggers.
DECLARE @index int
EXEC vrn_Wts_TriggerCreate @a, @index OUTPUT, 8, 0, 128
EXEC vrn_Wts_TaskCreate @a, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 1
EXEC vrn_Wts_TaskInfo @a

-- Flags and the time limit of a task that stands; minutes come back in ms.
EXEC vrn_Wts_TaskSetFlags @a, 5
EXEC vrn_Wts_TaskSetMaxRunTime @a, 60
EXEC vrn_Wts_TaskGetFlags @a, @flags OUTPUT
EXEC vrn_Wts_TaskGetStatus @a, @status OUTPUT
EXEC vrn_Wts_TaskInfo @a

-- A task of no application, and one with another name than the rule's.
EXEC vrn_Wts_TaskCreate N'Nightly backup', NULL, N'', N'', NULL, NULL, NULL, NULL, 0, 0, 0
EXEC vrn_Wts_TaskGetStatus N'Nightly backup', @status OUTPUT

-- Deleting; what is gone can't be opened, and nothing comes back.
SET @status = NULL
EXEC vrn_Wts_TaskDelete @a
EXEC vrn_Wts_TaskDelete @a
EXEC vrn_Wts_TaskGetStatus @a, @status OUTPUT
EXEC vrn_Wts_TaskRun @a
