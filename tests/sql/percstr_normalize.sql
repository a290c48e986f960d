-- vrn_PercStrNormalize: the normal form of a percentage string; the return
-- status counts the characters thrown away.
DECLARE @o varchar(30), @short varchar(3), @nothing varchar(30), @c22 char(22) = '7'
EXEC vrn_PercStrNormalize '1234+5', @o OUTPUT
-- NULL gives the empty text, not NULL.
EXEC vrn_PercStrNormalize @nothing, @o OUTPUT
-- 21 characters are taken; 22, blanks of a char value included, are refused.
EXEC vrn_PercStrNormalize '111+222+333+444+555+6', @o OUTPUT
EXEC vrn_PercStrNormalize N'10', @o OUTPUT
EXEC vrn_PercStrNormalize @c22, @o OUTPUT
-- The result is cut to the variable; a text longer than the variable is refused.
EXEC vrn_PercStrNormalize '.55', @short OUTPUT
EXEC vrn_PercStrNormalize '12345', @short OUTPUT
