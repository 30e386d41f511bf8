// es.js MODULE TARGET TOKEN FILE OPTIONS: brings a file of events as programs with this client do, and tells as
// JSON what came of it. TARGET is a URL or the path of a Unix socket; OPTIONS is an object of JSON:
// `compression`, and `untilDone` for a program that begins again after an error.
const fs = require('fs');
const http = require('http');
const [module_, target, token, file, optionsText] = process.argv.slice(2);
const {Client, HttpConnection} = require(module_);
const options = JSON.parse(optionsText);
const place = target.startsWith('/')
  ? {node: 'http://localhost', Connection: HttpConnection, agent: () => new http.Agent({socketPath: target, keepAlive: true})}
  : {node: target, auth: {username: 'any', password: token}};
const client = new Client({...place, compression: options.compression});
const lines = fs.readFileSync(file, 'utf8').split('\n').filter(line => line).map(line => JSON.parse(line));
const ids = new Map(lines.map((event, number) => [event, String(number)]));

function bring() {
  let dropped = 0;
  return client.helpers.bulk({
    datasource: lines, concurrency: 1, retries: 10, wait: 1000, flushBytes: 100000,
    onDocument: event => ({create: {_index: 'events', _id: ids.get(event)}}),
    onDrop: () => { ++dropped; },
  }).then(sums => ({...sums, dropped}));
}

async function untilDone() {
  for (let errors = 0; ; ++errors) {
    try {
      return {...await bring(), errors};
    } catch {
      await new Promise(done => setTimeout(done, 500));
    }
  }
}

async function main() {
  if (options.untilDone) return {helper: await untilDone()};
  const body = answer => answer.body ?? answer;  // 7 wraps it
  const told = {info: body(await client.info()).version.number, ping: body(await client.ping())};
  const operations = lines.slice(0, 10).flatMap(event => [{index: {_index: 'events', _id: ids.get(event)}}, event]);
  told.bulk = body(await client.bulk(module_ === 'es7' ? {body: operations} : {operations})).errors;
  told.first = await bring();
  told.second = await bring();
  return told;
}

main().then(told => console.log(JSON.stringify(told)), error => { console.error(error); process.exit(1); });
