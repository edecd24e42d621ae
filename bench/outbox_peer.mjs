// outbox_peer.mjs MODULES CONNECTION PORT JOBS WORKERS: a job queue of others over PostgreSQL that sends
// mail with a mail library of others. Makes its tables, waits for a line on standard input, works until
// no job is left, and prints how many it has done.

import { createRequire } from "node:module";
import { createInterface } from "node:readline";

const [modules, connectionString, port, jobs, workers] = process.argv.slice(2);
const require = createRequire(modules + "/package.json");
const { run, runMigrations, Logger } = require("graphile-worker");
const transport = require("nodemailer").createTransport({
    host: "127.0.0.1", port: Number(port), secure: false, ignoreTLS: true,
    pool: true, maxConnections: Number(workers), maxMessages: Infinity,
});

const logger = new Logger(() => () => {});
await runMigrations({ connectionString, logger });
console.log("ready");
for await (const _ of createInterface({ input: process.stdin })) break;

let done = 0;
let finish;
const all = new Promise(resolve => { finish = resolve; });
const runner = await run({
    connectionString, logger, concurrency: Number(workers), noHandleSignals: true,
    maxPoolSize: Number(workers) + 1,
    taskList: {
        async send(mail) {
            await transport.sendMail(mail);
            if (++done === Number(jobs)) finish();
        },
    },
});
await all;
await runner.stop();
transport.close();
console.log(done);
process.exit(0);
