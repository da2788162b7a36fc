// The files that a link shares: a list to go through, choose from, look at and download.

import {make} from '/shared/dom.js';
import {loadTexts, t} from '/shared/texts.js';
import {Gallery} from '/pkg/files/gallery.js';
import {addressOf, call, downloadZip, wordsFor} from '/pkg/files/link.js';
import {showName, showSize, showTime} from '/pkg/files/names.js';
import {canShow} from '/pkg/files/preview.js';
import {makeUpload} from '/pkg/files/upload.js';
import {Viewer} from '/pkg/files/viewer.js';

const PAGE = 100;
const SORTS = ['name', 'time', 'size', 'type'];

const view = {path: '', home: '', sortBy: 'name', descending: false, entries: [], total: 0};
const chosen = new Set();
const viewer = new Viewer(() => view.entries.filter(canShow), loadMore);
const gallery = new Gallery((entry) => viewer.open(entry), makeBox);
let parts;
let turn = 0;

function build(upload) {
  const sort = make('select', {id: 'files-sort', on: {change: () => reload({sortBy: sort.value})}},
    ...SORTS.map((value) => make('option', {value}, t(`sort_${value}`))));
  const direction = make('button', {
    type: 'button', 'aria-label': t('turn_order'), on: {click: () => reload({descending: !view.descending})},
  }, '↑');
  const zip = make('button', {type: 'button', id: 'files-zip', on: {click: download}});
  const mode = make('button', {type: 'button', id: 'files-mode', on: {click: () => reload({asGrid: !view.isGrid})}});
  parts = {
    sort, direction, zip, mode,
    trail: make('nav', {class: 'trail', 'aria-label': t('folder')}),
    list: make('ul', {class: 'files'}),
    more: make('button', {type: 'button', id: 'files-more', hidden: true, on: {click: () => load(false)}}, t('show_more')),
    said: make('p', {role: 'status', class: 'hint'}),
  };
  const shown = upload?.only ? [] : [
    parts.trail,
    make('div', {class: 'files-tools'}, make('label', {}, t('sort_by'), ' ', sort), direction, mode, zip),
    parts.list, gallery.element, parts.more,
  ];
  new IntersectionObserver(([{isIntersecting}]) => {
    if (isIntersecting && view.isGrid) loadMore();
  }, {rootMargin: '600px'}).observe(parts.more);
  document.querySelector('main').prepend(make('section', {id: 'shared-files', 'aria-label': t('files')},
    ...shown, parts.said, upload ? makeUpload(upload, () => !upload.only && load(true)) : null));
}

function reload(change) {
  Object.assign(view, change);
  parts.direction.textContent = view.descending ? '↓' : '↑';
  return load(true);
}

// The first page of the folder, or the next.
async function load(anew) {
  const mine = ++turn;
  if (anew) chosen.clear();
  let answer;
  try {
    answer = await call('list', {
      path: view.path, offset: anew ? 0 : view.next, limit: PAGE,
      sort_by: view.sortBy, sort_direction: view.descending ? 'DESC' : 'ASC',
    });
  } catch (error) {
    if (mine === turn) parts.said.textContent = wordsFor(error);
    return;
  }
  if (mine !== turn) return;
  view.next = (anew ? 0 : view.next) + PAGE;
  view.entries = anew ? answer.entries : [...view.entries, ...answer.entries];
  view.total = answer.total;
  draw(answer.entries, anew);
  parts.more.hidden = view.next >= view.total || view.path === '';
  parts.said.textContent = view.total === 0 ? t('folder_empty') :
    view.next < view.total ? t('shown_of', {shown: view.entries.length, total: view.total}) : '';
  drawTrail();
  drawZip();
}

// Whether there was more.
async function loadMore() {
  if (!(view.next < view.total) || view.path === '') return false;
  await load(false);
  return true;
}

// A folder that holds pictures above all is shown as these, unless its reader wants otherwise.
function draw(entries, anew) {
  const pictures = entries.filter(({kind}) => kind === 'image');
  if (anew) {
    parts.list.replaceChildren();
    gallery.clear();
    parts.mode.hidden = pictures.length === 0;
    view.isGrid = pictures.length > 0 && (view.asGrid ?? pictures.length * 2 > entries.length);
    parts.mode.textContent = t(view.isGrid ? 'show_list' : 'show_grid');
    document.body.classList.toggle('with-gallery', view.isGrid);
  }
  parts.list.append(...(view.isGrid ? entries.filter(({kind}) => kind !== 'image') : entries).map(row));
  if (view.isGrid) gallery.add(pictures);
}

