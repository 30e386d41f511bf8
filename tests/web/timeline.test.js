// The page of a running service, as a responder uses it who has never seen it.

import assert from 'node:assert/strict';
import { readFileSync, readdirSync } from 'node:fs';
import { join } from 'node:path';
import test from 'node:test';
import { gap, hostile, incident, ordinary, rule, script } from './events.js';
import { accessible, ask, browse, counted, folderOf, hunt, ingest, lines, open, picture, pictureFolder, request, rows, search, serve, settled } from './support.js';

const sample = 'examples/events.ndjson.xz';
const all = 2039;

/** @param {any} page @param {any} button */
async function saved(page, button) {
  const [download] = await Promise.all([page.waitForEvent('download'), button.click()]);
  return readFileSync(await download.path(), 'utf8');
}

/** @type {[string, (stage: any) => Promise<void>][]} */
const scenarios = [];
const scenario = (name, run) => scenarios.push([name, run]);

scenario('a link opens once, and other places are refused', async ({ service, page }) => {
  const link = new URL(service.link());
  const use = (headers = {}, path = link.pathname + link.search) => request({ host: '127.0.0.1', port: link.port, path, headers: { Host: link.host, ...headers } });
  const first = await use();
  assert.equal(first.status, 303);
  const [cookie] = first.headers['set-cookie'][0].split(';');
  assert.ok([401, 403].includes((await use()).status));
  assert.equal((await use({ Cookie: cookie }, '/v1/page')).status, 200);
  assert.equal((await use({}, '/v1/page')).status, 401);
  for (const foreign of [{ Origin: 'http://evil.example' }, { 'Sec-Fetch-Site': 'cross-site' }, { Host: 'evil.example' }]) {
    assert.ok([403, 421].includes((await use({ Cookie: cookie, ...foreign }, '/v1/page')).status), JSON.stringify(foreign));
  }
});

scenario('all is counted, and three questions are answered without a manual', async ({ page }) => {
  assert.equal(await counted(page), all);
  assert.match(await page.locator('#gaps').textContent(), /service not running: 01\/02\/2021 – 30\/06\/2021/);
  assert.ok(Number(await page.locator('#histogram .bands rect').getAttribute('width')) > 50);
  await page.screenshot({ path: picture('timeline') });
  await search(page, 'winword --action launch');
  const started = await rows(page);
  assert.ok(started.some((row) => /WINWORD\.EXE.*powershell\.exe/.test(row)), started.join('\n'));
  await page.locator('#list .row', { hasText: 'powershell.exe -nop' }).first().click();
  await page.locator('#event .tree text', { hasText: 'regsvr32.exe' }).waitFor();
  await page.screenshot({ path: picture('event') });
  await search(page, "--object network --where 'actor_path ends \\powershell.exe' --since 2023-07-20 --until 2023-07-20");
  assert.match((await rows(page)).join('\n'), /203\.0\.113\.77:443/);
  await search(page, "--object reg_value --target-path '*\\CurrentVersion\\Run\\*' --until 2023-07-20");
  assert.match((await rows(page)).join('\n'), /OneDriveUpdate.*regsvr32\.exe \/s C:\\Users\\anna/);
});

scenario('pulling over the bars narrows to a time, which the address keeps', async ({ whole, service, browser, page }) => {
  await ask(page, {});
  const box = await page.locator('#histogram').boundingBox();
  await page.mouse.move(box.x + box.width * 0.97, box.y + 60);
  await page.mouse.down();
  await page.mouse.move(box.x + box.width * 0.995, box.y + 60, { steps: 4 });
  await page.mouse.up();
  await settled(page);
  const narrowed = await counted(page);
  assert.ok(narrowed > 0 && narrowed < 400, String(narrowed));
  await page.getByRole('button', { name: 'Zoom in' }).click();
  await settled(page);
  assert.ok(await counted(page) <= narrowed);
  await page.goBack();
  await settled(page);
  const again = await open(whole, browser, service.link());
  await again.goto(page.url());
  await again.reload();
  await settled(again);
  assert.equal(await counted(again), narrowed);
  await again.context().close();
  await page.getByRole('button', { name: 'All time' }).click();
  await settled(page);
  assert.equal(await counted(page), all);
});

