// How a program leaves files at the page's link.

import {make} from '/shared/dom.js';
import {t} from '/shared/texts.js';

export function makeTerminal() {
  const file = 'FILE';
  const [, , link] = location.pathname.split('/');
  return make('details', {class: 'terminal'}, make('summary', {}, t('terminal')),
    make('p', {class: 'hint'}, t('terminal_hint', {file})),
    make('pre', {dir: 'ltr', tabindex: '0'}, make('code', {}, `curl -T ${file} ${location.origin}/sharing/${link}/`)),
    make('p', {class: 'hint'}, t('terminal_password', {password: '-u :PASSWORD', account: '-u NAME:PASSWORD'})));
}
