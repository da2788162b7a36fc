// What an error means to the visitor of a link.

import {explain} from '/shared/errors.js';

const BLOCK_MINUTES = 15;

const WORDS = {
  105: 'Your visit has ended. Open the link again.',
  1000: 'This link doesn’t open any more. Ask the person who sent it to you for a new one.',
  1002: 'This link is not for this account.',
  1004: 'Logging out failed. Reload the page to see whether your visit goes on.',
  1006: 'Your visit has ended. Open the link again.',
  1012: 'This link is used up: all the visits that it was made for have taken place.',
};

let blockedUntil = null;

// The answer doesn't say when the block began, so this shows the latest time at which it can end. Later refusals
// during the same block don't change that time.
function blocked() {
  const now = new Date();
  if (blockedUntil === null || blockedUntil < now) {
    blockedUntil = new Date(now.getTime() + BLOCK_MINUTES * 60000);
  }
  const time = blockedUntil.toLocaleTimeString([], {hour: '2-digit', minute: '2-digit'});
  return 'This link takes no logins from your network address, or with this account, at the moment. After too many wrong '
    + 'attempts it waits '
    + `${BLOCK_MINUTES} minutes: try again after ${time}. If you have changed networks during a visit, close the `
    + 'browser and open the link again.';
}

/** {text, field}: plain words, and the name of the form's field that they are about, or null. */
export function explainToVisitor(error) {
  if (error.code === 1008) return {text: blocked(), field: null};
  const {text, field} = explain(error);
  return {text: WORDS[error.code] ?? text, field};
}
