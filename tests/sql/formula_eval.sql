-- vrn_PFormula_Eval: a normal form applied to the value that comes in through
-- the OUTPUT parameter; a failure leaves the value as it was.
DECLARE @v float = 100, @none float, @nothing varchar(10), @r real = 100
EXEC vrn_PFormula_Eval '=100 +22% -5& *2 /4 AD(-1) ', @v OUTPUT
-- A NULL start counts as 0, and a NULL text gives the start back.
EXEC vrn_PFormula_Eval @nothing, @none OUTPUT
EXEC vrn_PFormula_Eval 'x', @v OUTPUT
-- A NUL between operations ends the text.
EXEC vrn_PFormula_Eval CAST(0x2B35002B37 AS varchar(5)), @v OUTPUT
EXEC vrn_PFormula_Eval '+1 ', @r OUTPUT
