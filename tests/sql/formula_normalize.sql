-- vrn_PFormula_Normalize: checks a formula and gives its normal form, each
-- operation followed by one blank.
DECLARE @o varchar(100), @four varchar(4), @nothing varchar(10)
EXEC vrn_PFormula_Normalize '=100 22% -5& AC(2)', @o OUTPUT
EXEC vrn_PFormula_Normalize '=0 +5', @o OUTPUT
-- Errors: the number, the position counted from 1, the length of the offending text.
EXEC vrn_PFormula_Normalize '5 x', @o OUTPUT
EXEC vrn_PFormula_Normalize '+1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 +1 x', @o OUTPUT
EXEC vrn_PFormula_Normalize @nothing, @o OUTPUT
-- The variable must hold the whole normal form.
EXEC vrn_PFormula_Normalize '100', @four OUTPUT
EXEC vrn_PFormula_Normalize '100', @o
