// Reads with ClickHouse's own client what zel has written: client.js MODULES URL DATABASE
// One line of JSON for each event, {"host","key","event"}, in the order of their times.
"use strict";
const { createRequire } = require("node:module");
const [modules, url, database] = process.argv.slice(2);
const { createClient } = createRequire(`${modules}/x.js`)("@clickhouse/client");

async function main() {
  const client = createClient({ url, database });
  const answer = await client.query({
    query: "SELECT host, key, event FROM events ORDER BY begin_time, sequence, key, host, receive_ms DESC LIMIT 1 BY host, key",
    format: "JSONEachRow",
  });
  for await (const rows of answer.stream()) for (const row of rows) console.log(row.text);
  await client.close();
}
main().catch((why) => {
  console.error(why);
  process.exit(1);
});
