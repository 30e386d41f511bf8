// The list of events. Only the rows that are seen exist as elements; they stand in a box that sticks
// to the top of what scrolls, and are filled anew as it moves. No element can be as high as many
// millions of rows: beyond a bound the way of the scrollbar is a share of the list.

import { make, part, pathText, shown } from './dom.js';
import { colourOf, columnText, kindText } from './kinds.js';
import { Rows } from './rows.js';
import { gapText } from './histogram.js';
import { momentText, numberText } from './times.js';

/** @typedef {import('./question.js').Question} Question */

const highest = 12_000_000;
const numeric = new Set(['seq', 'actor_pid', 'target_pid', 'src_port', 'dst_port', 'protocol', 'type_id']);
const long = new Set(['actor_path', 'target_path', 'actor_cmd_line', 'target_cmd_line', 'event', 'key', 'reg_data', 'url']);
// Beside the path of a target, or in its place, stands what is asked of it most: where a connection
// goes, what was written, what was started.
const besideTarget = ['dst_ip', 'dst_port', 'url', 'target_name', 'reg_data', 'target_cmd_line'];

/** Tells "open" with the row that the reader wants to see whole. */
export class List extends EventTarget {
  rows = new Rows();
  selected = -1;
  /** @type {Map<string, {row: Row, title: string, note: string}>} events that go into a report */
  chosen = new Map();
  #first = 0;
  #frame = 0;
  #wanted = 0;
  #rowHeight = 24;
  #headHeight = 24;
  #height = 0;
  #visible = 1;
  #way = 0;
  #ahead = 0;

