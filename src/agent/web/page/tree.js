// The tree of processes that an event belongs to, drawn from launches by D3: one line a process, those
// that it began below it.

import { make, shown } from './dom.js';
import { momentText } from './times.js';

const lineHeight = 22;
const indent = 16;
const mostNodes = 300;

/** @param {TreeNode} node */
function nameOf(node) {
  const path = shown(node.path || '?');
  return path.slice(Math.max(path.lastIndexOf('\\'), path.lastIndexOf('/')) + 1) || path;
}

/**
 * One root over all, since a number that several processes had gives several trees.
 * @param {TreeNode[]} nodes
 */
function hierarchyOf(nodes) {
  const known = new Set(nodes.map(({ id }) => id));
  const rooted = nodes.map((node) => ({ node, id: `n${node.id}`, above: node.parent !== null && node.parent !== node.id && known.has(node.parent) ? `n${node.parent}` : 'root' }));
  return d3.stratify().id((/** @type {any} */ one) => one.id).parentId((/** @type {any} */ one) => one.above)([{ node: null, id: 'root', above: null }, ...rooted]);
}

/**
 * @param {{nodes: TreeNode[], cut: boolean}} answer
 * @param {boolean} utc
 * @param {(key: string) => void} open
 * @returns {HTMLElement}
 */
export function processTree(answer, utc, open) {
  const nodes = answer.nodes.slice(0, mostNodes);
  if (!nodes.length) return make('p', { class: 'none' }, 'No launch of this process is in the store.');
  let root;
  try {
    root = hierarchyOf(nodes);
  } catch {
    return make('p', { class: 'none' }, 'These launches are no tree: processes name each other as their maker.');
  }
  /** @type {any[]} */
  const ordered = [];
  root.eachBefore((/** @type {any} */ one) => { if (one.depth) ordered.push(one); });
  ordered.forEach((one, index) => { one.line = index; });
  const holder = make('div', { class: 'tree' });
  const svg = d3.select(holder).append('svg').attr('role', 'group').attr('aria-label', `${ordered.length} processes`).attr('height', ordered.length * lineHeight + 4);
  svg.append('g').attr('class', 'links').selectAll('path').data(ordered.filter((one) => one.depth > 1)).enter().append('path')
    .attr('d', (/** @type {any} */ one) => `M${(one.depth - 2) * indent + 7},${(one.parent.line + 1) * lineHeight - 4}V${one.line * lineHeight + 12}h${indent - 5}`);
  const items = svg.append('g').selectAll('g').data(ordered).enter().append('g')
    .attr('transform', (/** @type {any} */ one) => `translate(${(one.depth - 1) * indent},${one.line * lineHeight})`)
    .attr('class', (/** @type {any} */ one) => `node${one.data.node.here ? ' here' : ''}${one.data.node.key ? ' known' : ''}`);
  items.append('rect').attr('height', lineHeight - 2).attr('y', 1).attr('width', '100%').attr('rx', 3);
  items.append('circle').attr('cx', 7).attr('cy', 12).attr('r', 3.5);
  const wordsOf = (/** @type {any} */ one) => [`${one.data.node.here ? '► ' : ''}${nameOf(one.data.node)}`, ` ${shown(one.data.node.command ?? '').slice(0, 160)}`];
  const texts = items.append('text').attr('x', 16).attr('y', 16);
  texts.append('tspan').attr('class', 'name').text((/** @type {any} */ one) => wordsOf(one)[0]);
  texts.append('tspan').attr('class', 'command').attr('dx', 8).text((/** @type {any} */ one) => wordsOf(one)[1]);
  items.append('title').text((/** @type {any} */ one) => titleOf(one.data.node, utc));
  items.filter((/** @type {any} */ one) => one.data.node.key).attr('role', 'button').attr('tabindex', 0)
    .attr('aria-label', (/** @type {any} */ one) => `${wordsOf(one).join('')}, level ${one.depth}`)
    .on('click', (/** @type {any} */ one) => open(one.data.node.key))
    .on('keydown', (/** @type {any} */ one) => { if (d3.event.key === 'Enter' || d3.event.key === ' ') { d3.event.preventDefault(); open(one.data.node.key); } });
  if (answer.cut || answer.nodes.length > nodes.length) holder.append(make('p', { class: 'none' }, 'The tree has more processes than are shown.'));
  return holder;
}

/** @param {TreeNode} node @param {boolean} utc */
function titleOf(node, utc) {
  return [node.time ? momentText(node.time, utc) : 'no launch of it is stored', shown(node.path), shown(node.command ?? '').slice(0, 1500), node.user ? `user ${shown(node.user)}` : ''].filter(Boolean).join('\n');
}
