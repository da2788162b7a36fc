// The dialog that chooses files and folders to share by link, and the list of what such a link shares.

import {callApi} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {explain} from '/shared/errors.js';
import {showName, showSize} from '/shared/file-names.js';
import {t} from '/shared/texts.js';

const PAGE = 200;
const MEGABYTE = 1000000;

/** The project of such links. */
export const PROJECT = 'files';

const call = (method, params) => callApi('webapi/entry.cgi', 'VELT.Files', method, params);

function uploadWords({only, max_size: size, max_files: files}) {
  const words = [t('leave_files'), size !== undefined && t('leave_up_to', {size: showSize(size)}),
    files !== undefined && t('leave_at_most', {count: files}), only && t('leave_unseen')];
  return words.filter(Boolean).join(t('list_comma'));
}

// An upload that is not complete, with a button that removes it.
function unfinishedRow({upload, name, size, offset}, entry, done) {
  const shown = showName(name ?? '');
  const remove = async () => {
    await call('upload_remove', {sharing_id: entry.sharing_id, upload}).catch(() => {}); // the new list tells
    done();
  };
  return make('li', {}, make('bdi', {}, shown), ` (${t('unfinished', {sent: showSize(offset), size: showSize(size)})}) `,
    make('button', {type: 'button', 'aria-label': t('remove_unfinished', {name: shown}), on: {click: remove}}, t('delete')));
}

/** Lists in `place` what the link `entry` shares; hides `place` when it is no link of files. */
export async function drawContents(place, entry) {
  place.hidden = true;
  if (entry.project_name !== PROJECT) return;
  const list = place.querySelector('ul');
  list.replaceChildren();
  try {
    const {title, items, upload, unfinished = []} = await call('describe', {sharing_id: entry.sharing_id});
    list.append(...items.map((item) => make('li', {class: item.missing ? 'missing' : null},
      make('bdi', {}, [title, ...item.path === '' ? [] : item.path.split('/').map(showName)].join(' › ')),
      item.missing ? ` ${t('not_there')}` : item.type === 'file' ? ` (${showSize(item.size)})` : null)));
    if (upload) list.append(make('li', {}, uploadWords(upload)));
    list.append(...unfinished.map((each) => unfinishedRow(each, entry, () => drawContents(place, entry))));
  } catch (error) {
    list.append(make('li', {class: 'missing'}, explain(error).text));
  }
  place.hidden = false;
}

export class FilePicker {
  #dialog;
  #done;
  #roots = [];
  #root = null;
  #path = '';
  #offset = 0;
  #chosen = new Map(); // path -> entry
  #turn = 0;

  /** `done(app, title)` gets a link's data when files are chosen, and a title for it. */
  constructor(dialog, done) {
    this.#dialog = dialog;
    this.#done = done;
    const find = (selector) => dialog.querySelector(selector);
    find('[data-close]').addEventListener('click', () => dialog.close());
    find('#pick-next').addEventListener('click', () => this.#finish());
    find('#pick-more').addEventListener('click', () => this.#load(false));
    find('#pick-root').addEventListener('change', (event) => this.#enter(event.target.value, ''));
    find('#pick-takes').addEventListener('change', () => this.#drawChoice());
  }

  /** Whether this appliance lets the user share files. */
  async isOffered() {
    try {
      this.#roots = (await call('roots')).roots;
    } catch {
      this.#roots = []; // There is no such application, or it is not set up.
    }
    return this.#roots.length > 0;
  }

  open() {
    this.#find('#pick-root').replaceChildren(
      ...this.#roots.map(({name, title}) => make('option', {value: name}, title)));
    this.#find('.pick-head label').hidden = this.#roots.length === 1;
    this.#find('#pick-takes').checked = false;
    this.#enter(this.#roots[0].name, '');
    this.#dialog.showModal();
  }

  #find(selector) {
    return this.#dialog.querySelector(selector);
  }

  #enter(root, path) {
    this.#root = this.#roots.find(({name}) => name === root);
    this.#path = path;
    this.#chosen.clear();
    this.#load(true);
  }

  async #load(anew) {
    const turn = ++this.#turn;
    if (anew) this.#offset = 0;
    const problem = this.#find('.notice.error');
    let answer;
    try {
      answer = await call('list', {root: this.#root.name, path: this.#path, offset: this.#offset, limit: PAGE});
    } catch (error) {
      if (turn !== this.#turn) return;
      problem.textContent = explain(error).text;
      problem.hidden = false;
      answer = {entries: [], total: 0};
    }
    if (turn !== this.#turn) return;
    if (answer.total > 0 || answer.entries.length > 0) problem.hidden = true;
    this.#offset += PAGE;
    const list = this.#find('#pick-list');
    if (anew) list.replaceChildren();
    list.append(...answer.entries.map((entry) => this.#row(entry)));
    this.#find('#pick-more').hidden = this.#offset >= answer.total;
    this.#drawTrail();
    this.#drawChoice();
  }

  #row(entry) {
    const name = showName(entry.name);
    const box = make('input', {
      type: 'checkbox', 'aria-label': t('share_file', {name}),
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
      make('img', {alt: '', width: 22, height: 22, src: `/shared/${entry.type}.svg`}),
      isFolder ?
        make('button', {type: 'button', on: {click: () => this.#enter(this.#root.name, entry.path)}},
          make('bdi', {}, name)) :
        make('bdi', {}, name),
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

  // Without a choice the open folder is shared.
  #items() {
    return this.#chosen.size > 0 ? [...this.#chosen.values()] :
      [{path: this.#path, name: this.#path.split('/').at(-1), type: 'folder'}];
  }

  #drawChoice() {
    const items = this.#items();
    const takes = items.length === 1 && items[0].type === 'folder';
    this.#find('#pick-upload').hidden = !takes;
    this.#find('#pick-limits').hidden = !this.#find('#pick-takes').checked;
    this.#find('#pick-said').textContent = this.#chosen.size > 0 ? t('chosen', {count: this.#chosen.size}) :
      t('nothing_chosen');
  }

  #finish() {
    const items = this.#items();
    const app = {root: this.#root.name, items: items.map(({path}) => path)};
    if (!this.#find('#pick-upload').hidden && this.#find('#pick-takes').checked) {
      const fields = [this.#find('#pick-size'), this.#find('#pick-count')];
      if (!fields.every((field) => field.reportValidity())) return;
      app.upload = {
        max_size: Math.round(fields[0].value * MEGABYTE), max_files: Number(fields[1].value),
        ...this.#find('#pick-only').checked && {only: true},
      };
    }
    const title = items.length === 1 ? showName(items[0].name) || this.#root.title :
      t('n_files', {count: items.length});
    this.#dialog.close();
    this.#done(app, title);
  }
}
