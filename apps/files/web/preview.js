// What the page shows of one file.

import {make} from '/shared/dom.js';
import {t} from '/shared/texts.js';
import {addressOf} from '/pkg/files/link.js';
import {showName} from '/pkg/files/names.js';

const LONGEST_TEXT = 256 * 1024;

// Text is fetched and shown as text: nothing in it is markup here.
async function showText(place, source, size) {
  try {
    const headers = size > LONGEST_TEXT ? {Range: `bytes=0-${LONGEST_TEXT - 1}`} : {};
    const response = await fetch(source, {headers, cache: 'no-store'});
    if (!response.ok) throw new Error(response.status);
    place.textContent = await response.text();
    if (size > LONGEST_TEXT) place.append('\n…');
  } catch {
    place.textContent = t('not_shown');
  }
}

/** Whether there is a view of the file. */
export function canShow(entry) {
  return entry.type === 'file' && entry.kind !== '';
}

/** An element with the file's content, which begins to load. */
export function contentOf(entry) {
  const src = addressOf('get', {path: entry.path, show: true});
  const name = showName(entry.name);
  switch (entry.kind) {
    case 'image':
      return make('img', {src, alt: name, draggable: 'false'});
    case 'pdf':
      return make('iframe', {src, title: name});
    case 'audio':
      return make('audio', {src, controls: true});
    case 'video':
      return make('video', {src, controls: true});
    default: {
      const place = make('pre', {tabindex: '0'});
      showText(place, src, entry.size);
      return place;
    }
  }
}
