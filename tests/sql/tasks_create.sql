-- Creating a task in the three modes, and what the store keeps of it.
DECLARE @status int, @index int
DECLARE @a nvarchar(100) = N'{00000000-0000-0000-0000-00000000000A}-DITTA1'

-- 0, a new task; a second time the name is taken.
EXEC vrn_Wts_TaskCreate @a, N'first', N'/bin/true', N'', NULL, N'/tmp', N'/Task=00000000-0000-0000-0000-00000000000A /Ditta=DITTA1', 0x0102, 5, 0, 0
EXEC vrn_Wts_TaskCreate @a, N'second', N'/bin/true', N'', NULL, NULL, NULL, NULL, 5, 0, 0
-- 2, create or update: what is absent stays; the time (71583 minutes wrap) and the flags are written anew.
EXEC vrn_Wts_TaskCreate @a, NULL, N'/bin/false', NULL, NULL, NULL, NULL, NULL, 71583, 4, 2
EXEC vrn_Wts_TaskInfo @a

-- 1, replace: the old task goes, with its comment and its trigger. Then the
-- flags and the time limit of a task that stands; minutes come back in ms.
EXEC vrn_Wts_TriggerCreate @a, @index OUTPUT, 8, 0, 128
EXEC vrn_Wts_TaskCreate @a, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 1
EXEC vrn_Wts_TaskSetFlags @a, 5
EXEC vrn_Wts_TaskSetMaxRunTime @a, 60
EXEC vrn_Wts_TaskInfo @a

-- Once deleted it can't be opened, and nothing is delivered.
EXEC vrn_Wts_TaskDelete @a
EXEC vrn_Wts_TaskGetStatus @a, @status OUTPUT
