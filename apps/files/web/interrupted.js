// Uploads that this browser has begun and not ended, so that they go on after the page was closed. A file is known again by
// its name, size and time, and by the place that it goes to where a page has several.

import {t} from '/shared/texts.js';

const PREFIX = `velt-upload:${location.pathname.split('/')[2] ?? ''}:`;
const LIFE = 24 * 60 * 60 * 1000; // milliseconds; the server gives up what has rested for as long

const keyOf = ({place = '', name, size, lastModified}) => `${PREFIX}${size}:${lastModified}:${place}${name}`;

function read(key) {
  try {
    const kept = JSON.parse(localStorage.getItem(key));
    if (Date.now() - kept.time < LIFE) return kept;
  } catch {
    // Not ours, or nothing is kept for this site.
  }
  return null;
}

/** Keeps the upload's id for the file. */
export function keepUpload(file, upload) {
  try {
    localStorage.setItem(keyOf(file), JSON.stringify({upload, time: Date.now()}));
  } catch {
    // Then it can't go on after the page was closed.
  }
}

/** The id of the upload that was begun for the file; undefined when there is none. */
export function keptUpload(file) {
  return read(keyOf(file))?.upload;
}

export function forgetUpload(file) {
  localStorage.removeItem(keyOf(file));
}

/** What to tell about uploads that wait for their files; empty when there are none. */
export function waitingFiles() {
  const names = [];
  for (const key of Object.keys(localStorage)) {
    if (!key.startsWith(PREFIX)) continue;
    if (read(key)) names.push(key.slice(PREFIX.length).replace(/^\d+:\d+:/, ''));
    else localStorage.removeItem(key);
  }
  return names.length === 0 ? '' : t('interrupted', {count: names.length, names: names.slice(0, 5).join(', ')});
}
