-- The outbox in PostgreSQL: all of it in schema quorel, in ordinary tables, which dump and restore
-- treat like any others. Every name is qualified, since a search_path is somebody else's. Each step
-- is one transaction: psql -1 -v ON_ERROR_STOP=1 -f 1.sql, or quorel-outbox --install.

SET LOCAL search_path = pg_catalog, pg_temp;

-- A schema that is there already may belong to somebody who is not to be trusted.
CREATE SCHEMA IF NOT EXISTS quorel;
DO $$
BEGIN
    IF NOT EXISTS (SELECT FROM pg_catalog.pg_namespace n JOIN pg_catalog.pg_roles r ON r.oid = n.nspowner
                   WHERE n.nspname = 'quorel' AND (r.rolname = current_user OR r.rolsuper)) THEN
        RAISE EXCEPTION 'schema quorel belongs to somebody else';
    END IF;
END
$$;

-- The steps that were taken.
CREATE TABLE quorel.outbox (
    version integer PRIMARY KEY,
    installed timestamptz NOT NULL DEFAULT now()
);
INSERT INTO quorel.outbox (version) VALUES (1);

DO $$
DECLARE
    role_name text;
BEGIN
    FOREACH role_name IN ARRAY ARRAY['quorel_sender', 'quorel_reader', 'quorel_daemon'] LOOP
        IF NOT EXISTS (SELECT FROM pg_catalog.pg_roles WHERE rolname = role_name) THEN
            EXECUTE pg_catalog.format('CREATE ROLE %I NOLOGIN', role_name);
        END IF;
    END LOOP;
END
$$;

-- Who queues mail may send as any of these, and learns neither their passwords nor their servers.
CREATE TABLE quorel.account (
    name text PRIMARY KEY,
    host text NOT NULL,
    port integer NOT NULL DEFAULT 25,
    trusted_cert text,                -- a file of trusted certificates; asks for TLS
    cert_company text,
    cert_unit text,
    cert_name text,
    username text,
    password text,
    password_file text,               -- a file on the daemon's machine, in place of the password
    allow_plaintext_auth boolean NOT NULL DEFAULT false,
    sender text,                      -- for mails that have none of their own
    sender_name text,
    timeout_seconds integer NOT NULL DEFAULT 60,
    rank integer NOT NULL DEFAULT 0,  -- lower ones are tried first
    per_minute integer,               -- at most so many attempts in any 60 seconds
    enabled boolean NOT NULL DEFAULT true,
    -- What the daemons keep.
    away_until timestamptz,
    failures integer NOT NULL DEFAULT 0,
    trouble text,
    CONSTRAINT an_account_has_a_name_and_a_host CHECK (name <> '' AND host <> ''),
    CONSTRAINT account_fields_are_one_line CHECK (
        pg_catalog.concat(name, host, trusted_cert, cert_company, cert_unit, cert_name, username,
                          password, password_file, sender, sender_name)
            !~ '[\x01-\x08\x0a-\x1f\x7f]'),
    CONSTRAINT account_numbers_are_possible CHECK (
        port BETWEEN 1 AND 65535 AND timeout_seconds BETWEEN 1 AND 3600 AND per_minute >= 1),
    CONSTRAINT a_user_has_one_password CHECK (
        pg_catalog.num_nonnulls(password, password_file)
            = CASE WHEN username IS NULL THEN 0 ELSE 1 END)
);

