-- vrn_CountBitsOn: the number of bits set in a varbinary value.
DECLARE @n int = -1

EXEC vrn_CountBitsOn 0xFF, @n OUTPUT
EXEC vrn_CountBitsOn 0x, @n OUTPUT
DECLARE @b varbinary(8) = 0x8040201008040201
EXEC vrn_CountBitsOn @b, @n OUTPUT

PRINT 'wrong calls: the message, and @n keeps its value'
SET @n = -1
DECLARE @nobytes varbinary(4)
EXEC vrn_CountBitsOn 'a', @n OUTPUT
EXEC vrn_CountBitsOn @nobytes, @n OUTPUT
EXEC vrn_CountBitsOn 0xFF, @n
SELECT @n

-- vrn_Debugout only refuses here: what it writes goes to the system's log.
PRINT 'vrn_Debugout without a text, or with a number'
EXEC vrn_Debugout
EXEC vrn_Debugout 12
