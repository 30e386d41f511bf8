// Elements are made here alone. What comes from the store is set as text, never as markup, and what
// a reader could not see in it is made visible: a file name that turns its own letters around, or
// hides an end of line, is what an attacker wants to pass unseen.

const unseen = /[\u0000-\u0008\u000a-\u001f\u007f-\u009f\u00ad\u061c\u200b-\u200f\u2028-\u202e\u2060-\u2069\ufeff]/g;

/**
 * A text with its control characters and marks of direction told by number.
 * @param {unknown} value
 * @returns {string}
 */
export function shown(value) {
  const text = value === null || value === undefined ? '' : String(value);
  return text.replace(unseen, (letter) => `⟨${letter.charCodeAt(0).toString(16).toUpperCase().padStart(4, '0')}⟩`);
}

/**
 * An element. Attributes whose names begin with "on" are listeners; `true` sets an attribute without
 * a value, `false` and `null` leave it out. Children that are no nodes become text.
 * @param {string} tag
 * @param {Record<string, any>} [attributes]
 * @param {...(Node|string|number|null)} children
 * @returns {HTMLElement}
 */
export function make(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (name.startsWith('on')) element.addEventListener(name.slice(2), value);
    else if (value === true) element.setAttribute(name, '');
    else if (value !== false && value !== null && value !== undefined) element.setAttribute(name, String(value));
  }
  for (const child of children) if (child !== null) element.append(child instanceof Node ? child : String(child));
  return element;
}

/**
 * The element of page.html with this id.
 * @template {HTMLElement} [T=HTMLElement]
 * @param {string} id
 * @returns {T}
 */
export function part(id) {
  const element = document.getElementById(id);
  if (!element) throw new Error(`the page has no ${id}`);
  return /** @type {T} */ (element);
}

/**
 * A path in two pieces, of which the narrow place cuts the first: the name at its end is what is read.
 * @param {unknown} value
 * @param {number} [most] letters that are shown
 * @returns {HTMLElement}
 */
export function pathText(value, most = 400) {
  const text = shown(value).slice(0, most);
  const cut = Math.max(text.lastIndexOf('\\', text.length - 2), text.lastIndexOf('/', text.length - 2)) + 1;
  return make('span', { class: 'path', title: text }, make('span', { class: 'folder' }, text.slice(0, cut)), make('span', { class: 'leaf' }, text.slice(cut)));
}

/**
 * Calls once after calls have ceased for so long.
 * @param {number} milliseconds
 * @param {(...args: any[]) => void} work
 * @returns {(...args: any[]) => void}
 */
export function afterwards(milliseconds, work) {
  let timer = 0;
  return (...args) => {
    clearTimeout(timer);
    timer = setTimeout(() => work(...args), milliseconds);
  };
}

/** @param {string} text */
export function tell(text) {
  part('status').textContent = text;
}

/**
 * Shows the one dialog with this heading and content. Escape and its button close it.
 * @param {string} title
 * @param {...Node} content
 */
export function openDialog(title, ...content) {
  const dialog = /** @type {HTMLDialogElement} */ (part('dialog'));
  const close = make('button', { type: 'button', class: 'close', 'aria-label': 'Close', onclick: () => dialog.close() }, '×');
  dialog.replaceChildren(make('h2', { id: 'dialog-title' }, title), close, ...content);
  dialog.showModal();
}