CREATE TABLE quorel.message (
    id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    account text REFERENCES quorel.account ON UPDATE CASCADE,  -- NULL: any, in order of rank
    sender text,
    sender_name text,
    recipients text,
    cc text,
    bcc text,
    reply_to text,
    subject text,
    text_body text,
    html_body text,
    message_id text NOT NULL,         -- made by a trigger where it is left out
    in_reply_to text,
    "references" text,
    list_unsubscribe text,
    headers text,                     -- lines "Name: value"
    created timestamptz NOT NULL DEFAULT now(),
    due timestamptz NOT NULL DEFAULT now(),
    max_attempts integer NOT NULL DEFAULT 10,
    expires timestamptz,              -- not to be sent after that
    queued_by text NOT NULL DEFAULT current_user,
    CONSTRAINT a_mail_has_a_recipient CHECK (pg_catalog.concat(recipients, cc, bcc) ~ '@'),
    CONSTRAINT header_fields_are_one_line CHECK (
        pg_catalog.concat(sender, sender_name, recipients, cc, bcc, reply_to, subject, message_id,
                          in_reply_to, "references", list_unsubscribe)
            !~ '[\x01-\x08\x0a-\x1f\x7f]'),
    CONSTRAINT headers_are_lines_of_name_and_value CHECK (
        headers ~ '^([!-9;-~]+:[^\n]*(\n|$))*$' AND headers !~ '[\x01-\x08\x0b-\x1f\x7f]'),
    CONSTRAINT header_fields_are_not_too_long CHECK (
        pg_catalog.octet_length(pg_catalog.concat(
            sender, sender_name, recipients, cc, bcc, reply_to, subject, "references",
            list_unsubscribe, headers)) <= 262144
        AND pg_catalog.octet_length(pg_catalog.concat(message_id, in_reply_to)) <= 900),
    CONSTRAINT a_message_id_is_in_angle_brackets CHECK (
        message_id ~ '^<[^<>@[:space:]]+@[^<>@[:space:]]+>$'),
    CONSTRAINT texts_are_not_too_long CHECK (
        pg_catalog.octet_length(text_body) <= 67108864
        AND pg_catalog.octet_length(html_body) <= 67108864),
    CONSTRAINT mail_numbers_are_possible CHECK (
        max_attempts BETWEEN 1 AND 1000 AND pg_catalog.isfinite(due) AND expires > due
        AND pg_catalog.isfinite(expires))
);

CREATE TABLE quorel.attachment (
    id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    message bigint NOT NULL REFERENCES quorel.message ON DELETE CASCADE,
    name text NOT NULL,
    type text,                        -- NULL: application/octet-stream
    content_id text,                  -- for a picture that the HTML text shows
    content bytea NOT NULL,
    CONSTRAINT an_attachment_has_a_name CHECK (name <> ''),
    CONSTRAINT attachment_fields_are_one_line CHECK (
        pg_catalog.concat(name, type, content_id) !~ '[\x01-\x08\x0a-\x1f\x7f]'
        AND pg_catalog.octet_length(pg_catalog.concat(name, type, content_id)) <= 900),
    CONSTRAINT an_attachment_is_not_too_long CHECK (
        pg_catalog.octet_length(content) <= 67108864)
);
CREATE INDEX attachment_message ON quorel.attachment (message);
-- Read in pieces, each of which would have all before it unpacked.
ALTER TABLE quorel.attachment ALTER content SET STORAGE EXTERNAL;

-- What is sent at once: a whole message, or some of its recipients after one was refused.
CREATE TABLE quorel.delivery (
    id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    message bigint NOT NULL REFERENCES quorel.message ON DELETE CASCADE,
    recipients text,                  -- NULL: all of the message's; else one address a line
    lane text NOT NULL DEFAULT '',    -- the message's account; empty: any
    state text NOT NULL DEFAULT 'queued',
    due timestamptz NOT NULL DEFAULT now(),
    attempts integer NOT NULL DEFAULT 0,
    max_attempts integer NOT NULL,
    token bigint NOT NULL DEFAULT 0,  -- grows with every claim and every outcome
    lease_until timestamptz,
    account text,                     -- the last attempt's
    finished timestamptz,
    reason text,
    CONSTRAINT a_delivery_is_in_one_state CHECK (
        state IN ('queued', 'sending', 'sent', 'failed', 'cancelled')
        AND (state = 'sending') = (lease_until IS NOT NULL)
        AND (state IN ('queued', 'sending')) = (finished IS NULL))
) WITH (fillfactor = 70, autovacuum_vacuum_scale_factor = 0.02);
CREATE INDEX delivery_message ON quorel.delivery (message);
CREATE INDEX delivery_queued ON quorel.delivery (lane, due, id) WHERE state = 'queued';
-- Not by lease_until: an attempt's start, which renews the lease, then touches no index.
CREATE INDEX delivery_sending ON quorel.delivery (id) WHERE state = 'sending';

