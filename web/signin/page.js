// Signs an owner in and goes back to where he was.

import {chooseLanguage, fillTexts, listenToLanguage, loadTexts, t} from '/shared/texts.js';
import {SignInForm, callSignIn} from './form.js';

// An address of this server only: another one's page could ask for the password again.
function addressToGoBackTo() {
  const home = new URL('/', location.origin);
  const text = new URLSearchParams(location.search).get('back') ?? '/';
  const back = URL.canParse(text, home) ? new URL(text, home) : home;
  return back.origin === location.origin && back.pathname !== location.pathname ? back.href : home.href;
}

async function start() {
  const languages = document.getElementById('language');
  await chooseLanguage(languages);
  await loadTexts('/shared', '/signin');
  listenToLanguage(languages);
  const back = addressToGoBackTo();
  let server = location.hostname;
  try {
    const who = await callSignIn('get');
    if (who.account !== '') return void location.replace(back);
    server = who.server || server;
  } catch {
    // The form says what is wrong.
  }
  fillTexts();
  document.getElementById('server').textContent = t('to_server', {server});
  const form = new SignInForm(document.querySelector('form'), () => location.replace(back));
  document.getElementById('page').hidden = false;
  form.focus();
}

start();
