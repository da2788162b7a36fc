// Deleting that can be taken back. The service deletes at once and for good, so the page waits before it asks for that.

import {t} from '/shared/texts.js';

const SECONDS = 10;

export class DelayedDeletion {
  #bar;
  #deletion = null; // {entries, left, timer}
  #remove;
  #onChange;

  /**
   * `remove(entries, {leaving})` deletes links, whose page is being left if `leaving`. `onChange(text)` is called when
   * links went out of sight or came back; the text tells.
   */
  constructor(bar, {remove, onChange}) {
    this.#bar = bar;
    this.#remove = remove;
    this.#onChange = onChange;
    bar.querySelector('#undo-now').addEventListener('click', () => this.undo());
    bar.querySelector('#undo-skip').addEventListener('click', () => this.finish());
    document.addEventListener('keydown', (event) => {
      const writes = event.target.matches('input:not([type="checkbox"]), textarea');
      if (!this.#deletion || writes || event.key !== 'z' || !(event.ctrlKey || event.metaKey)) return;
      event.preventDefault();
      this.undo();
    });
    addEventListener('pagehide', () => {
      if (this.#deletion) this.#remove(this.#end(), {leaving: true});
    });
  }

  /** Whether the link waits to be deleted, and is not to be shown. */
  holds({sharing_id: id}) {
    return this.#deletion?.entries.some((entry) => entry.sharing_id === id) ?? false;
  }

  /** Begins to delete links. Those of before are deleted now. */
  async begin(entries, text) {
    await this.finish();
    const timer = setInterval(() => this.#tick(), 1000);
    this.#deletion = {entries, text, left: SECONDS, timer};
    this.#draw();
    this.#bar.hidden = false;
    this.#onChange(t('undo_said', {text}));
  }

  undo() {
    this.#end();
    this.#onChange(t('undone'));
  }

  async finish() {
    if (this.#deletion) await this.#remove(this.#end(), {leaving: false});
  }

  // Nobody loses the choice while he is about to make it.
  #tick() {
    if (this.#bar.matches(':hover, :focus-within')) return;
    this.#deletion.left -= 1;
    if (this.#deletion.left > 0) this.#draw();
    else this.finish();
  }

  #draw() {
    const {text, left} = this.#deletion;
    this.#bar.querySelector('#undo-text').textContent = t('undo_in', {text, count: left});
  }

  #end() {
    const {entries, timer} = this.#deletion;
    clearInterval(timer);
    this.#deletion = null;
    this.#bar.hidden = true;
    return entries;
  }
}
