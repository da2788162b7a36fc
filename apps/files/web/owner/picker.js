// The dialog that chooses files and folders to share by link.

import {make} from '/shared/dom.js';
import {explain} from '/shared/errors.js';
import {t} from '/shared/texts.js';
import {makeChoosers, takeDropped} from '../folders.js';
import {showName, showSize} from '../names.js';
import {Transfers} from '../transfer.js';

const PAGE = 200;
const SEARCH_PAUSE = 250; // milliseconds in which somebody types on
const MEGABYTE = 1000000;
const PIECE = 1024 * 1024; // of a file that is sent

const check = (id, text) => make('label', {class: 'check'}, make('input', {type: 'checkbox', id}), ' ', t(text));

function count(id, text, value) {
  return make('label', {}, t(text), ' ',
    make('input', {type: 'number', id, min: 1, max: 1000000, value, inputmode: 'numeric'}));
}

function makeDialog(roots) {
  return make('dialog', {id: 'pick', 'aria-labelledby': 'pick-title'},
    make('h2', {id: 'pick-title'}, t('files_share')),
    make('p', {class: 'notice error', role: 'alert', hidden: true}),
    make('div', {class: 'pick-head'},
      make('label', {hidden: roots.length === 1}, t('files_from'), ' ',
        make('select', {id: 'pick-root'}, ...roots.map(({name, title}) => make('option', {value: name}, title)))),
      make('input', {
        type: 'search', id: 'pick-search', 'aria-label': t('files_search'), placeholder: t('files_search'),
        autocomplete: 'off', spellcheck: false,
      }),
      make('nav', {'aria-label': t('files_folder')})),
    make('ul', {id: 'pick-list', 'aria-label': t('files_list')}),
    make('button', {type: 'button', id: 'pick-more', hidden: true}, t('files_more')),
    make('div', {id: 'pick-send'}, make('span', {}, t('files_put_here'))),
    make('fieldset', {id: 'pick-upload', hidden: true},
      make('legend', {}, t('files_may_leave')),
      check('pick-takes', 'files_let_leave'),
      make('div', {id: 'pick-limits', hidden: true},
        check('pick-only', 'files_hide'),
        make('div', {class: 'pair'},
          count('pick-size', 'files_megabytes', 1000), count('pick-count', 'files_count', 100)),
        make('label', {}, t('files_note'), ' ', make('textarea', {id: 'pick-note', rows: 2, maxlength: 2000})))),
    make('div', {class: 'dialog-actions'},
      make('span', {id: 'pick-said', role: 'status'}),
      make('button', {type: 'button', 'data-close': true}, t('files_cancel')),
      make('button', {type: 'button', class: 'primary', id: 'pick-next'}, t('files_make_link'))));
}

export class FilePicker {
  #dialog;
  #call;
  #done;
  #roots;
  #root = null;
  #path = '';
  #offset = 0;
  #chosen = new Map(); // path -> entry, in any folders of the root
  #turn = 0;
  #searching; // the timer that begins a search
  #transfers = new Transfers({arrived: (name, row) => this.#take(name, row), idle: () => this.#drawChoice()});

