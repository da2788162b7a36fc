// Links that are chosen together, and what is done with them.

import {explain} from '/shared/errors.js';
import {t} from '/shared/texts.js';
import {titleOf} from './dialogs.js';

export class Selection {
  #bar;
  #chosen = new Map(); // id -> entry
  #shown = [];
  #busy = false;

  /** `act(name, entries)` does "on", "off" or "delete" with the chosen links. */
  constructor(bar, act) {
    this.#bar = bar;
    this.#all.addEventListener('change', () => {
      for (const entry of this.#shown) this.#set(entry, this.#all.checked);
      for (const box of document.querySelectorAll('[data-key^="select "]')) box.checked = this.#all.checked;
      this.#draw();
    });
    for (const button of bar.querySelectorAll('[data-do]')) {
      button.addEventListener('click', async () => {
        if (this.#busy) return;
        const {do: name} = button.dataset;
        if (name !== 'clear') await act(name, [...this.#chosen.values()]);
        this.clear();
        this.#all.focus();
      });
    }
  }

  get #all() {
    return this.#bar.querySelector('#select-all');
  }

  has({sharing_id: id}) {
    return this.#chosen.has(id);
  }

  toggle(entry, chosen) {
    this.#set(entry, chosen);
    this.#draw();
  }

  clear() {
    this.#chosen.clear();
    for (const box of document.querySelectorAll('[data-key^="select "]')) box.checked = false;
    this.#draw();
  }

  /** These links are shown now; what is chosen on other pages stays. */
  show(entries) {
    this.#shown = entries;
    for (const entry of entries) if (this.has(entry)) this.#set(entry, true); // as it is now
    this.#bar.hidden = entries.length === 0 && this.#chosen.size === 0;
    this.#draw();
  }

  /**
   * Does `call(entry)` with each link. Returns a text for each that failed. One at a time: each starts a program of
   * the appliance.
   */
  async each(entries, call) {
    const failures = [];
    this.#busy = true;
    for (const [done, entry] of entries.entries()) {
      this.#say(t('selection_progress', {done: done + 1, count: entries.length}));
      try {
        await call(entry);
      } catch (error) {
        failures.push(t('selection_failure', {title: titleOf(entry), problem: explain(error).text}));
      }
    }
    this.#busy = false;
    this.#draw(); // in place of the progress, even if the list can't be loaded now
    return failures;
  }

  #set(entry, chosen) {
    if (chosen) this.#chosen.set(entry.sharing_id, entry);
    else this.#chosen.delete(entry.sharing_id);
  }

  #say(text) {
    this.#bar.querySelector('#selected').textContent = text;
  }

  #draw() {
    const here = this.#shown.filter((entry) => this.has(entry)).length;
    this.#all.checked = here > 0 && here === this.#shown.length;
    this.#all.indeterminate = here > 0 && here < this.#shown.length;
    this.#bar.querySelector('.selection-actions').hidden = this.#chosen.size === 0;
    const count = this.#chosen.size;
    this.#say(count === 0 ? '' : here === count ? t('selected', {count}) :
      t('selected_elsewhere', {count, elsewhere: count - here}));
  }
}
