-- What the procedures do, shown on a real file. Run it in a folder of its own:
-- it writes its files into the current one.

-- Every claim of this script; one that does not hold stops it.
CREATE TEMP TABLE shown (claim TEXT, holds INTEGER NOT NULL CHECK (holds));

.print 1. Files: one is read, a copy is written, and the two are compared.
SELECT length(xp_read_file('/etc/passwd')) AS "bytes of /etc/passwd";
CALL xp_write_file('passwd.copy', contents => (SELECT xp_read_file('/etc/passwd')));
CALL xp_read_file('passwd.copy');
INSERT INTO shown
SELECT 'the copy has the bytes of the file', xp_read_file('passwd.copy') = xp_read_file('/etc/passwd');
INSERT INTO shown
SELECT 'cmp finds no difference either', xp_cmdshell('cmp /etc/passwd passwd.copy') = 0;

.print 2. A value of ten million bytes, which moves in many pieces.
CREATE TEMP TABLE long AS SELECT randomblob(10000000) AS bytes;
CALL xp_write_file('long', contents => (SELECT bytes FROM long));
INSERT INTO shown
SELECT 'ten million random bytes came back', xp_read_file('long') = bytes FROM long;

.print
.print 3. A file that is not there gives NULL, a folder that is not there a status.
CALL xp_read_file('no such file');
CALL xp_write_file('no such folder/file', contents => 'text');

.print
.print 4. Formatting and scanning: OUT values are shown as a row.
CALL xp_sprintf(format => '%-8s|%8s|', value1 => 'left', value2 => 'right');
CALL xp_scanf('12 apples, 7 pears', '%s %[a-z], %s %[a-z]');
INSERT INTO shown
SELECT 'what was formatted scans back',
       (SELECT group_concat(value, '+') FROM xp_scanf(xp_sprintf('%s and %s', 'salt', 'pepper'),
                                                      '%s and %s')) = 'salt+pepper';

.print 5. A command, what it prints, and its exit status.
CALL xp_cmdshell('echo "printed by a command"; exit 3');
SELECT xp_cmdshell('exit 3') AS "exit status, from SELECT";
INSERT INTO shown SELECT 'a command that is killed gives 2', xp_cmdshell('kill -9 $$') = 2;

.print 6. What this has shown.
SELECT claim, CASE holds WHEN 1 THEN 'yes' END AS holds FROM shown;
