-- The outbox in SQLite: beside the tables of whoever queues mail, so that one transaction holds both,
-- and therefore under names that begin with quorel_. Times are texts in UTC. Each step is one transaction.

-- The steps that were taken.
CREATE TABLE quorel_outbox (
    version INTEGER PRIMARY KEY,
    installed TEXT NOT NULL DEFAULT (strftime('%Y-%m-%d %H:%M:%f', 'now'))
) STRICT;
INSERT INTO quorel_outbox (version) VALUES (1);

CREATE TABLE quorel_account (
    name TEXT NOT NULL PRIMARY KEY,
    host TEXT NOT NULL,
    port INTEGER NOT NULL DEFAULT 25,
    trusted_cert TEXT,                -- a file of trusted certificates; asks for TLS
    cert_company TEXT,
    cert_unit TEXT,
    cert_name TEXT,
    username TEXT,
    password TEXT,
    password_file TEXT,               -- a file on the daemon's machine, in place of the password
    allow_plaintext_auth INTEGER NOT NULL DEFAULT 0,
    sender TEXT,                      -- for mails that have none of their own
    sender_name TEXT,
    timeout_seconds INTEGER NOT NULL DEFAULT 60,
    rank INTEGER NOT NULL DEFAULT 0,  -- lower ones are tried first
    per_minute INTEGER,               -- at most so many attempts in any 60 seconds
    enabled INTEGER NOT NULL DEFAULT 1,
    -- What the daemon keeps.
    away_until TEXT,
    failures INTEGER NOT NULL DEFAULT 0,
    trouble TEXT,
    CONSTRAINT an_account_has_a_name_and_a_host CHECK (name <> '' AND host <> ''),
    CONSTRAINT account_fields_are_one_line CHECK (
        name || host || ifnull(trusted_cert, '') || ifnull(cert_company, '') || ifnull(cert_unit, '')
            || ifnull(cert_name, '') || ifnull(username, '') || ifnull(password, '')
            || ifnull(password_file, '') || ifnull(sender, '') || ifnull(sender_name, '')
            NOT GLOB '*[' || char(1) || '-' || char(8) || char(10) || '-' || char(31, 127) || ']*'),
    CONSTRAINT account_fields_hold_no_nul CHECK (
        instr(name || host || ifnull(trusted_cert, '') || ifnull(cert_company, '')
              || ifnull(cert_unit, '') || ifnull(cert_name, '') || ifnull(username, '')
              || ifnull(password, '') || ifnull(password_file, '') || ifnull(sender, '')
              || ifnull(sender_name, ''), char(0)) = 0),
    CONSTRAINT account_numbers_are_possible CHECK (
        port BETWEEN 1 AND 65535 AND timeout_seconds BETWEEN 1 AND 3600 AND per_minute >= 1
        AND rank BETWEEN -2147483648 AND 2147483647 AND per_minute <= 2147483647),
    CONSTRAINT a_user_has_one_password CHECK (
        (password IS NOT NULL) + (password_file IS NOT NULL) = (username IS NOT NULL)),
    CONSTRAINT switches_are_0_or_1 CHECK (enabled IN (0, 1) AND allow_plaintext_auth IN (0, 1))
) STRICT;

