-- vrn_StrToFile: a text into a file of the working folder, replacing its
-- content or added to its end; 0 when written, -1 otherwise.
EXEC vrn_StrToFile 'abc', 'new.txt'
EXEC vrn_StrToFile 'abc', 'new.txt', 1
EXEC vrn_StrToFile 'abc', ''
-- A folder that doesn't exist: the system's number and text.
EXEC vrn_StrToFile 'abc', 'no/such/folder.txt'
