#include "host/outbox/pgstatements.h"

namespace host::outbox {

// Where a table is joined with what is asked for, "= ANY" of the asked keys stands beside the join:
// a plan that was made while the table was small would read all of it otherwise.

const PgStatement pg::take_back = {"take_back", R"sql(
    UPDATE quorel.delivery SET state = 'queued', lease_until = NULL, reason = $2
    WHERE id = ANY (ARRAY(
        SELECT id FROM quorel.delivery WHERE state = 'sending' AND lease_until < now()
        LIMIT $1::bigint FOR NO KEY UPDATE SKIP LOCKED)))sql"};

const PgStatement pg::claim = {"claim", R"sql(
    WITH rooms AS MATERIALIZED (
        SELECT name, room FROM quorel.accounts
        WHERE enabled AND room > 0 AND coalesce(away_until <= now(), true)),
    lanes AS (
        SELECT name AS lane, room FROM rooms
        UNION ALL SELECT '', sum(room) FROM rooms HAVING count(*) > 0),
    picked AS MATERIALIZED (
        SELECT q.id FROM lanes, LATERAL (
            SELECT d.id, d.due FROM quorel.delivery d
            WHERE d.state = 'queued' AND d.lane = lanes.lane AND d.due <= now()
            ORDER BY d.due, d.id LIMIT least($1::bigint, lanes.room)
            FOR NO KEY UPDATE SKIP LOCKED) q
        ORDER BY q.due, q.id LIMIT $1::bigint),
    taken AS (
        UPDATE quorel.delivery d
        SET state = 'sending', token = d.token + 1,
            lease_until = now() + $2::bigint * interval '1 millisecond'
        WHERE d.id = ANY (ARRAY(SELECT id FROM picked)) RETURNING d.*)
    SELECT t.id, t.message, t.token, m.account, t.account, t.recipients, t.attempts,
           greatest(0, t.max_attempts - t.attempts), m.expired, m.bytes, m.waited
    FROM taken t, LATERAL (
        SELECT m.account, coalesce(m.expires <= now(), false) AS expired,
               coalesce(octet_length(m.text_body), 0)::bigint
                   + coalesce(octet_length(m.html_body), 0)
                   + (SELECT coalesce(sum(octet_length(f.content)), 0)::bigint
                      FROM quorel.attachment f WHERE f.message = t.message) AS bytes,
               greatest(0, extract(epoch FROM now() - m.due) * 1000)::bigint AS waited
        FROM quorel.message m WHERE m.id = t.message OFFSET 0) m
    ORDER BY t.due, t.id)sql"};

const PgStatement pg::read_messages = {"read_messages", R"sql(
    SELECT id::text, sender, sender_name, recipients, cc, bcc, reply_to, subject, text_body,
           html_body, message_id, in_reply_to, "references", list_unsubscribe, headers,
           floor(extract(epoch FROM created))::bigint::text
    FROM quorel.message WHERE id = ANY ($1::bigint[]))sql"};

const PgStatement pg::read_attachments = {"read_attachments", R"sql(
    SELECT id::text, message::text, name, type, content_id, octet_length(content)::text,
           substring(content FROM 1 FOR 1048576)
    FROM quorel.attachment WHERE message = ANY ($1::bigint[]) ORDER BY id)sql"};

const PgStatement pg::read_piece = {"read_piece", R"sql(
    SELECT substring(content FROM $2::integer FOR 1048576) FROM quorel.attachment
    WHERE id = $1::bigint)sql"};

// "queued": taken back, and by nobody taken since; the outcome still counts.
const PgStatement pg::end_claims = {"end_claims", R"sql(
    WITH ended AS MATERIALIZED (
        SELECT * FROM unnest($1::bigint[], $2::bigint[], $3::text[], $4::bigint[], $5::text[],
                             $6::text[], $7::boolean[], $8::text[]) WITH ORDINALITY AS
            e(id, token, state, pause, first_half, second_half, keeps_reason, reason, n)),
    done AS (
        UPDATE quorel.delivery d
        SET state = e.state, token = d.token + 1, lease_until = NULL,
            due = coalesce(now() + e.pause * interval '1 millisecond', d.due),
            recipients = coalesce(e.first_half, d.recipients),
            max_attempts = d.max_attempts + (e.second_half IS NOT NULL)::integer,
            finished = CASE WHEN e.state <> 'queued' THEN clock_timestamp() END,
            reason = CASE WHEN e.keeps_reason THEN coalesce(e.reason, d.reason) ELSE e.reason END
        FROM ended e
        WHERE d.id = ANY ($1::bigint[]) AND d.id = e.id AND d.token = e.token
            AND d.state IN ('sending', 'queued')
        RETURNING e.n, e.second_half, d.message, d.lane, d.max_attempts - d.attempts AS attempts_left),
    halves AS (
        INSERT INTO quorel.delivery (message, lane, recipients, max_attempts)
        SELECT message, lane, second_half, greatest(1, attempts_left) FROM done
        WHERE second_half IS NOT NULL)
    SELECT n FROM done)sql"};

const PgStatement pg::end_attempts = {"end_attempts", R"sql(
    UPDATE quorel.attempt a
    SET ended = clock_timestamp(), status = e.status, reason = e.reason
    FROM unnest($1::bigint[], $2::bigint[], $3::integer[], $4::integer[], $5::text[])
        AS e(id, token, number, status, reason)
    WHERE a.delivery = ANY ($1::bigint[]) AND a.delivery = e.id AND a.number = e.number
        AND a.token = e.token AND a.ended IS NULL)sql"};

// The statement that counts the attempts of the last minute begins after this one, and sees all
// that others who had the lock have committed.
const PgStatement pg::lock_accounts = {"lock_accounts", R"sql(
    SELECT FROM quorel.account WHERE name = ANY ($1::text[]) AND per_minute IS NOT NULL
    ORDER BY name FOR NO KEY UPDATE)sql"};

const PgStatement pg::start_attempts = {"start_attempts", R"sql(
    WITH asked AS MATERIALIZED (
        SELECT b.*, r.per_minute IS NOT NULL AS limited, r.room, r.first_of_minute,
               row_number() OVER (PARTITION BY b.account ORDER BY b.n) AS place
        FROM unnest($1::bigint[], $2::bigint[], $3::text[]) WITH ORDINALITY
            AS b(id, token, account, n)
        LEFT JOIN (SELECT * FROM quorel.accounts WHERE per_minute IS NOT NULL) r
            ON r.name = b.account),
    begun AS (
        UPDATE quorel.delivery d
        SET attempts = d.attempts + 1, account = a.account,
            lease_until = statement_timestamp() + $4::bigint * interval '1 millisecond'
        FROM asked a
        WHERE d.id = ANY ($1::bigint[]) AND d.id = a.id AND d.token = a.token
            AND d.state = 'sending' AND a.place <= coalesce(a.room, a.place)
        RETURNING d.id, d.token, d.attempts, a.account, a.limited),
    noted AS (
        INSERT INTO quorel.attempt (delivery, number, token, daemon, account, limited, started)
        SELECT id, attempts, token, $5::text, account, limited, statement_timestamp() FROM begun)
    SELECT a.n, b.attempts,
           quorel.milliseconds_to(coalesce(a.first_of_minute, now()) + interval '60 seconds')
    FROM asked a LEFT JOIN begun b ON b.id = a.id
    WHERE b.id IS NOT NULL OR a.place > a.room AND EXISTS (
        SELECT FROM quorel.delivery d
        WHERE d.id = a.id AND d.token = a.token AND d.state = 'sending'))sql"};

const PgStatement pg::renew = {"renew", R"sql(
    UPDATE quorel.delivery d
    SET lease_until = clock_timestamp() + $3::bigint * interval '1 millisecond'
    FROM unnest($1::bigint[], $2::bigint[]) WITH ORDINALITY AS h(id, token, n)
    WHERE d.id = ANY ($1::bigint[]) AND d.id = h.id AND d.token = h.token AND d.state = 'sending'
    RETURNING h.n)sql"};

const PgStatement pg::read_accounts = {"read_accounts", R"sql(
    SELECT a.name, a.host, a.port, a.trusted_cert, a.cert_company, a.cert_unit, a.cert_name,
           a.username, a.password, a.password_file, a.allow_plaintext_auth, a.sender, a.sender_name,
           a.timeout_seconds, a.rank, a.per_minute, a.failures,
           quorel.milliseconds_to(a.away_until), quorel.milliseconds_to(r.full_until)
    FROM quorel.account a JOIN quorel.accounts r USING (name)
    WHERE a.enabled ORDER BY a.rank, a.name)sql"};

const PgStatement pg::note_away = {"note_away", R"sql(
    UPDATE quorel.account
    SET failures = failures + 1, trouble = $3,
        away_until = now() + $2::bigint * interval '1 millisecond'
    WHERE name = $1)sql"};

const PgStatement pg::note_probe = {"note_probe", R"sql(
    UPDATE quorel.account SET away_until = now() + $2::bigint * interval '1 millisecond'
    WHERE name = $1 AND failures > 0 AND coalesce(away_until <= now(), true) RETURNING 1)sql"};

const PgStatement pg::note_back = {"note_back", R"sql(
    UPDATE quorel.account SET failures = 0, trouble = NULL, away_until = NULL
    WHERE name = $1 AND failures <> 0)sql"};

const PgStatement pg::first_due = {"first_due", R"sql(
    WITH lanes AS MATERIALIZED (
        SELECT name AS lane, greatest(away_until, full_until, now()) AS free_at
        FROM quorel.accounts WHERE enabled),
    moments AS (
        SELECT greatest(q.due, l.free_at) AS moment
        FROM (SELECT * FROM lanes UNION ALL SELECT '', min(free_at) FROM lanes HAVING count(*) > 0) l,
             LATERAL (SELECT d.due FROM quorel.delivery d
                      WHERE d.state = 'queued' AND d.lane = l.lane ORDER BY d.due LIMIT 1) q
        UNION ALL SELECT lease_until FROM quorel.delivery WHERE state = 'sending')
    SELECT quorel.milliseconds_to(min(moment)) FROM moments HAVING count(*) > 0)sql"};

const PgStatement pg::read_figures = {"read_figures", R"sql(
    SELECT count(*) FILTER (WHERE state = 'queued'),
           count(*) FILTER (WHERE state = 'queued' AND due <= now()),
           count(*) FILTER (WHERE state = 'sending'), count(*) FILTER (WHERE state = 'sent'),
           count(*) FILTER (WHERE state = 'failed'), count(*) FILTER (WHERE state = 'cancelled'),
           coalesce(greatest(0, 1000 * extract(epoch FROM
               now() - min(due) FILTER (WHERE state = 'queued'))), 0)::bigint
    FROM quorel.delivery)sql"};

const PgStatement pg::read_troubles = {"read_troubles", R"sql(
    SELECT message, state, recipients, attempts, coalesce(reason, '') FROM (
        SELECT d.id, d.message, d.state, d.attempts, d.reason, coalesce(
            replace(d.recipients, E'\n', ', '), concat_ws(', ', m.recipients, m.cc, m.bcc)) AS recipients
        FROM quorel.delivery d JOIN quorel.message m ON m.id = d.message
        WHERE d.state = 'failed' OR d.state = 'queued' AND d.reason IS NOT NULL) troubles
    ORDER BY id DESC LIMIT $1::bigint)sql"};

const PgStatement pg::listen = {"listen", "LISTEN quorel_outbox"};
const PgStatement pg::unlisten = {"unlisten", "UNLISTEN quorel_outbox"};

}  // namespace host::outbox
