-- Mail from SQL, for quorelsql and for sqlite3 with the extension. The database says where to:
--
--     quorelsql mail.db -c "CREATE TABLE account(host, port, sender, recipient)" \
--         -c "INSERT INTO account VALUES('localhost', 25, 'me@example.org', 'you@example.org')"
--     quorelsql mail.db mail.sql
--     sqlite3 -cmd '.load quorel_sqlite' mail.db <mail.sql
--
-- Over TLS and with a login, xp_startsmtp takes eight values: sender, host, port, timeout, sender_name,
-- auth_username, auth_password and trusted_cert, such as '/etc/ssl/certs/ca-certificates.crt'. quorel(7)
-- says what each status means and what to do about it; 0 is success.

SELECT xp_startsmtp(sender, host, port) AS started FROM account;
-- recipient, subject, cc_recipient, bcc_recipient, query, message
SELECT xp_sendmail(recipient, 'Stock', NULL, NULL, NULL,
                   'The stock of ' || date('now') || '.') AS sent FROM account;
SELECT xp_stopsmtp() AS stopped;
