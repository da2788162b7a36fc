// File names as the API writes them: "%", control characters and bytes that are not UTF-8 are percent escapes, so that
// each text names one file.

import {locale} from '/shared/texts.js';

/** The text of a name that the browser has. */
export function encodeName(name) {
  return name.replace(/[%\u0000-\u001f\u007f]/g,
    (character) => `%${character.charCodeAt(0).toString(16).toUpperCase().padStart(2, '0')}`);
}

/** The text that people see. Line breaks and marks that change the writing direction become visible. */
export function showName(text) {
  const bytes = [];
  for (const [piece, digits, plain] of text.matchAll(/%([0-9A-Fa-f]{2})|([^%]+|%)/g)) {
    bytes.push(...digits === undefined ? new TextEncoder().encode(plain ?? piece) : [parseInt(digits, 16)]);
  }
  return new TextDecoder().decode(new Uint8Array(bytes))
    .replace(/[\u0000-\u001f\u007f-\u009f\u202a-\u202e\u2066-\u2069]/g, '\ufffd');
}

/** "1.4 MB" */
export function showSize(bytes) {
  const units = ['byte', 'kilobyte', 'megabyte', 'gigabyte', 'terabyte'];
  let value = bytes;
  let unit = 0;
  while (value >= 1000 && unit < units.length - 1) {
    value /= 1000;
    unit += 1;
  }
  return new Intl.NumberFormat(locale(), {
    style: 'unit', unit: units[unit], unitDisplay: unit === 0 ? 'long' : 'short',
    maximumFractionDigits: unit === 0 || value >= 100 ? 0 : 1,
  }).format(value);
}

/** A local date and time of seconds since 1970. */
export function showTime(seconds) {
  return new Date(seconds * 1000).toLocaleString(locale(), {dateStyle: 'medium', timeStyle: 'short'});
}
