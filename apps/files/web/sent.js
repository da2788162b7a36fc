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

  constructor() { this.#draw(this.#files); }

  /** `name` is the one that people see. */
  add(name, size) {
    const file = {name, size};
    this.#files = [...this.#files, file].slice(-MOST);
    try {
      sessionStorage.setItem(key, JSON.stringify(this.#files));
    } catch {
      // Then they are forgotten with the page.
    }
    this.#draw([file]);
  }

  // With `added` at its end.
  #draw(added) {
    this.element.hidden = this.#files.length === 0;
    this.#about.textContent = t('sent', {
      count: this.#files.length, size: showSize(this.#files.reduce((sum, {size}) => sum + size, 0)),
    });
    this.#list.append(...added.map(({name, size}) => make('li', {},
      make('bdi', {}, name), ' ', make('span', {class: 'hint'}, showSize(size)))));
    while (this.#list.children.length > MOST) this.#list.firstChild.remove();
  }
}
