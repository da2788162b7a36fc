// The part of a link's dialog with its address and QR code, to pass on, and with who came.

import {t} from '/shared/texts.js';
import {DAYS, drawChart, sumOf} from './chart.js';
import {copyText, qrImage, titleOf} from './dialogs.js';
import {drawEvents} from './events.js';
import {readModules, save, toPng, toSvg} from './qr.js';

const canCopyImages = Boolean(window.ClipboardItem && navigator.clipboard?.write);

export class ShareView {
  #dialog;
  #image;
  #modules = null;
  #name = '';
  #entry;

  constructor(dialog) {
    this.#dialog = dialog;
    this.#image = this.#find('.qr-large');
    this.#image.addEventListener('load', () => {
      this.#modules = readModules(this.#image);
      this.#find('#qr-svg').hidden = this.#modules === null;
    });
    this.#find('#qr-copy').hidden = !canCopyImages;
    const listen = (selector, listener) => this.#find(selector).addEventListener('click', listener);
    listen('#share-send', () => navigator.share(this.#message()).catch(() => {})); // given up, for instance
    listen('#share-copy', () => this.#copyAddress());
    listen('#qr-copy', () => this.#copyImage());
    listen('#qr-png', async () => save(await toPng(this.#image, this.#modules), `${this.#name}.png`));
    listen('#qr-svg', () => save(toSvg(this.#modules), `${this.#name}.svg`));
    listen('#qr-print', () => window.print());
  }

  /** `visits` are those of each day, today's last; null: they are not known. */
  draw(entry, visits = null) {
    this.#entry = entry;
    this.#name = `QR ${titleOf(entry)}`.replace(/[^\p{L}\p{N}]+/gu, '-').slice(0, 60);
    this.#say('');
    this.#find('#share-url').value = entry.url;
    const image = qrImage(entry);
    this.#modules = null;
    this.#find('#share-qr').hidden = image === null;
    this.#find('.no-qr').hidden = image !== null;
    this.#find('#qr-svg').hidden = true;
    if (image) this.#image.src = image;
    else this.#image.removeAttribute('src');
    this.#find('#share-open').href = entry.url;
    const {title: subject, text, url} = this.#message();
    const mail = [['subject', subject], ['body', `${text}\n\n${url}`]];
    this.#find('#share-mail').href = `mailto:?${mail.map(([key, value]) => `${key}=${encodeURIComponent(value)}`).join('&')}`;
    this.#find('#share-send').hidden = !navigator.canShare?.(this.#message());
    this.#drawVisits(visits);
    drawEvents(this.#find('#share-events'), entry.sharing_id);
  }

  // For those who are to open the link.
  #message() {
    const {protect_title: title, url, protect_type: type} = this.#entry;
    const text = t(title ? 'invites_to' : 'invites', {title});
    return {title: title || t('untitled'), text: type === 'password' ? `${text} ${t('invites_password')}` : text, url};
  }

  #find(selector) {
    return this.#dialog.querySelector(selector);
  }

  #say(text) {
    this.#find('.said').textContent = text;
  }

  async #copyAddress() {
    const copied = await copyText(this.#find('#share-url').value);
    this.#say(t(copied ? 'address_copied' : 'copy_by_hand'));
    if (!copied) this.#find('#share-url').select();
  }

  async #copyImage() {
    try {
      await navigator.clipboard.write([new ClipboardItem({'image/png': toPng(this.#image, this.#modules)})]);
      this.#say(t('image_copied'));
    } catch {
      this.#say(t('image_not_copied'));
    }
  }

  #drawVisits(visits) {
    const figure = this.#find('#share-visits');
    figure.hidden = visits === null || sumOf(visits) === 0;
    figure.querySelector('svg')?.remove();
    if (figure.hidden) return;
    figure.querySelector('figcaption').textContent = t('visits_lately', {count: sumOf(visits), days: DAYS});
    figure.querySelector('.axis').before(drawChart(visits));
    figure.querySelector('.axis span').textContent = t('days_ago', {count: DAYS - 1});
  }
}