scenario('facets narrow and exclude as zel query does', async ({ service, page }) => {
  await ask(page, {});
  const facets = page.getByRole('region', { name: 'Facets' });
  await facets.getByRole('button', { name: /^Only reg value/ }).click();
  await settled(page);
  await facets.getByRole('button', { name: 'Exclude set' }).click();
  await settled(page);
  const found = lines('--socket', service.socket, 'query', '-o', 'ndjson', '--object', 'reg_value', '--where', 'action != set');
  assert.equal(await counted(page), found.length);
  await page.locator('#command', { hasText: /--object reg_value.*action != set/ }).waitFor();
  await page.locator('#conditions', { hasText: /reg_value.*key/ }).waitFor();
  await page.getByRole('button', { name: 'Remove all' }).click();
  await settled(page);
  assert.equal(await counted(page), all);
});

scenario('an error in a search is told with its place, and words are completed', async ({ page }) => {
  await ask(page, {});
  const line = page.locator('#line');
  await line.fill('--object process --action lunch');
  await line.press('Enter');
  await page.locator('#line-error mark').waitFor();
  assert.match(await page.locator('#line-error').textContent(), /lunch/);
  assert.match(await page.locator('#line-error mark').textContent(), /--action|lunch/);
  assert.equal(await counted(page), all);
  await page.screenshot({ path: picture('search') });
  const offered = (count) => page.waitForFunction((wanted) => document.querySelectorAll('#completions li').length === wanted, count);
  await line.fill('--obj');
  await offered(1);
  await line.press('ArrowDown');
  await line.press('Tab');
  assert.equal(await line.inputValue(), '--object ');
  await line.fill('--object netw');
  await offered(1);
  await line.press('ArrowDown');
  await line.press('Enter');
  assert.equal((await line.inputValue()).trim(), '--object network');
  await line.press('Escape');
  await search(page, '--no-live-enriched --since=-400w');
  await search(page, `${await line.inputValue()} --object file`);
  await page.locator('#command', { hasText: 'zel query --no-live-enriched --since=-400w --object file' }).waitFor();
  assert.equal(await page.locator('#line-error').textContent(), '');
  await ask(page, {});
});

scenario('keys move through the list, open and close', async ({ page }) => {
  await ask(page, {});
  await page.locator('#list').focus();
  await page.keyboard.press('End');
  await settled(page);
  assert.equal(await page.locator('#list').getAttribute('aria-activedescendant'), `row-${all - 1}`);
  await page.keyboard.press('Home');
  await page.keyboard.press('j');
  await page.keyboard.press('j');
  await page.keyboard.press('k');
  await page.keyboard.press('Enter');
  await page.locator('#event .facts').waitFor();
  assert.equal(await page.locator('#list').getAttribute('aria-activedescendant'), 'row-1');
  await page.keyboard.press('Escape');
  await page.locator('#event').waitFor({ state: 'hidden' });
  await page.keyboard.press('/');
  assert.equal(await page.evaluate(() => document.activeElement?.id), 'line');
  await page.keyboard.press('Escape');
  await page.getByRole('button', { name: 'Newest first' }).click();
  await settled(page);
  assert.match((await rows(page))[0], /2019/);
  await page.getByRole('button', { name: 'Oldest first' }).click();
  await settled(page);
});

