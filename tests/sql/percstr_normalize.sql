-- vrn_PercStrNormalize: the canonical form of a percentage string, and the
-- number of characters thrown away as the return status.
DECLARE @o varchar(30), @short varchar(3), @rc int
DECLARE @nothing varchar(30)

-- Everyday texts, into a varchar(30).
EXEC @rc = vrn_PercStrNormalize '10,5+5', @o OUTPUT
SELECT @rc, @o
EXEC @rc = vrn_PercStrNormalize '1234+5', @o OUTPUT
SELECT @rc, @o

-- A byte of 0x80 or above is a defect like any other.
EXEC @rc = vrn_PercStrNormalize CAST(0x3130E8 AS varchar(3)), @o OUTPUT
SELECT @rc, @o

-- The empty text and NULL both give the empty text, not NULL.
SET @o = 'x'
EXEC @rc = vrn_PercStrNormalize '', @o OUTPUT
SELECT @rc, @o
SET @o = 'x'
EXEC @rc = vrn_PercStrNormalize @nothing, @o OUTPUT
SELECT @rc, @o

-- 21 characters are taken; 22 are refused with a message.
EXEC @rc = vrn_PercStrNormalize '111+222+333+444+555+6', @o OUTPUT
SELECT @rc, @o
SET @o = 'x'
EXEC @rc = vrn_PercStrNormalize '111+222+333+444+555+66', @o OUTPUT
SELECT @rc, @o

-- A varchar(3) result: a text that fits is normalised and cut to 3 (.55
-- becomes 0.55, then 0.5); a longer text is refused.
EXEC @rc = vrn_PercStrNormalize '.55', @short OUTPUT
SELECT @rc, @short
SET @short = 'x'
EXEC @rc = vrn_PercStrNormalize '12345', @short OUTPUT
SELECT @rc, @short

-- char values arrive padded with blanks, which the normaliser skips, as long
-- as the padded length stays within 21.
DECLARE @c21 char(21) = '7', @c22 char(22) = '7'
DECLARE @co char(30)
EXEC @rc = vrn_PercStrNormalize @c21, @o OUTPUT
SELECT @rc, @o
EXEC @rc = vrn_PercStrNormalize @c22, @o OUTPUT
SELECT @rc, @o
EXEC @rc = vrn_PercStrNormalize '10 5', @co OUTPUT
SELECT @rc, @co

-- Wrong calls: one message for all of them, return status -1, and the
-- OUTPUT variable keeps its value.
DECLARE @in varchar(30) = '10', @n int
SET @o = 'untouched'
EXEC @rc = vrn_PercStrNormalize
SELECT @rc, @o
EXEC @rc = vrn_PercStrNormalize '10', @o OUTPUT, 1
SELECT @rc, @o
EXEC @rc = vrn_PercStrNormalize N'10', @o OUTPUT
SELECT @rc, @o
EXEC @rc = vrn_PercStrNormalize CAST('10' AS text), @o OUTPUT
SELECT @rc, @o
-- An untyped NULL is no char value; a NULL varchar is taken (above).
EXEC @rc = vrn_PercStrNormalize NULL, @o OUTPUT
SELECT @rc, @o
EXEC @rc = vrn_PercStrNormalize '10', @o
SELECT @rc, @o
EXEC @rc = vrn_PercStrNormalize @in OUTPUT, @o OUTPUT
SELECT @rc, @o
EXEC @rc = vrn_PercStrNormalize '10', @n OUTPUT
SELECT @rc, @n
