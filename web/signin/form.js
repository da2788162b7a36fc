// The form that signs an owner in: on the page /signin/, and over the owner's page when a session has ended.

import {callApi} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {explain} from '/shared/errors.js';
import {t} from '/shared/texts.js';

const WRONG = 3000;
const QUESTION = 3001;
const BRAKED = 3002;

/** Calls VELT.Core.SignIn. */
export function callSignIn(method, params) {
  return callApi('/webapi/entry.cgi', 'VELT.Core.SignIn', method, params);
}

function waitText(seconds) {
  const [count, key] = seconds < 90 ? [Math.ceil(seconds), 'wait_seconds'] : [Math.ceil(seconds / 60), 'wait_minutes'];
  return t(key, {count});
}

export class SignInForm {
  #signedIn;
  #account;
  #password = make('input', {
    id: 'signin-password', type: 'password', autocomplete: 'current-password', required: true,
  });
  #show = make('button', {type: 'button', 'aria-pressed': 'false', 'aria-controls': 'signin-password'}, t('show'));
  #stay = make('input', {type: 'checkbox'});
  #answer = make('input', {id: 'signin-answer', autocomplete: 'one-time-code', spellcheck: 'false'});
  #question = make('label', {for: 'signin-answer'});
  #first; // what asks for the account and its password ...
  #further; // ... and what asks a further question
  #problem = make('p', {class: 'notice error', role: 'alert', hidden: true});
  #submit = make('button', {class: 'primary'}, t('sign_in'));
  #answers = [];
  #busy = false;

  /** Fills `form`; `signedIn` is called afterwards. With `account`, only this one can be signed in. */
  constructor(form, signedIn, account = '') {

    this.#signedIn = signedIn;
    this.#account = make('input', {
      id: 'signin-account', autocomplete: 'username', autocapitalize: 'none', spellcheck: 'false', required: true,
      value: account, readonly: account !== '',
    });
    this.#first = make('div', {},
      make('label', {for: 'signin-account'}, t('account')), this.#account,
      make('label', {for: 'signin-password'}, t('password')),
      make('div', {class: 'joined'}, this.#password, this.#show),
      make('label', {class: 'check'}, this.#stay, ' ', t('stay')));
    this.#further = make('div', {hidden: true}, this.#question, this.#answer);
    form.classList.add('signin');
    form.replaceChildren(this.#problem, this.#first, this.#further, this.#submit);
    form.addEventListener('submit', (event) => {
      event.preventDefault();
      this.#send();
    });
    this.#show.addEventListener('click', () => {
      const shown = this.#password.type === 'password';
      this.#password.type = shown ? 'text' : 'password';
      this.#show.setAttribute('aria-pressed', shown);
    });
  }

  focus() {
    (this.#account.readOnly || this.#account.value !== '' ? this.#password : this.#account).focus();
  }

  async #send() {
    if (this.#busy) return;
    this.#busy = true;
    this.#submit.setAttribute('aria-disabled', 'true');
    this.#problem.hidden = true;
    const answers = this.#further.hidden ? [] : [...this.#answers, this.#answer.value];
    try {
      await callSignIn('login', {
        account: this.#account.value, password: this.#password.value, stay: this.#stay.checked, answers,
      });
      this.#password.value = '';
      this.#signedIn();
    } catch (error) {
      this.#refused(error, answers);
    } finally {
      this.#busy = false;
      this.#submit.removeAttribute('aria-disabled');
    }
  }

  #refused(error, answers) {
    const asks = error.code === QUESTION;
    this.#answers = asks ? answers : [];
    this.#first.hidden = asks;
    this.#further.hidden = !asks;
    this.#answer.value = '';
    if (asks) {
      this.#question.textContent = error.detail.question;
      this.#answer.type = error.detail.hidden ? 'password' : 'text';
      this.#answer.focus();
      return;
    }
    if (error.code === WRONG) this.#password.value = '';
    const seconds = error.code === BRAKED ? error.detail.seconds : 0;
    this.#problem.textContent = seconds > 0 ? waitText(seconds) : explain(error).text;
    this.#problem.hidden = false;
    this.#password.focus();
  }
}