scenario('what is hostile stays text', async ({ page }) => {
  await ask(page, { since: '2023-07-21', action: 'launch' });
  await page.locator('#list .body .row:visible').first().click();
  await page.locator('#event .facts').waitFor();
  const facts = await page.locator('#event .facts').textContent();
  assert.ok(facts.includes(script) && facts.includes('report_⟨202E⟩fdp.exe') && facts.includes('שלום'), facts.slice(0, 2000));
  await page.locator('#event .facts').getByRole('button', { name: /all 4\d{4} letters/ }).click();
  assert.ok((await page.locator('#event .facts').textContent()).length > 40000);
  assert.match(await page.title(), /Timeline/);
  assert.equal(await page.locator('#event script, #event img').count(), 0);
  await page.screenshot({ path: picture('hostile') });
  await page.keyboard.press('Escape');
});

scenario('levels of rules are drawn, shown in columns and saved', async ({ page }) => {
  await ask(page, { since: '2023-07-20', until: '2023-07-20', '.by': 'level', '.columns': 'time,level,rule,key' });
  assert.match(await page.locator('#legend').textContent(), /high.*6 without a hit, not drawn/);
  assert.match((await rows(page)).join('\n'), /high.*a macro starts a shell/);
  await page.getByRole('button', { name: 'Only a macro starts a shell' }).click();
  await settled(page);
  assert.equal(await counted(page), 1);
  await page.getByRole('button', { name: 'Save…' }).click();
  assert.match(await saved(page, page.getByRole('link', { name: 'CSV' })), /^time,enrichments,key\r?\n[^,]+,.*a macro starts a shell.*,p<begin_time>/);
  await page.keyboard.press('Escape');
  await page.getByRole('button', { name: 'Live' }).click();
  await page.locator('#status', { hasText: 'Live can\'t ask by rules' }).waitFor();
});

scenario('a verdict is kept in the store, with its author', async ({ service, page }) => {
  await ask(page, { object: 'reg_value', target_path: '*\\Run\\OneDriveUpdate' });
  await page.locator('#list .body .row:visible').first().click();
  await page.getByLabel('What it is').selectOption('verdict');
  await page.getByLabel('Text', { exact: true }).fill('malicious <b>');
  await page.getByRole('button', { name: 'Add' }).click();
  await page.locator('#event .notes li').waitFor();
  await page.screenshot({ path: picture('note') });
  let kept = '';
  for (let tries = 0; tries < 60 && !kept.includes('annotation'); tries++) {
    await page.waitForTimeout(500);
    [kept] = lines('--socket', service.socket, 'query', '--enrichments', '-o', 'ndjson', '--target-path', '*\\Run\\OneDriveUpdate');
  }
  const { annotation } = JSON.parse(kept).enrichments.find((one) => one.annotation);
  assert.deepEqual([annotation.kind, annotation.text], ['verdict', 'malicious <b>']);
  assert.ok(annotation.author && annotation.time);
  await page.keyboard.press('Escape');
});

scenario('what is shown goes out as files and as a report', async ({ page }) => {
  await ask(page, { since: '2023-07-20', until: '2023-07-20' });
  await page.locator('#list').focus();
  for (const key of ['Home', 'm', 'j', 'm']) await page.keyboard.press(key);
  await page.getByRole('button', { name: 'Save…' }).click();
  await page.screenshot({ path: picture('save') });
  assert.equal((await saved(page, page.getByRole('link', { name: 'NDJSON' }))).trim().split('\n').length, 7);
  assert.match(await saved(page, page.getByRole('link', { name: 'CSV' })), /^time,object,action,actor_path,target_path\r?\n/);
  assert.match(await saved(page, page.getByRole('link', { name: 'OCSF' })), /class_uid/);
  await page.locator('.report li input').first().fill('it "calls" <home>');
  const report = await saved(page, page.getByRole('button', { name: 'Save the report' }));
  assert.ok(report.includes('&lt;home&gt;') && report.includes('zel query') && !/<script/i.test(report), report.slice(0, 3000));
  await page.keyboard.press('Escape');
});