  /** @param {Question} question */
  constructor(question) {
    super();
    this.question = question;
    this.scroller = part('list');
    this.head = make('div', { role: 'row', class: 'row head', 'aria-rowindex': 1 });
    this.body = make('div', { role: 'rowgroup', class: 'body' });
    this.stuck = make('div', { class: 'stuck', role: 'presentation' }, make('div', { role: 'rowgroup' }, this.head), this.body);
    this.spacer = make('div', { class: 'spacer', role: 'presentation' });
    this.scroller.append(this.stuck, this.spacer);
    this.scroller.addEventListener('scroll', () => this.#later(), { passive: true });
    this.scroller.addEventListener('keydown', (event) => this.#key(event));
    this.body.addEventListener('click', (event) => this.#click(event));
    new ResizeObserver(() => this.#measure()).observe(this.scroller);
    for (const end of ['answered', 'failed']) this.rows.addEventListener(end, () => this.scroller.classList.remove('waiting'));
    this.rows.addEventListener('changed', () => this.#fit());
    question.addEventListener('asked', () => this.load());
    question.addEventListener('viewed', (event) => {
      const changes = /** @type {CustomEvent} */ (event).detail;
      if ('order' in changes || 'columns' in changes) this.load(true);
      else if ('zone' in changes) this.refresh();
    });
    part('order').addEventListener('click', () => question.look({ order: question.view.order === 'newest' ? 'oldest' : 'newest' }));
  }

  /** @param {boolean} [same] the same events are shown in another way */
  load(same = false) {
    const { order, columns } = this.question.view;
    part('order').textContent = order === 'newest' ? 'Newest first' : 'Oldest first';
    this.selected = -1;
    this.scroller.removeAttribute('aria-activedescendant');
    this.scroller.scrollTop = 0;
    this.scroller.style.setProperty('--columns', columns.map((name) => this.#width(name)).join(' '));
    const least = columns.reduce((sum, name) => sum + parseFloat(/[\d.]+/.exec(this.#width(name))?.[0] ?? '0') + 1, 4);
    this.stuck.style.minWidth = `min(${least}rem, max(${least}rem, 100%))`;
    this.scroller.setAttribute('aria-colcount', String(columns.length + 1));
    this.head.replaceChildren(make('span', { role: 'columnheader', class: 'mark' }, make('span', { class: 'unseen' }, 'For a report')),
      ...columns.map((name) => make('span', { role: 'columnheader', class: numeric.has(name) ? 'number' : null }, columnText(name))));
    this.body.replaceChildren();
    this.#measure();
    this.scroller.classList.add('waiting');
    this.rows.reset(this.question.conditions, order, this.fields, same);
  }

  /** The columns of each row: those that are shown, and what stands beside targets. */
  get fields() {
    const { columns } = this.question.view;
    return columns.includes('target_path') ? [...columns, ...besideTarget] : columns;
  }

  /** @param {string} name */
  #width(name) {
    if (name === 'time') return '13.4rem';
    if (name === 'object') return '7.4rem';
    if (name === 'action' || numeric.has(name)) return '5.4rem';
    if (name === 'target_path') return 'minmax(10rem, 3fr)';
    if (name === 'actor_path') return 'minmax(8.4rem, 1fr)';
    return long.has(name) ? 'minmax(10rem, 2fr)' : 'minmax(6rem, 1fr)';
  }

  // What the browser would have to lay out to tell is asked when it can have changed, never while rows
  // are filled.
  #measure() {
    this.#rowHeight = parseFloat(getComputedStyle(this.scroller).getPropertyValue('--row')) || 24;
    this.#height = this.scroller.clientHeight;
    this.#headHeight = this.head.offsetHeight;
    this.#visible = Math.max(1, (this.#height - this.#headHeight) / this.#rowHeight);
    this.#fit();
  }

  /** Makes what scrolls as high as the rows are. What is looked at stays where it is. */
  #fit() {
    const moved = this.rows.ahead - this.#ahead;
    this.#ahead = this.rows.ahead;
    if (this.selected >= 0) this.selected = Math.max(0, this.selected + moved);
    const height = Math.min(highest, this.rows.count * this.#rowHeight);
    this.#way = Math.max(0, height + this.#headHeight - this.#height);
    this.stuck.style.height = `${this.#height}px`;
    this.spacer.style.height = `${this.#way}px`;
    if (moved && this.scroller.scrollTop > 0 && this.#scale > 0) this.scroller.scrollTop += moved / this.#scale;
    this.scroller.setAttribute('aria-rowcount', String(this.rows.count + 1));
    part('events-title').textContent = this.rows.count ? `Events (${numberText(this.rows.count)})` : 'Events';
    this.#later();
  }

  refresh() {
    for (const row of this.body.children) row.removeAttribute('data-row');
    this.#later();
  }

  #later() {
    if (!this.#frame) this.#frame = requestAnimationFrame(() => this.#paint());
  }

  /** How many rows a pixel of the scrollbar's way is. */
  get #scale() {
    return this.#way > 0 ? Math.max(0, this.rows.count - this.#visible) / this.#way : 0;
  }

  #paint() {
    this.#frame = 0;
    this.#first = Math.max(0, this.scroller.scrollTop * this.#scale);
    const from = Math.floor(this.#first);
    const size = Math.ceil(this.#visible) + 1;
    const to = Math.min(this.rows.count, from + size);
    while (this.body.children.length > size) this.body.lastElementChild?.remove();
    while (this.body.children.length < size) this.body.append(make('div', { role: 'row', class: 'row' }));
    for (let index = from; index < from + size; index++) {
      const element = /** @type {HTMLElement} */ (this.body.children[index % size]);
      element.hidden = index >= to;
      element.style.transform = `translateY(${Math.round((index - this.#first) * this.#rowHeight)}px)`;
      if (!element.hidden) this.#fill(element, index);
    }
    clearTimeout(this.#wanted);
    this.#wanted = setTimeout(() => this.rows.want(from - 20, to + 20), 40);
    this.body.classList.toggle('empty', !this.rows.count);
  }

  /** @param {HTMLElement} element @param {number} index */
  #fill(element, index) {
    const row = this.rows.at(index);
    const state = `${index} ${row ? row.key || row.position : ''} ${index === this.selected} ${row && this.chosen.has(row.key)}`;
    if (element.dataset.row === state) return;
    element.dataset.row = state;
    element.dataset.index = String(index);
    element.id = `row-${index}`;
    element.setAttribute('aria-rowindex', String(index + 2));
    element.setAttribute('aria-selected', String(index === this.selected));
    element.classList.toggle('missing', !row);
    element.classList.toggle('gap', !!row?.gap);
    if (!row) element.replaceChildren(make('span', { role: 'gridcell', class: 'mark' }), make('span', { role: 'gridcell', class: 'loading' }, '…'));
    else if (row.gap) element.replaceChildren(make('span', { role: 'gridcell', class: 'mark' }), make('span', { role: 'gridcell', class: 'whole' }, gapText(row.gap, this.question.utc)));
    else element.replaceChildren(this.#mark(row), ...this.question.view.columns.map((name, at) => this.#cell(name, row, at)));
  }

  /** @param {Row} row */
  #mark(row) {
    const on = this.chosen.has(row.key);
    return make('span', { role: 'gridcell', class: 'mark', title: 'For a report (m)', 'aria-label': on ? 'For a report' : null }, on ? '★' : '☆');
  }

  /** @param {Row} row */
  #target(row) {
    const { columns } = this.question.view;
    const [address, port, url, name, data, command] = row.cells.slice(columns.length).map((value) => (value === null || value === undefined ? '' : String(value)));
    const path = String(row.cells[columns.indexOf('target_path')] ?? '');
    if (!path) return [make('span', { class: 'leaf' }, shown(address ? `→ ${address}${port ? `:${port}` : ''}` : url || name).slice(0, 400))];
    const detail = data ? `= ${data}` : command;
    const known = pathText(path);
    if (!detail) return [known];
    known.classList.add('first');
    return [known, make('span', { class: 'detail', title: shown(detail).slice(0, 1000) }, shown(detail.slice(0, 300)))];
  }

  /** @param {string} name @param {Row} row @param {number} at */
  #cell(name, row, at) {
    const value = row.cells[at];
    const cell = make('span', { role: 'gridcell', class: `cell ${numeric.has(name) ? 'number' : ''} of-${name}` });
    if (name === 'target_path') cell.append(...this.#target(row));
    if (name === 'target_path' || value === null || value === undefined || value === '') return cell;
    if (name === 'time') cell.append(momentText(String(value), this.question.utc));
    else if (name === 'object') cell.append(make('i', { class: `swatch ${colourOf(String(value))}` }), shown(kindText(String(value))));
    else if (name === 'actor_path') cell.append(pathText(value));
    else cell.append(shown(typeof value === 'object' ? JSON.stringify(value) : value).slice(0, 400));
    return cell;
  }

  /** @param {MouseEvent} event */
  #click(event) {
    const target = /** @type {HTMLElement} */ (event.target);
    const element = /** @type {HTMLElement|null} */ (target.closest('.row'));
    if (!element || element.hidden || getSelection()?.toString()) return;
    this.select(Number(element.dataset.index));
    if (target.closest('.mark')) this.mark();
    else this.open();
  }

  /** @param {KeyboardEvent} event */
  #key(event) {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    const page = Math.max(1, Math.floor(this.#visible) - 1);
    /** @type {Record<string, number>} */
    const moves = { j: 1, ArrowDown: 1, k: -1, ArrowUp: -1, PageDown: page, PageUp: -page, Home: -Infinity, End: Infinity };
    if (event.key in moves) this.select(this.selected < 0 ? (moves[event.key] > 1e9 ? Infinity : 0) : this.selected + moves[event.key], true);
    else if (event.key === 'Enter') this.open();
    else if (event.key === 'm' || event.key === ' ') this.mark();
    else return;
    event.preventDefault();
    event.stopPropagation();
  }

  /** @param {number} index @param {boolean} [follow] shows it in the pane if that is open */
  select(index, follow = false) {
    if (!this.rows.count) return;
    this.selected = Math.max(0, Math.min(this.rows.count - 1, index));
    const visible = Math.floor(this.#visible);
    let first = this.#first;
    if (this.selected < first) first = this.selected;
    else if (this.selected > first + visible - 1) first = this.selected - visible + 1;
    if (first !== this.#first && this.#scale > 0) this.scroller.scrollTop = Math.ceil(first / this.#scale);
    this.#paint();
    this.scroller.setAttribute('aria-activedescendant', `row-${this.selected}`);
    if (follow && !part('event').hidden) this.open();
  }

  get current() {
    return this.selected < 0 ? null : this.rows.at(this.selected);
  }

  open() {
    const row = this.current;
    if (row?.key) this.dispatchEvent(new CustomEvent('open', { detail: row.key }));
  }

  /** Takes the selected event into the report, or out of it. */
  mark() {
    const row = this.current;
    if (!row?.key) return;
    const title = this.question.view.columns.map((name, at) => (name === 'time' ? '' : row.cells[at] ?? '')).filter(Boolean).join('  ');
    if (!this.chosen.delete(row.key)) this.chosen.set(row.key, { row, title, note: '' });
    this.refresh();
    this.dispatchEvent(new Event('chosen'));
  }

  /**
   * A row that came now.
   * @param {Row} row
   * @returns {boolean} whether there is room for more
   */
  append(row) {
    return this.rows.append(row);
  }
}
