// What the owner wants to be told of: the dialog for all links, and the part of a link's dialog.

import {callApi} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {explain} from '/shared/errors.js';
import {t} from '/shared/texts.js';

const KINDS = ['opened', 'upload', 'download', 'ending', 'guesses'];

const call = (method, params) => callApi('webapi/entry.cgi', 'VELT.Notify', method, params);

// Boxes with the kinds' names, which `place` gets in place of what it has.
function drawKinds(place, chosen) {
  place.replaceChildren(...KINDS.map((kind) => make('label', {class: 'check'},
    make('input', {type: 'checkbox', value: kind, checked: chosen.includes(kind)}), ' ', t(`tell_${kind}`))));
}

const kindsIn = (place) => [...place.querySelectorAll('input:checked')].map((box) => box.value);

class NotifyDialog {
  #dialog = document.querySelector('#notify');
  #form = this.#dialog.querySelector('form');
  #kinds = this.#dialog.querySelector('.kinds');
  #said = this.#dialog.querySelector('.said');
  #problem = this.#dialog.querySelector('.notice');

  constructor() {
    const listen = (name, listener) => this.#find(`[data-do="${name}"]`).addEventListener('click', listener);
    const {code, mail, webhook} = this.#form.elements;
    this.#form.addEventListener('submit', (event) => {
      event.preventDefault();
      this.#do(() => call('set', {
        kinds: kindsIn(this.#kinds), mail: mail.value.trim(), webhook: webhook.value.trim(),
        language: document.documentElement.dataset.language,
      }), 'tell_saved');
    });
    listen('close', () => this.#dialog.close());
    listen('confirm', () => this.#do(() => call('confirm', {code: code.value.trim()}), 'tell_confirmed'));
    listen('test', () => this.#do(() => call('test'), 'tell_tried'));
    listen('secret', () => this.#do(() => this.#showSecret(false)));
    listen('renew', () => this.#do(() => this.#showSecret(true)));
    code.addEventListener('keydown', (event) => {
      if (event.key !== 'Enter') return;
      event.preventDefault(); // not the form's submit
      this.#find('[data-do="confirm"]').click();
    });
  }

  async open() {
    this.#find('.secret').hidden = true;
    this.#form.reset();
    this.#kinds.replaceChildren();
    this.#dialog.showModal();
    await this.#do(() => {});
  }

  #find(selector) {
    return this.#dialog.querySelector(selector);
  }

  async #showSecret(renew) {
    const {secret} = await call('secret', {renew});
    this.#find('.secret').hidden = false;
    this.#find('.secret input').value = secret;
  }

  // Does something, says `done`, and shows what is stored then.
  async #do(action, done) {
    this.#said.textContent = '';
    this.#problem.hidden = true;
    try {
      await action();
      this.#draw(await call('get'));
      if (done) this.#said.textContent = t(done);
    } catch (error) {
      this.#problem.textContent = explain(error).text;
      this.#problem.hidden = false;
    }
  }

  #draw({kinds, mail, webhook}) {
    drawKinds(this.#kinds, kinds);
    this.#form.elements.mail.value = mail.address;
    this.#form.elements.webhook.value = webhook.address;
    this.#form.elements.code.value = '';
    this.#find('.code-field').hidden = mail.confirmed;
    this.#find('.signing').hidden = webhook.address === '';
    this.#find('[data-do="test"]').hidden = !webhook.address && !(mail.address && mail.confirmed);
    for (const [name, {error}] of Object.entries({mail, webhook})) {
      const line = this.#find(`[data-failing="${name}"]`);
      line.hidden = error === '';
      line.textContent = t('tell_failing', {error});
    }
  }
}

/** Has the button open the dialog with what is told of all links. */
export function listenToNotify(button) {
  const dialog = new NotifyDialog();
  button.addEventListener('click', () => dialog.open());
}

/** Fills `place`, a details element, with what is told of one link; each change is stored at once. */
export async function drawTell(place, id) {
  const kinds = place.querySelector('.kinds');
  const inherit = place.querySelector('[name="inherit"]');
  const said = place.querySelector('.said');
  place.hidden = true;
  place.open = false;
  place.dataset.link = id;
  said.textContent = '';
  const draw = (settings) => {
    if (place.dataset.link !== id) return;
    const {mail, webhook, kinds: all, link_kinds: own} = settings;
    const ways = [mail.confirmed && mail.address, webhook.address && t('tell_webhook')].filter(Boolean);
    drawKinds(kinds, own ?? all);
    inherit.checked = own === null;
    for (const box of kinds.querySelectorAll('input')) box.disabled = own === null;
    place.querySelector('.hint').textContent = ways.length ? t('tell_goes_to', {ways: ways.join(', ')}) : t('tell_nowhere');
    place.hidden = false;
  };
  const load = async () => draw(await call('get', {sharing_id: id}));
  place.onchange = async () => {
    try {
      await call('link_set', {sharing_id: id, kinds: kindsIn(kinds), inherit: inherit.checked});
      await load();
      said.textContent = t('tell_saved');
    } catch (error) {
      said.textContent = explain(error).text;
    }
  };
  await load().catch(() => {}); // somebody else's link
}
