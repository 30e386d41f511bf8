// A record as a tree that opens by pieces. Records come from anywhere: how deep and how wide is shown
// at once has bounds, and so has a text.

import { make, shown } from './dom.js';

const mostText = 600;
const mostMembers = 200;
const openDepth = 3;

/**
 * The text with places to break it at. A browser that looks for them in forty thousand letters without
 * a blank takes half a minute, and the page stands still.
 * @param {string} text
 * @returns {(string|Node)[]}
 */
function breakable(text) {
  if (!/\S{200}/.test(text)) return [text];
  const pieces = text.split(text.length < 100_000 ? /(\S{12})/u : /(\S{100})/u);
  return pieces.flatMap((piece, index) => (index % 2 ? [piece, document.createElement('wbr')] : [piece]));
}

/**
 * A text that is cut at first where it is long.
 * @param {unknown} value
 * @returns {HTMLElement}
 */
export function longText(value) {
  const text = shown(value);
  const span = make('span', { class: 'text' }, ...breakable(text.slice(0, mostText)));
  if (text.length <= mostText) return span;
  const more = make('button', { type: 'button', class: 'more', onclick: () => span.replaceChildren(...breakable(text)) }, `… all ${text.length} letters`);
  span.append(more);
  return span;
}

/** @param {unknown} value @returns {unknown} what a member holds whose only member is its value */
function plain(value) {
  if (value && typeof value === 'object' && !Array.isArray(value)) {
    const names = Object.keys(value);
    if (names.length === 1 && names[0] === 'value') return plain(/** @type {any} */ (value).value);
  }
  return Array.isArray(value) && value.length === 1 ? plain(value[0]) : value;
}

/** @param {unknown} value */
function leaf(value) {
  const kind = value === null ? 'null' : typeof value;
  return make('span', { class: `leaf-${kind}` }, kind === 'string' ? longText(value) : shown(JSON.stringify(value)));
}

/**
 * @param {any} holder
 * @param {number} depth
 * @param {number} [from] the first member that is shown
 * @returns {HTMLElement[]}
 */
function members(holder, depth, from = 0) {
  const all = Object.entries(holder);
  const items = all.slice(from, from + mostMembers).map(([name, value]) => member(name, value, depth));
  const rest = all.length - from - mostMembers;
  if (rest > 0) {
    const item = make('li', {}, make('button', { type: 'button', onclick: () => item.replaceWith(...members(holder, depth, from + mostMembers)) }, `${rest} more`));
    items.push(item);
  }
  return items;
}

/** @param {string} name @param {unknown} value @param {number} depth */
function member(name, value, depth) {
  const inner = plain(value);
  if (inner === null || typeof inner !== 'object') return make('li', {}, make('span', { class: 'name' }, shown(name)), ' ', leaf(inner));
  const list = make('ul', {});
  const fill = () => {
    if (!list.firstChild) list.append(...members(inner, depth + 1));
  };
  const fold = make('details', { open: depth < openDepth, ontoggle: fill }, make('summary', {}, make('span', { class: 'name' }, shown(name))), list);
  if (depth < openDepth) fill();
  return make('li', {}, fold);
}

/** @param {any} record @returns {HTMLElement} */
export function recordTree(record) {
  if (record === null || typeof record !== 'object') return leaf(record);
  return make('ul', { class: 'record' }, ...members(record, 0));
}
