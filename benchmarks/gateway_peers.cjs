// simple-hl7 as a laboratory's system or as a client of one.
//
//     node gateway_peers.cjs receive PORT
//     node gateway_peers.cjs send PORT TEXT
//
// Obeys lines "count N" on stdin and answers each with the seconds that it took, as JSON; says first that it is ready.
"use strict";
const fs = require("fs");
const hl7 = require("simple-hl7");
const readline = require("readline");

const [play, port, file] = process.argv.slice(2);

function obey(carryOut) {
    console.log("ready");
    readline.createInterface({ input: process.stdin })
        .on("line", (line) => carryOut(Number(line.split(" ")[1])))
        .on("close", () => process.exit(0));
}

function tell(start) {
    console.log(JSON.stringify({ seconds: Number(process.hrtime.bigint() - start) / 1e9 }));
}

// Counts from its start on: messages may come before it is told how many are wanted.
function receive() {
    let start;
    let taken = 0;
    let wanted = 0;
    const settle = () => {
        if (wanted > 0 && taken >= wanted) {
            tell(start);
            taken = wanted = 0;
        }
    };
    const app = hl7.tcp();
    app.use((request, response) => {
        start = taken === 0 ? process.hrtime.bigint() : start;
        response.end();
        taken += 1;
        settle();
    });
    // A connection that a client closes at once is no news.
    app.use((error, request, response, next) => next);
    app.start(Number(port));
    obey((count) => {
        wanted = count;
        settle();
    });
}

function send() {
    const message = new hl7.Parser().parse(fs.readFileSync(file, "utf-8"));
    obey((count) => {
        const client = hl7.Server.createTcpClient({ host: "127.0.0.1", port: Number(port), keepalive: true });
        const start = process.hrtime.bigint();
        let left = count;
        const next = () => client.send(message, () => {
            left -= 1;
            if (left > 0) {
                setImmediate(next); // it does not take the next one before this function has returned
            } else {
                tell(start);
                client.close();
            }
        });
        next();
    });
}

play === "receive" ? receive() : send();
