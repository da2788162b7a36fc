// A link's page: logs the visitor in, hands the application its data, logs out.
//
// The body's attributes describe the visit. data-state is "ended" (there is nothing to log in to), "open" (the browser
// has a valid visit) or "login". data-protect is the protection, and data-redirect is present when a login leads to
// another address. A login begins a visit, and visits may be limited: the page logs in by itself only when a tab first
// opens it, never because it was reloaded.

import {callApi, parseJson} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {listenToLanguage, loadTexts, showMoment, t} from '/shared/texts.js';
import {countDown} from './countdown.js';
import {explainToVisitor} from './words.js';
import {loadModules, modulesOf} from './modules.js';

const SHARING = 'VELT.Core.Sharing';
const id = location.pathname.split('/')[2];
const apiPath = `/sharing/${id}/webapi`;
const privateKey = `velt-sharing-private:${id}`;
const {state, protect, redirect} = document.body.dataset;
const session = window.VELT.TALD.Session ?? {};

const form = document.getElementById('login');
const said = make('p', {id: 'said', role: 'status'});
const problem = make('p', {id: 'problem', class: 'notice error', role: 'alert', hidden: true});
const wait = make('p', {id: 'wait', role: 'timer', hidden: true});
let endWait = () => {};

function say(text) {
  said.textContent = text;
}

function tell(text) {
  problem.textContent = text;
  problem.hidden = text === '';
}

function publish(name, type, detail) {
  window.VELT.TALD[name] = detail;
  document.dispatchEvent(new CustomEvent(type, {detail}));
}

/** After too many tries: when the next may be made. */
function tellWait(seconds) {
  endWait();
  wait.hidden = seconds === 0;
  if (seconds === 0) return;
  endWait = countDown(wait, 'try_again_in', seconds, () => {
    tell('');
    wait.hidden = true;
    say(t('try_again_now'));
  });
}

/** Shows the form with the error `text` above it, and marks the `field` that the error is about. */
function askForLogin({text = '', field = null} = {}) {
  say('');
  tell(text);
  document.body.classList.remove('visiting');
  form.hidden = false;
  const concerned = field === null ? null : form.elements.namedItem(field);
  if (concerned) {
    concerned.value = '';
    concerned.setAttribute('aria-invalid', 'true');
    concerned.setAttribute('aria-describedby', 'problem');
  }
  (concerned ?? form.querySelector('input:not([hidden]), button')).focus();
}

/**
 * A link may be bound to the address that logged in. It then refuses the session from another address, for example of
 * a phone that leaves the house. Such a session is useless here: end it and try the login once more.
 */
async function callLogin(params) {
  const login = () => callApi(apiPath, `${SHARING}.Login`, 'login', params);
  try {
    return await login();
  } catch (error) {
    if (error.code !== 1008 || state === 'open') throw error;
    try {
      await callApi(apiPath, SHARING, 'logout');
    } catch {
      throw error;
    }
    return login();
  }
}

async function logIn() {
  const fields = Object.fromEntries(new FormData(form));
  for (const field of form.elements) field.removeAttribute('aria-invalid');
  tell('');
  tellWait(0);
  say(t('opening'));
  form.setAttribute('aria-busy', 'true');
  let data;
  try {
    data = await callLogin({sharing_id: id, ...fields});
  } catch (error) {
    form.removeAttribute('aria-busy');
    askForLogin(explainToVisitor(error));
    tellWait(error.code === 1008 ? error.wait : 0);
    return;
  }
  form.reset();
  leaveNote('visiting');
  if (redirect !== undefined) {
    location.reload();
    return;
  }
  try {
    sessionStorage.setItem(privateKey, JSON.stringify(data.private));
  } catch {
    // Too much for the browser to keep: a reload logs in again.
  }
  await enter(data.private);
}

// The note stays with this entry of the tab's history, also after a reload. Drops an error from the address, since it
// was shown already.
function leaveNote(note) {
  history.replaceState({note}, '', location.pathname);
}

