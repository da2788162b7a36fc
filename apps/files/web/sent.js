// What has arrived from this tab, also before the page was loaded again.

import {make} from '/shared/dom.js';
import {t} from '/shared/texts.js';
import {showSize} from '/pkg/files/names.js';

const MOST = 1000;
const key = `velt-sent:${location.pathname.split('/')[2]}`;

function read() {
  try {
    const kept = JSON.parse(sessionStorage.getItem(key));
    return Array.isArray(kept) ? kept : [];
  } catch {
    return [];
  }
}

export class Sent {
  #files = read();
  #about = make('summary');
  #list = make('ul');
  element = make('details', {class: 'sent', hidden: true}, this.#about, this.#list);

  constructor() { this.#draw(); }

  /** `name` is the one that people see. */
  add(name, size) {
    this.#files = [...this.#files, {name, size}].slice(-MOST);
    try {
      sessionStorage.setItem(key, JSON.stringify(this.#files));
    } catch {
      // Then they are forgotten with the page.
    }
    this.#draw();
  }

  #draw() {
    this.element.hidden = this.#files.length === 0;
    this.#about.textContent = t('sent', {
      count: this.#files.length, size: showSize(this.#files.reduce((sum, {size}) => sum + size, 0)),
    });
    this.#list.replaceChildren(...this.#files.map(({name, size}) => make('li', {},
      make('bdi', {}, name), ' ', make('span', {class: 'hint'}, showSize(size)))));
  }
}
