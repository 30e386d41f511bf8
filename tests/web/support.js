// What the tests of the page share: a service or a store of their own, a browser, and a page that fails
// its test by any error and by anything that the policy of its content has stopped.

import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import http from 'node:http';
import { createRequire } from 'node:module';
import net from 'node:net';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

const [modules, pictures] = [process.env.ZEL_WEB_MODULES ?? 'build/web/', process.env.ZEL_WEB_PICTURES ?? 'build/web/pictures'];
export const zel = process.env.ZEL_WEB_PROGRAM ?? 'build/debug/bin/zel';

const fetched = createRequire(join(process.cwd(), modules, 'package.json'));
const { chromium } = fetched('playwright-core');
const axe = fetched('axe-core').source;

export const pictureFolder = pictures;
export const picture = (name) => join(pictures, `${name}.png`);

/** A folder that goes with the test. */
export function folderOf(test) {
  const folder = mkdtempSync(join(tmpdir(), 'zel-web-'));
  test.after(() => rmSync(folder, { recursive: true, force: true }));
  return folder;
}

export function ingest(store, records, ...files) {
  const own = `${store}.ndjson`;
  writeFileSync(own, records.map((record) => `${JSON.stringify(record)}\n`).join(''));
  execFileSync(zel, ['--store', store, 'ingest', ...files, own], { stdio: ['ignore', 'ignore', 'pipe'] });
  rmSync(own);
}

/** Leaves the hits of a rule with their events. */
export function hunt(store, rule) {
  execFileSync(zel, ['--store', store, 'hunt', '-', '--enrich'], { input: rule, stdio: ['pipe', 'ignore', 'pipe'] });
}

export function lines(...words) {
  return execFileSync(zel, words, { encoding: 'utf8', stdio: ['ignore', 'pipe', 'ignore'], maxBuffer: 1 << 28 }).trim().split('\n');
}

function freePort() {
  return new Promise((found) => {
    const server = net.createServer().listen(0, '127.0.0.1', () => {
      const { port } = server.address();
      server.close(() => found(port));
    });
  });
}

// The process ends with the test. What it says is read on, or it would block.
function started(test, words, until) {
  const child = spawn(zel, words, { stdio: ['ignore', 'pipe', 'pipe'] });
  const ended = new Promise((done) => child.once('exit', done));
  test.after(async () => {
    child.kill('SIGTERM');
    await ended;
  });
  return new Promise((found, failed) => {
    let said = '';
    const hear = (piece) => {
      said += piece;
      const match = until.exec(said);
      if (match) found(match[0]);
    };
    child.stdout.on('data', hear);
    child.stderr.on('data', hear);
    ended.then((code) => failed(new Error(`zel ${words.join(' ')} ended with ${code}: ${said}`)));
  });
}

/** A service with a page. */
export async function serve(test, folder) {
  const port = await freePort();
  const [config, socket] = [join(folder, 'zel.toml'), join(folder, 'zel.sock')];
  writeFileSync(config, `[store]\npath = "${folder}/store"\n[spool]\npath = "${folder}/spool"\n[http]\nsocket = "${socket}"\n`);
  await started(test, ['serve', '--config', config, `--web=${port}`], /ready/);
  return {
    folder, socket, origin: `http://127.0.0.1:${port}`,
    link: () => lines('--socket', socket, 'web', '--no-open')[0],
    bring: (records) => request({ socketPath: socket, method: 'POST', path: '/v1/events', headers: { 'Content-Type': 'application/x-ndjson' } }, records.map((record) => `${JSON.stringify(record)}\n`).join('')),
  };
}

/** The page over a store alone. @returns {Promise<string>} its link */
export function showAlone(test, store) {
  return started(test, ['--store', store, 'web', '--no-open'], /http:\S+token=[0-9a-f]+(?=\s)/);
}

export function request(options, body = '') {
  return new Promise((done, failed) => {
    const asked = http.request(options, (answer) => {
      let text = '';
      answer.setEncoding('utf8').on('data', (piece) => { text += piece; }).on('end', () => done({ status: answer.statusCode, headers: answer.headers, text }));
    });
    asked.on('error', failed).end(body);
  });
}

export async function browse(test) {
  const words = ['--no-sandbox', '--headless', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking', '--disable-component-update', '--disable-sync'];
  const browser = await chromium.launch({ executablePath: '/usr/bin/chromium', args: words });
  test.after(() => browser.close());
  return browser;
}

const usual = { viewport: { width: 1280, height: 800 }, locale: 'en-GB', timezoneId: 'Europe/Berlin', colorScheme: 'light' };

/** A browser's own window on the page, opened by a link. */
export async function open(test, browser, link, options = {}) {
  const context = await browser.newContext({ ...usual, ...options });
  const page = await context.newPage();
  const faults = [];
  page.on('pageerror', (error) => faults.push(error.stack));
  page.on('console', (message) => { if (message.type() === 'error' && !/status of (400|403)/.test(message.text())) faults.push(message.text()); });
  test.after(() => assert.deepEqual(faults, []));
  page.setDefaultTimeout(options.patience ?? 20_000);
  await page.goto(link);
  await settled(page);
  return page;
}

/** Waits until what is asked is shown. */
export async function settled(page) {
  await page.evaluate(() => new Promise((drawn) => requestAnimationFrame(() => requestAnimationFrame(drawn))));
  await page.waitForFunction(() => !document.querySelector('.waiting, .row.missing:not([hidden])') && /\d|Nothing/.test(document.getElementById('counted')?.textContent ?? ''));
}

/** Asks by the search line. */
export async function search(page, line) {
  await page.locator('#line').fill(line);
  const before = page.url();
  await page.locator('#line').press('Enter');
  await page.waitForFunction((address) => document.getElementById('line-error')?.textContent || location.href !== address, before);
  assert.equal(await page.locator('#line-error').textContent(), '');
  await settled(page);
}

/** Asks by the address. */
export async function ask(page, conditions) {
  await page.evaluate((address) => new Promise((done) => {
    document.querySelector('dialog[open]')?.close();
    if (location.hash.slice(1) === address) return done();
    addEventListener('popstate', () => setTimeout(done), { once: true });
    location.hash = address;
  }), String(new URLSearchParams(conditions)));
  await settled(page);
}

/** What the rows that are seen say. */
export async function rows(page) {
  return page.locator('#list .body .row:visible').evaluateAll((all) => all
    .sort((one, other) => Number(one.dataset.index) - Number(other.dataset.index)).map((row) => row.textContent));
}

export async function counted(page) {
  return Number((await page.locator('#counted b').textContent()).replace(/\D/g, ''));
}

/** Fails by any fault of access that is serious. */
export async function accessible(page) {
  await page.evaluate(axe);
  const { violations } = await page.evaluate(() => window.axe.run());
  const serious = violations.filter(({ impact }) => impact === 'serious' || impact === 'critical');
  assert.deepEqual(serious.map(({ id, nodes }) => `${id}: ${nodes.map(({ html }) => html).slice(0, 3).join(' ')}`), []);
}