CREATE TABLE quorel.attempt (
    delivery bigint NOT NULL REFERENCES quorel.delivery ON DELETE CASCADE,
    number integer NOT NULL,
    token bigint NOT NULL,
    daemon text NOT NULL,
    account text NOT NULL,
    limited boolean NOT NULL,         -- counts for the account's limit a minute
    started timestamptz NOT NULL,
    ended timestamptz,                -- NULL: never came to an end
    status integer,
    reason text,
    PRIMARY KEY (delivery, number)
) WITH (fillfactor = 80);
CREATE INDEX attempt_limited ON quorel.attempt (account, started) WHERE limited;

-- Queueing.

CREATE FUNCTION quorel.domain_of(address text) RETURNS text IMMUTABLE
RETURN substring(address FROM '@([A-Za-z0-9.-]+)>?\s*$');

-- A definer's, since who queues mail may not read the accounts.
CREATE FUNCTION quorel.give_message_id() RETURNS trigger
LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, pg_temp
AS $$
BEGIN
    NEW.message_id := format('<%s@%s>', replace(gen_random_uuid()::text, '-', ''), coalesce(
        quorel.domain_of(NEW.sender),
        (SELECT quorel.domain_of(a.sender) FROM quorel.account a
         WHERE a.sender IS NOT NULL AND (a.name = NEW.account OR NEW.account IS NULL AND a.enabled)
         ORDER BY a.rank, a.name LIMIT 1),
        'localhost'));
    RETURN NEW;
END
$$;
CREATE TRIGGER give_message_id BEFORE INSERT ON quorel.message
FOR EACH ROW WHEN (NEW.message_id IS NULL) EXECUTE FUNCTION quorel.give_message_id();

CREATE FUNCTION quorel.wake_daemons() RETURNS trigger
LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp
AS $$
BEGIN
    PERFORM pg_notify('quorel_outbox', '');
    RETURN NULL;
END
$$;

-- A definer's, since nobody but the daemons makes deliveries.
CREATE FUNCTION quorel.queue_messages() RETURNS trigger
LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, pg_temp
AS $$
BEGIN
    INSERT INTO quorel.delivery (message, lane, due, max_attempts)
    SELECT id, coalesce(account, ''), due, max_attempts FROM queued ORDER BY id;
    RETURN NULL;
END
$$;
CREATE TRIGGER queue_messages AFTER INSERT ON quorel.message
REFERENCING NEW TABLE AS queued FOR EACH STATEMENT EXECUTE FUNCTION quorel.queue_messages();
CREATE TRIGGER wake_daemons AFTER INSERT ON quorel.delivery
FOR EACH STATEMENT EXECUTE FUNCTION quorel.wake_daemons();
CREATE TRIGGER wake_daemons AFTER INSERT OR UPDATE OF name, host, port, rank, per_minute, enabled
ON quorel.account FOR EACH STATEMENT EXECUTE FUNCTION quorel.wake_daemons();

CREATE FUNCTION quorel.change_lane() RETURNS trigger
LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, pg_temp
AS $$
BEGIN
    -- The update begins after the wait for one that is being split, and sees both halves.
    PERFORM FROM quorel.delivery WHERE message = NEW.id FOR NO KEY UPDATE;
    UPDATE quorel.delivery SET lane = coalesce(NEW.account, '') WHERE message = NEW.id;
    RETURN NULL;
END
$$;
CREATE TRIGGER change_lane AFTER UPDATE OF account ON quorel.message
FOR EACH ROW EXECUTE FUNCTION quorel.change_lane();

