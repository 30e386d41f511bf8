// What stands for kinds of events and for rule levels: the number of a colour, and the word beside it.

const kinds = ['process', 'network', 'file', 'reg_value', 'reg_key', 'module', 'kernel_object', 'session', 'url', 'service', 'directory', 'amsi', 'etw'];
const levels = ['critical', 'high', 'medium', 'low', 'informational'];

/**
 * The class of a kind's or level's colour.
 * @param {string} key
 * @returns {string}
 */
export function colourOf(key) {
  const level = levels.indexOf(key);
  if (level >= 0) return `level${level}`;
  const kind = kinds.indexOf(key);
  return kind >= 0 ? `kind${kind}` : 'kind-other';
}

/**
 * The order in which they are drawn, those that matter nearest to the ground.
 * @param {string[]} keys
 */
export function inOrder(keys) {
  const place = (/** @type {string} */ key) => {
    const at = [...levels, ...kinds].indexOf(key);
    return at < 0 ? 99 : at;
  };
  return [...keys].sort((one, other) => place(one) - place(other) || (one < other ? -1 : 1));
}

/** @type {Record<string, string>} */
const columnTexts = { object: 'kind', actor_path: 'actor', target_path: 'target', actor_cmd_line: 'actor command line', target_cmd_line: 'target command line', dst_ip: 'to address', src_ip: 'from address', dst_port: 'to port', src_port: 'from port', reg_data: 'registry data', seq: 'number' };

/** @param {string} name */
export function columnText(name) {
  return columnTexts[name] ?? name.replaceAll('_', ' ');
}

/** @param {string} key */
export function kindText(key) {
  return key === '' ? 'none' : key.replaceAll('_', ' ');
}
