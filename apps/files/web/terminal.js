// How a program leaves files at the page's link.

import {make} from '/shared/dom.js';
import {t} from '/shared/texts.js';

// Keeps its direction in a text that is written from right to left.
const option = (text) => `\u2066${text}\u2069`;

export function makeTerminal() {
  const file = 'FILE';
  const [, , link] = location.pathname.split('/');
  return make('details', {class: 'terminal'}, make('summary', {}, t('terminal')),
    make('p', {class: 'hint'}, t('terminal_hint', {file})),
    make('pre', {dir: 'ltr', tabindex: '0'}, make('code', {}, `curl -T ${file} ${location.origin}/sharing/${link}/`)),
    make('p', {class: 'hint'}, t('terminal_password', {password: option('-u :PASSWORD'), account: option('-u NAME:PASSWORD')})));
}
