// How many events there are over time, drawn by D3. Times of which events are missing are hatched
// bands, so that an empty place means that nothing happened. Pulling over it asks for that range,
// the wheel zooms; the buttons, and since and until in the search line, do the same by keyboard.

import { askJson, isCancelled } from './api.js';
import { afterwards, make, part, shown, tell } from './dom.js';
import { colourOf, inOrder, kindText } from './kinds.js';
import { axisText, lengthText, momentText, numberText, roughText } from './times.js';

/** @typedef {import('./question.js').Question} Question */

const margin = { top: 8, right: 26, bottom: 22, left: 46 };
const height = 150;
const leastSpan = 2000;

export class Histogram extends EventTarget {
  /** @type {HistogramAnswer|null} */
  answer = null;
  #width = 0;
  #x = d3.scaleUtc();
  #brushing = false;

  /** @param {Question} question */
  constructor(question) {
    super();
    this.question = question;
    this.root = part('histogram');
    this.svg = d3.select(this.root).append('svg').attr('role', 'img').attr('height', height);
    const hatch = this.svg.append('defs').append('pattern').attr('id', 'hatch').attr('width', 6).attr('height', 6)
      .attr('patternUnits', 'userSpaceOnUse').attr('patternTransform', 'rotate(45)');
    hatch.append('rect').attr('width', 6).attr('height', 6).attr('class', 'hatch-ground');
    hatch.append('rect').attr('width', 2).attr('height', 6).attr('class', 'hatch-line');
    const layer = (/** @type {string} */ name) => this.svg.append('g').attr('class', name);
    this.bands = layer('bands');
    this.grid = layer('grid');
    this.bars = layer('bars');
    this.axis = layer('axis');
    this.brush = layer('brush');
    this.wheelEnd = afterwards(250, () => this.#commit(this.#x.domain()));
    this.tip = make('div', { class: 'tip', hidden: true });
    this.root.append(this.tip);
    this.#controls();
    new ResizeObserver(afterwards(60, () => this.draw())).observe(this.root);
    question.addEventListener('asked', () => this.load());
    question.addEventListener('viewed', (event) => {
      const changes = /** @type {CustomEvent} */ (event).detail;
      if ('by' in changes) this.load();
      else if ('zone' in changes) this.draw();
    });
  }

  async load() {
    this.root.classList.add('waiting');
    const buckets = Math.max(40, Math.min(240, Math.round(this.root.clientWidth / 6)));
    try {
      this.answer = await askJson('histogram', '/v1/histogram', [...this.question.conditions, ['buckets', String(buckets)], ['by', this.question.view.by]]);
      this.draw();
      this.dispatchEvent(new CustomEvent('counted', { detail: this.answer }));
    } catch (error) {
      if (isCancelled(error)) return;
      part('counted').textContent = 'Events';
      tell(/** @type {Error} */ (error).message);
    }
    this.root.classList.remove('waiting');
  }

  #controls() {
    /** @type {HTMLSelectElement} */
    const by = part('by');
    by.addEventListener('change', () => this.question.look({ by: by.value }));
    part('zoom-in').addEventListener('click', () => this.#move(0.25, 0.75));
    part('zoom-out').addEventListener('click', () => this.#move(-0.5, 1.5));
    part('earlier').addEventListener('click', () => this.#move(-0.5, 0.5));
    part('later').addEventListener('click', () => this.#move(0.5, 1.5));
    part('all-time').addEventListener('click', () => this.question.range(null, null));
    this.svg.on('wheel', () => this.#wheel(d3.event));
    this.svg.on('mousemove', () => this.#point(d3.mouse(this.svg.node())[0]));
    this.svg.on('mouseleave', () => { this.tip.hidden = true; });
  }

  /**
   * Asks for a part of what is seen, or for more.
   * @param {number} from
   * @param {number} to
   */
  #move(from, to) {
    const [left, right] = this.#x.domain().map(Number);
    this.#commit([new Date(left + (right - left) * from), new Date(left + (right - left) * to)]);
  }

  /** @param {Date[]} range */
  #commit([since, until]) {
    const earliest = Date.UTC(1970, 0, 1);
    const latest = Date.UTC(2200, 0, 1);
    const from = new Date(Math.max(earliest, Number(since)));
    const to = new Date(Math.min(latest, Math.max(Number(until), Number(from) + 10)));
    if (Number.isFinite(Number(from)) && Number.isFinite(Number(to))) this.question.range(from, to);
  }

  /** @param {WheelEvent} event */
  #wheel(event) {
    event.preventDefault();
    if (!this.answer?.from) return;
    const [left, right] = this.#x.domain().map(Number);
    const factor = Math.min(4, Math.max(0.25, 2 ** (event.deltaY * (event.deltaMode ? 0.05 : 0.002))));
    const under = Number(this.#x.invert(d3.mouse(this.svg.node())[0]));
    const span = Math.max(10, (right - left) * factor);
    const share = (under - left) / (right - left);
    this.#x.domain([new Date(under - span * share), new Date(under + span * (1 - share))]);
    this.#paint();
    this.wheelEnd();
  }

  draw() {
    const answer = this.answer;
    if (!answer) return;
    /** @type {HTMLSelectElement} */ (part('by')).value = this.question.view.by;
    this.#width = this.root.clientWidth;
    this.svg.attr('width', this.#width);
    const from = new Date(answer.from ?? Date.now() - 86400e3);
    const until = new Date(answer.until ?? Date.now());
    // One event alone still has something at its sides.
    const beside = Math.max(0, (leastSpan - (Number(until) - Number(from))) / 2);
    this.#x = (this.question.utc ? d3.scaleUtc() : d3.scaleTime())
      .domain([new Date(Number(from) - beside), new Date(Number(until) + beside)])
      .range([margin.left, this.#width - margin.right]);
    this.#paint();
    this.#pullable();
    this.#words(answer, from, until);
  }

  #paint() {
    const answer = /** @type {HistogramAnswer} */ (this.answer);
    const keys = this.#drawn(answer.keys);
    const most = d3.max(answer.buckets, (/** @type {Bucket} */ bucket) => d3.sum(keys, (/** @type {string} */ key) => bucket.counts[key] ?? 0)) || 1;
    const y = d3.scaleLinear().domain([0, most]).nice(4).range([height - margin.bottom, margin.top]);
    const left = margin.left;
    const right = this.#width - margin.right;
    const stacked = d3.stack().keys(keys).value((/** @type {Bucket} */ bucket, /** @type {string} */ key) => bucket.counts[key] ?? 0)(answer.buckets);
    const clip = (/** @type {number} */ at) => Math.max(left, Math.min(right, at));
    const within = (/** @type {Bucket} */ bucket) => this.#x(Number(new Date(bucket.at)) + answer.width * 1000) >= left && this.#x(new Date(bucket.at)) <= right;
    const edges = (/** @type {Bucket} */ bucket) => {
      const at = Number(new Date(bucket.at));
      const from = Math.min(right - 2, clip(this.#x(at)));
      return [from, Math.max(2, clip(this.#x(at + answer.width * 1000)) - from - 1)];
    };
    const layers = this.bars.selectAll('g').data(stacked, (/** @type {any} */ layer) => layer.key);
    layers.exit().remove();
    layers.enter().append('g').merge(layers).order().attr('class', (/** @type {any} */ layer) => colourOf(layer.key))
      .each((/** @type {any} */ layer, /** @type {number} */ index, /** @type {any} */ groups) => {
        const filled = layer.filter((/** @type {any} */ piece) => piece[1] > piece[0] && within(piece.data));
        const bars = d3.select(groups[index]).selectAll('rect').data(filled);
        bars.exit().remove();
        bars.enter().append('rect').merge(bars)
          .attr('x', (/** @type {any} */ piece) => edges(piece.data)[0])
          .attr('width', (/** @type {any} */ piece) => edges(piece.data)[1])
          .attr('y', (/** @type {any} */ piece) => y(piece[1]))
          .attr('height', (/** @type {any} */ piece) => Math.max(0.5, y(piece[0]) - y(piece[1])));
      });
    this.#axes(y, left, right);
    this.#gapBands(answer, left, right);
  }

  /**
   * What has bars, in their order. Beside events that no rule fits, the others could not be seen.
   * @param {string[]} keys
   */
  #drawn(keys) {
    const hits = inOrder(keys).filter((key) => this.question.view.by !== 'level' || key !== 'none');
    return hits.length ? hits : inOrder(keys);
  }

  /** @param {any} y @param {number} left @param {number} right */
  #axes(y, left, right) {
    const [from, until] = this.#x.domain().map(Number);
    const write = axisText(until - from, this.question.utc);
    const marks = this.#x.ticks(Math.max(2, Math.floor((right - left) / 110)));
    this.axis.attr('transform', `translate(0,${height - margin.bottom})`)
      .call(d3.axisBottom(this.#x).tickValues(marks).tickFormat(write).tickSizeOuter(0));
    const lines = y.ticks(3).filter((/** @type {number} */ value) => Number.isInteger(value));
    this.grid.attr('transform', `translate(${left},0)`)
      .call(d3.axisLeft(y).tickValues(lines).tickSize(left - right).tickFormat(numberText));
  }

  /** @param {HistogramAnswer} answer @param {number} left @param {number} right */
  #gapBands(answer, left, right) {
    const clip = (/** @type {string} */ at) => Math.max(left, Math.min(right, this.#x(new Date(at))));
    const seen = (answer.gaps ?? []).filter((gap) => this.#x(new Date(gap.until)) >= left && this.#x(new Date(gap.from)) <= right);
    const bands = this.bands.selectAll('rect').data(seen);
    bands.exit().remove();
    bands.enter().append('rect').attr('fill', 'url(#hatch)').merge(bands)
      .attr('x', (/** @type {Gap} */ gap) => clip(gap.from))
      .attr('width', (/** @type {Gap} */ gap) => Math.max(3, clip(gap.until) - clip(gap.from)))
      .attr('y', margin.top).attr('height', height - margin.top - margin.bottom);
  }

  #pullable() {
    const brush = d3.brushX().extent([[margin.left, margin.top], [this.#width - margin.right, height - margin.bottom]])
      .on('start', () => { this.#brushing = true; this.tip.hidden = true; })
      .on('end', () => {
        this.#brushing = false;
        const range = d3.event.selection;
        if (!d3.event.sourceEvent || !range) return;
        this.brush.call(brush.move, null);
        this.#commit(range.map((/** @type {number} */ at) => this.#x.invert(at)));
      });
    this.brush.call(brush);
  }

  /** @param {number} at */
  #point(at) {
    const answer = this.answer;
    if (!answer || this.#brushing) return;
    const moment = Number(this.#x.invert(at));
    const length = answer.width * 1000;
    const bucket = answer.buckets.find((one) => Number(new Date(one.at)) <= moment && moment < Number(new Date(one.at)) + length);
    const gap = (answer.gaps ?? []).find((one) => this.#x(new Date(one.from)) - 3 <= at && at <= this.#x(new Date(one.until)) + 3);
    this.tip.hidden = !bucket && !gap;
    if (this.tip.hidden) return;
    const lines = [];
    if (bucket) {
      lines.push(make('b', {}, momentText(bucket.at, this.question.utc)));
      for (const key of inOrder(Object.keys(bucket.counts)).reverse()) {
        lines.push(make('div', {}, make('i', { class: `swatch ${colourOf(key)}` }), `${shown(kindText(key))} `, make('span', {}, numberText(bucket.counts[key]))));
      }
    }
    if (gap) lines.push(make('div', {}, make('i', { class: 'swatch hatched' }), gapText(gap, this.question.utc)));
    this.tip.replaceChildren(...lines);
    this.tip.style.left = `${Math.max(0, Math.min(this.#width - this.tip.offsetWidth, at + 12))}px`;
  }

  /** @param {HistogramAnswer} answer @param {Date} from @param {Date} until */
  #words(answer, from, until) {
    const span = Number(until) - Number(from);
    const range = answer.from ? `${roughText(from, this.question.utc, span)} – ${roughText(until, this.question.utc, span)}` : '';
    const counted = `${numberText(answer.total)} ${answer.total === 1 ? 'event' : 'events'}`;
    part('counted').replaceChildren(make('b', {}, counted), make('span', {}, range), make('span', {}, answer.from && answer.width >= 1 ? `a bar is ${lengthText(answer.width)}` : ''));
    this.svg.attr('aria-label', `${counted}, ${range}. ${answer.buckets.length} bars of ${lengthText(answer.width)}.`);
    const drawn = this.#drawn(answer.keys);
    part('legend').replaceChildren(...inOrder(answer.keys).map((key) => (drawn.includes(key)
      ? make('li', {}, make('i', { class: `swatch ${colourOf(key)}` }), shown(kindText(key)))
      : make('li', { class: 'undrawn' }, `${numberText(d3.sum(answer.buckets, (/** @type {Bucket} */ bucket) => bucket.counts[key]))} without a hit, not drawn`))));
    const within = (answer.gaps ?? []).filter((gap) => new Date(gap.until) >= from && new Date(gap.from) <= until);
    const lacking = within.map((gap) => make('li', {}, make('i', { class: 'swatch hatched' }), gapText(gap, this.question.utc)));
    const unread = answer.complete === false || answer.not_read?.length;
    if (unread) lacking.push(make('li', { class: 'warning' }, '⚠ Not all of the store could be read: the numbers are too low'));
    part('gaps').replaceChildren(...lacking.slice(0, 4));
    if (lacking.length > 4) part('gaps').append(make('li', {}, `and ${lacking.length - 4} more`));
    part('gaps').hidden = !lacking.length;
    /** @type {HTMLButtonElement} */ (part('all-time')).disabled = !this.question.hasRange;
  }
}

/** @param {Gap} gap @param {boolean} utc */
export function gapText(gap, utc) {
  const lost = gap.events ? `, ${numberText(gap.events)} events` : '';
  const [from, until] = [new Date(gap.from), new Date(gap.until)];
  const span = Number(until) - Number(from);
  return `${shown(gap.reason)}: ${roughText(from, utc, span)} – ${roughText(until, utc, span)}${lost}`;
}
