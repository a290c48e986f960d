-- vrn_PercStrEval: the number of a percentage string in one of three modes:
-- 0 adds percentages, 1 chains discounts, 2 chains mark-ups.
DECLARE @r float, @rc int

-- One text, three modes.
EXEC @rc = vrn_PercStrEval '10+5', @r OUTPUT, 0
EXEC @rc = vrn_PercStrEval '10+5', @r OUTPUT, 1
EXEC @rc = vrn_PercStrEval '10+5', @r OUTPUT, 2
EXEC @rc = vrn_PercStrEval '10-(5+2)', @r OUTPUT, 1

-- Every mode word but 0 and 1 means mode 2; a NULL mode means 0.
DECLARE @nomode int, @s smallint = -1, @t tinyint = 1
EXEC @rc = vrn_PercStrEval '10', @r OUTPUT, 7
EXEC @rc = vrn_PercStrEval '10', @r OUTPUT, -1
EXEC @rc = vrn_PercStrEval '10', @r OUTPUT, @s
EXEC @rc = vrn_PercStrEval '10', @r OUTPUT, @t
EXEC @rc = vrn_PercStrEval '10', @r OUTPUT, @nomode

-- A text that isn't a percentage string gives the mode's starting value,
-- silently: the text must be normalised first, commas included.
EXEC @rc = vrn_PercStrEval '10,5', @r OUTPUT, 1
EXEC @rc = vrn_PercStrEval '+5', @r OUTPUT, 2
EXEC @rc = vrn_PercStrEval '1234', @r OUTPUT, 1

-- NULL, the empty text and blanks: the starting value as well.
DECLARE @nothing varchar(20)
EXEC @rc = vrn_PercStrEval @nothing, @r OUTPUT, 2
EXEC @rc = vrn_PercStrEval '', @r OUTPUT, 1
EXEC @rc = vrn_PercStrEval '   ', @r OUTPUT, 0

-- 20 characters are taken; 21 are refused with a message.
EXEC @rc = vrn_PercStrEval '1+2+3+4+5+6+7+8+9+10', @r OUTPUT, 0
EXEC @rc = vrn_PercStrEval '1+2+3+4+5+6+7+8+9+100', @r OUTPUT, 0

-- char values arrive padded with blanks, which the scanner skips, as long as
-- the padded length stays within 20.
DECLARE @c20 char(20) = '10+5', @c21 char(21) = '10+5'
EXEC @rc = vrn_PercStrEval @c20, @r OUTPUT, 1
EXEC @rc = vrn_PercStrEval @c21, @r OUTPUT, 1

-- Wrong calls: one message, status 0x80070057, the OUTPUT variable untouched.
DECLARE @real real = 5, @n int = 3, @f float = 5
SET @r = 42
EXEC @rc = vrn_PercStrEval '10', @real OUTPUT, 1
EXEC @rc = vrn_PercStrEval '10', @r OUTPUT
EXEC @rc = vrn_PercStrEval
EXEC @rc = vrn_PercStrEval '10', @r, 1
EXEC @rc = vrn_PercStrEval '10', @n OUTPUT, 1
EXEC @rc = vrn_PercStrEval '10', @r OUTPUT, 1.0
EXEC @rc = vrn_PercStrEval N'10', @r OUTPUT, 1
EXEC @rc = vrn_PercStrEval CAST('10' AS text), @r OUTPUT, 1
SELECT @r, @rc