scenario('new events flow in, and are held in the store while paused', async ({ service, page }) => {
  await ask(page, { object: 'file' });
  const before = await counted(page);
  const fresh = [...ordinary(20, new Date())].filter(({ artifacts }) => artifacts.target.object_type === 'file');
  await service.bring(fresh.slice(0, 2));  // on their way into the store, where no list finds them yet
  await page.locator('#live').click();
  await page.locator('#status', { hasText: 'Live' }).waitFor();
  await service.bring(fresh.slice(2, 4));
  await page.locator('#events-title', { hasText: String(before + 4).replace(/\B(?=(\d{3})+$)/g, ',') }).waitFor();
  assert.match((await rows(page))[0], /part\d+\.dat/);
  await page.getByRole('button', { name: 'Pause' }).click();
  await page.getByRole('button', { name: 'Go on' }).waitFor();
  await service.bring(fresh.slice(4, 6));
  await page.waitForTimeout(700);
  assert.match(await page.locator('#events-title').textContent(), new RegExp(`\\D${before + 4}\\D`));
  await page.screenshot({ path: picture('live') });
  await page.getByRole('button', { name: 'Go on' }).click();
  await page.locator('#events-title', { hasText: String(before + 6) }).waitFor();
  await page.getByRole('button', { name: 'Pause' }).click();
  await page.getByRole('button', { name: 'Newest first' }).click();  // which asks anew
  await page.getByRole('button', { name: 'Pause' }).waitFor();
  await page.getByRole('button', { name: 'Oldest first' }).click();
  await page.locator('#live').click();
});

scenario('it is accessible, wide and narrow, light and dark, in German and English', async ({ whole, service, browser }) => {
  for (const [name, options, date] of [
    ['wide-light', {}, /21\/07\/2023, 10:00:01\.000/],
    ['wide-dark', { colorScheme: 'dark', locale: 'de-DE' }, /21\.07\.2023, 10:00:01,000/],
    ['narrow-light', { viewport: { width: 400, height: 800 }, locale: 'en-US' }, /07\/21\/2023, 10:00:01\.000/],
    ['narrow-dark', { viewport: { width: 400, height: 800 }, colorScheme: 'dark' }, /21\/07\/2023/]]) {
    const own = await open(whole, browser, service.link(), options);
    await ask(own, { until: '2023-07-22' });
    assert.match((await rows(own)).join('\n'), date);
    assert.ok(await own.evaluate(() => document.documentElement.scrollWidth <= innerWidth), `${name} is wider than its window`);
    await accessible(own);
    await own.screenshot({ path: picture(name) });
    await own.locator('#list').focus();
    await own.keyboard.press('Home');
    await own.keyboard.press('Enter');
    await own.locator('#event .facts').waitFor();
    await own.locator('#event .around li').first().waitFor();
    await accessible(own);
    await own.screenshot({ path: picture(`${name}-event`) });
    await own.context().close();
  }
});

scenario('times are those of the zone that is wanted', async ({ page }) => {
  await ask(page, { since: '2023-07-21', until: '2023-07-21' });
  assert.match((await rows(page))[0], /10:00:01/);
  await page.getByRole('button', { name: 'UTC' }).click();
  assert.match((await rows(page))[0], /12:00:01/);
  await page.getByRole('button', { name: 'Local time' }).click();
});

test('the page of a service', async (whole) => {
  const folder = folderOf(whole);
  ingest(join(folder, 'store'), [...incident(), ...hostile(), gap()], sample);
  hunt(join(folder, 'store'), rule);
  const browser = await browse(whole);  // ends first, and asks nothing of a program that ends
  const service = await serve(whole, folder);
  const stage = { whole, service, browser, page: await open(whole, browser, service.link()) };
  for (const [name, run] of scenarios) await whole.test(name, () => run(stage));
  whole.diagnostic(`pictures, to be looked at: ${readdirSync(pictureFolder).sort().join(' ')} in ${pictureFolder}`);
});