CREATE TABLE quorel_message (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    account TEXT REFERENCES quorel_account ON UPDATE CASCADE,  -- NULL: any, in order of rank
    sender TEXT,
    sender_name TEXT,
    recipients TEXT,
    cc TEXT,
    bcc TEXT,
    reply_to TEXT,
    subject TEXT,
    text_body TEXT,
    html_body TEXT,
    message_id TEXT,                  -- made by a trigger where it is left out
    in_reply_to TEXT,
    "references" TEXT,
    list_unsubscribe TEXT,
    headers TEXT,                     -- lines "Name: value"
    created TEXT NOT NULL DEFAULT (strftime('%Y-%m-%d %H:%M:%f', 'now')),
    due TEXT NOT NULL DEFAULT (strftime('%Y-%m-%d %H:%M:%f', 'now')),
    max_attempts INTEGER NOT NULL DEFAULT 10,
    expires TEXT,                     -- not to be sent after that
    CONSTRAINT a_mail_has_a_recipient CHECK (
        ifnull(recipients, '') || ifnull(cc, '') || ifnull(bcc, '') LIKE '%@%'),
    CONSTRAINT header_fields_are_one_line CHECK (
        ifnull(sender, '') || ifnull(sender_name, '') || ifnull(recipients, '') || ifnull(cc, '')
            || ifnull(bcc, '') || ifnull(reply_to, '') || ifnull(subject, '')
            || ifnull(message_id, '') || ifnull(in_reply_to, '') || ifnull("references", '')
            || ifnull(list_unsubscribe, '')
            NOT GLOB '*[' || char(1) || '-' || char(8) || char(10) || '-' || char(31, 127) || ']*'),
    CONSTRAINT headers_are_lines_of_name_and_value CHECK (
        headers LIKE '%:%' AND char(10) || headers NOT GLOB '*' || char(10) || '[ :' || char(9, 10) || ']*'
        AND headers NOT GLOB '*[' || char(1) || '-' || char(8, 11) || '-' || char(31, 127) || ']*'),
    CONSTRAINT header_fields_hold_no_nul CHECK (
        instr(ifnull(sender, '') || ifnull(sender_name, '') || ifnull(recipients, '')
              || ifnull(cc, '') || ifnull(bcc, '') || ifnull(reply_to, '') || ifnull(subject, '')
              || ifnull(message_id, '') || ifnull(in_reply_to, '') || ifnull("references", '')
              || ifnull(list_unsubscribe, '') || ifnull(headers, ''), char(0)) = 0),
    CONSTRAINT header_fields_are_not_too_long CHECK (
        length(CAST(ifnull(sender, '') || ifnull(sender_name, '') || ifnull(recipients, '')
                    || ifnull(cc, '') || ifnull(bcc, '') || ifnull(reply_to, '')
                    || ifnull(subject, '') || ifnull("references", '')
                    || ifnull(list_unsubscribe, '') || ifnull(headers, '') AS BLOB)) <= 262144
        AND length(CAST(ifnull(message_id, '') || ifnull(in_reply_to, '') AS BLOB)) <= 900),
    CONSTRAINT a_message_id_is_in_angle_brackets CHECK (
        message_id GLOB '<?*@?*>' AND message_id NOT GLOB '?*[< ' || char(9) || ']*'
        AND message_id NOT GLOB '*>?*' AND message_id NOT GLOB '*@*@*'),
    CONSTRAINT texts_are_not_too_long CHECK (
        length(CAST(text_body AS BLOB)) <= 67108864 AND length(CAST(html_body AS BLOB)) <= 67108864),
    CONSTRAINT mail_numbers_are_possible CHECK (
        max_attempts BETWEEN 1 AND 1000 AND julianday(expires) > julianday(due)),
    CONSTRAINT times_are_times CHECK (
        julianday(created) IS NOT NULL AND julianday(due) IS NOT NULL
        AND (expires IS NULL OR julianday(expires) IS NOT NULL))
) STRICT;

CREATE TABLE quorel_attachment (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    message INTEGER NOT NULL REFERENCES quorel_message ON DELETE CASCADE,
    name TEXT NOT NULL,
    type TEXT,                        -- NULL: application/octet-stream
    content_id TEXT,                  -- for a picture that the HTML text shows
    content BLOB NOT NULL,
    CONSTRAINT an_attachment_has_a_name CHECK (name <> ''),
    CONSTRAINT attachment_fields_are_one_line CHECK (
        name || ifnull(type, '') || ifnull(content_id, '')
            NOT GLOB '*[' || char(1) || '-' || char(8) || char(10) || '-' || char(31, 127) || ']*'
        AND instr(name || ifnull(type, '') || ifnull(content_id, ''), char(0)) = 0
        AND length(CAST(name || ifnull(type, '') || ifnull(content_id, '') AS BLOB)) <= 900),
    CONSTRAINT an_attachment_is_not_too_long CHECK (length(content) <= 67108864)
) STRICT;
CREATE INDEX quorel_attachment_message ON quorel_attachment (message);

