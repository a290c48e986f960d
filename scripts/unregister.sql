-- Removes every procedure of vrn.dll from master, skipping those not there,
-- and unloads the DLL so that a new one can be copied over it.
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
DECLARE present CURSOR LOCAL FAST_FORWARD FOR
    SELECT name FROM @procedures WHERE name IN (SELECT name FROM sys.extended_procedures);
OPEN present;
FETCH NEXT FROM present INTO @name;
WHILE @@FETCH_STATUS = 0
BEGIN
    EXEC sp_dropextendedproc @name;
    PRINT N'removed ' + @name;
    FETCH NEXT FROM present INTO @name;
END;
CLOSE present;
DEALLOCATE present;
DBCC vrn(FREE);
