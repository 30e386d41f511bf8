// Times as the reader's browser writes them, in UTC or in the zone of the machine that shows them.

import { shown } from './dom.js';

/** @type {Map<string, Intl.DateTimeFormat>} */
const formats = new Map();

/**
 * @param {boolean} utc
 * @param {Intl.DateTimeFormatOptions} options
 */
function format(utc, options) {
  const name = `${utc}${JSON.stringify(options)}`;
  let found = formats.get(name);
  if (!found) {
    found = new Intl.DateTimeFormat(undefined, { ...options, ...(utc ? { timeZone: 'UTC' } : {}) });
    formats.set(name, found);
  }
  return found;
}

/** @type {Intl.DateTimeFormatOptions} */
const day = { year: 'numeric', month: '2-digit', day: '2-digit' };
/** @type {Intl.DateTimeFormatOptions} */
const minute = { hour: '2-digit', minute: '2-digit', hourCycle: 'h23' };
/** @type {Intl.DateTimeFormatOptions} */
const second = { ...minute, second: '2-digit' };

/**
 * Date and time to the millisecond. What is no time stays what it is.
 * @param {string} text as the store writes times
 * @param {boolean} utc
 * @returns {string}
 */
export function momentText(text, utc) {
  const moment = new Date(text);
  if (Number.isNaN(moment.getTime())) return shown(text);
  return format(utc, { ...day, ...second, fractionalSecondDigits: 3 }).format(moment);
}

/**
 * A time to the second, or to the day where a span is long.
 * @param {Date} moment
 * @param {boolean} utc
 * @param {number} span milliseconds that stand beside it
 */
export function roughText(moment, utc, span) {
  return format(utc, span > 20 * 86400e3 ? day : { ...day, ...second }).format(moment);
}

/**
 * How the marks of an axis over so many milliseconds are written.
 * @param {number} span
 * @param {boolean} utc
 * @returns {(moment: Date) => string}
 */
export function axisText(span, utc) {
  /** @type {Intl.DateTimeFormatOptions} */
  let options = second;
  if (span > 400 * 86400e3) options = { year: 'numeric', month: 'short' };
  else if (span > 3 * 86400e3) options = { month: 'short', day: 'numeric' };
  else if (span > 20 * 3600e3) options = { month: 'short', day: 'numeric', ...minute };
  else if (span > 600e3) options = minute;
  else if (span < 5e3) options = { ...second, fractionalSecondDigits: 3 };
  const marks = format(utc, options);
  return (moment) => marks.format(moment);
}

/** @param {number} seconds */
export function lengthText(seconds) {
  for (const [size, unit] of /** @type {[number, string][]} */ ([[604800, 'week'], [86400, 'day'], [3600, 'hour'], [60, 'minute'], [1, 'second']])) {
    if (seconds >= size && (seconds % size === 0 || seconds >= 3 * size)) {
      return new Intl.NumberFormat(undefined, { style: 'unit', unit, unitDisplay: 'long', maximumFractionDigits: 1 }).format(seconds / size);
    }
  }
  return new Intl.NumberFormat(undefined, { style: 'unit', unit: 'millisecond', unitDisplay: 'long' }).format(Math.round(seconds * 1000));
}

const numbers = new Intl.NumberFormat();

/** @param {number} value */
export function numberText(value) {
  return numbers.format(value);
}