-- Without the lock, a claim that is not committed yet would send the mail without the attachment.
-- After the insert, since it answers about mails that the policies may hide.
CREATE FUNCTION quorel.check_attachment() RETURNS trigger
LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, pg_temp
AS $$
BEGIN
    PERFORM FROM quorel.delivery WHERE message = NEW.message FOR SHARE;
    IF EXISTS (SELECT FROM quorel.delivery
               WHERE message = NEW.message AND (token > 0 OR state <> 'queued')) THEN
        RAISE EXCEPTION 'mail % is on its way already', NEW.message
            USING HINT = 'Insert a mail and its attachments in one transaction.';
    END IF;
    RETURN NULL;
END
$$;
CREATE TRIGGER check_attachment AFTER INSERT OR UPDATE ON quorel.attachment
FOR EACH ROW EXECUTE FUNCTION quorel.check_attachment();

-- What a person's change of the state brings with it. The daemons make other changes.
CREATE FUNCTION quorel.change_state() RETURNS trigger
LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp
AS $$
BEGIN
    NEW.token := OLD.token + 1;
    IF NEW.state = 'cancelled' THEN
        NEW.finished := now();
        NEW.reason := 'cancelled by ' || current_user;
        RETURN NEW;
    END IF;
    NEW.due := now();
    NEW.max_attempts := OLD.attempts
        + (SELECT m.max_attempts FROM quorel.message m WHERE m.id = OLD.message);
    NEW.finished := NULL;
    NEW.reason := 'queued again by ' || current_user;
    PERFORM pg_notify('quorel_outbox', '');
    RETURN NEW;
END
$$;
CREATE TRIGGER change_state BEFORE UPDATE OF state ON quorel.delivery
FOR EACH ROW WHEN (OLD.state = 'queued' AND NEW.state = 'cancelled'
                   OR OLD.state IN ('failed', 'cancelled') AND NEW.state = 'queued')
EXECUTE FUNCTION quorel.change_state();

CREATE TYPE quorel.file AS (name text, content bytea, type text, content_id text);

CREATE FUNCTION quorel.file(
    name text, content bytea, type text DEFAULT NULL, content_id text DEFAULT NULL)
RETURNS quorel.file LANGUAGE sql IMMUTABLE SET search_path = pg_catalog, pg_temp
AS $$ SELECT ROW(name, content, type, content_id)::quorel.file $$;

-- Queues a mail, to go out after the commit, and gives its number. Needs no right but those of
-- quorel_sender.
CREATE FUNCTION quorel.send_mail(
    recipients text DEFAULT NULL, subject text DEFAULT NULL, text_body text DEFAULT NULL,
    html_body text DEFAULT NULL, cc text DEFAULT NULL, bcc text DEFAULT NULL,
    reply_to text DEFAULT NULL, sender text DEFAULT NULL, sender_name text DEFAULT NULL,
    account text DEFAULT NULL, attachments quorel.file[] DEFAULT '{}',
    due timestamptz DEFAULT now(), expires timestamptz DEFAULT NULL,
    max_attempts integer DEFAULT 10, message_id text DEFAULT NULL, in_reply_to text DEFAULT NULL,
    "references" text DEFAULT NULL, list_unsubscribe text DEFAULT NULL, headers text DEFAULT NULL)
RETURNS bigint
LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp
AS $$
DECLARE
    number bigint;
BEGIN
    INSERT INTO quorel.message (
        recipients, subject, text_body, html_body, cc, bcc, reply_to, sender, sender_name, account,
        due, expires, max_attempts, message_id, in_reply_to, "references", list_unsubscribe, headers)
    VALUES (
        send_mail.recipients, send_mail.subject, send_mail.text_body, send_mail.html_body,
        send_mail.cc, send_mail.bcc, send_mail.reply_to, send_mail.sender, send_mail.sender_name,
        send_mail.account, send_mail.due, send_mail.expires, send_mail.max_attempts,
        send_mail.message_id, send_mail.in_reply_to, send_mail."references",
        send_mail.list_unsubscribe, send_mail.headers)
    RETURNING id INTO number;
    INSERT INTO quorel.attachment (message, name, content, type, content_id)
    SELECT number, f.name, f.content, f.type, f.content_id FROM unnest(attachments) AS f;
    RETURN number;
END
$$;

