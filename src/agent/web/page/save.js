// What goes out: the events that are shown as a file, or a report of those that were chosen, with the
// question and what of the store it covers.

import { send } from './api.js';
import { make, openDialog, shown, tell } from './dom.js';

/** @typedef {import('./question.js').Question} Question */
/** @typedef {import('./list.js').List} List */

/** @param {Question} question @param {List} list */
export function openSave(question, list) {
  // What rules say of an event stands in its enrichments.
  const fields = [...new Set(question.view.columns.map((name) => (name === 'rule' || name === 'level' ? 'enrichments' : name)))].join(',');
  const forms = /** @type {[string, string, string][]} */ ([['ndjson', 'NDJSON', 'the records as they are stored'], ['csv', 'CSV', 'the columns that are shown'], ['ocsf', 'OCSF', 'for other tools']]);
  const links = forms.map(([form, name, hint]) => {
    /** @type {[string, string][]} */
    const more = form === 'csv' ? [['form', form], ['fields', fields]] : [['form', form]];
    return make('li', {}, make('a', { href: `/v1/export?${new URLSearchParams([...question.conditions, ...more])}`, download: `events.${form === 'csv' ? 'csv' : 'ndjson'}` }, name), ` ${hint}`);
  });
  openDialog('Save', make('h3', {}, 'All events that fit'), make('ul', {}, ...links), make('h3', {}, 'A report'), report(question, list));
}

/** @param {Question} question @param {List} list */
function report(question, list) {
  if (!list.chosen.size) return make('p', {}, 'Choose events for it in the list: the star in front of them, or the key m.');
  const title = /** @type {HTMLInputElement} */ (make('input', { type: 'text', id: 'report-title', value: 'Report', maxlength: 200 }));
  const events = [...list.chosen.entries()].map(([key, chosen]) => {
    const note = /** @type {HTMLInputElement} */ (make('input', { type: 'text', 'aria-label': `Note on ${chosen.title}`, placeholder: 'Note', maxlength: 4000 }));
    note.value = chosen.note;
    note.addEventListener('input', () => { chosen.note = note.value; });
    return { key, note, item: make('li', {}, make('span', { class: 'text' }, shown(chosen.title).slice(0, 300)), note) };
  });
  const problem = make('p', { role: 'alert', class: 'warning' });
  const form = make('form', { class: 'report' }, make('label', { for: 'report-title' }, 'Title'), title, make('ol', {}, ...events.map(({ item }) => item)), make('button', { type: 'submit' }, 'Save the report'), problem);
  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    problem.textContent = '';
    try {
      const command = document.getElementById('command')?.textContent ?? '';
      const response = await send('/v1/report', {
        question: { parameters: question.conditions, command }, title: title.value, events: events.map(({ key, note }) => ({ key, note: note.value })),
      });
      keep(await response.blob(), 'report.html');
      tell('The report is saved');
    } catch (error) {
      problem.textContent = /** @type {Error} */ (error).message;
    }
  });
  return form;
}

/** @param {Blob} blob @param {string} name */
function keep(blob, name) {
  const address = URL.createObjectURL(blob);
  make('a', { href: address, download: name }).click();
  setTimeout(() => URL.revokeObjectURL(address), 10_000);
}
