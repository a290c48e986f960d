-- Registers every procedure of vrn.dll in master, skipping those already
-- there: run it in master as a member of sysadmin, after copying vrn.dll into
-- the server's folder of extension DLLs (or change N'vrn.dll' to its full path).
USE master;
DECLARE @procedures TABLE (name sysname PRIMARY KEY);
INSERT INTO @procedures (name) VALUES
    (N'vrn_PercStrNormalize'),
    (N'vrn_PercStrEval'),
    (N'vrn_PercStrSymb_GetMutex'),
    (N'vrn_PercStrSymb_ReleaseMutex'),
    (N'vrn_PercStrSymb_Init'),
    (N'vrn_PercStrSymb_SetVar'),
    (N'vrn_PercStrSymb_Eval'),
    (N'vrn_PercStrSymb_ErrorInfo'),
    (N'vrn_PFormula_Normalize'),
    (N'vrn_PFormula_Eval'),
    (N'vrn_Wts_TaskCreate'),
    (N'vrn_Wts_TaskDelete'),
    (N'vrn_Wts_TaskRun'),
    (N'vrn_Wts_TaskTerminate'),
    (N'vrn_Wts_TaskGetFlags'),
    (N'vrn_Wts_TaskGetStatus'),
    (N'vrn_Wts_TaskSetFlags'),
    (N'vrn_Wts_TaskSetMaxRunTime'),
    (N'vrn_Wts_TaskEnableAll'),
    (N'vrn_Wts_TaskDisableAll'),
    (N'vrn_Wts_TaskEnum'),
    (N'vrn_Wts_TaskInfo'),
    (N'vrn_Wts_TriggerCreate'),
    (N'vrn_Wts_TriggerUpdate'),
    (N'vrn_Wts_TriggerDelete'),
    (N'vrn_Wts_TriggerEnum'),
    (N'vrn_CountBitsOn'),
    (N'vrn_Debugout'),
    (N'vrn_GetFolderPath'),
    (N'vrn_GetSrvInfo'),
    (N'vrn_StrToFile');
DECLARE @name sysname;
DECLARE missing CURSOR LOCAL FAST_FORWARD FOR
    SELECT name FROM @procedures WHERE name NOT IN (SELECT name FROM sys.extended_procedures);
OPEN missing;
FETCH NEXT FROM missing INTO @name;
WHILE @@FETCH_STATUS = 0
BEGIN
    EXEC sp_addextendedproc @name, N'vrn.dll';
    PRINT N'registered ' + @name;
    FETCH NEXT FROM missing INTO @name;
END;
CLOSE missing;
DEALLOCATE missing;
