-- vrn_StrToFile: a text into a file of the working folder, replacing its
-- content or added to its end. Return status 0 when written, -1 otherwise.
-- (The bytes in the files are checked by the procedure tests.)

PRINT 'a new file of 3 bytes'
EXEC vrn_StrToFile 'abc', 'new.txt'
PRINT '10 bytes, then overwritten in place and cut to 3'
EXEC vrn_StrToFile '0123456789', 'ten.txt'
EXEC vrn_StrToFile 'abc', 'ten.txt'

PRINT 'any flag but 0 appends: int 1, int 2, bit 1, smallint -1'
DECLARE @yes bit = 1, @no bit = 0, @small smallint = -1
EXEC vrn_StrToFile 'abc', 'ten.txt', 1
EXEC vrn_StrToFile 'abc', 'ten.txt', 2
EXEC vrn_StrToFile 'abc', 'ten.txt', @yes
EXEC vrn_StrToFile 'abc', 'ten.txt', @small
PRINT 'bit 0 and int 0 overwrite'
EXEC vrn_StrToFile 'abc', 'ten.txt', @no
EXEC vrn_StrToFile 'abc', 'ten.txt', 0

PRINT 'the empty text empties a file, or adds nothing; a missing file is created'
EXEC vrn_StrToFile '', 'ten.txt'
EXEC vrn_StrToFile '', 'ten.txt', 1
EXEC vrn_StrToFile '', 'empty.txt', 1

PRINT 'text values and any bytes'
DECLARE @t text = 'a long text'
EXEC vrn_StrToFile @t, 'text.txt'
EXEC vrn_StrToFile CAST(0x6100E80A AS varchar(4)), 'bytes.txt'

PRINT 'wrong calls: the parameter message, nothing written'
DECLARE @nothing varchar(10), @noflag int, @out varchar(10) = 'x.txt'
EXEC vrn_StrToFile 'abc'
EXEC vrn_StrToFile 'abc', 'x.txt', 1, 1
EXEC vrn_StrToFile @nothing, 'x.txt'
EXEC vrn_StrToFile 'abc', @nothing
EXEC vrn_StrToFile 'abc', ''
EXEC vrn_StrToFile 'abc', 'x.txt', @noflag
EXEC vrn_StrToFile 'abc', 'x.txt', NULL
EXEC vrn_StrToFile 'abc', @out OUTPUT
EXEC vrn_StrToFile N'abc', 'x.txt'
EXEC vrn_StrToFile 'abc', 'x.txt', 1.5
EXEC vrn_StrToFile 'abc', 'x.txt', 'yes'

PRINT 'a folder that does not exist: the system''s number and text'
EXEC vrn_StrToFile 'abc', 'no/such/folder.txt'
PRINT 'x.txt was never created, so no folder is found below it; new.txt is a file, not a folder'
EXEC vrn_StrToFile 'abc', 'x.txt/below.txt'
EXEC vrn_StrToFile 'abc', 'new.txt/below.txt'
