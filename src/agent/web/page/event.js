// One event, whole: its facts, what rules and people say of it, what stands around it, the tree of
// processes, and the record itself.

import { askJson, askRows, isCancelled } from './api.js';
import { make, part, pathText, shown } from './dom.js';
import { colourOf, columnText, kindText } from './kinds.js';
import { annotationOf, notes } from './notes.js';
import { valueCondition } from './question.js';
import { longText, recordTree } from './record.js';
import { momentText } from './times.js';
import { processTree } from './tree.js';

/** @typedef {import('./question.js').Question} Question */

const aroundColumns = ['time', 'object', 'action', 'target_path', 'dst_ip', 'url'];
// What is read first stands first.
const firstFacts = ['actor_path', 'actor_cmd_line', 'target_path', 'target_cmd_line', 'target_name', 'reg_data', 'dst_ip', 'dst_port', 'src_ip', 'src_port', 'url', 'user', 'computer', 'actor_pid', 'target_pid'];
const hidden = new Set(['time', 'object', 'action', 'key', 'event']);

export class EventPane {
  #key = '';

  /**
   * @param {Question} question
   * @param {About} about
   */
  constructor(question, about) {
    this.question = question;
    this.about = about;
    this.root = part('event');
    question.addEventListener('viewed', (event) => {
      const changes = /** @type {CustomEvent} */ (event).detail;
      if ('event' in changes || 'zone' in changes) this.show();
    });
    question.addEventListener('asked', () => this.show());
    this.root.addEventListener('keydown', (event) => {
      if (event.key === 'Escape') this.close();
    });
    this.show();
  }

  close() {
    this.question.look({ event: '' });
    part('list').focus();
  }