  /** `call` calls the API, whose `roots` these are. */
  constructor(call, roots) {
    this.#call = call;
    this.#roots = roots;
    this.#dialog = makeDialog(roots);
    document.body.append(this.#dialog);
    const send = (files) => {
      this.#transfers.add(files, this.#server());
      this.#drawChoice();
    };
    this.#find('#pick-send').append(...makeChoosers('pick', send), make('span', {class: 'hint'}, t('files_or_drop')));
    this.#find('#pick-send').after(this.#transfers.element);
    takeDropped(this.#find('#pick-list'), send);
    const listen = (selector, event, listener) => this.#find(selector).addEventListener(event, listener);
    listen('[data-close]', 'click', () => this.#dialog.close());
    listen('#pick-next', 'click', () => this.#finish());
    listen('#pick-more', 'click', () => this.#load(false));
    listen('#pick-root', 'change', (event) => this.#enter(event.target.value, ''));
    listen('#pick-takes', 'change', () => this.#drawChoice());
    for (const event of ['input', 'change']) {
      listen('#pick-search', event, () => {
        clearTimeout(this.#searching);
        this.#searching = setTimeout(() => this.#load(true), SEARCH_PAUSE);
      });
    }
  }

  /**
   * `done(app, title)` gets a link's data when files are chosen, and a title for it, and may throw what is to be shown.
   * `before` is the data that a link has already, with its items as `describe` answers them.
   */
  open(done, before = null) {
    this.#done = done;
    if (!this.#transfers.isBusy) this.#transfers.clear();
    const root = this.#roots.find(({name}) => name === before?.root)?.name ?? this.#roots[0].name;
    const items = root === before?.root ? before.items : [];
    const upload = before?.upload;
    this.#find('#pick-root').value = root;
    this.#find('#pick-takes').checked = Boolean(upload);
    this.#find('#pick-only').checked = Boolean(upload?.only);
    this.#find('#pick-size').value = (upload?.max_size ?? 1000 * MEGABYTE) / MEGABYTE;
    this.#find('#pick-count').value = upload?.max_files ?? 100;
    this.#find('#pick-note').value = upload?.note ?? '';
    this.#find('#pick-next').textContent = t(before ? 'files_change' : 'files_make_link');
    const path = items[0]?.path ?? '';
    this.#chosen.clear();
    this.#root = this.#roots.find(({name}) => name === root);
    if (path !== '') for (const item of items) this.#chosen.set(item.path, item);
    this.#enter(root, path.split('/').slice(0, -1).join('/'));
    this.#dialog.showModal();
  }

  #find(selector) {
    return this.#dialog.querySelector(selector);
  }

  #enter(root, path) {
    if (root !== this.#root?.name) this.#chosen.clear(); // a link has one root
    this.#root = this.#roots.find(({name}) => name === root);
    this.#path = path;
    this.#find('#pick-search').value = '';
    this.#load(true);
  }

  // The open folder as a place that files are sent to.
  #server() {
    const folder = {root: this.#root.name, path: this.#path};
    return {
      folder, place: `${folder.root}/${folder.path}/`, piece: PIECE,
      call: (method, params) => this.#call(method, method === 'upload_cancel' ? params : {...folder, ...params}),
      addressOf: (method, params) =>
        `/webapi/entry.cgi?${new URLSearchParams({api: 'VELT.Files', version: 1, method, ...folder, ...params})}`,
      wordsFor: (error) => ['unreadable', 'cancelled'].includes(error.code) ? t(`files_${error.code}`) : explain(error).text,
    };
  }

  // Chooses what has arrived: the file, or the folder that it came in.
  #take(name, {size, server: {folder: {root, path}}}) {
    if (root !== this.#root.name) return;
    const [top, ...inner] = name.split('/');
    const entry = {name: top, path: path === '' ? top : `${path}/${top}`, type: inner.length > 0 ? 'folder' : 'file', size};
    this.#chosen.set(entry.path, entry);
    if (path !== this.#path) return;
    clearTimeout(this.#searching);
    this.#searching = setTimeout(() => this.#load(true), SEARCH_PAUSE);
  }

  // The open folder's entries, or what is found beneath the root.
  async #entries(text) {
    if (text === '') {
      return this.#call('list', {root: this.#root.name, path: this.#path, offset: this.#offset, limit: PAGE});
    }
    const {entries, complete} = await this.#call('find', {root: this.#root.name, text, limit: PAGE});
    return {entries, total: entries.length, incomplete: !complete};
  }

  async #load(anew) {
    const turn = ++this.#turn;
    if (anew) this.#offset = 0;
    this.#find('.notice.error').hidden = true;
    const text = this.#find('#pick-search').value.trim();
    let answer;
    try {
      answer = await this.#entries(text);
    } catch (error) {
      if (turn !== this.#turn) return;
      this.#tell(error);
      answer = {entries: [], total: 0};
    }
    if (turn !== this.#turn) return;
    this.#offset += PAGE;
    const list = this.#find('#pick-list');
    if (anew) list.replaceChildren();
    list.append(...answer.entries.map((entry) => this.#row(entry, text !== '')));
    if (text !== '' && answer.entries.length === 0) list.append(make('li', {}, t('files_none_found')));
    if (answer.incomplete) list.append(make('li', {}, t('files_not_all_found')));
    this.#find('#pick-more').hidden = this.#offset >= answer.total;
    this.#drawTrail();
    this.#drawChoice();
  }

  #tell(error) {
    const problem = this.#find('.notice.error');
    problem.textContent = explain(error).text;
    problem.hidden = false;
  }

  #row(entry, found) {
    const name = showName(entry.name);
    const folder = found && entry.path.split('/').slice(0, -1).map(showName).join(' › ');
    const box = make('input', {
      type: 'checkbox', 'aria-label': t('files_choose', {name}), checked: this.#chosen.has(entry.path),
      on: {
        change: () => {
          if (box.checked) this.#chosen.set(entry.path, entry);
          else this.#chosen.delete(entry.path);
          this.#drawChoice();
        },
      },
    });
    const isFolder = entry.type === 'folder';
    return make('li', {'data-path': entry.path}, box,
      make('img', {alt: '', width: 22, height: 22, src: `/pkg/files/${entry.type}.svg`}),
      make('div', {}, isFolder ?
        make('button', {type: 'button', on: {click: () => this.#enter(this.#root.name, entry.path)}},
          make('bdi', {}, name)) :
        make('bdi', {}, name),
      folder && make('bdi', {class: 'about'}, folder)),
      make('span', {class: 'about'}, isFolder ? '' : showSize(entry.size)));
  }

  #drawTrail() {
    const names = this.#path === '' ? [] : this.#path.split('/');
    const steps = [{path: '', text: this.#root.title},
      ...names.map((name, at) => ({path: names.slice(0, at + 1).join('/'), text: showName(name)}))];
    this.#find('nav').replaceChildren(...steps.map(({path, text}, at) => at === steps.length - 1 ?
      make('span', {'aria-current': 'page'}, make('bdi', {}, text)) :
      make('button', {type: 'button', on: {click: () => this.#enter(this.#root.name, path)}}, make('bdi', {}, text))));
  }

  // Without a choice the open folder is shared, but nobody who searches means that one.
  #items() {
    if (this.#chosen.size > 0) return [...this.#chosen.values()];
    return this.#find('#pick-search').value.trim() !== '' ? [] :
      [{path: this.#path, name: this.#path.split('/').at(-1), type: 'folder'}];
  }

  #drawChoice() {
    const items = this.#items();
    const takes = items.length === 1 && items[0].type === 'folder';
    this.#find('#pick-upload').hidden = !takes;
    this.#find('#pick-limits').hidden = !this.#find('#pick-takes').checked;
    this.#find('#pick-said').textContent = this.#chosen.size > 0 ? t('files_chosen', {count: this.#chosen.size}) :
      items.length > 0 ? t('files_nothing_chosen') : '';
    this.#find('#pick-next').disabled = items.length === 0 || this.#transfers.isBusy;
  }

  async #finish() {
    const items = this.#items();
    const app = {root: this.#root.name, items: items.map(({path}) => path)};
    if (!this.#find('#pick-upload').hidden && this.#find('#pick-takes').checked) {
      const fields = [this.#find('#pick-size'), this.#find('#pick-count')];
      if (!fields.every((field) => field.reportValidity())) return;
      app.upload = {
        max_size: Math.round(fields[0].value * MEGABYTE), max_files: Number(fields[1].value),
        ...this.#find('#pick-only').checked && {only: true},
        ...this.#find('#pick-note').value.trim() !== '' && {note: this.#find('#pick-note').value.trim()},
      };
    }
    const title = items.length === 1 ? showName(items[0].name) || this.#root.title :
      t('files_n', {count: items.length});
    try {
      await this.#done(app, title);
      this.#dialog.close();
    } catch (error) {
      this.#tell(error);
    }
  }
}
