-- vrn_PercStrEval: the number of a percentage string in one of three modes:
-- 0 adds percentages, 1 chains discounts, 2 chains mark-ups.
DECLARE @r float, @nomode int, @nothing varchar(20), @real real = 5
EXEC vrn_PercStrEval '10+5', @r OUTPUT, 0
EXEC vrn_PercStrEval '10+5', @r OUTPUT, 1
EXEC vrn_PercStrEval '10+5', @r OUTPUT, 2
-- A NULL mode is 0.
EXEC vrn_PercStrEval '10', @r OUTPUT, @nomode
-- A text that isn't a percentage string, and NULL, silently give the mode's start.
EXEC vrn_PercStrEval '10,5', @r OUTPUT, 1
EXEC vrn_PercStrEval @nothing, @r OUTPUT, 2
-- 20 characters are taken; 21 are refused.
EXEC vrn_PercStrEval '1+2+3+4+5+6+7+8+9+10', @r OUTPUT, 0
EXEC vrn_PercStrEval '1+2+3+4+5+6+7+8+9+100', @r OUTPUT, 0
EXEC vrn_PercStrEval '10', @real OUTPUT, 1