function makeBox(entry) {
  const box = make('input', {
    type: 'checkbox', 'aria-label': t('choose', {name: showName(entry.name)}), checked: chosen.has(entry.path),
    on: {change: () => { chosen[box.checked ? 'add' : 'delete'](entry.path); drawZip(); }},
  });
  return box;
}

function row(entry) {
  const name = showName(entry.name);
  const isFolder = entry.type === 'folder';
  const open = isFolder || entry.kind !== '' ?
    make('button', {type: 'button', class: 'name', on: {click: () => isFolder ? enter(entry) : viewer.open(entry)}},
      make('bdi', {}, name)) :
    make('a', {class: 'name', href: addressOf('get', {path: entry.path}), download: ''}, make('bdi', {}, name));
  const about = [isFolder ? null : showSize(entry.size), showTime(entry.time)].filter(Boolean)
    .map((part) => make('span', {}, part));
  const href = isFolder ? addressOf('zip', {paths: JSON.stringify([entry.path])}) : addressOf('get', {path: entry.path});
  return make('li', {'data-path': entry.path}, makeBox(entry), picture(entry), make('div', {class: 'what'}, open,
    make('span', {class: 'hint about'}, ...about)),
  make('a', {class: 'get', href, download: '', 'aria-label': t('download', {name})}, '↓'));
}

function picture(entry) {
  const mark = make('img', {class: 'mark plain', alt: '', src: `/pkg/files/${entry.type}.svg`});
  if (entry.kind !== 'image') return mark;
  return make('img', {
    class: 'mark', alt: '', loading: 'lazy', src: addressOf('thumbnail', {path: entry.path}),
    on: {error: (event) => event.target.replaceWith(mark), click: () => viewer.open(entry)},
  });
}

function enter({path}) {
  history.pushState({...history.state, files: path}, '');
  reload({path});
}

async function follow(state) {
  const path = state?.files ?? view.home;
  if (path !== view.path) await reload({path});
  viewer.follow(state);
}

// The folders above the present one, from its path.
function drawTrail() {
  const names = view.path.split('/');
  const steps = names.map((name, at) => {
    const path = names.slice(0, at + 1).join('/');
    return {path, text: at === 0 ? view.topNames.get(name) ?? name : name};
  });
  if (view.home === '') steps.unshift({path: '', text: t('all')});
  const shown = view.path === '' ? [] : steps;
  parts.trail.hidden = shown.length < 2;
  parts.trail.replaceChildren(...shown.map(({path, text}, at) => at === shown.length - 1 ?
    make('span', {'aria-current': 'page'}, make('bdi', {}, showName(text))) :
    make('button', {type: 'button', on: {click: () => enter({path})}}, make('bdi', {}, showName(text)))));
}

function drawZip() {
  parts.zip.textContent = chosen.size > 0 ? t('download_chosen', {count: chosen.size}) : t('download_all');
  parts.zip.hidden = view.total === 0;
}

function download() {
  if (chosen.size > 0) downloadZip([...chosen]);
  else downloadZip(view.path === '' ? [] : [view.path]);
}

/** Shows what the link shares. A link of one folder begins in it. */
export async function showFiles() {
  document.body.classList.add('with-files');
  await loadTexts('/pkg/files');
  let top;
  try {
    top = await call('list', {path: ''});
  } catch (error) {
    document.querySelector('main').prepend(make('p', {class: 'notice error', role: 'alert'}, wordsFor(error)));
    return;
  }
  build(top.upload);
  if (top.upload?.only) return;
  view.topNames = new Map(top.entries.map((entry) => [entry.path, entry.name]));
  const lone = top.entries.length === 1 && top.entries[0].type === 'folder';
  view.home = lone ? top.entries[0].path : '';
  addEventListener('popstate', ({state}) => follow(state));
  await reload({path: history.state?.files ?? view.home});
  viewer.follow(history.state);
}
