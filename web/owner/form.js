// The dialog that creates a link, or shows one and changes it.

import {parseJson} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {explain} from '/shared/errors.js';
import {t} from '/shared/texts.js';
import {titleOf} from './dialogs.js';

/** A value that the form can't send; `message` says why. */
class FieldError extends Error {}

// How a field's value is read for the API, by its data-kind.
const READERS = {
  text: (input) => input.value,
  flag: (input) => input.checked,
  lines: (input) => input.value.split('\n').map((line) => line.trim()).filter((line) => line !== ''),
  count: (input) => {
    if (!/^\d{1,10}$/.test(input.value) || Number(input.value) > 0x7fffffff) {
      throw new FieldError(t('error_not_a_count'));
    }
    return Number(input.value);
  },
  time: (input) => {
    // A time that is only partly filled in has an empty value, which would mean no limit.
    if (input.validity.badInput || input.validity.rangeOverflow || input.validity.rangeUnderflow) {
      throw new FieldError(t('error_not_a_time'));
    }
    const text = input.value.replace('T', ' ');
    return text.length === 16 ? `${text}:00` : text;
  },
  // The same rule as that of the link's page, which follows no address that browsers could read in two ways.
  target: (input) => {
    const {value} = input;
    if (value !== '' && (/[\u0000-\u001f\u007f\\]/.test(value) || !/^(\/(?!\/)|https?:\/\/[^/?# ])/i.test(value))) {
      throw new FieldError(t('error_not_a_target'));
    }
    return value;
  },
  json: (input) => {
    if (input.value.trim() === '') return {};
    let value;
    try {
      value = parseJson(input.value);
    } catch (error) {
      throw new FieldError(t('error_not_json', {reason: error.message}));
    }
    if (value === null || typeof value !== 'object' || Array.isArray(value)) {
      throw new FieldError(t('error_not_an_object'));
    }
    return value;
  },
};

// Of letters and digits that can't be taken for each other; 70 bits.
function newPassword() {
  const letters = 'abcdefghijkmnpqrstuvwxyz23456789'; // as many as divide a byte's values
  return Array.from(crypto.getRandomValues(new Uint8Array(14)), (byte) => letters[byte % letters.length]).join('');
}

function isObject(value) {
  return value !== null && typeof value === 'object' && !Array.isArray(value);
}

// Writes a value from the answer of `get` into a field.
function write(input, value) {
  if (input.dataset.kind === 'flag') input.checked = value;
  else if (input.dataset.kind === 'lines') input.value = value.join('\n');
  else if (input.dataset.kind === 'time') input.value = value.replace(' ', 'T');
  else if (input.dataset.kind !== 'json') input.value = value;
  else input.value = isObject(value) && Object.keys(value).length === 0 ? '' : JSON.stringify(value, null, 2);
}

// The content of a field, to see whether it was changed.
function raw(input) {
  return input.type === 'checkbox' ? input.checked : `${input.value}${input.validity.badInput}`;
}

export class LinkForm {
  #dialog;
  #form;
  #fields;
  #problem;
  #initial = new Map();
  #entry = null;
  #busy = false;
  #save;
  #confirmDiscard;

  /**
   * `save(params)` sends `set` and throws ApiError where it fails; the form then stays, with the error
   * at its field. `confirmDiscard()` asks whether changes may be lost.
   */
  constructor(dialog, {save, confirmDiscard}) {
    this.#dialog = dialog;
    this.#form = dialog.querySelector('form');
    this.#fields = [...this.#form.querySelectorAll('[data-kind]')];
    this.#problem = dialog.querySelector('.notice.error');
    this.#save = save;
    this.#confirmDiscard = confirmDiscard;

    this.#form.addEventListener('submit', (event) => {
      event.preventDefault();
      this.#submit();
    });
    for (const event of ['input', 'change']) this.#form.addEventListener(event, () => this.#showWhatApplies());
    dialog.querySelector('[data-close]').addEventListener('click', () => this.close());
    dialog.addEventListener('cancel', (event) => {
      event.preventDefault();
      this.close();
    });
    const end = dialog.querySelector('#f-end');
    end.addEventListener('change', () => this.#setEnd(end.value));
    dialog.querySelector('#make-password').addEventListener('click', () => {
      this.#field('protect_password').value = newPassword();
      this.#showPassword(true);
      this.#showWhatApplies();
    });
    const show = dialog.querySelector('#show-password');
    show.addEventListener('click', () => this.#showPassword(show.getAttribute('aria-pressed') !== 'true'));
  }

  /**
   * Opens the dialog for `entry`, a link as `get` returns it, under which `hint` stands, or for a new link of `project`
   * when it is null.
   */
  open(entry, {hint = '', project = ''} = {}) {
    this.#entry = entry;
    this.#form.reset();
    this.#form.querySelector('details').open = false;
    this.#clearErrors();
    this.#showPassword(false);
    this.#field('project_name').value = project;
    for (const input of this.#fields) {
      if (entry && input.name in entry) write(input, entry[input.name]);
      this.#initial.set(input, raw(input));
    }
    const end = entry?.expire_at ? 'date' : '';
    this.#dialog.querySelector('#f-end').value = end;
    this.#dialog.querySelector('#end-date').hidden = end === '';
    this.#dialog.querySelector('#which-application').hidden = entry !== null;
    this.#dialog.querySelector('#tell').hidden = true; // drawn when it is known
    for (const part of ['#share', '#came']) this.#dialog.querySelector(part).hidden = entry === null;
    this.#text('#edit-title', entry ? titleOf(entry) : t('new_link'));
    this.#text('.hint', hint);
    this.#text('[data-close]', t(entry ? 'close' : 'cancel'));
    this.#text('[type="submit"]', t(entry ? 'save_changes' : 'create_link'));
    this.#text('#h-project_name', t('hint_project'));
    this.#text('#h-private_data', t(entry ? 'hint_private_stays' : 'hint_private'));
    this.#showWhatApplies();
    this.#dialog.showModal();
    this.#dialog.querySelector('.dialog-body').scrollTop = 0;
    if (!entry) this.#field('project_name').focus();
  }

  /** Goes to the settings. */
  focus() {
    const title = this.#field('protect_title');
    title.focus();
    title.closest('fieldset').scrollIntoView();
  }

  #field(name) {
    return this.#fields.find((input) => input.name === name);
  }

  #text(selector, text) {
    this.#dialog.querySelector(selector).textContent = text;
  }

  // A number of days ends with its last one, so that it matters little whose clock counts.
  #setEnd(choice) {
    const field = this.#field('expire_at');
    this.#dialog.querySelector('#end-date').hidden = choice === '';
    if (choice === '') field.value = '';
    if (!/^\d+$/.test(choice)) return;
    const day = new Date();
    day.setDate(day.getDate() + Number(choice));
    field.value = `${[day.getFullYear(), day.getMonth() + 1, day.getDate()].map((n) => String(n).padStart(2, '0')).join('-')}T23:59:59`;
  }

  #showPassword(shown) {
    const button = this.#dialog.querySelector('#show-password');
    button.setAttribute('aria-pressed', shown);
    this.#field('protect_password').type = shown ? 'text' : 'password';
  }

  // Shows the fields that belong to the chosen kinds of protection and redirect.
  #showWhatApplies() {
    for (const part of this.#form.querySelectorAll('[data-when]')) {
      const [name, values] = part.dataset.when.split('=');
      part.hidden = !values.split(',').includes(this.#field(name).value);
    }
    const keeps = this.#entry?.protect_type === 'password' && this.#entry.has_password;
    this.#text('#h-protect_password', t(keeps ? 'hint_password_stays' : 'hint_password'));
    this.#form.querySelector('[type="submit"]').hidden = this.#entry !== null && this.#touched().length === 0;
  }

  #touched() {
    return this.#fields.filter((input) => raw(input) !== this.#initial.get(input));
  }

  // The values to send: only changed ones, because a parameter that is not sent keeps its stored value,
  // or its default on a new link. Null when a field is invalid; its error is then shown at the field.
  #read() {
    const params = {project_name: this.#field('project_name').value};
    if (this.#entry) params.sharing_id = this.#entry.sharing_id;
    let good = true;
    for (const input of this.#touched()) {
      if (input.closest('[data-when][hidden]')) continue;
      try {
        params[input.name] = READERS[input.dataset.kind](input);
      } catch (error) {
        if (!(error instanceof FieldError)) throw error;
        this.#showError(input.name, error.message);
        good = false;
      }
    }
    if (good && !this.#timesInOrder(params)) {
      this.#showError('expire_at', t('error_ends_before'));
      good = false;
    }
    return good ? params : null;
  }

  #timesInOrder(params) {
    if (!('start_at' in params) && !('expire_at' in params)) return true;
    const start = params.start_at ?? this.#entry?.start_at ?? '';
    const end = params.expire_at ?? this.#entry?.expire_at ?? '';
    return start === '' || end === '' || start < end;
  }

  async #submit() {
    if (this.#busy) return;
    this.#clearErrors();
    const params = this.#read();
    if (!params) {
      this.#focusFirstError();
      return;
    }
    this.#setBusy(true);
    try {
      await this.#save(params, () => this.#dialog.close());
    } catch (error) {
      const {text, field} = explain(error);
      this.#showError(field, text);
      this.#focusFirstError();
    } finally {
      this.#setBusy(false);
    }
  }

  #setBusy(busy) {
    this.#busy = busy;
    this.#form.querySelector('[type="submit"]').setAttribute('aria-disabled', busy);
  }

  #clearErrors() {
    this.#problem.hidden = true;
    for (const input of this.#form.querySelectorAll('[aria-invalid]')) {
      input.removeAttribute('aria-invalid');
      input.setAttribute('aria-describedby', `h-${input.name}`);
      this.#form.querySelector(`#e-${input.name}`).remove();
    }
  }

  // Shows an error at the field, or at the top of the form when the field is not visible.
  #showError(name, text) {
    const input = this.#field(name);
    if (!input || input.closest('[hidden]')) {
      this.#problem.textContent = text;
      this.#problem.hidden = false;
      return;
    }
    const details = input.closest('details');
    if (details) details.open = true;
    input.setAttribute('aria-invalid', 'true');
    input.setAttribute('aria-describedby', `e-${name} h-${name}`);
    input.closest('.field').append(make('p', {id: `e-${name}`, class: 'field-error'}, text));
  }

  #focusFirstError() {
    (this.#form.querySelector('[aria-invalid]') ?? this.#problem).focus();
  }

  /** Whether it was closed: what was changed is not lost without a question. */
  async close() {
    if (this.#busy || (this.#touched().length > 0 && !await this.#confirmDiscard())) return false;
    this.#dialog.close();
    return true;
  }
}
