-- Each word size, in the backend's process and in a worker, gives the same answers.
\getenv files QUOREL_FILES
\pset tuples_only on
\pset format unaligned
\pset null NULL
\set VERBOSITY sqlstate
CREATE EXTENSION quorel;
-- Who may, and what the planner knows.
SELECT proname, proacl, provolatile, proparallel FROM pg_proc, pg_depend
    WHERE pg_proc.oid = objid AND deptype = 'e' AND proname ^@ 'xp_' ORDER BY proname, pronargs, proargtypes::text;
CREATE ROLE quorel_reader IN ROLE pg_read_server_files;
CREATE ROLE quorel_writer IN ROLE pg_write_server_files;
CREATE ROLE quorel_operator IN ROLE pg_execute_server_program;
CREATE FUNCTION may(role name, call text) RETURNS text LANGUAGE plpgsql AS $$
BEGIN
    PERFORM set_config('role', role, true);
    EXECUTE 'SELECT ' || call;
    RETURN 'called';
EXCEPTION WHEN OTHERS THEN RETURN SQLSTATE;
END $$;
SELECT call, may('quorel_reader', call), may('quorel_writer', call), may('quorel_operator', call) FROM (VALUES
    ('xp_read_file(''none'')'), ('xp_write_file(''/none/f'', ''a''::bytea)'),
    ('xp_write_file(''/none/f'', ''a''::text)'), ('xp_cmdshell(''true'')'),
    ('xp_startsmtp(host => ''127.0.0.1'')'), ('xp_sendmail(recipient => ''b'')'), ('xp_stopsmtp()'),
    ('xp_status(''xp_cmdshell'', 0)'), ('set_config(''quorel.library'', ''/tmp/l'', true)'),
    ('set_config(''quorel.worker'', ''off'', true)'), ('set_config(''quorel.read_paths'', '''', true)'),
    ('set_config(''quorel.write_paths'', '''', true)'), ('set_config(''quorel.deadline'', ''1s'', true)'),
    ('set_config(''quorel.allow_plaintext_auth'', ''on'', true)')) AS calls(call);
-- Sizes. A file of none cannot be written, but read.
CREATE FUNCTION bytes(size integer) RETURNS bytea LANGUAGE sql AS $$
    SELECT substr(string_agg(sha512(i::text::bytea), ''), 1, size) FROM generate_series(0, size / 64) AS i
$$;
SELECT size, xp_write_file(:'files' || '/f', bytes(size)), xp_read_file(:'files' || '/f') = bytes(size)
    FROM (VALUES (1), (32767), (32768), (32769), (1048576)) AS sizes(size);
\! : >"$QUOREL_FILES/empty"; truncate -s 1073741820 "$QUOREL_FILES/long"
SELECT xp_read_file(:'files' || '/empty'), xp_write_file(:'files' || '/f', ''::bytea);
SELECT length(xp_read_file(:'files' || '/long'));
-- A function's body and a prepared statement are statements too.
CREATE FUNCTION copied(name text) RETURNS integer LANGUAGE sql AS
    'SELECT xp_write_file(name || ''.copy'', contents => xp_read_file(name))';
PREPARE copy AS SELECT copied($1), xp_read_file(name => $1 || '.copy') = xp_read_file($1);
EXECUTE copy(:'files' || '/f');
-- Defaults, NULLs and what is not there.
SELECT xp_read_file(:'files' || '/none'), xp_write_file(:'files' || '/none/f', 'text'), xp_cmdshell('exit 3');
SELECT xp_read_file(NULL);
SELECT xp_write_file(NULL, 'text'), xp_write_file(:'files' || '/f', NULL::text);
SELECT xp_cmdshell(NULL);
-- A command has none of the backend's connections.
SELECT xp_cmdshell('for f in /proc/$$/fd/*; do ! test -S $f || exit 1; done');
SELECT xp_sprintf('%s-%5s|', 'a', 'b'), xp_sprintf('plain'), length(xp_sprintf('%s', repeat('x', 300)));
SELECT xp_sprintf(NULL), xp_sprintf('%s', NULL), xp_sprintf('%s', VARIADIC NULL);
SELECT xp_sprintf('%s', VARIADIC array_fill('a'::text, '{51}'));
SELECT xp_scanf('12 apples', '%s %s'), xp_scanf('', '%s'), xp_scanf(NULL, '%s');
SELECT xp_startsmtp('a@a.test', '127.0.0.1', 1), xp_sendmail('b@b.test', message => 'text'), xp_stopsmtp();
SELECT xp_status('xp_sendmail', 25), xp_status('xp_none', 0), xp_status(NULL, 0);
-- What a call may not hold.
SELECT xp_startsmtp('a@a.test', 'mail.example', auth_username => 'a', auth_password => 'b');
SELECT xp_sendmail('b@b.test', E'subject\nBcc: c@c.test', message => 'text');
\set VERBOSITY default
SELECT xp_sendmail(recipient => 'b@b.test>, <c@c.test', subject => 'a');
\set VERBOSITY sqlstate
-- Folders: neither a link nor ".." leads out of them, and the one for reading is none for writing.
\! mkdir -m 777 "$QUOREL_FILES/in"; echo in >"$QUOREL_FILES/in/f"; ln -s ../f "$QUOREL_FILES/in/link"; ln -s f "$QUOREL_FILES/in/beside"
SELECT set_config('quorel.read_paths', :'files' || '/in', false) <> '';
SELECT xp_read_file(:'files' || '/in/f'), xp_read_file(:'files' || '/in/beside');
SELECT xp_read_file(:'files' || '/f');
SELECT xp_read_file(:'files' || '/in/link');
SELECT xp_read_file(:'files' || '/in/../f');
SELECT xp_read_file(:'files' || '/information');
SELECT xp_sendmail('b@b.test', include_file => :'files' || '/f');
SELECT xp_write_file(:'files' || '/f', 'x');
SELECT set_config('quorel.write_paths', :'files' || '/in', false) <> '';
SELECT xp_write_file(:'files' || '/f', 'x');
SELECT xp_write_file(:'files' || '/in/link', 'x');
SELECT xp_write_file(:'files' || '/in/g', 'x'), xp_read_file(:'files' || '/in/g');
-- A deadline.
RESET quorel.read_paths;
SET quorel.deadline = '200ms';
SELECT xp_cmdshell('sleep 60');
RESET quorel.deadline;
-- Encodings: a text is in the database's, whole characters only.
SELECT xp_write_file(:'files' || '/in/Grüße', '€'), xp_read_file(:'files' || '/in/Grüße'), xp_sprintf('%s', 'Grüße €');
SELECT xp_scanf('é', '%1c');
CREATE DATABASE latin1 ENCODING 'LATIN1' TEMPLATE template0;
\c latin1
\encoding UTF8
CREATE EXTENSION quorel;
SELECT xp_sprintf('%s', 'Grüße'), xp_scanf('é b', '%1c %s');
SELECT xp_write_file(:'files' || '/in/Grüße', 'ü'), xp_read_file(:'files' || '/in/Grüße');
SELECT xp_sprintf('%s', '€');
\c regression
-- A list that was there before the module and is none allows nothing.
SET quorel.read_paths = 'files';
SELECT xp_read_file('/etc/passwd');
SET quorel.read_paths = 'files';
DROP DATABASE latin1;
DROP FUNCTION may, bytes, copied;
DROP EXTENSION quorel;
DROP ROLE quorel_reader, quorel_writer, quorel_operator;
