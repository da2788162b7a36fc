// What the dialogs share, and the one that asks before something is lost.

import {explain} from '/shared/errors.js';
import {t} from '/shared/texts.js';

/** What a link is called where it has no title. */
export function titleOf(entry) {
  return entry.protect_title || t('untitled');
}

/** The image text of a link's QR code, null when there is none. */
export function qrImage(entry) {
  return entry.qrcode?.startsWith('data:image/png;base64,') ? entry.qrcode : null;
}

/** Copies a text; false when the browser refuses. Call it from the handler of a key press or a click. */
export async function copyText(text) {
  try {
    await navigator.clipboard.writeText(text);
    return true;
  } catch {
    // Browsers offer the clipboard object on HTTPS only; the old command works on plain HTTP as well.
    let copied = false;
    const put = (event) => {
      event.clipboardData.setData('text/plain', text);
      event.preventDefault();
      copied = true;
    };
    document.addEventListener('copy', put);
    document.execCommand('copy');
    document.removeEventListener('copy', put);
    return copied;
  }
}

/** Asks before something is done that can't be undone. */
export class ConfirmDialog {
  #dialog;
  #problem;
  #action = null;
  #busy = false;

  constructor(dialog) {
    this.#dialog = dialog;
    this.#problem = dialog.querySelector('.notice.error');
    dialog.querySelector('[data-close]').addEventListener('click', () => this.#busy || dialog.close());
    dialog.addEventListener('cancel', (event) => this.#busy && event.preventDefault());
    dialog.querySelector('#confirm-yes').addEventListener('click', () => this.#run());
  }

  /**
   * Asks, and runs `action` on "yes". The dialog stays, with the error, while the action fails.
   * Returns whether it was done.
   */
  ask({title, text, yes, action = async () => {}}) {
    this.#dialog.querySelector('#confirm-title').textContent = title;
    this.#dialog.querySelector('#confirm-text').textContent = text;
    this.#dialog.querySelector('#confirm-yes').textContent = yes;
    this.#problem.hidden = true;
    this.#action = action;
    this.#dialog.returnValue = 'no';
    this.#dialog.showModal();
    this.#dialog.querySelector('[data-close]').focus();
    return new Promise((resolve) => {
      this.#dialog.addEventListener('close', () => resolve(this.#dialog.returnValue === 'yes'), {once: true});
    });
  }

  async #run() {
    if (this.#busy) return;
    this.#busy = true;
    try {
      await this.#action();
      this.#dialog.close('yes');
    } catch (error) {
      this.#problem.textContent = explain(error).text;
      this.#problem.hidden = false;
    } finally {
      this.#busy = false;
    }
  }
}
