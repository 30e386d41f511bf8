// The search line: what is typed is read by the server as arguments of zel query, which tells where an
// error is, what can stand at the cursor, and what of it the key decides.

import { askJson, isCancelled } from './api.js';
import { afterwards, make, part, shown, tell } from './dom.js';
import { conditionText } from './question.js';

/** @typedef {import('./question.js').Question} Question */

/** @type {HTMLInputElement} */
const line = part('line');
const list = part('completions');

/**
 * The server counts bytes, the browser letters.
 * @param {string} text
 * @param {number} bytes
 */
function lettersOf(text, bytes) {
  return new TextDecoder().decode(new TextEncoder().encode(text).slice(0, bytes)).length;
}

/** @param {string} text @param {number} letters */
function bytesOf(text, letters) {
  return new TextEncoder().encode(text.slice(0, letters)).length;
}

export class SearchLine {
  /** @type {Completion[]} */
  #completions = [];
  #chosen = -1;
  // What was typed before the line was asked is completed no more.
  #turn = 0;

  /** @param {Question} question */
  constructor(question) {
    this.question = question;
    const soon = afterwards(120, (turn) => this.#suggest(turn));
    this.suggest = () => soon(this.#turn);
    part('search').addEventListener('submit', (event) => {
      event.preventDefault();
      this.#submit();
    });
    line.addEventListener('input', () => this.suggest());
    line.addEventListener('keydown', (event) => this.#key(event));
    line.addEventListener('blur', () => this.#close());
    part('copy').addEventListener('click', () => this.#copy());
    question.addEventListener('asked', () => this.show());
    this.show();
  }

  show() {
    line.value = this.question.line;
    this.#fail('', null);
    this.#close();
    this.#chips();
    this.#explain();
  }

  async #submit() {
    this.#turn++;
    this.#close();
    try {
      const words = await askJson('line', '/v1/words', [['line', line.value]]);
      this.question.ask(words.parameters);
    } catch (error) {
      if (!isCancelled(error)) this.#fail(/** @type {Error} */ (error).message, /** @type {any} */ (error).at ?? null);
    }
  }

  /** @param {string} message @param {number|null} at */
  #fail(message, at) {
    const place = part('line-error');
    line.setAttribute('aria-invalid', String(!!message));
    if (!message) return place.replaceChildren();
    if (at === null) return place.replaceChildren(shown(message));
    const from = lettersOf(line.value, at);
    const word = /^\S*/.exec(line.value.slice(from))?.[0] || ' ';
    place.replaceChildren(
      make('code', {}, shown(line.value.slice(Math.max(0, from - 60), from)), make('mark', {}, shown(word)), shown(line.value.slice(from + word.length, from + 90))),
      make('span', {}, shown(message)));
    line.focus();
    line.setSelectionRange(from, from + word.length);
  }

  /** @param {number} turn */
  async #suggest(turn) {
    if (document.activeElement !== line || turn !== this.#turn) return;
    const at = line.selectionStart ?? line.value.length;
    try {
      const words = await askJson('words', '/v1/words', [['line', line.value], ['at', String(bytesOf(line.value, at))]]);
      if (turn !== this.#turn) return;
      this.#fail('', null);
      this.#offer(words.completions ?? []);
    } catch (error) {
      // What is half typed is no error yet: the line tells one when it is asked.
      if (!isCancelled(error) && turn === this.#turn) this.#close();
    }
  }

  /** @param {Completion[]} completions */
  #offer(completions) {
    this.#completions = completions.slice(0, 12);
    this.#chosen = -1;
    list.replaceChildren(...this.#completions.map(({ text, hint }, index) => make(
      'li', { id: `completion-${index}`, role: 'option', 'aria-selected': 'false', onpointerdown: (/** @type {Event} */ event) => this.#take(event, index) },
      make('code', {}, shown(text)), hint ? make('span', {}, shown(hint)) : null)));
    list.hidden = !this.#completions.length;
    line.setAttribute('aria-expanded', String(!list.hidden));
    line.removeAttribute('aria-activedescendant');
  }

  #close() {
    this.#offer([]);
  }

  /** @param {number} step */
  #choose(step) {
    const count = this.#completions.length;
    this.#chosen = (this.#chosen + step + count + (this.#chosen < 0 && step < 0 ? 1 : 0)) % count;
    [...list.children].forEach((item, index) => item.setAttribute('aria-selected', String(index === this.#chosen)));
    list.children[this.#chosen].scrollIntoView({ block: 'nearest' });
    line.setAttribute('aria-activedescendant', `completion-${this.#chosen}`);
  }

  /** @param {Event} event @param {number} index */
  #take(event, index) {
    event.preventDefault();
    const { from, text } = this.#completions[index];
    const start = lettersOf(line.value, from);
    const behind = line.value.slice(line.selectionStart ?? line.value.length).replace(/^\S+/, '');
    const ahead = `${line.value.slice(0, start)}${text}${/\s$/.test(text) || /^\s/.test(behind) ? '' : ' '}`;
    line.value = ahead + behind;
    line.setSelectionRange(ahead.length, ahead.length);
    this.#close();
    this.suggest();
  }

  /** @param {KeyboardEvent} event */
  #key(event) {
    const open = !list.hidden;
    if (event.key === 'ArrowDown' || event.key === 'ArrowUp') {
      event.preventDefault();
      if (open) this.#choose(event.key === 'ArrowDown' ? 1 : -1);
      else this.suggest();
    } else if (open && (event.key === 'Tab' || event.key === 'Enter') && this.#chosen >= 0) {
      this.#take(event, this.#chosen);
    } else if (event.key === 'Escape') {
      event.stopPropagation();
      if (open) this.#close();
      else part('list').focus();
    }
  }

  /** @param {{key: string[], text: string[]}} [decided] what of the question keys and what texts decide */
  #chips(decided = { key: [], text: [] }) {
    const bare = (/** @type {string} */ text) => text.replace(/['"]/g, '');
    const by = (/** @type {string[]} */ texts, /** @type {string} */ text) => texts.some((one) => bare(one) === bare(text));
    const chips = this.question.conditions.map((condition) => {
      const text = conditionText(condition);
      const who = [by(decided.key, text) ? 'key' : '', by(decided.text, text) ? 'text' : ''].filter(Boolean).join(', ');
      return make('li', {}, make('code', {}, shown(text)), who ? make('small', { title: `The ${who} decides` }, who) : null, make('button', {
        type: 'button', 'aria-label': `Remove ${text}`, title: 'Remove', onclick: () => this.question.remove(condition),
      }, '×'));
    });
    const told = this.question.conditions.map(conditionText);
    const others = (/** @type {string[]} */ texts) => texts.filter((one) => !by(told, one));
    part('decided').textContent = [['The key decides', others(decided.key)], ['The text decides', others(decided.text)]]
      .filter(([, texts]) => texts.length).map(([who, texts]) => `${who}: ${shown(/** @type {string[]} */ (texts).join(', '))}`).join('. ');
    if (chips.length > 1) chips.push(make('li', { class: 'bare' }, make('button', { type: 'button', onclick: () => this.question.ask([]) }, 'Remove all')));
    part('conditions').replaceChildren(...chips);
  }

  async #explain() {
    try {
      const words = await askJson('explain', '/v1/words', [['line', this.question.line]]);
      part('command').textContent = shown(words.command);
      this.#chips(words.decided);
    } catch (error) {
      if (isCancelled(error)) return;
      this.#fail(/** @type {Error} */ (error).message, /** @type {any} */ (error).at ?? null);
    }
  }

  async #copy() {
    const text = part('command').textContent ?? '';
    try {
      await navigator.clipboard.writeText(text);
      tell('Copied');
    } catch {
      getSelection()?.selectAllChildren(part('command'));
      tell('Selected, to be copied');
    }
  }
}
