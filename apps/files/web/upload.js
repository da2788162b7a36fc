// Leaving files at the page's link.

import {make} from '/shared/dom.js';
import {t} from '/shared/texts.js';
import {makeChoosers, takeDropped} from '/pkg/files/folders.js';
import {waitingFiles} from '/pkg/files/interrupted.js';
import {addressOf, call, wordsFor} from '/pkg/files/link.js';
import {showName, showSize} from '/pkg/files/names.js';
import {Sent} from '/pkg/files/sent.js';
import {makeTerminal} from '/pkg/files/terminal.js';
import {Transfers} from '/pkg/files/transfer.js';

const PIECE = 4 * 1024 * 1024;

/** The part of the page where files are left. `done` is called when some have arrived. */
export function makeUpload(rule, done) {
  const sent = new Sent();
  const interrupted = make('p', {class: 'hint', role: 'status'}, waitingFiles());
  const transfers = new Transfers({arrived: (name, {size}) => sent.add(showName(name), size), idle: done});
  const server = {call, addressOf, wordsFor, piece: PIECE, largest: rule.max_size};
  const add = (files) => {
    interrupted.textContent = '';
    transfers.add(files, server);
  };
  const limit = rule.max_size === undefined ? '' : ` ${t('up_to', {size: showSize(rule.max_size)})}`;
  const zone = make('div', {class: 'drop'}, ...makeChoosers('upload', add),
    make('p', {class: 'hint'}, `${t('or_drop')}${limit}`));
  takeDropped(zone, add);
  return make('div', {id: 'upload'}, rule.note && make('p', {class: 'note', dir: 'auto'}, rule.note),
    zone, interrupted, transfers.element, sent.element, makeTerminal());
}
