#include "host/outbox/pgstatements.h"

// Whole milliseconds from now to a moment, which may be NULL or infinite; 0 when it is past.
#define MILLISECONDS_TO(moment)                                               \
    "greatest(0, ceil(extract(epoch FROM least(coalesce(" moment ", now()), " \
    "now() + interval '30 days') - now()) * 1000))::bigint"

// Each enabled account with the number of attempts that its limit leaves, and when it can be
// called.
#define ROOMS                                                                                     \
    "rooms AS MATERIALIZED (SELECT a.name, a.rank, "                                              \
    "  coalesce(a.per_minute - l.used, 1000000000) AS room, "                                     \
    "  CASE WHEN l.used >= a.per_minute THEN l.first + interval '60 seconds' END AS full_until, " \
    "  l.first, a.away_until "                                                                    \
    "FROM quorel.account a LEFT JOIN LATERAL ("                                                   \
    "  SELECT count(*) AS used, min(t.started) AS first FROM quorel.attempt t "                   \
    "  WHERE a.per_minute IS NOT NULL AND t.limited AND t.account = a.name "                      \
    "    AND t.started > statement_timestamp() - interval '60 seconds') l ON true "               \
    "WHERE a.enabled)"

namespace host::outbox {

const PgStatement pg::take_back = {
    "take_back", "UPDATE quorel.delivery SET state = 'queued', lease_until = NULL, reason = $2 "
                 "WHERE id IN (SELECT id FROM quorel.delivery "
                 "  WHERE state = 'sending' AND lease_until < now() "
                 "  LIMIT $1::bigint FOR NO KEY UPDATE SKIP LOCKED)"};

const PgStatement pg::claim = {
    "claim",
    "WITH " ROOMS ", lanes AS MATERIALIZED ("
    "  SELECT name AS lane, room FROM rooms "
    "  WHERE room > 0 AND coalesce(away_until <= now(), true) "
    "  UNION ALL SELECT '', sum(room) FROM rooms "
    "  WHERE room > 0 AND coalesce(away_until <= now(), true) HAVING count(*) > 0), "
    "picked AS MATERIALIZED ("
    "  SELECT q.id FROM lanes, LATERAL ("
    "    SELECT d.id, d.due FROM quorel.delivery d "
    "    WHERE d.state = 'queued' AND d.lane = lanes.lane AND d.due <= now() "
    "    ORDER BY d.due, d.id LIMIT least($1::bigint, lanes.room) "
    "    FOR NO KEY UPDATE SKIP LOCKED) q "
    "  ORDER BY q.due, q.id LIMIT $1::bigint), "
    "taken AS (UPDATE quorel.delivery d SET state = 'sending', token = d.token + 1, "
    "  lease_until = now() + $2::bigint * interval '1 millisecond' "
    "  FROM picked p WHERE d.id = p.id RETURNING d.*) "
    "SELECT t.id, t.message, t.token, m.account, t.account, t.recipients, t.attempts, "
    "  greatest(0, t.max_attempts - t.attempts), coalesce(m.expires <= now(), false), "
    "  coalesce(octet_length(m.text_body), 0)::bigint + coalesce(octet_length(m.html_body), 0) "
    "  + (SELECT coalesce(sum(octet_length(f.content)), 0)::bigint FROM quorel.attachment f "
    "     WHERE f.message = t.message), "
    "  greatest(0, extract(epoch FROM now() - m.due) * 1000)::bigint "
    "FROM taken t JOIN quorel.message m ON m.id = t.message ORDER BY t.due, t.id"};

const PgStatement pg::read_messages = {
    "read_messages",
    "SELECT id::text, sender, sender_name, recipients, cc, bcc, reply_to, subject, text_body, "
    "  html_body, message_id, in_reply_to, \"references\", list_unsubscribe, headers, "
    "  floor(extract(epoch FROM created))::bigint::text "
    "FROM quorel.message WHERE id = ANY ($1::bigint[])"};

const PgStatement pg::read_attachments = {
    "read_attachments",
    "SELECT id::text, message::text, name, type, content_id, octet_length(content)::text, "
    "  substring(content FROM 1 FOR 1048576) "
    "FROM quorel.attachment WHERE message = ANY ($1::bigint[]) ORDER BY id"};

const PgStatement pg::read_piece = {
    "read_piece", "SELECT substring(content FROM $2::integer FOR 1048576) FROM quorel.attachment "
                  "WHERE id = $1::bigint"};

// Taken back, and by nobody taken since: the outcome still counts.
const PgStatement pg::end_claims = {
    "end_claims",
    "WITH ended AS (SELECT * FROM unnest($1::bigint[], $2::bigint[], $3::text[], $4::bigint[], "
    "  $5::text[], $6::text[], $7::boolean[], $8::text[]) WITH ORDINALITY AS "
    "  e(id, token, state, pause, first_half, second_half, keeps_reason, reason, n)), "
    "done AS (UPDATE quorel.delivery d SET state = e.state, token = d.token + 1, "
    "  lease_until = NULL, due = coalesce(now() + e.pause * interval '1 millisecond', d.due), "
    "  recipients = coalesce(e.first_half, d.recipients), "
    "  max_attempts = d.max_attempts + (e.second_half IS NOT NULL)::integer, "
    "  finished = CASE WHEN e.state <> 'queued' THEN clock_timestamp() END, "
    "  reason = CASE WHEN e.keeps_reason THEN coalesce(e.reason, d.reason) ELSE e.reason END "
    "  FROM ended e "
    "  WHERE d.id = e.id AND d.token = e.token AND d.state IN ('sending', 'queued') "
    "  RETURNING e.n, e.second_half, d.message, d.lane, d.max_attempts - d.attempts AS left), "
    "halves AS (INSERT INTO quorel.delivery (message, lane, recipients, max_attempts) "
    "  SELECT message, lane, second_half, greatest(1, \"left\") FROM done "
    "  WHERE second_half IS NOT NULL) "
    "SELECT n FROM done"};

const PgStatement pg::end_attempts = {
    "end_attempts",
    "UPDATE quorel.attempt a SET ended = clock_timestamp(), status = e.status, reason = e.reason "
    "FROM unnest($1::bigint[], $2::bigint[], $3::integer[], $4::integer[], $5::text[]) "
    "  AS e(id, token, number, status, reason) "
    "WHERE a.delivery = e.id AND a.number = e.number AND a.token = e.token AND a.ended IS NULL"};

// What counts the attempts of the last minute begins after this one, and sees all that others with
// the lock have committed.
const PgStatement pg::lock_accounts = {
    "lock_accounts", "SELECT FROM quorel.account WHERE name = ANY ($1::text[]) "
                     "AND per_minute IS NOT NULL ORDER BY name FOR NO KEY UPDATE"};

const PgStatement pg::start_attempts = {
    "start_attempts",
    "WITH " ROOMS ", asked AS MATERIALIZED ("
    "  SELECT b.*, r.room, r.first, "
    "    row_number() OVER (PARTITION BY b.account ORDER BY b.n) AS place "
    "  FROM unnest($1::bigint[], $2::bigint[], $3::text[]) WITH ORDINALITY AS "
    "    b(id, token, account, n) LEFT JOIN rooms r ON r.name = b.account), "
    "begun AS (UPDATE quorel.delivery d SET attempts = d.attempts + 1, account = a.account, "
    "  lease_until = statement_timestamp() + $4::bigint * interval '1 millisecond' "
    "  FROM asked a WHERE d.id = a.id AND d.token = a.token AND d.state = 'sending' "
    "    AND a.place <= coalesce(a.room, a.place) RETURNING d.id, d.token, d.attempts, a.account), "
    "noted AS (INSERT INTO quorel.attempt "
    "    (delivery, number, token, daemon, account, limited, started) "
    "  SELECT b.id, b.attempts, b.token, $5::text, b.account, "
    "    EXISTS (SELECT FROM quorel.account c WHERE c.name = b.account AND c.per_minute > 0), "
    "    statement_timestamp() FROM begun b) "
    "SELECT a.n, b.attempts, " MILLISECONDS_TO(
        "coalesce(a.first, now()) + interval '60 seconds'") " "
                                                            "FROM asked a LEFT JOIN begun b ON "
                                                            "b.id = a.id "
                                                            "WHERE b.id IS NOT NULL OR a.place > "
                                                            "a.room AND EXISTS (SELECT FROM "
                                                            "quorel.delivery d "
                                                            "  WHERE d.id = a.id AND d.token = "
                                                            "a.token AND d.state = 'sending')"};

const PgStatement pg::renew = {
    "renew", "UPDATE quorel.delivery d "
             "SET lease_until = clock_timestamp() + $3::bigint * interval '1 millisecond' "
             "FROM unnest($1::bigint[], $2::bigint[]) WITH ORDINALITY AS h(id, token, n) "
             "WHERE d.id = h.id AND d.token = h.token AND d.state = 'sending' RETURNING h.n"};

const PgStatement pg::read_accounts = {
    "read_accounts",
    "WITH " ROOMS " SELECT a.name, a.host, a.port, a.trusted_cert, a.cert_company, a.cert_unit, "
    "  a.cert_name, a.username, a.password, a.password_file, a.allow_plaintext_auth, a.sender, "
    "  a.sender_name, a.timeout_seconds, a.rank, a.per_minute, a.failures, "
    "  " MILLISECONDS_TO("a.away_until") ", " MILLISECONDS_TO(
        "r.full_until") " "
                        "FROM quorel.account a JOIN rooms r USING (name) ORDER BY a.rank, a.name"};

const PgStatement pg::note_away = {
    "note_away", "UPDATE quorel.account SET failures = failures + 1, trouble = $3, "
                 "away_until = now() + $2::bigint * interval '1 millisecond' WHERE name = $1"};
const PgStatement pg::note_probe = {
    "note_probe", "UPDATE quorel.account "
                  "SET away_until = now() + $2::bigint * interval '1 millisecond' "
                  "WHERE name = $1 AND failures > 0 AND coalesce(away_until <= now(), true) "
                  "RETURNING 1"};
const PgStatement pg::note_back = {
    "note_back", "UPDATE quorel.account SET failures = 0, trouble = NULL, away_until = NULL "
                 "WHERE name = $1 AND failures <> 0"};

const PgStatement pg::first_due = {
    "first_due",
    "WITH " ROOMS ", lanes AS (SELECT name AS lane, greatest(away_until, full_until) AS free_at "
    "  FROM rooms UNION ALL SELECT '', min(coalesce(greatest(away_until, full_until), now())) "
    "  FROM rooms HAVING count(*) > 0), "
    "moments AS (SELECT greatest(q.due, l.free_at) AS moment FROM lanes l, LATERAL ("
    "    SELECT d.due FROM quorel.delivery d WHERE d.state = 'queued' AND d.lane = l.lane "
    "    ORDER BY d.due LIMIT 1) q "
    "  UNION ALL SELECT lease_until FROM quorel.delivery WHERE state = 'sending') "
    "SELECT " MILLISECONDS_TO("min(moment)") " FROM moments HAVING count(*) > 0"};

const PgStatement pg::read_figures = {
    "read_figures",
    "SELECT count(*) FILTER (WHERE state = 'queued'), "
    "  count(*) FILTER (WHERE state = 'queued' AND due <= now()), "
    "  count(*) FILTER (WHERE state = 'sending'), count(*) FILTER (WHERE state = 'sent'), "
    "  count(*) FILTER (WHERE state = 'failed'), count(*) FILTER (WHERE state = 'cancelled'), "
    "  greatest(0, extract(epoch FROM now() - min(due) FILTER (WHERE state = 'queued')) * 1000)"
    "  ::bigint FROM quorel.delivery"};

const PgStatement pg::read_troubles = {
    "read_troubles", "SELECT d.message, d.state, coalesce(replace(d.recipients, E'\\n', ', '), "
                     "  concat_ws(', ', m.recipients, m.cc, m.bcc)), d.attempts, d.reason "
                     "FROM quorel.delivery d JOIN quorel.message m ON m.id = d.message "
                     "WHERE d.state = 'failed' OR d.state = 'queued' AND d.reason IS NOT NULL "
                     "ORDER BY d.id DESC LIMIT $1::bigint"};

std::span<const PgStatement> all_pg_statements() {
    static const PgStatement all[] = {
        pg::take_back,      pg::claim,      pg::read_messages, pg::read_attachments,
        pg::read_piece,     pg::end_claims, pg::end_attempts,  pg::lock_accounts,
        pg::start_attempts, pg::renew,      pg::read_accounts, pg::note_away,
        pg::note_probe,     pg::note_back,  pg::first_due,     pg::read_figures,
        pg::read_troubles};
    return all;
}

}  // namespace host::outbox