/** Shows a valid visit: gives the application the private data of the login and the init data. */
async function enter(privateData) {
  form.hidden = true;
  form.removeAttribute('aria-busy');
  document.body.classList.add('visiting');
  publish('Login', 'velt-sharing-login', {private: privateData});
  let data;
  try {
    data = await callApi(apiPath, `${SHARING}.Initdata`, 'get');
  } catch (error) {
    const explained = explainToVisitor(error);
    if (error.code === 105) {
      askForLogin(explained);
    } else {
      say('');
      tell(t('visitor_reload', {problem: explained.text}));
    }
    return;
  }
  const owner = data.Sharing?.owner_user;
  say('');
  document.getElementById('about').append(
    make('p', {id: 'shared-by'}, owner ? t('shared_by', {owner}) : t('link_open')));
  if (protect !== 'none') {
    document.getElementById('actions').append(
      make('button', {type: 'button', id: 'logout', on: {click: logOut}}, t('log_out')));
  }
  document.getElementById('bare')?.removeAttribute('hidden');
  publish('InitData', 'velt-sharing-initdata', data);
  loadModules(data, modulesOf(data));
}

/** Ends the visit and reloads the page, so that nothing of what the application showed remains. */
async function logOut() {
  tell('');
  try {
    await callApi(apiPath, SHARING, 'logout');
  } catch (error) {
    tell(explainToVisitor(error).text);
    return;
  }
  sessionStorage.removeItem(privateKey);
  leaveNote('left');
  location.reload();
}

/** Applications may choose one colour: {"color": "#rrggbb"}. Text on it is black or white, whichever is readable. */
function applyTheme(theme) {
  if (typeof theme?.color !== 'string' || !/^#[0-9a-f]{6}$/i.test(theme.color)) return;
  const [red, green, blue] = [1, 3, 5].map((at) => (parseInt(theme.color.slice(at, at + 2), 16) / 255) ** 2.2);
  const light = 0.2126 * red + 0.7152 * green + 0.0722 * blue;
  const {style} = document.documentElement;
  style.setProperty('--theme', theme.color);
  style.setProperty('--on-theme', light > 0.179 ? '#000000' : '#ffffff');
}

/** A link that is to open says in how long. Its visitors don't all come in the same second. */
function awaitOpening(place) {
  const seconds = Math.max(1, Number(place.dataset.seconds));
  countDown(place, 'opens_in', seconds, () => {
    place.textContent = t('opens_now');
    setTimeout(() => location.reload(), Math.random() * 3000);
  });
}

async function start() {
  const languages = document.getElementById('languages');
  languages.hidden = false;
  listenToLanguage(languages.querySelector('select'));
  await loadTexts('/shared', '/link');
  if (state !== 'ended') return void await startVisit();
  const countdown = document.getElementById('countdown');
  if (!countdown) return;
  const opens = document.querySelector('time');
  opens.dir = 'auto';
  opens.textContent = showMoment(opens.textContent);
  awaitOpening(countdown);
}

async function startVisit() {
  applyTheme(session.sharing_theme);
  form.before(said, problem, wait);
  form.addEventListener('submit', (event) => {
    event.preventDefault();
    if (!form.hasAttribute('aria-busy')) logIn();
  });
  if (!navigator.cookieEnabled) {
    tell(t('needs_cookies'));
    return;
  }
  // Only the answer to a login has the private data, so a tab without it logs in. That is no further visit while one is
  // valid.
  const kept = sessionStorage.getItem(privateKey);
  if (state === 'open' && kept !== null) {
    await enter(parseJson(kept));
    return;
  }
  sessionStorage.removeItem(privateKey);
  const note = history.state?.note;
  if (session.sharing_error !== undefined) {
    askForLogin({text: explainToVisitor({code: session.sharing_error}).text});
  } else if (note === 'visiting' && state !== 'open') {
    askForLogin({text: t('visit_not_kept')});
  } else if (note === 'left') {
    askForLogin();
    say(t('logged_out'));
  } else if (protect === 'none') {
    await logIn();
  } else {
    askForLogin();
  }
}

// Runs after applications' scripts that wait for the document, so that they get the login event.
document.addEventListener('DOMContentLoaded', start);
