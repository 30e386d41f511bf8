// pino.js URL TOKEN FILE: logs each event of the file by pino and pino-elasticsearch.
const fs = require('fs');
const pino = require('pino');
const [node, token, file] = process.argv.slice(2);
const stream = require('pino-elasticsearch')({node, auth: {username: 'any', password: token}, index: 'events', opType: 'create',
                                              flushBytes: 100000});
stream.on('error', error => { console.error(error); process.exit(1); });
stream.on('insertError', error => { console.error(error); process.exit(1); });
const log = pino({timestamp: pino.stdTimeFunctions.isoTime, base: null, messageKey: 'message'}, stream);
for (const line of fs.readFileSync(file, 'utf8').split('\n')) if (line) log.info(JSON.parse(line));
stream.end();