  async show() {
    const key = this.question.view.event;
    this.#key = key;
    this.root.hidden = !key;
    document.body.classList.toggle('with-event', !!key);
    if (!key) return this.root.replaceChildren();
    this.root.classList.add('waiting');
    try {
      const answer = await askJson('event', '/v1/event', [['key', key]]);
      if (this.#key === key) this.#fill(answer);
    } catch (error) {
      if (isCancelled(error)) return;
      this.root.replaceChildren(this.#bar(make('h2', {}, 'Event')), make('p', { class: 'warning' }, /** @type {Error} */ (error).message));
    }
    this.root.classList.remove('waiting');
  }

  /** @param {HTMLElement} heading */
  #bar(heading) {
    return make('div', { class: 'event-head' }, heading,
      make('button', { type: 'button', class: 'close', 'aria-label': 'Close the event', title: 'Close (Esc)', onclick: () => this.close() }, '×'));
  }

  /** @param {EventAnswer} answer */
  #fill(answer) {
    const { facts, enrichments, hits } = answer;
    const utc = this.question.utc;
    const heading = make('h2', {}, make('i', { class: `swatch ${colourOf(String(facts.object ?? ''))}` }), shown(`${kindText(String(facts.object ?? ''))} ${facts.action ?? ''}`));
    const said = enrichments.map(annotationOf).filter((one) => one !== null);
    const others = enrichments.filter((one) => !annotationOf(one) && !one?.sigma);
    this.root.replaceChildren(
      this.#bar(heading),
      make('p', { class: 'when' }, momentText(String(facts.time ?? ''), utc)),
      this.#facts(facts),
      ...(hits.length ? [this.#section('Rules', this.#hits(hits))] : []),
      this.#section('Notes', notes(answer.key, /** @type {Annotation[]} */ (said), this.about, utc)),
      this.#section('Processes', this.#tree(answer.key)),
      this.#section('Around it', this.#around(answer.key)),
      ...(others.length ? [this.#section('Enrichments', make('div', {}, ...others.map(recordTree)))] : []),
      this.#section('Record', recordTree(answer.record)),
      this.#section('Key', make('code', { class: 'key' }, shown(answer.key))));
    this.root.scrollTop = 0;
  }

  /** @param {string} title @param {HTMLElement} content */
  #section(title, content) {
    return make('details', { open: title !== 'Key' }, make('summary', {}, make('h3', {}, title)), content);
  }

  /** @param {Record<string, any>} facts */
  #facts(facts) {
    const list = make('dl', { class: 'facts' });
    const names = [...firstFacts, ...Object.keys(facts).filter((name) => !firstFacts.includes(name))];
    for (const name of names) {
      const value = facts[name];
      if (hidden.has(name) || value === null || value === '' || value === undefined) continue;
      const text = typeof value === 'object' ? JSON.stringify(value) : String(value);
      const words = columnText(name);
      list.append(make('dt', {}, words), make('dd', {}, longText(text), this.#narrow(name, text, words, false), this.#narrow(name, text, words, true)));
    }
    return list;
  }

  /** @param {string} name @param {string} text @param {string} words @param {boolean} not */
  #narrow(name, text, words, not) {
    if (text.length > 1000 || /[\u0000-\u001f]/.test(text)) return null;
    return make('button', {
      type: 'button', class: 'small', title: not ? 'Exclude' : 'Only these', 'aria-label': `${not ? 'Exclude this' : 'Only this'} ${words}`,
      onclick: () => this.question.add(valueCondition(name, text, not)),
    }, not ? '−' : '+');
  }

  /** @param {Hit[]} hits */
  #hits(hits) {
    const say = (/** @type {Hit['explain']} */ why) => (Array.isArray(why) ? why : why ? [why] : []).map((line) => make('li', {}, shown(line)));
    return make('ul', { class: 'hits' }, ...hits.map(({ title, level, explain, id }) => make('li', {},
      make('b', {}, make('i', { class: `swatch ${colourOf(level)}` }), `${shown(level)}: `), shown(title), make('small', {}, shown(id)), make('ul', {}, ...say(explain)))));
  }

  /** @param {string} key */
  #tree(key) {
    const holder = make('div', {}, make('p', { class: 'none' }, '…'));
    askJson('tree', '/v1/tree', [['key', key]]).then(
      (answer) => holder.replaceChildren(processTree(answer, this.question.utc, (other) => this.question.look({ event: other }))),
      (error) => this.#failed(holder, error));
    return holder;
  }

  /** @param {HTMLElement} holder @param {Error} error */
  #failed(holder, error) {
    if (!isCancelled(error)) holder.replaceChildren(make('p', { class: 'warning' }, error.message));
  }

  /** @param {string} key */
  #around(key) {
    const rows = make('div', { class: 'around' });
    const ways = /** @type {[string, string][]} */ ([['process', 'Same process'], ['correlation', 'Same correlation'], ['time', 'A minute around']]);
    const buttons = ways.map(([by, name]) => make('button', { type: 'button', 'aria-pressed': 'false', onclick: () => choose(by) }, name));
    const choose = (/** @type {string} */ by) => {
      buttons.forEach((button, index) => button.setAttribute('aria-pressed', String(ways[index][0] === by)));
      this.#fetchAround(rows, key, by);
    };
    choose('process');
    return make('div', {}, make('div', { class: 'ways', role: 'group', 'aria-label': 'Which' }, ...buttons), rows);
  }

  /** @param {HTMLElement} holder @param {string} key @param {string} by */
  async #fetchAround(holder, key, by) {
    try {
      const { rows, end } = await askRows('around', '/v1/around', [['key', key], ['by', by], ['seconds', '60'], ['fields', aroundColumns.join(',')]]);
      const items = rows.slice(0, 300).map((row) => this.#aroundRow(row, key));
      holder.replaceChildren(items.length ? make('ul', {}, ...items) : make('p', { class: 'none' }, 'None.'));
      if (end.more || rows.length > 300) holder.append(make('p', { class: 'none' }, 'There are more.'));
    } catch (error) {
      this.#failed(holder, /** @type {Error} */ (error));
    }
  }

  /** @param {Row} row @param {string} key */
  #aroundRow(row, key) {
    const [time, object, action, target, address, url] = row.cells;
    const here = row.key === key;
    return make('li', {}, make('button', {
      type: 'button', 'aria-current': here ? 'true' : null, onclick: () => this.question.look({ event: row.key }),
    }, make('time', {}, momentText(String(time), this.question.utc).replace(/^\S+\s/, '')),
    make('span', {}, make('i', { class: `swatch ${colourOf(String(object))}` }), shown(`${kindText(String(object ?? ''))} ${action ?? ''}`)),
    pathText(target || address || url || '')));
  }
}
