// The pictures of docs/timeline.md, made anew: node tests/web/pictures.js, or scripts/test --web --pictures.

import { execFileSync } from 'node:child_process';
import { join } from 'node:path';
import test from 'node:test';
import { gap, incident } from './events.js';
import { ask, browse, folderOf, ingest, open, picture, serve, settled } from './support.js';

test('pictures', async (whole) => {
  const folder = folderOf(whole);
  ingest(join(folder, 'store'), [...incident(), gap()], 'examples/events.ndjson.xz');
  const service = await serve(whole, folder);
  const browser = await browse(whole);
  const page = await open(whole, browser, service.link(), { viewport: { width: 1280, height: 760 } });
  await page.screenshot({ path: picture('timeline') });
  await ask(page, { since: '2023-07-20', until: '2023-07-20' });
  await page.locator('#list .row', { hasText: 'WINWORD.EXE' }).filter({ hasText: 'powershell.exe' }).first().click();
  await page.locator('#event .tree text').first().waitFor();
  await page.locator('#event details', { hasText: 'Processes' }).first().scrollIntoViewIfNeeded();
  await page.screenshot({ path: picture('timeline-event') });
  const narrow = await open(whole, browser, service.link(), { viewport: { width: 400, height: 760 }, colorScheme: 'dark' });
  await ask(narrow, { since: '2023-07-19' });
  await settled(narrow);
  await narrow.screenshot({ path: picture('timeline-narrow') });
  for (const name of ['timeline', 'timeline-event', 'timeline-narrow']) execFileSync('pngquant', ['--force', '--ext', '.png', '64', picture(name)]);
});
