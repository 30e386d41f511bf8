// The question and how it is looked at, as one value that the address of the page holds: who gets the
// address sees the same. Conditions are the parameters of zel query by their names; what belongs to
// the view alone has a dot in front.

const viewNames = ['order', 'zone', 'by', 'columns', 'event'];

export const usualColumns = ['time', 'object', 'action', 'actor_path', 'target_path'];

/**
 * @typedef {object} View
 * @property {string} order newest or oldest
 * @property {string} zone utc or local
 * @property {string} by object or level
 * @property {string[]} columns
 * @property {string} event key of the one that is open
 */

/** @returns {View} */
function usualView() {
  return { order: 'newest', zone: 'utc', by: 'object', columns: [...usualColumns], event: '' };
}

/**
 * Tells "asked" when the conditions are others and "viewed" when only the view is.
 */
export class Question extends EventTarget {
  constructor() {
    super();
    /** @type {[string, string][]} */
    this.conditions = [];
    this.view = usualView();
    this.#read();
    addEventListener('popstate', () => {
      this.#read();
      this.dispatchEvent(new Event('asked'));
    });
  }

  get utc() {
    return this.view.zone === 'utc';
  }

  #read() {
    this.conditions = [];
    this.view = usualView();
    for (const [name, value] of new URLSearchParams(location.hash.slice(1))) {
      if (name === '.columns') this.view.columns = value.split(',').filter((column) => /^[a-z_]+$/.test(column)).slice(0, 40);
      else if (name === '.event') this.view.event = value;
      else if (name === '.order' && value === 'oldest') this.view.order = value;
      else if (name === '.zone' && value === 'local') this.view.zone = value;
      else if (name === '.by' && value === 'level') this.view.by = value;
      else if (!name.startsWith('.') && this.conditions.length < 200) this.conditions.push([name, value]);
    }
    if (!this.view.columns.length) this.view.columns = [...usualColumns];
  }

  /** The address that asks this. */
  get address() {
    const usual = /** @type {any} */ (usualView());
    const all = new URLSearchParams(this.conditions);
    for (const name of viewNames) {
      const value = String(/** @type {any} */ (this.view)[name]);
      if (value !== String(usual[name])) all.append(`.${name}`, value);
    }
    const text = all.toString();
    return text ? `#${text}` : location.pathname;
  }

  /** @param {[string, string][]} conditions */
  ask(conditions) {
    this.conditions = conditions;
    this.view.event = '';
    history.pushState(null, '', this.address);
    this.dispatchEvent(new Event('asked'));
  }

  /** @param {Partial<View>} changes */
  look(changes) {
    Object.assign(this.view, changes);
    history.replaceState(null, '', this.address);
    this.dispatchEvent(new CustomEvent('viewed', { detail: changes }));
  }

  /** @param {[string, string]} pair */
  has([name, value]) {
    return this.conditions.some(([ownName, ownValue]) => ownName === name && ownValue === value);
  }

  /** @param {[string, string]} pair */
  add(pair) {
    if (!this.has(pair)) this.ask([...this.conditions, pair]);
  }

  /** @param {[string, string]} pair */
  remove([name, value]) {
    this.ask(this.conditions.filter(([ownName, ownValue]) => ownName !== name || ownValue !== value));
  }

  /**
   * Another range of time; null is no bound.
   * @param {Date|null} since
   * @param {Date|null} until
   */
  range(since, until) {
    const rest = this.conditions.filter(([name]) => !['since', 'until', 'day'].includes(name));
    if (since) rest.push(['since', since.toISOString()]);
    if (until) rest.push(['until', until.toISOString()]);
    this.ask(rest);
  }

  get hasRange() {
    return this.conditions.some(([name]) => ['since', 'until', 'day'].includes(name));
  }

  /** The conditions as they are typed. */
  get line() {
    return this.conditions.map(conditionText).join(' ');
  }
}

/** @param {[string, string]} condition */
export function conditionText([name, value]) {
  const flag = `--${name.replaceAll('_', '-')}`;
  if (name === 'no_live_enriched') return flag;  // the one that takes no value
  const bare = /^[\w.,:*?/@%+=\\-]+$/.test(value) && !value.includes('\\');
  return bare && value ? `${flag} ${value}` : `${flag} '${value.replaceAll("'", "'\\''")}'`;
}

/**
 * The condition that a column has a value.
 * @param {string} column
 * @param {unknown} value
 * @param {boolean} [not]
 * @returns {[string, string]}
 */
export function valueCondition(column, value, not = false) {
  const text = String(value);
  if (!not && (column === 'object' || column === 'action')) return [column, text];
  const bare = !/^[\s"']|[\s"']$/.test(text) && text;
  return ['where', `${column} ${not ? '!=' : '='} ${bare ? text : `"${text}"`}`];
}
