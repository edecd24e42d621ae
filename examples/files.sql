-- Files, text and commands, for quorelsql and for sqlite3 with the extension:
--
--     quorelsql files.sql
--     sqlite3 -cmd '.load quorel_sqlite' <files.sql

CREATE TEMP TABLE stock (article, amount);
INSERT INTO stock VALUES ('apples', '12'), ('pears', '7');

-- A list of the stock, as a file in the current folder.
SELECT xp_write_file('stock.txt',
           (SELECT group_concat(xp_sprintf('%-10s%5s', article, amount), char(10)) || char(10)
            FROM stock)) AS status;

-- The file as it was written, and its first line taken apart again.
SELECT CAST(xp_read_file('stock.txt') AS TEXT) AS contents;
SELECT value FROM xp_scanf(CAST(xp_read_file('stock.txt') AS TEXT), '%s %s');

-- A command; its exit status is a value.
SELECT xp_cmdshell('test -s stock.txt') AS status;

-- NULL is what cannot be read.
SELECT xp_read_file('no such file') IS NULL AS missing;
