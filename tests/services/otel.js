// otel.js FORM URL TOKEN FILE COMPRESSION: exports each event of the file as a log record, with the exporter for
// FORM, http (JSON) or proto. Tells errors of the exporter, and ends when all was tried.
const fs = require('fs');
const [form, url, token, file, compression] = process.argv.slice(2);
const {diag, DiagLogLevel} = require('@opentelemetry/api');
diag.setLogger({error: console.error, warn: console.error, info() {}, debug() {}, verbose() {}}, DiagLogLevel.WARN);
const {LoggerProvider, BatchLogRecordProcessor} = require('@opentelemetry/sdk-logs');
const {OTLPLogExporter} = require(`@opentelemetry/exporter-logs-otlp-${form}`);
const exporter = new OTLPLogExporter({url: url + '/v1/logs', headers: {authorization: 'Bearer ' + token}, compression});
const processor = new BatchLogRecordProcessor({exporter, maxExportBatchSize: 200, maxQueueSize: 10000});
const logger = new LoggerProvider({processors: [processor]}).getLogger('test');
// As text and as members in turn.
fs.readFileSync(file, 'utf8').split('\n').filter(line => line)
  .forEach((line, number) => logger.emit({severityNumber: 9, body: number % 2 ? line : JSON.parse(line)}));
processor.forceFlush().then(() => processor.shutdown()).catch(error => { console.error(error); process.exit(1); });
