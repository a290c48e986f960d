-- vrn_PFormula_Eval: a normal form applied to a value. The value goes in and
-- comes back through the OUTPUT parameter; a failure leaves it as it was.
DECLARE @v float, @rc int, @nothing varchar(10), @none float

SET @v = 100
EXEC @rc = vrn_PFormula_Eval '=100 +22% -5& *2 /4 AD(-1) ', @v OUTPUT
SET @v = 100
EXEC @rc = vrn_PFormula_Eval '', @v OUTPUT
SET @v = 100
EXEC @rc = vrn_PFormula_Eval @nothing, @v OUTPUT

-- No limits on /: the reader takes what it is given.
SET @v = 100
EXEC @rc = vrn_PFormula_Eval '/0', @v OUTPUT

-- A NULL start counts as 0, and a NULL text gives the start back, never NULL.
EXEC @rc = vrn_PFormula_Eval '+10 ', @none OUTPUT
SET @none = NULL
EXEC @rc = vrn_PFormula_Eval @nothing, @none OUTPUT

-- Failures: the error number, its position counted from 1, length 1.
SET @v = 100
EXEC @rc = vrn_PFormula_Eval 'x', @v OUTPUT
SELECT @rc AS rc, @v AS v
EXEC @rc = vrn_PFormula_Eval 'AC(7)', @v OUTPUT
EXEC @rc = vrn_PFormula_Eval '5 %', @v OUTPUT
SELECT @rc AS rc, @v AS v
-- The text ends inside an operation: the NULs behind it are read as wrong bytes.
EXEC @rc = vrn_PFormula_Eval 'AC(', @v OUTPUT
-- A NUL between operations ends the text; a byte from 0x80 up is a failure.
EXEC @rc = vrn_PFormula_Eval CAST(0x2B35002B37 AS varchar(5)), @v OUTPUT
EXEC @rc = vrn_PFormula_Eval CAST(0x35E8 AS varchar(2)), @v OUTPUT

-- char values come padded with blanks, which the reader skips.
DECLARE @c char(12) = '*2 AC(0)'
SET @v = 1.25
EXEC @rc = vrn_PFormula_Eval @c, @v OUTPUT

-- Wrong calls: one message, 0x80070057, and the variable keeps its value.
DECLARE @r real = 100, @n nvarchar(10) = N'+1 '
SET @v = 100
EXEC @rc = vrn_PFormula_Eval '+1 ', @r OUTPUT
EXEC @rc = vrn_PFormula_Eval '+1 ', @v
EXEC @rc = vrn_PFormula_Eval '+1 '
EXEC @rc = vrn_PFormula_Eval @n, @v OUTPUT
SELECT @rc AS rc, @v AS v, @r AS r
