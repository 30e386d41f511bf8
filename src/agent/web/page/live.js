// What comes in while the page is looked at: an event stream that the server feeds from its followers.
// Pausing holds the question in the store itself; what came meanwhile is given when it goes on.

import { send } from './api.js';
import { afterwards, make, part, tell } from './dom.js';
import { numberText } from './times.js';

/** @typedef {import('./question.js').Question} Question */
/** @typedef {import('./list.js').List} List */

const recountEvery = 4000;

export class Live {
  /** @type {EventSource|null} */
  #source = null;
  #id = '';
  #paused = false;
  #new = 0;
  #recounting = 0;

  /**
   * @param {Question} question
   * @param {List} list
   * @param {() => void} recount
   */
  constructor(question, list, recount) {
    this.question = question;
    this.list = list;
    this.recount = recount;
    part('live').addEventListener('click', () => (this.#source ? this.stop() : this.start()));
    part('pause').addEventListener('click', () => this.pause(!this.#paused));
    part('new-rows').addEventListener('click', () => this.#toNew());
    list.scroller.addEventListener('scroll', () => { if (this.#atNew) this.#count(0); }, { passive: true });
    const again = afterwards(50, () => { if (this.#source) this.start(); });
    question.addEventListener('asked', again);
    question.addEventListener('viewed', (event) => {
      const changes = /** @type {CustomEvent} */ (event).detail;
      if ('columns' in changes || 'order' in changes) again();
    });
  }

  start() {
    this.#source?.close();
    this.#source = null;
    this.#paused = false;
    this.#id = '';
    // What comes now lies in no range that was chosen, and rules are asked of what is stored.
    const conditions = this.question.conditions.filter(([name]) => !['since', 'until', 'day'].includes(name));
    if (conditions.some(([name]) => ['rule', 'without_rule', 'level'].includes(name))) {
      this.stop();
      return tell('Live can\'t ask by rules: remove that condition first');
    }
    const parameters = new URLSearchParams([...conditions, ['fields', this.list.fields.join(',')]]);
    const source = new EventSource(`/v1/live?${parameters}`);
    this.#source = source;
    this.#count(0);
    source.addEventListener('hello', (event) => {
      const isFirst = !this.#id;
      this.#id = String(JSON.parse(event.data).id);
      // What the list was asked for earlier lacks what came since. A connection that was lost goes on.
      if (isFirst) {
        this.list.load(true);
        this.recount();
      }
      if (this.#paused) this.pause(true);
      else tell('Live: new events are shown as they come');
    });
    source.addEventListener('row', (event) => this.#row(JSON.parse(event.data)));
    source.addEventListener('gap', (event) => this.#row({ position: event.lastEventId, key: '', cells: [], gap: JSON.parse(event.data) }));
    source.addEventListener('error', () => {
      if (source.readyState !== EventSource.CLOSED) return tell('Live: the connection is lost, trying again');
      if (this.#source === source) this.stop();
      tell('Live has ended: the server has closed it');
    });
    this.#show();
  }

  stop() {
    this.#source?.close();
    this.#source = null;
    this.#paused = false;
    this.#count(0);
    this.#show();
    tell('');
  }

  /** @param {boolean} paused */
  async pause(paused) {
    try {
      await send(`/v1/live/pause?${new URLSearchParams({ id: this.#id, paused: paused ? '1' : '0' })}`, {});
      this.#paused = paused;
      tell(paused ? 'Paused in the store: what comes is given when it goes on' : 'Live');
    } catch (error) {
      tell(/** @type {Error} */ (error).message);
    }
    this.#show();
  }

  #show() {
    part('live').setAttribute('aria-pressed', String(!!this.#source));
    part('pause').hidden = !this.#source;
    part('pause').setAttribute('aria-pressed', String(this.#paused));
    part('pause').textContent = this.#paused ? 'Go on' : 'Pause';
    document.body.classList.toggle('is-live', !!this.#source && !this.#paused);
  }

  get #atNew() {
    const { scrollTop, scrollHeight, clientHeight } = this.list.scroller;
    return this.question.view.order === 'newest' ? scrollTop < 4 : scrollHeight - clientHeight - scrollTop < 4;
  }

  /** @param {Row} row */
  #row(row) {
    const seen = this.#atNew;
    if (!this.list.append(row)) return this.#startAnew();
    this.#count(seen ? 0 : this.#new + 1);
    if (!this.#recounting) {
      this.#recounting = setTimeout(() => {
        this.#recounting = 0;
        if (this.#source) this.recount();
      }, recountEvery);
    }
  }

  /** So many have come that they are better read from the store again. */
  #startAnew() {
    this.list.load();
    this.recount();
    this.#count(0);
  }

  /** @param {number} count */
  #count(count) {
    this.#new = count;
    const button = part('new-rows');
    button.hidden = !count;
    button.replaceChildren(make('span', {}, `${numberText(count)} new`));
  }

  #toNew() {
    this.list.scroller.scrollTop = this.question.view.order === 'newest' ? 0 : this.list.scroller.scrollHeight;
    this.#count(0);
  }
}