-- What is sent at once: a whole message, or some of its recipients after one was refused.
CREATE TABLE quorel_delivery (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    message INTEGER NOT NULL REFERENCES quorel_message ON DELETE CASCADE,
    recipients TEXT,                  -- NULL: all of the message's; else one address a line
    lane TEXT NOT NULL DEFAULT '',    -- the message's account; empty: any
    state TEXT NOT NULL DEFAULT 'queued',
    due TEXT NOT NULL,
    attempts INTEGER NOT NULL DEFAULT 0,
    max_attempts INTEGER NOT NULL,
    token INTEGER NOT NULL DEFAULT 0, -- grows with every claim and every outcome
    lease_until TEXT,
    account TEXT,                     -- the last attempt's
    finished TEXT,
    reason TEXT,
    CONSTRAINT a_delivery_is_in_one_state CHECK (
        state IN ('queued', 'sending', 'sent', 'failed', 'cancelled')
        AND (state = 'sending') = (lease_until IS NOT NULL)
        AND (state IN ('queued', 'sending')) = (finished IS NULL))
) STRICT;
CREATE INDEX quorel_delivery_message ON quorel_delivery (message);
CREATE INDEX quorel_delivery_queued ON quorel_delivery (lane, due, id) WHERE state = 'queued';
CREATE INDEX quorel_delivery_sending ON quorel_delivery (id) WHERE state = 'sending';

CREATE TABLE quorel_attempt (
    delivery INTEGER NOT NULL REFERENCES quorel_delivery ON DELETE CASCADE,
    number INTEGER NOT NULL,
    token INTEGER NOT NULL,
    daemon TEXT NOT NULL,
    account TEXT NOT NULL,
    limited INTEGER NOT NULL,         -- counts for the account's limit a minute
    started TEXT NOT NULL,
    ended TEXT,                       -- NULL: never came to an end
    status INTEGER,
    reason TEXT,
    PRIMARY KEY (delivery, number)
) STRICT, WITHOUT ROWID;
CREATE INDEX quorel_attempt_limited ON quorel_attempt (account, started) WHERE limited;

-- Queueing.

CREATE TRIGGER quorel_queue_message AFTER INSERT ON quorel_message
BEGIN
    INSERT INTO quorel_delivery (message, lane, due, max_attempts)
    VALUES (NEW.id, ifnull(NEW.account, ''), strftime('%Y-%m-%d %H:%M:%f', NEW.due),
            NEW.max_attempts);
END;

-- Of the sender's domain, or of that of the account that comes first.
CREATE TRIGGER quorel_give_message_id AFTER INSERT ON quorel_message WHEN NEW.message_id IS NULL
BEGIN
    UPDATE quorel_message
    SET message_id = '<' || lower(hex(randomblob(16))) || '@' || ifnull((
        SELECT domain FROM (
            SELECT rtrim(substr(address, instr(address, '@') + 1), '> ') AS domain FROM (
                SELECT ifnull(NEW.sender, (
                    SELECT sender FROM quorel_account
                    WHERE sender IS NOT NULL
                        AND (name = NEW.account OR NEW.account IS NULL AND enabled)
                    ORDER BY rank, name LIMIT 1)) AS address)
            WHERE address LIKE '%@%')
        WHERE domain <> '' AND domain NOT GLOB '*[^A-Za-z0-9.-]*'), 'localhost') || '>'
    WHERE id = NEW.id;
END;

-- What follows are the references above, since SQLite heeds those only where a connection asks for it.

CREATE TRIGGER quorel_check_account BEFORE INSERT ON quorel_message WHEN NEW.account IS NOT NULL
BEGIN
    SELECT RAISE(ABORT, 'there is no such account')
    WHERE NOT EXISTS (SELECT 1 FROM quorel_account WHERE name = NEW.account);
END;

CREATE TRIGGER quorel_check_new_account BEFORE UPDATE OF account ON quorel_message
WHEN NEW.account IS NOT NULL
BEGIN
    SELECT RAISE(ABORT, 'there is no such account')
    WHERE NOT EXISTS (SELECT 1 FROM quorel_account WHERE name = NEW.account);
END;

CREATE TRIGGER quorel_rename_account AFTER UPDATE OF name ON quorel_account
BEGIN
    UPDATE quorel_message SET account = NEW.name WHERE account = OLD.name;
END;

CREATE TRIGGER quorel_keep_account BEFORE DELETE ON quorel_account
BEGIN
    SELECT RAISE(ABORT, 'mails name this account; disable it')
    WHERE EXISTS (SELECT 1 FROM quorel_message WHERE account = OLD.name);
END;

CREATE TRIGGER quorel_forget_message AFTER DELETE ON quorel_message
BEGIN
    DELETE FROM quorel_attachment WHERE message = OLD.id;
    DELETE FROM quorel_attempt
    WHERE delivery IN (SELECT id FROM quorel_delivery WHERE message = OLD.id);
    DELETE FROM quorel_delivery WHERE message = OLD.id;
END;

