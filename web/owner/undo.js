// Deletion that can be undone. The service deletes at once and for good, so the page waits before it asks for that.

import {t} from '/shared/texts.js';

const SECONDS = 10;
// Browsers limit how many calls may outlive their page, some to few more than this.
const MOST_WHEN_LEAVING = 8;

// The key with a Z, or the one in its place where a keyboard has no Latin letters.
function isUndo({key, code, ctrlKey, metaKey, shiftKey}) {
  const isZ = key.toLowerCase() === 'z' || (code === 'KeyZ' && !/^[a-z]$/i.test(key));
  return isZ && (ctrlKey || metaKey) && !shiftKey;
}

export class DelayedDeletion {
  #bar;
  #deletion = null; // the one that can be undone: {entries, text, left, timer}
  #running = []; // entries whose deletion has been asked for
  #on;

  /**
   * `on` has the functions `remove(entries, {leaving})`, which deletes links and returns a text for each that failed;
   * with `leaving`, while the page is being left, it does not wait for the answers. `removed(failures, count)` follows
   * an attempt to delete `count` links. `changed(text)` follows when links are hidden or shown again, which the text
   * describes. `closed()` follows when the bar closes while it has the focus.
   */
  constructor(bar, on) {
    this.#bar = bar;
    this.#on = on;
    bar.querySelector('#undo-now').addEventListener('click', () => this.undo());
    bar.querySelector('#undo-skip').addEventListener('click', () => this.finish());
    document.addEventListener('keydown', (event) => {
      const writes = event.target.matches('input:not([type="checkbox"]), textarea');
      if (!this.#deletion || writes || !isUndo(event)) return;
      event.preventDefault();
      this.undo();
    });
    addEventListener('beforeunload', (event) => {
      if (this.size > MOST_WHEN_LEAVING) event.preventDefault(); // The browser asks whether to leave.
    });
    addEventListener('pagehide', () => this.#leave());
    document.addEventListener('freeze', () => this.#leave()); // A frozen page may be dropped without an event.
  }

  /** How many links are hidden because they are being deleted. */
  get size() {
    return this.#held().length;
  }

  /** Whether the link is being deleted, and must not be shown. */
  holds({sharing_id: id}) {
    return this.#held().some((entry) => entry.sharing_id === id);
  }

  /** Begins to delete links. An earlier deletion can no longer be undone, and is not waited for. */
  begin(entries, text) {
    this.finish();
    const timer = setInterval(() => this.#tick(), 1000);
    this.#deletion = {entries, text, left: SECONDS, timer};
    this.#draw();
    this.#bar.hidden = false;
    this.#on.changed(t('undo_said', {text}));
  }

  undo() {
    this.#end();
    this.#on.changed(t('undone'));
  }

  async finish() {
    if (!this.#deletion) return;
    const entries = this.#end();
    this.#running.push(...entries);
    const failures = await this.#on.remove(entries, {leaving: false});
    this.#running = this.#running.filter((entry) => !entries.includes(entry));
    this.#on.removed(failures, entries.length);
  }

  // A running deletion would end with the page; deleting a link twice does no harm.
  #leave() {
    const entries = this.#held();
    if (this.#deletion) this.#end();
    if (entries.length > 0) this.#on.remove(entries, {leaving: true});
  }

  #held() {
    return [...this.#running, ...this.#deletion?.entries ?? []];
  }

  // The time stops while the pointer or the focus is on the bar.
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
    const hadFocus = this.#bar.contains(document.activeElement);
    this.#bar.hidden = true;
    if (hadFocus) this.#on.closed();
    return entries;
  }
}
