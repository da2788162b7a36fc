// Shows one file after the other over the page. The view is a step in the tab's history, whose state names the file as
// `shown`: Back leads from the view to the folder.

import {make} from '/shared/dom.js';
import {t} from '/shared/texts.js';
import {addressOf} from '/pkg/files/link.js';
import {showName, showSize} from '/pkg/files/names.js';
import {contentOf} from '/pkg/files/preview.js';

const PAUSE = 4000; // milliseconds that the slide show leaves a picture
const SWIPE = 60; // pixels

export class Viewer {
  #files;
  #more;
  #file;
  #pictures = new Map(); // this and its neighbours, by path
  #timer;
  #touch = null;
  #dialog = null;
  #left = Promise.resolve(); // when the step back that ends the last view has been made
  #parts;

  /** `files()` are the files to go through, so far; `more()` gets further ones and says whether there were any. */
  constructor(files, more) {
    this.#files = files;
    this.#more = more;
  }

  async open(file) {
    await this.#left;
    history.pushState({...history.state, shown: file.path}, '');
    this.#show(file);
  }

  /** Shows what the state of the tab's history says. */
  follow(state) {
    const file = state?.shown === undefined ? undefined : this.#files().find(({path}) => path === state.shown);
    if (file) this.#show(file);
    else this.#close();
  }

  #close() {
    const dialog = this.#dialog;
    if (dialog === null) return;
    this.#slide(false);
    this.#dialog = null;
    dialog.close();
    dialog.remove();
    if (history.state?.shown === undefined) return;
    this.#left = new Promise((resolve) => addEventListener('popstate', resolve, {once: true}));
    history.back();
  }

  #show(file) {
    if (this.#dialog === null) this.#build();
    this.#file = file;
    const files = this.#files();
    const at = files.indexOf(file);
    const near = files.slice(Math.max(0, at - 1), at + 2).filter(({kind}) => kind === 'image');
    this.#pictures = new Map(near.map((each) => [each.path, this.#pictures.get(each.path) ?? contentOf(each)]));
    const {stage, name, place, download, zoom, before, after, slides} = this.#parts;
    const isPicture = file.kind === 'image';
    stage.classList.remove('zoomed');
    stage.replaceChildren(this.#pictures.get(file.path) ?? contentOf(file));
    name.textContent = showName(file.name);
    place.textContent = t('position', {number: at + 1, count: files.length});
    download.href = addressOf('get', {path: file.path});
    download.textContent = t('download_size', {size: showSize(file.size)});
    zoom.hidden = slides.hidden = !isPicture;
    zoom.setAttribute('aria-pressed', 'false');
    before.disabled = at <= 0;
    after.disabled = false;
    if (!this.#dialog.open) this.#dialog.showModal();
  }

  async #go(step) {
    const file = this.#file;
    let next = this.#files()[this.#files().indexOf(file) + step];
    if (!next && step > 0 && await this.#more() && file === this.#file) {
      next = this.#files()[this.#files().indexOf(file) + step];
    }
    if (!next) {
      this.#parts.after.disabled ||= step > 0;
      return false;
    }
    history.replaceState({...history.state, shown: next.path}, '');
    this.#show(next);
    return true;
  }

  #zoom() {
    const {stage, zoom} = this.#parts;
    zoom.setAttribute('aria-pressed', String(stage.classList.toggle('zoomed')));
  }

  // The next picture comes when this one has been seen, however long it loads.
  #slide(run) {
    clearTimeout(this.#timer);
    this.#timer = run ? setTimeout(async () => {
      const picture = this.#parts.stage.querySelector('img');
      if (picture && !picture.complete) await picture.decode().catch(() => {});
      if (this.#timer !== undefined) this.#slide(await this.#go(1));
    }, PAUSE) : undefined;
    this.#parts.slides.setAttribute('aria-pressed', String(run));
  }

  #build() {
    const button = (key, text, click, attributes = {}) =>
      make('button', {type: 'button', 'aria-label': t(key), title: t(key), on: {click}, ...attributes}, text);
    const step = (by) => () => {
      this.#slide(false);
      this.#go(by);
    };
    const parts = {
      name: make('bdi'), place: make('span', {class: 'hint', role: 'status'}),
      stage: make('div', {class: 'stage'}),
      before: button('previous', '‹', step(-1), {class: 'before'}),
      after: button('next', '›', step(1), {class: 'after'}),
      zoom: make('button', {type: 'button', 'aria-pressed': 'false', on: {click: () => this.#zoom()}}, t('zoom')),
      slides: make('button', {
        type: 'button', 'aria-pressed': 'false', on: {click: () => this.#slide(this.#timer === undefined)},
      }, t('slide_show')),
      download: make('a', {class: 'button', download: ''}),
    };
    const dialog = make('dialog', {id: 'preview', 'aria-labelledby': 'preview-name'},
      make('div', {class: 'viewer-head'}, make('h2', {id: 'preview-name'}, parts.name), parts.place),
      parts.before, parts.stage, parts.after,
      make('div', {class: 'dialog-actions'}, parts.zoom, parts.slides, parts.download,
        make('button', {type: 'button', id: 'preview-close', autofocus: true, on: {click: () => this.#close()}}, t('close'))));
    this.#parts = parts;
    this.#dialog = dialog;
    this.#listen(dialog, parts.stage);
    document.body.append(dialog);
  }

  #listen(dialog, stage) {
    dialog.addEventListener('close', () => this.#dialog === dialog && this.#close());
    dialog.addEventListener('click', ({target}) => {
      if (target === dialog || target === stage) this.#close();
      else if (target.parentElement === stage && target.tagName === 'IMG') this.#zoom();
    });
    dialog.addEventListener('keydown', (event) => {
      const forward = document.documentElement.dir === 'rtl' ? 'ArrowLeft' : 'ArrowRight';
      const uses = event.target.closest('audio, video, pre') || stage.classList.contains('zoomed');
      if (uses || !/^Arrow(Left|Right)$/.test(event.key)) return;
      event.preventDefault();
      this.#slide(false);
      this.#go(event.key === forward ? 1 : -1);
    });
    stage.addEventListener('touchstart', ({touches}) => {
      this.#touch = touches.length === 1 && !stage.classList.contains('zoomed') ? touches[0].clientX : null;
    }, {passive: true});
    stage.addEventListener('touchend', ({changedTouches}) => {
      const way = this.#touch === null ? 0 : changedTouches[0].clientX - this.#touch;
      if (Math.abs(way) < SWIPE) return;
      this.#slide(false);
      this.#go(way < 0 === (document.documentElement.dir !== 'rtl') ? 1 : -1);
    });
  }
}
