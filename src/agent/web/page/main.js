// The page: who speaks to whom. The question stands in the middle; each part asks the server for its
// own piece of the answer when the question is another one.

import { askJson } from './api.js';
import { make, openDialog, part, tell } from './dom.js';
import { EventPane } from './event.js';
import { Facets } from './facets.js';
import { Histogram } from './histogram.js';
import { columnText } from './kinds.js';
import { List } from './list.js';
import { Live } from './live.js';
import { Question, usualColumns } from './question.js';
import { openSave } from './save.js';
import { SearchLine } from './searchline.js';

/** @param {Question} question @param {Column[]} columns */
function openColumns(question, columns) {
  const boxes = [...columns.map(({ name }) => name), 'rule', 'level'].map((name) => {
    const box = /** @type {HTMLInputElement} */ (make('input', { type: 'checkbox', checked: question.view.columns.includes(name) }));
    box.addEventListener('change', () => {
      const rest = question.view.columns.filter((column) => column !== name);
      const wanted = box.checked ? [...rest, name] : rest;
      if (wanted.length) question.look({ columns: wanted });
      else box.checked = true;
    });
    return make('li', {}, make('label', {}, box, columnText(name)));
  });
  const usual = make('button', { type: 'button', onclick: () => { question.look({ columns: [...usualColumns] }); openColumns(question, columns); } }, 'The usual ones');
  const dialog = /** @type {HTMLDialogElement} */ (part('dialog'));
  if (dialog.open) dialog.close();
  openDialog('Columns', make('p', {}, 'They stand in the order in which they are ticked.'), make('ul', { class: 'columns' }, ...boxes), usual);
}

function openHelp() {
  const keys = [['/', 'to the search line'], ['j k ↓ ↑', 'next and previous event'], ['Enter', 'open the event'], ['Home End', 'first and last event'],
    ['Page Up, Page Down', 'a page on'], ['m', 'take the event into the report'], ['Esc', 'close the event'], ['?', 'this help']];
  openDialog('Keys', make('dl', { class: 'keys' }, ...keys.flatMap(([key, what]) => [make('dt', {}, key), make('dd', {}, what)])),
    make('p', {}, 'Pull over the bars to look at that time; the wheel zooms. A click on a value narrows, − beside it excludes. The address of the page holds the question.'));
}

/** @param {KeyboardEvent} event @param {List} list */
function globalKey(event, list) {
  const target = /** @type {HTMLElement} */ (event.target);
  if (event.ctrlKey || event.metaKey || event.altKey || target.closest('input, select, textarea, dialog')) return;
  if (event.key === '/') part('line').focus();
  else if (event.key === '?') openHelp();
  else if (event.key === 'j' || event.key === 'k') {
    list.scroller.focus();
    list.select(Math.max(0, list.selected + (event.key === 'j' ? 1 : -1)), true);
  } else if (event.key === 'Escape' && !part('event').hidden) part('event').dispatchEvent(new KeyboardEvent('keydown', { key: 'Escape' }));
  else return;
  event.preventDefault();
}

/** @param {Question} question */
function zoneButton(question) {
  const show = () => {
    part('zone').textContent = question.utc ? 'UTC' : 'Local time';
    part('zone').title = question.utc ? 'Times are UTC; show those of this machine' : `Times of ${Intl.DateTimeFormat().resolvedOptions().timeZone}; show UTC`;
  };
  part('zone').addEventListener('click', () => question.look({ zone: question.utc ? 'local' : 'utc' }));
  question.addEventListener('viewed', show);
  question.addEventListener('asked', show);
  show();
}

async function begin() {
  const question = new Question();
  const histogram = new Histogram(question);
  const facets = new Facets(question);
  const list = new List(question);
  list.rows.addEventListener('failed', (event) => tell(/** @type {CustomEvent} */ (event).detail));
  histogram.addEventListener('counted', (event) => list.rows.expect(/** @type {CustomEvent} */ (event).detail.total));
  const recount = () => {
    histogram.load();
    facets.load();
  };
  if (matchMedia('(max-width: 760px)').matches) /** @type {HTMLDetailsElement} */ (part('facets-fold')).open = false;
  zoneButton(question);
  new SearchLine(question);
  list.load();
  recount();
  part('help').addEventListener('click', openHelp);
  document.addEventListener('keydown', (event) => globalKey(event, list));
  list.addEventListener('open', (event) => question.look({ event: /** @type {CustomEvent} */ (event).detail }));
  part('save').addEventListener('click', () => openSave(question, list));
  const about = /** @type {About} */ (await askJson('page', '/v1/page'));
  new EventPane(question, about);
  part('columns').addEventListener('click', () => openColumns(question, about.columns));
  if (about.live) new Live(question, list, recount);
  else part('live').hidden = true;
  document.title = `Timeline – ${about.store}`;
  tell(about.live ? '' : `${about.store}, read alone`);
}

begin().catch((error) => tell(error.message));
