-- What vrn-exec does with a script: literals, variables, CAST to any bytes,
-- OUTPUT round trips, and how it shows what comes back.

-- Literals of every kind, shown as a one-row set.
SELECT 'it''s' AS quote, N'caffè €' AS wide, 12 AS int, -2147483648 AS least, 2147483648 AS dec,
       1.50 AS dec2, -0.5 AS half, 1e2 AS float, 0x0A1b AS bin, 0x AS empty, NULL AS nothing, 'x'

-- Declared variables: char pads, varchar cuts, numbers convert.
DECLARE @c char(6) = 'ab', @v varchar(3) = 'abcdef', @n nchar(2) = N'è'
DECLARE @i smallint = -1, @t tinyint = 255, @b bit = 2, @r real = 0.1, @f float = 0.1
DECLARE @d decimal(6,2) = 1.005, @x varbinary(4) = CAST(258 AS binary(4))
SELECT @c AS c, @v AS v, @n AS n, @i AS i, @t AS t, @b AS b, @r AS r, @f AS f, @d AS d, @x AS x
SET @f = CAST(0.15000000000000002 AS float)
SET @v = 42
SELECT @f AS f, @v AS v

-- PRINT shows text as it is; NULL prints an empty line.
PRINT 'caffè'
PRINT NULL
PRINT 1.25

-- A text with a NUL reaches the procedure as these bytes (0xE8 in percstr_normalize).
DECLARE @o varchar(30), @rc int
EXEC @rc = vrn_PercStrNormalize CAST(0x31002B35 AS varchar(4)), @o OUTPUT
SELECT @rc AS rc, @o AS o

-- OUTPUT: the variable's type goes in, the value comes back as delivered.
EXEC vrn_PercStrNormalize '10,5+5', @o OUTPUT
DECLARE @p char(10) = 'x'
EXEC vrn_PercStrNormalize '1+2', @p OUTPUT
SELECT @p AS p, @o AS o
DECLARE @short varchar(3)
EXECUTE vrn_PercStrNormalize '.55', @short OUT
-- A refused call leaves the variable as it was.
exec vrn_PercStrNormalize 12, @short OUTPUT
GO
-- Variables belong to their batch.
DECLARE @o varchar(30)
SELECT @o AS fresh