-- Both take the number that send_mail gave, and say how many deliveries they changed: those of a
-- mail that waits, and those of one that failed or was cancelled.
CREATE FUNCTION quorel.cancel_mail(message bigint) RETURNS bigint
LANGUAGE sql SET search_path = pg_catalog, pg_temp
AS $$
    WITH changed AS (
        UPDATE quorel.delivery d SET state = 'cancelled'
        WHERE d.message = cancel_mail.message AND d.state = 'queued' RETURNING 1)
    SELECT count(*) FROM changed
$$;
CREATE FUNCTION quorel.retry_mail(message bigint) RETURNS bigint
LANGUAGE sql SET search_path = pg_catalog, pg_temp
AS $$
    WITH changed AS (
        UPDATE quorel.delivery d SET state = 'queued'
        WHERE d.message = retry_mail.message AND d.state IN ('failed', 'cancelled') RETURNING 1)
    SELECT count(*) FROM changed
$$;

-- For people: every delivery, and what became of it.

CREATE VIEW quorel.overview AS
SELECT d.id AS delivery, d.message, d.state,
       coalesce(replace(d.recipients, E'\n', ', '), concat_ws(', ', m.recipients, m.cc, m.bcc))
           AS recipients,
       m.subject, coalesce(d.account, m.account) AS account, m.queued_by, m.created, d.due,
       d.attempts, d.max_attempts, d.finished,
       CASE WHEN d.state = 'sent' THEN round(extract(epoch FROM d.finished - m.due), 3)
            WHEN d.state IN ('queued', 'sending') AND m.due < now() THEN
                round(extract(epoch FROM now() - m.due), 3)
       END AS seconds,
       CASE WHEN d.state = 'queued' AND d.due > now() THEN
                CASE WHEN d.reason IS NULL THEN 'not due yet' ELSE 'tried again later: ' || d.reason END
            WHEN d.state = 'queued' AND a.away_until > now() THEN
                'account ' || a.name || ' is away: ' || coalesce(a.trouble, 'no answer')
            WHEN d.state = 'queued' AND NOT a.enabled THEN 'account ' || a.name || ' is disabled'
            WHEN d.state = 'queued' AND m.account IS NULL AND NOT EXISTS (
                SELECT FROM quorel.account WHERE enabled AND coalesce(away_until <= now(), true)) THEN
                coalesce('every account is away: ' || (
                    SELECT coalesce(trouble, 'no answer') FROM quorel.account WHERE enabled
                    ORDER BY rank, name LIMIT 1), 'no account is enabled')
            WHEN d.state = 'queued' THEN coalesce('due: ' || d.reason, 'due')
            WHEN d.state = 'sending' THEN 'on its way'
            ELSE d.reason
       END AS why
FROM quorel.delivery d
JOIN quorel.message m ON m.id = d.message
LEFT JOIN quorel.account a ON a.name = m.account;

CREATE VIEW quorel.waiting AS
SELECT delivery, message, state, recipients, subject, account, queued_by, created, due, attempts,
       max_attempts, seconds, why
FROM quorel.overview WHERE state IN ('queued', 'sending');
CREATE VIEW quorel.failed AS
SELECT delivery, message, state, recipients, subject, account, queued_by, created, finished,
       attempts, why
FROM quorel.overview WHERE state IN ('failed', 'cancelled');
CREATE VIEW quorel.sent AS
SELECT delivery, message, recipients, subject, account, queued_by, created, finished, attempts, seconds
FROM quorel.overview WHERE state = 'sent';

-- The accounts without their passwords: when one can be called, and how many attempts its limit leaves.
CREATE VIEW quorel.accounts AS
SELECT a.name, a.host, a.port, a.username, a.sender, a.rank, a.enabled, a.per_minute,
       CASE WHEN a.per_minute IS NULL THEN 1000000000 ELSE greatest(0, a.per_minute - l.used) END
           AS room, a.away_until,
       CASE WHEN l.used >= a.per_minute THEN l.first + interval '60 seconds' END AS full_until,
       l.first AS first_of_minute, a.failures, a.trouble
