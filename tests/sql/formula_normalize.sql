-- vrn_PFormula_Normalize: checks a formula and gives its normal form, each
-- operation followed by one blank.
DECLARE @o varchar(100), @rc int, @nothing varchar(10)

EXEC @rc = vrn_PFormula_Normalize '100', @o OUTPUT
EXEC @rc = vrn_PFormula_Normalize '=100 22% -5& AC(2)', @o OUTPUT
EXEC @rc = vrn_PFormula_Normalize 'ad(+3) 1.2.3 00012 *1.50 .5', @o OUTPUT
EXEC @rc = vrn_PFormula_Normalize '=0 +5', @o OUTPUT

-- Errors: the number, the position counted from 1, the length of the offending text.
SET @o = 'untouched'
EXEC @rc = vrn_PFormula_Normalize '', @o OUTPUT
EXEC @rc = vrn_PFormula_Normalize @nothing, @o OUTPUT
EXEC @rc = vrn_PFormula_Normalize '5 x', @o OUTPUT
EXEC @rc = vrn_PFormula_Normalize '/0', @o OUTPUT
EXEC @rc = vrn_PFormula_Normalize '123456789', @o OUTPUT
SELECT @rc AS rc, @o AS o

-- Normal forms that grow more than half again as long as their text come whole.
EXEC @rc = vrn_PFormula_Normalize '1%1%1%1%1%1%1%', @o OUTPUT
EXEC @rc = vrn_PFormula_Normalize '.1.1.1.1', @o OUTPUT

-- The OUTPUT variable must hold the whole normal form.
DECLARE @four varchar(4) = 'x', @five varchar(5)
EXEC @rc = vrn_PFormula_Normalize '100', @four OUTPUT
SELECT @rc AS rc, @four AS four
EXEC @rc = vrn_PFormula_Normalize '100', @five OUTPUT

-- Wrong calls: one message and 0x80070057.
DECLARE @f float = 1, @n nvarchar(10) = N'100'
EXEC @rc = vrn_PFormula_Normalize '100', @f OUTPUT
EXEC @rc = vrn_PFormula_Normalize '100', @o
EXEC @rc = vrn_PFormula_Normalize @n, @o OUTPUT
SELECT @rc AS rc, @o AS o
