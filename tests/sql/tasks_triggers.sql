-- Weekly triggers: created, changed, read back and deleted. The weekday mask
-- is Sunday 1, Monday 2 ... Saturday 64; 128 is every day of 1 January 2007 alone.
DECLARE @i int, @t nvarchar(100) = N'{00000000-0000-0000-0000-0000000000B1}-DITTA1'
EXEC vrn_Wts_TaskCreate @t, NULL, N'/bin/true', N'', NULL, NULL, NULL, NULL, 1, 0, 0
EXEC vrn_Wts_TriggerCreate @t, @i OUTPUT, 1, 0, 1
EXEC vrn_Wts_TriggerCreate @t, @i OUTPUT, 23, 59, 42
EXEC vrn_Wts_TriggerCreate @t, @i OUTPUT, 0, 0, 0
EXEC vrn_Wts_TriggerCreate @t, @i OUTPUT, 6, 5, 127
EXEC vrn_Wts_TriggerCreate @t, @i OUTPUT, 12, 0, 128

-- An update replaces the whole trigger; deleting one moves the others down.
EXEC vrn_Wts_TriggerUpdate @t, 2, 7, 45, 65
EXEC vrn_Wts_TriggerDelete @t, 0
EXEC vrn_Wts_TriggerEnum @t

-- -1 deletes every trigger, on a task with triggers and on one without.
EXEC vrn_Wts_TriggerDelete @t, -1
EXEC vrn_Wts_TriggerEnum @t
EXEC vrn_Wts_TriggerDelete @t, -1
