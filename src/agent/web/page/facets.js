// What values the events have, and how often: a click narrows, the button beside it excludes.

import { askJson, isCancelled } from './api.js';
import { make, part, pathText, shown, tell } from './dom.js';
import { colourOf, kindText } from './kinds.js';
import { numberText } from './times.js';

/** @typedef {import('./question.js').Question} Question */

const names = /** @type {[string, string][]} */ ([
  ['object', 'Kind'], ['action', 'Action'], ['actor', 'Actor'], ['target', 'Target'],
  ['user', 'User'], ['computer', 'Computer'], ['address', 'Address'], ['rule', 'Rule']]);
// Keys tell the first; for the others records have to be read, which takes longer.
const questions = [['object', 'action', 'actor', 'target', 'address'], ['user', 'computer', 'rule']];
const few = 6;

export class Facets {
  /** @type {Set<string>} those of which all values are shown */
  #whole = new Set();
  /** @type {Record<string, Facet>} */
  #facets = {};

  /** @param {Question} question */
  constructor(question) {
    this.question = question;
    this.root = part('facet-list');
    question.addEventListener('asked', () => this.load());
  }

  async load() {
    this.root.classList.add('waiting');
    const answered = await Promise.all(questions.map((columns) => this.#ask(columns)));
    if (answered.every(Boolean)) this.root.classList.remove('waiting');
  }

  /** @param {string[]} columns @returns {Promise<boolean>} false when another question came */
  async #ask(columns) {
    try {
      const answer = await askJson(`facets ${columns[0]}`, '/v1/facets', [...this.question.conditions, ['columns', columns.join(',')], ['most', '12']]);
      Object.assign(this.#facets, answer.facets);
      this.#show();
    } catch (error) {
      if (isCancelled(error)) return false;
      tell(/** @type {Error} */ (error).message);
    }
    return true;
  }

  #show() {
    const focused = document.activeElement?.getAttribute('data-facet');
    this.root.replaceChildren(...names.filter(([column]) => this.#facets[column]?.values.length).map(([column, name]) => this.#facet(column, name)));
    if (focused) /** @type {HTMLElement|null} */ (this.root.querySelector(`[data-facet=${CSS.escape(focused)}]`))?.focus();
  }

  /** @param {string} column @param {string} name */
  #facet(column, name) {
    const { values, others } = this.#facets[column];
    const most = values.reduce((high, { count }) => Math.max(high, count), 1);
    const count = this.#whole.has(column) ? values.length : few;
    const items = values.slice(0, count).map((value) => this.#value(column, value, most));
    const hidden = values.length - items.length;
    if (hidden > 0 || others > 0 || this.#whole.has(column)) items.push(this.#rest(column, hidden, others));
    return make('div', { class: 'facet' }, make('h3', { id: `facet-${column}` }, name), make('ul', { 'aria-labelledby': `facet-${column}` }, ...items));
  }

  /** @param {string} column @param {FacetValue} value @param {number} most */
  #value(column, { value, count, parameter, exclude }, most) {
    const on = this.question.has(parameter);
    const off = this.question.has(exclude);
    const text = value === '' || value === null ? '(none)' : shown(value);
    const bar = make('i', { class: 'bar' });
    bar.style.width = `${Math.max(1, (100 * count) / most)}%`;
    const label = column === 'object' ? make('span', { class: 'path' }, make('i', { class: `swatch ${colourOf(String(value))}` }), kindText(text)) : pathText(text, 200);
    const narrow = make('button', {
      type: 'button', class: 'narrow', 'aria-pressed': String(on), 'data-facet': `${column}+${text}`, title: text,
      onclick: () => (on ? this.question.remove(parameter) : this.question.add(parameter)),
    }, bar, make('span', { class: 'unseen' }, 'Only '), label, ' ', make('span', { class: 'count' }, numberText(count)));
    const without = make('button', {
      type: 'button', class: 'exclude', 'aria-pressed': String(off), 'data-facet': `${column}-${text}`, title: 'Exclude', 'aria-label': `Exclude ${column === 'object' ? kindText(text) : text}`,
      onclick: () => (off ? this.question.remove(exclude) : this.question.add(exclude)),
    }, '−');
    return make('li', {}, narrow, without);
  }

  /** @param {string} column @param {number} hidden @param {number} others */
  #rest(column, hidden, others) {
    const whole = this.#whole.has(column);
    const label = whole ? 'fewer' : hidden > 0 ? `${hidden} more` : '';
    const toggle = () => {
      if (!this.#whole.delete(column)) this.#whole.add(column);
      this.#show();
    };
    return make('li', { class: 'rest' },
      label ? make('button', { type: 'button', 'data-facet': `${column}*`, 'aria-expanded': String(whole), onclick: toggle }, label) : null,
      others > 0 ? make('span', {}, others === 1 ? '1 event has another' : `${numberText(others)} events have others`) : null);
  }
}
