// Who is signed in: the menu, the sessions and tokens of the account, and signing in again when a session has ended.

import {onSignedOut} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {explain} from '/shared/errors.js';
import {t} from '/shared/texts.js';
import {SignInForm, callSignIn} from '/signin/form.js';
import {copyText} from './dialogs.js';

const find = (selector) => document.querySelector(selector);

// The parts of a line that have something to say.
const line = (...parts) => parts.filter(Boolean).join(' · ');

const LISTS = {
  sessions: {
    hint: 'sessions_hint',
    load: async () => (await callSignIn('session_list')).sessions,
    about: (session) => [session.browser || t('unknown_browser'),
      line(session.current && t('this_session'), session.address, t('last_used', {time: session.last_used}))],
    removable: (session) => !session.current,
    end: ({id}) => callSignIn('session_end', {id}),
    endText: 'end_session',
  },
  tokens: {
    hint: 'tokens_hint',
    load: async () => (await callSignIn('token_list')).tokens,
    about: (token) => [token.name,
      line(token.scope === 'write' ? t('token_writes') : t('token_reads'), token.projects.join(', '),
        token.last_used ? t('last_used', {time: token.last_used}) : t('never_used'),
        token.expire_at && t('ends_at', {time: token.expire_at}))],
    removable: () => true,
    end: ({id}) => callSignIn('token_delete', {id}),
    endText: 'delete',
  },
};

/** The dialog that lists sessions or tokens. */
class AccessDialog {
  #dialog = find('#access');
  #form = this.#dialog.querySelector('form');
  #problem = this.#dialog.querySelector('.notice');
  #others = this.#dialog.querySelector('[data-do="others"]');
  #list;

  constructor() {
    const made = this.#form.querySelector('.made');
    this.#dialog.querySelector('[data-do="close"]').addEventListener('click', () => this.#dialog.close());
    this.#others.addEventListener('click', () => this.#do(() => callSignIn('session_end', {others: true})));
    this.#form.addEventListener('submit', (event) => {
      event.preventDefault();
      const {name, write} = this.#form.elements;
      this.#do(async () => {
        const {token} = await callSignIn('token_create', {name: name.value, scope: write.checked ? 'write' : 'read'});
        this.#form.reset();
        made.hidden = false;
        made.querySelector('input').value = token;
        made.querySelector('input').select();
        copyText(token);
      });
    });
    this.#dialog.addEventListener('close', () => {
      made.hidden = true;
      made.querySelector('input').value = '';
    });
  }

  async open(name) {
    this.#list = LISTS[name];
    this.#dialog.querySelector('h2').textContent = t(name);
    this.#dialog.querySelector('.hint').textContent = t(this.#list.hint);
    this.#form.hidden = name !== 'tokens';
    this.#dialog.querySelector('ul').replaceChildren();
    this.#dialog.showModal();
    await this.#do(() => {});
  }

  // Does something and shows the list as it is then.
  async #do(action) {
    this.#problem.hidden = true;
    try {
      await action();
      this.#draw(await this.#list.load());
    } catch (error) {
      this.#problem.textContent = explain(error).text;
      this.#problem.hidden = false;
    }
  }

  #draw(rows) {
    this.#others.hidden = this.#list !== LISTS.sessions || rows.length < 2;
    this.#dialog.querySelector('ul').replaceChildren(...rows.map((row) => {
      const [title, about] = this.#list.about(row);
      return make('li', {}, make('div', {}, make('strong', {dir: 'auto'}, title), make('div', {class: 'hint'}, about)),
        this.#list.removable(row) && make('button', {
          type: 'button', class: 'small', on: {click: () => this.#do(() => this.#list.end(row))},
          'aria-label': `${t(this.#list.endText)}: ${title}`,
        }, t(this.#list.endText)));
    }));
  }
}

function askAgain(account) {
  const dialog = find('#again');
  let answer; // of all calls that wait for it
  onSignedOut(() => {
    answer ??= new Promise((resolve) => {
      let done = false;
      const form = make('form');
      dialog.querySelector('form').replaceWith(form);
      const signIn = new SignInForm(form, () => {
        done = true;
        dialog.close();
      }, account);
      dialog.addEventListener('close', () => {
        answer = undefined;
        resolve(done);
      }, {once: true});
      dialog.showModal();
      signIn.focus();
    });
    return answer;
  });
}

/** Has a menu close when one of its entries is chosen, at a click beside it and with Escape. */
export function listenToMenu(menu) {
  const close = () => {
    menu.open = false;
    menu.querySelector('summary').focus();
  };
  for (const button of menu.querySelectorAll('button')) button.addEventListener('click', close);
  document.addEventListener('click', (event) => menu.contains(event.target) || (menu.open = false));
  menu.addEventListener('keydown', (event) => event.key === 'Escape' && close());
}

function listen(menu, access) {
  const actions = {
    sessions: () => access.open('sessions'),
    tokens: () => access.open('tokens'),
    out: async () => {
      onSignedOut(null); // Calls that are under way ask for nothing.
      await callSignIn('logout');
      location.assign('/signin/');
    },
  };
  listenToMenu(menu);
  for (const button of menu.querySelectorAll('button')) {
    button.addEventListener('click', () => actions[button.dataset.do]?.());
  }
}

/** Shows who is signed in. Leaves for the page /signin/ and returns false when nobody is. */
export async function startAccount() {
  const menu = find('#account');
  let who;
  try {
    who = await callSignIn('get');
  } catch {
    menu.hidden = true; // What the page itself asks for reports what is wrong.
    return true;
  }
  if (who.account === '') {
    const here = location.pathname + location.search + location.hash;
    location.replace(`/signin/?back=${encodeURIComponent(here)}`);
    return false;
  }
  menu.querySelector('summary').textContent = t('signed_in_as', {name: who.account});
  const byUs = who.how === 'session';
  for (const button of menu.querySelectorAll('button')) button.hidden = !byUs && !['tokens', 'notify'].includes(button.dataset.do);
  find('#attempts').hidden = !byUs || who.failed_attempts === 0;
  find('#attempts').textContent = t('failed_attempts', {count: who.failed_attempts});
  listen(menu, new AccessDialog());
  if (byUs) askAgain(who.account);
  return true;
}
