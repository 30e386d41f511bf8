// The page over a copy that is read alone, with 300,000 events: how soon it is there, and whether
// scrolling ever holds up the browser.

import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { join } from 'node:path';
import test from 'node:test';
import { ordinary } from './events.js';
import { browse, counted, folderOf, ingest, open, picture, request, rows, settled, showAlone } from './support.js';

const many = 300_000;
const begin = new Date('2026-03-02T00:00:00Z');

function storeOf(whole) {
  const kept = process.env.ZEL_WEB_STORE;
  const store = kept ?? join(folderOf(whole), 'store');
  if (!existsSync(store)) ingest(store, [...ordinary(many, begin)]);
  return store;
}

/** Watches for tasks that hold up the page. */
async function watch(page) {
  await page.evaluate(() => {
    window.longTasks = [];
    new PerformanceObserver((list) => window.longTasks.push(...list.getEntries().map(({ duration }) => duration))).observe({ type: 'longtask' });
  });
}

async function bytesOf(link, page) {
  const cookies = await page.context().cookies();
  const Cookie = cookies.map(({ name, value }) => `${name}=${value}`).join('; ');
  const names = await page.evaluate(() => performance.getEntriesByType('resource').map(({ name }) => name).filter((name) => name.includes('/assets/')));
  let bytes = 0;
  for (const name of [...new Set(names), new URL('/', link).href]) {
    const { status, text } = await request({ ...(({ hostname, port, pathname }) => ({ host: hostname, port, path: pathname }))(new URL(name)), headers: { Cookie, 'Accept-Encoding': 'identity' } });
    assert.equal(status, 200);
    bytes += Buffer.byteLength(text);
  }
  return bytes;
}

test('a copy with 300,000 events, read alone', async (whole) => {
  const store = storeOf(whole);
  const browser = await browse(whole);  // ends first, and asks nothing of a program that ends
  const link = await showAlone(whole, store);
  const page = await open(whole, browser, link, { patience: 300_000 });
  assert.equal(await counted(page), many);
  const tell = (text) => whole.diagnostic(text);

  await whole.test('is there soon, and small', async () => {
    const bytes = await bytesOf(link, page);
    tell(`the page is ${bytes} bytes`);
    assert.ok(bytes < 400_000);
    await page.reload();
    const paint = await page.evaluate(() => performance.getEntriesByName('first-contentful-paint')[0]?.startTime);
    tell(`first paint after ${Math.round(paint)} ms`);
    await settled(page);
    assert.ok(paint < 10_000);
  });

  await whole.test('scrolls from end to end', async () => {
    await watch(page);
    const list = page.locator('#list');
    const way = await list.evaluate((element) => element.scrollHeight - element.clientHeight);
    for (let step = 1; step <= 40; step++) {
      await list.evaluate((element, top) => { element.scrollTop = top; }, (way * step) / 40);
      await page.waitForTimeout(30);
    }
    await settled(page);
    assert.match((await rows(page)).at(-1), /02\/03\/2026, 00:00:00\.000/);
    await list.hover();
    for (let step = 0; step < 60; step++) await page.mouse.wheel(0, -700);
    await settled(page);
    await page.screenshot({ path: picture('many') });
    const slow = await page.evaluate(() => window.longTasks);
    tell(`tasks above 50 ms while scrolling: ${slow.length ? slow.map(Math.round).join(', ') : 'none'}`);
    assert.ok(slow.filter((length) => length > 1000).length === 0, String(slow));
  });

  await whole.test('has each row once, whatever way it is reached', async () => {
    const list = page.locator('#list');
    await list.focus();
    await page.keyboard.press('End');
    await settled(page);
    const last = await rows(page);
    await page.keyboard.press('Home');
    await settled(page);
    const first = await rows(page);
    await page.getByRole('button', { name: 'Newest first' }).click();
    await settled(page);
    assert.deepEqual((await rows(page)).slice(0, 10), last.reverse().slice(0, 10));
    await page.keyboard.press('End');
    await list.press('End');
    await settled(page);
    assert.deepEqual((await rows(page)).reverse().slice(0, 10), first.slice(0, 10));
  });

  await whole.test('takes no notes', async () => {
    await page.locator('#list').press('Enter');
    await page.locator('#event', { hasText: 'The store is read alone' }).waitFor();
    assert.equal(await page.getByRole('button', { name: 'Live' }).isVisible(), false);
  });
});
