// The rows of the list, of which there may be millions: pieces of them are asked for where the reader
// looks and forgotten where nobody has looked for long. A piece is found by going on behind the last
// row of one that is known, so that new events don't move what was seen.

import { askRows, cancel, isCancelled } from './api.js';

const pieceRows = 200;
const mostPieces = 50;
const mostLive = 2000;

/** Tells "changed" when there are other rows or another number of them, "answered" or "failed" at the end of each asking. */
export class Rows extends EventTarget {
  /** @type {Map<number, Row[]>} */
  #pieces = new Map();
  /** @type {Map<number, string>} position of the last row of a piece */
  #ends = new Map();
  /** @type {Set<number>} */
  #asked = new Set();
  /** @type {Row[]} rows that came since, the oldest first */
  #live = [];
  /** @type {[string, string][]} */
  #parameters = [];
  #newest = true;
  #stored = 0;
  #exact = false;
  #turn = 0;

  /**
   * @param {[string, string][]} conditions
   * @param {string} order
   * @param {string[]} columns
   * @param {boolean} same as many rows as before
   */
  reset(conditions, order, columns, same) {
    for (const piece of this.#asked) cancel(`list ${piece}`);
    this.#asked.clear();
    this.#pieces.clear();
    this.#ends.clear();
    this.#live = [];
    this.#newest = order === 'newest';
    this.#parameters = [...conditions, ['order', order], ['most', String(pieceRows)], ['fields', columns.join(',')]];
    if (!same) this.#stored = 0;
    this.#exact = false;
    this.#turn++;
    this.want(0, 0);
  }

  get count() {
    return this.#stored + this.#live.length;
  }

  /** How many rows stand in front of those that were there when the list was asked. */
  get ahead() {
    return this.#newest ? this.#live.length : 0;
  }

  /**
   * How many the counting found, perhaps with those that came since; what the list itself has found is
   * surer.
   * @param {number} total
   */
  expect(total) {
    const stored = total - this.#live.length;
    if (this.#exact || stored <= this.#stored) return;
    this.#stored = stored;
    this.#changed();
  }

  /**
   * A row that came now, unless it was found already.
   * @param {Row} row
   * @returns {boolean} whether there is room for more
   */
  append(row) {
    if (row.key && [...this.#pieces.values()].some((rows) => rows.some(({ key }) => key === row.key))) return true;
    this.#live.push(row);
    this.#changed();
    return this.#live.length <= mostLive;
  }

  /** @param {number} index @returns {Row|null} null while it isn't there yet */
  at(index) {
    if (this.#newest && index < this.#live.length) return this.#live[this.#live.length - 1 - index];
    const stored = index - this.ahead;
    if (stored >= this.#stored) return this.#live[stored - this.#stored] ?? null;
    return this.#pieces.get(Math.floor(stored / pieceRows))?.[stored % pieceRows] ?? null;
  }

  /**
   * Asks for what is missing of these rows, and for nothing else any more.
   * @param {number} from
   * @param {number} to
   */
  want(from, to) {
    const first = Math.max(0, Math.floor((from - this.ahead) / pieceRows));
    const last = Math.max(first, Math.floor((Math.min(to, this.count) - this.ahead) / pieceRows));
    for (const piece of [...this.#asked]) {
      if (piece >= first && piece <= last) continue;
      cancel(`list ${piece}`);
      this.#asked.delete(piece);
    }
    for (let piece = first; piece <= last; piece++) {
      if (this.#pieces.has(piece)) this.#touch(piece);
      else if (!this.#asked.has(piece)) this.#load(piece);
    }
  }

  /** @param {number} piece */
  #touch(piece) {
    const rows = /** @type {Row[]} */ (this.#pieces.get(piece));
    this.#pieces.delete(piece);
    this.#pieces.set(piece, rows);
  }

  /** @param {number} piece @returns {[string, string][]} */
  #place(piece) {
    let near = piece - 1;
    while (near >= 0 && !this.#ends.has(near)) near--;
    /** @type {[string, string][]} */
    const place = near >= 0 ? [['behind', /** @type {string} */ (this.#ends.get(near))]] : [];
    const skip = (piece - near - 1) * pieceRows;
    if (skip > 0) place.push(['skip', String(skip)]);
    return place;
  }

  /** @param {number} piece */
  async #load(piece) {
    const turn = this.#turn;
    this.#asked.add(piece);
    try {
      const { rows, end } = await askRows(`list ${piece}`, '/v1/list', [...this.#parameters, ...this.#place(piece)]);
      if (turn !== this.#turn) return;
      this.#asked.delete(piece);
      this.#keep(piece, rows, end.more);
      if (end.not_read?.length) this.dispatchEvent(new CustomEvent('failed', { detail: 'Not all of the store could be read' }));
    } catch (error) {
      if (isCancelled(error) || turn !== this.#turn) return;
      this.#asked.delete(piece);
      this.dispatchEvent(new CustomEvent('failed', { detail: /** @type {Error} */ (error).message }));
    }
  }

  /** @param {number} piece @param {Row[]} rows @param {boolean} more */
  #keep(piece, rows, more) {
    this.#pieces.set(piece, rows);
    const keys = new Set(this.#live.length ? rows.map(({ key }) => key) : []);
    this.#live = this.#live.filter(({ key }) => !keys.has(key));
    if (rows.length === pieceRows) this.#ends.set(piece, rows[rows.length - 1].position);
    if (this.#pieces.size > mostPieces) this.#pieces.delete(/** @type {number} */ (this.#pieces.keys().next().value));
    const found = piece * pieceRows + rows.length;
    if (!more && (rows.length || piece === 0)) {
      this.#stored = found;
      this.#exact = true;
    } else if (found + (more ? 1 : 0) > this.#stored) {
      this.#stored = found + (more ? 1 : 0);
    } else if (!rows.length && !more) {
      // The counting told more than there are: what stands before this piece is all there may be.
      this.#stored = Math.min(this.#stored, piece * pieceRows);
    }
    this.#changed();
    this.dispatchEvent(new Event('answered'));
  }

  #changed() {
    this.dispatchEvent(new Event('changed'));
  }
}
