#!/usr/bin/env bash
# A first look at the whole product: sets up only what the library and
# vrn-exec need, builds them in Release, and runs one short batch through the
# main jobs, then one call as JSON. Scheduled tasks go to a store in a
# temporary folder. Lines that say only "done" (status 0, blank) are left out.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh" build
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=Release -DVRN_TESTS=OFF -DVRN_BENCH=OFF >/dev/null
cmake --build "$root/build" -j "$(nproc)" --target vrn-exec >/dev/null
exec="$root/build/host/vrn-exec"
store=$(mktemp -d)
trap 'rm -rf "$store"' EXIT

"$exec" --task-store "$store" -Q "
DECLARE @s varchar(30), @r float, @f varchar(100), @price float = 100, @i int
DECLARE @task nvarchar(100) = N'{6F9619FF-8B86-D011-B42D-00C04FC964FF}-DITTA1'
PRINT '-- A discount chain typed into a price field: its normal form, then its number summed, chained, as mark-ups'
EXEC vrn_PercStrNormalize '10,5 5', @s OUTPUT
EXEC vrn_PercStrEval @s, @r OUTPUT, 0
EXEC vrn_PercStrEval @s, @r OUTPUT, 1
EXEC vrn_PercStrEval @s, @r OUTPUT, 2
PRINT '-- A symbolic string over the customer''s and the article''s discounts, under the client-held lock'
EXEC vrn_PercStrSymb_GetMutex 1000
EXEC vrn_PercStrSymb_Init 1
EXEC vrn_PercStrSymb_SetVar 'Cliente', '10+5'
EXEC vrn_PercStrSymb_SetVar 'Articolo', '20'
EXEC vrn_PercStrSymb_Eval 'MAX(Cliente,Articolo)+2', @s OUTPUT
EXEC vrn_PercStrSymb_ReleaseMutex
PRINT '-- A price formula: its normal form, applied to a price of 100'
EXEC vrn_PFormula_Normalize '=100 22% -5& AC(2)', @f OUTPUT
EXEC vrn_PFormula_Eval @f, @price OUTPUT
PRINT '-- A nightly task with a trigger at 23:30 from Monday to Friday, its row, and away again'
EXEC vrn_Wts_TaskCreate @task, N'nightly export', N'/bin/true', N'', NULL, NULL, N'/Ditta=DITTA1', NULL, 60, 0, 0
EXEC vrn_Wts_TriggerCreate @task, @i OUTPUT, 23, 30, 62
EXEC vrn_Wts_TaskInfo @task
EXEC vrn_Wts_TaskDelete @task
PRINT '-- A wrong call: the procedure''s own message and status'
EXEC vrn_PercStrEval 10, @r OUTPUT, 1
" | grep -v -x -e '' -e '(return status = 0)'

echo "-- The same call as JSON, for scripts"
"$exec" --json -Q "DECLARE @o varchar(30); EXEC vrn_PercStrNormalize '10,5 5', @o OUTPUT"
