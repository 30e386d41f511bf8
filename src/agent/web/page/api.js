// Questions to the server. One that is asked anew ends the one before it: the browser closes that
// connection, and the store ends its walk.

/** @type {Map<string, AbortController>} */
const running = new Map();

/** An answer that is no answer: the server's words, and the byte of the line that they are about. */
export class Refusal extends Error {
  /**
   * @param {number} status
   * @param {string} message
   * @param {number|null} at
   */
  constructor(status, message, at = null) {
    super(message);
    this.status = status;
    this.at = at;
  }
}

/** @param {unknown} error */
export function isCancelled(error) {
  return error instanceof DOMException && error.name === 'AbortError';
}

/** @param {string} name */
export function cancel(name) {
  running.get(name)?.abort();
  running.delete(name);
}

/**
 * @param {Response} response
 * @returns {Promise<Refusal>}
 */
async function refusalOf(response) {
  const text = await response.text();
  if (response.status === 401) return new Refusal(401, 'This session has ended. Open the page by a new link: zel web');
  try {
    const { error, at } = JSON.parse(text);
    return new Refusal(response.status, String(error), typeof at === 'number' ? at : null);
  } catch {
    return new Refusal(response.status, text.trim().slice(0, 500) || `The server answered ${response.status}`);
  }
}

/**
 * @param {string} name of the question; one of the same name is cancelled
 * @param {string} path
 * @param {[string, string][]} parameters
 * @param {RequestInit} [more]
 * @returns {Promise<Response>}
 */
export async function ask(name, path, parameters, more = {}) {
  cancel(name);
  const controller = new AbortController();
  running.set(name, controller);
  const query = new URLSearchParams(parameters).toString();
  const response = await fetch(query ? `${path}?${query}` : path, { ...more, signal: controller.signal });
  if (!response.ok) throw await refusalOf(response);
  return response;
}

/**
 * @param {string} name
 * @param {string} path
 * @param {[string, string][]} [parameters]
 * @returns {Promise<any>}
 */
export async function askJson(name, path, parameters = []) {
  return (await ask(name, path, parameters)).json();
}

/**
 * Gives each line of an answer when it is there.
 * @param {string} name
 * @param {string} path
 * @param {[string, string][]} parameters
 * @returns {AsyncGenerator<any, void, void>}
 */
export async function* askLines(name, path, parameters) {
  const response = await ask(name, path, parameters);
  if (!response.body) return;
  const reader = response.body.pipeThrough(new TextDecoderStream()).getReader();
  let rest = '';
  for (;;) {
    const { value, done } = await reader.read();
    if (done) break;
    const lines = (rest + value).split('\n');
    rest = lines.pop() ?? '';
    for (const line of lines) if (line) yield JSON.parse(line);
  }
  if (rest.trim()) yield JSON.parse(rest);
}

/**
 * Rows of an answer and its last line.
 * @param {string} name
 * @param {string} path
 * @param {[string, string][]} parameters
 * @returns {Promise<{rows: Row[], end: {more: boolean, not_read?: unknown[]}}>}
 */
export async function askRows(name, path, parameters) {
  /** @type {Row[]} */
  const rows = [];
  for await (const line of askLines(name, path, parameters)) {
    if (line.end) return { rows, end: line };
    if (line.error) throw new Refusal(500, String(line.error));
    rows.push(line);
  }
  throw new Refusal(500, 'The answer was cut off');
}

/**
 * @param {string} path
 * @param {unknown} body
 * @returns {Promise<Response>}
 */
export async function send(path, body) {
  const response = await fetch(path, { method: 'POST', headers: { 'Content-Type': 'application/json' }, body: JSON.stringify(body) });
  if (!response.ok) throw await refusalOf(response);
  return response;
}