CREATE TRIGGER quorel_change_lane AFTER UPDATE OF account ON quorel_message
BEGIN
    UPDATE quorel_delivery SET lane = ifnull(NEW.account, '') WHERE message = NEW.id;
END;

CREATE TRIGGER quorel_check_attachment BEFORE INSERT ON quorel_attachment
BEGIN
    SELECT RAISE(ABORT, 'the mail is on its way already: insert it and its attachments in one transaction')
    FROM quorel_delivery WHERE message = NEW.message AND (token > 0 OR state <> 'queued');
END;

-- For people: every delivery, and what became of it. UPDATE quorel_overview SET state = 'cancelled',
-- or 'queued', WHERE … calls a mail back, or has it tried again.

CREATE VIEW quorel_overview AS
SELECT d.id AS delivery, d.message, d.state,
       ifnull(replace(d.recipients, char(10), ', '),
              ltrim(ifnull(m.recipients, '') || ifnull(', ' || m.cc, '') || ifnull(', ' || m.bcc, ''),
                    ', ')) AS recipients,
       m.subject, ifnull(d.account, m.account) AS account, m.created, d.due, d.attempts,
       d.max_attempts, d.finished,
       CASE WHEN d.state = 'sent' THEN round((julianday(d.finished) - julianday(m.due)) * 86400, 3)
            WHEN d.state IN ('queued', 'sending') AND julianday(m.due) < julianday('now') THEN
                round((julianday('now') - julianday(m.due)) * 86400, 3)
       END AS seconds,
       CASE WHEN d.state = 'queued' AND d.due > strftime('%Y-%m-%d %H:%M:%f', 'now') THEN
                ifnull('tried again later: ' || d.reason, 'not due yet')
            WHEN d.state = 'queued' AND a.away_until > strftime('%Y-%m-%d %H:%M:%f', 'now') THEN
                'account ' || a.name || ' is away: ' || ifnull(a.trouble, 'no answer')
            WHEN d.state = 'queued' AND NOT a.enabled THEN 'account ' || a.name || ' is disabled'
            WHEN d.state = 'queued' AND m.account IS NULL AND NOT EXISTS (
                SELECT 1 FROM quorel_account
                WHERE enabled AND ifnull(away_until <= strftime('%Y-%m-%d %H:%M:%f', 'now'), 1)) THEN
                ifnull('every account is away: ' || (
                    SELECT ifnull(trouble, 'no answer') FROM quorel_account WHERE enabled
                    ORDER BY rank, name LIMIT 1), 'no account is enabled')
            WHEN d.state = 'queued' THEN ifnull('due: ' || d.reason, 'due')
            WHEN d.state = 'sending' THEN 'on its way'
            ELSE d.reason
       END AS why
FROM quorel_delivery d
JOIN quorel_message m ON m.id = d.message
LEFT JOIN quorel_account a ON a.name = m.account;

CREATE TRIGGER quorel_change_state INSTEAD OF UPDATE OF state ON quorel_overview
BEGIN
    SELECT RAISE(ABORT, 'a mail that waits can be cancelled, and one that failed or was cancelled be queued')
    WHERE NOT (OLD.state = 'queued' AND NEW.state = 'cancelled'
               OR OLD.state IN ('failed', 'cancelled') AND NEW.state = 'queued');
    UPDATE quorel_delivery
    SET state = 'cancelled', token = token + 1, reason = 'cancelled',
        finished = strftime('%Y-%m-%d %H:%M:%f', 'now')
    WHERE id = OLD.delivery AND NEW.state = 'cancelled';
    UPDATE quorel_delivery
    SET state = 'queued', token = token + 1, reason = 'queued again', finished = NULL,
        due = strftime('%Y-%m-%d %H:%M:%f', 'now'),
        max_attempts = attempts + (SELECT max_attempts FROM quorel_message WHERE id = OLD.message)
    WHERE id = OLD.delivery AND NEW.state = 'queued';
END;

CREATE VIEW quorel_waiting AS
SELECT delivery, message, state, recipients, subject, account, created, due, attempts, max_attempts,
       seconds, why
FROM quorel_overview WHERE state IN ('queued', 'sending');
CREATE VIEW quorel_failed AS
SELECT delivery, message, state, recipients, subject, account, created, finished, attempts, why
FROM quorel_overview WHERE state IN ('failed', 'cancelled');
CREATE VIEW quorel_sent AS
SELECT delivery, message, recipients, subject, account, created, finished, attempts, seconds
FROM quorel_overview WHERE state = 'sent';
