// One file, shown in the page.

import {make} from '/shared/dom.js';
import {t} from '/shared/texts.js';
import {addressOf} from '/pkg/files/link.js';
import {showName, showSize} from '/pkg/files/names.js';

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

function content(entry, source) {
  switch (entry.kind) {
    case 'image':
      return make('img', {src: source, alt: showName(entry.name)});
    case 'pdf':
      return make('iframe', {src: source, title: showName(entry.name)});
    case 'audio':
      return make('audio', {src: source, controls: true});
    case 'video':
      return make('video', {src: source, controls: true});
    default: {
      const place = make('pre', {tabindex: '0'});
      showText(place, source, entry.size);
      return place;
    }
  }
}

export function openPreview(entry) {
  const dialog = make('dialog', {id: 'preview', 'aria-labelledby': 'preview-name'},
    make('h2', {id: 'preview-name'}, make('bdi', {}, showName(entry.name))),
    content(entry, addressOf('get', {path: entry.path, show: true})),
    make('div', {class: 'dialog-actions'},
      make('a', {href: addressOf('get', {path: entry.path}), download: ''},
        t('download_size', {size: showSize(entry.size)})),
      make('button', {type: 'button', on: {click: () => dialog.close()}}, t('close'))));
  dialog.addEventListener('close', () => dialog.remove());
  document.body.append(dialog);
  dialog.showModal();
}