FROM quorel.account a, LATERAL (
    SELECT count(*) AS used, min(t.started) AS first FROM quorel.attempt t
    WHERE a.per_minute IS NOT NULL AND t.limited AND t.account = a.name
        AND t.started > statement_timestamp() - interval '60 seconds') l;

-- 0 for one that is past or NULL.
CREATE FUNCTION quorel.milliseconds_to(moment timestamptz) RETURNS bigint STABLE
RETURN greatest(0, ceil(1000 * extract(epoch FROM
    least(coalesce(moment, now()), now() + interval '30 days') - now())))::bigint;

-- Who may do what. quorel_sender queues mail, and sees and changes what became of its own; rows of
-- others do not exist for it. quorel_reader sees the views, and neither texts nor passwords.
-- quorel_daemon is the program's.

ALTER TABLE quorel.message ENABLE ROW LEVEL SECURITY;
ALTER TABLE quorel.attachment ENABLE ROW LEVEL SECURITY;
ALTER TABLE quorel.delivery ENABLE ROW LEVEL SECURITY;
ALTER TABLE quorel.attempt ENABLE ROW LEVEL SECURITY;

REVOKE ALL ON ALL FUNCTIONS IN SCHEMA quorel FROM PUBLIC;
GRANT USAGE ON SCHEMA quorel TO quorel_sender, quorel_reader, quorel_daemon;

GRANT SELECT, INSERT (
    account, sender, sender_name, recipients, cc, bcc, reply_to, subject, text_body, html_body,
    message_id, in_reply_to, "references", list_unsubscribe, headers, due, max_attempts, expires)
ON quorel.message TO quorel_sender;
GRANT SELECT, INSERT (message, name, type, content_id, content) ON quorel.attachment TO quorel_sender;
GRANT SELECT, UPDATE (state) ON quorel.delivery TO quorel_sender;
GRANT SELECT ON quorel.attempt TO quorel_sender;
GRANT EXECUTE ON FUNCTION quorel.send_mail, quorel.cancel_mail, quorel.retry_mail, quorel.file
TO quorel_sender;
CREATE POLICY own ON quorel.message TO quorel_sender
USING (queued_by = current_user) WITH CHECK (queued_by = current_user);
CREATE POLICY own ON quorel.attachment TO quorel_sender
USING (EXISTS (SELECT FROM quorel.message m WHERE m.id = message AND m.queued_by = current_user));
CREATE POLICY own_are_seen ON quorel.delivery FOR SELECT TO quorel_sender
USING (EXISTS (SELECT FROM quorel.message m WHERE m.id = message AND m.queued_by = current_user));
CREATE POLICY own_are_changed ON quorel.delivery FOR UPDATE TO quorel_sender
USING (state IN ('queued', 'failed', 'cancelled')
       AND EXISTS (SELECT FROM quorel.message m WHERE m.id = message AND m.queued_by = current_user))
WITH CHECK (state IN ('queued', 'cancelled'));
CREATE POLICY own ON quorel.attempt FOR SELECT TO quorel_sender
USING (EXISTS (SELECT FROM quorel.delivery d WHERE d.id = delivery));

GRANT SELECT ON quorel.overview, quorel.waiting, quorel.failed, quorel.sent, quorel.accounts
TO quorel_reader;

GRANT SELECT ON ALL TABLES IN SCHEMA quorel TO quorel_daemon;
GRANT EXECUTE ON FUNCTION quorel.milliseconds_to TO quorel_daemon;
GRANT UPDATE (away_until, failures, trouble) ON quorel.account TO quorel_daemon;
GRANT INSERT, UPDATE ON quorel.delivery, quorel.attempt TO quorel_daemon;
CREATE POLICY all_are_sent ON quorel.message FOR SELECT TO quorel_daemon USING (true);
CREATE POLICY all_are_sent ON quorel.attachment FOR SELECT TO quorel_daemon USING (true);
CREATE POLICY all_are_sent ON quorel.delivery TO quorel_daemon USING (true);
CREATE POLICY all_are_sent ON quorel.attempt TO quorel_daemon USING (true);
