// What people have said of an event, and a form to say more. It is stored with the event for good, with
// the name of who said it.

import { send } from './api.js';
import { make, shown } from './dom.js';
import { longText } from './record.js';
import { momentText } from './times.js';

const kinds = ['note', 'verdict', 'tag'];
const verdicts = ['malicious', 'suspicious', 'benign', 'unclear'];

/** @param {any} enrichment @returns {Annotation|null} */
export function annotationOf(enrichment) {
  const said = enrichment?.annotation;
  return said && typeof said === 'object' && kinds.includes(said.kind) ? said : null;
}

/** @param {Annotation} said @param {boolean} utc */
function item(said, utc) {
  return make('li', {}, make('b', { class: `said-${said.kind}` }, said.kind), ' ', longText(said.text),
    make('small', {}, `${shown(said.author)}, ${momentText(String(said.time), utc)}`));
}

/**
 * @param {string} key
 * @param {Annotation[]} annotations
 * @param {About} about
 * @param {boolean} utc
 * @returns {HTMLElement}
 */
export function notes(key, annotations, about, utc) {
  const list = make('ul', { class: 'notes' }, ...annotations.map((said) => item(said, utc)));
  const holder = make('div', {}, list);
  if (!about.may_annotate) {
    if (!annotations.length) holder.append(make('p', { class: 'none' }, about.writable ? 'None. You have no right to add one.' : 'None. The store is read alone.'));
    return holder;
  }
  const kind = /** @type {HTMLSelectElement} */ (make('select', { 'aria-label': 'What it is' }, ...kinds.map((name) => make('option', { value: name }, name))));
  const text = /** @type {HTMLInputElement} */ (make('input', { type: 'text', required: true, maxlength: 4000, 'aria-label': 'Text', placeholder: 'What you found out', list: 'verdicts-off' }));
  const problem = make('p', { role: 'alert', class: 'warning' });
  kind.addEventListener('change', () => text.setAttribute('list', kind.value === 'verdict' ? 'verdicts' : 'verdicts-off'));
  const form = make('form', { class: 'note-form' }, kind, text, make('button', { type: 'submit' }, 'Add'),
    make('datalist', { id: 'verdicts' }, ...verdicts.map((name) => make('option', { value: name }))), problem);
  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    problem.textContent = '';
    try {
      const answer = await (await send('/v1/notes', { key, kind: kind.value, text: text.value })).json();
      list.append(item({ kind: kind.value, text: text.value, author: answer.author, time: answer.time }, utc));
      text.value = '';
    } catch (error) {
      problem.textContent = /** @type {Error} */ (error).message;
    }
  });
  holder.append(form);
  return holder;
}
