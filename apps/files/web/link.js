// The API of the page's link, and what its errors mean.

import {callApi} from '/shared/api.js';
import {explain} from '/shared/errors.js';

const API = 'VELT.Files.Link';
const path = `/sharing/${location.pathname.split('/')[2]}/webapi`;

export const call = (method, params) => callApi(path, API, method, params);

/** The address of a GET of `method`. */
export function addressOf(method, params) {
  return `${path}?${new URLSearchParams({api: API, version: 1, method, ...params})}`;
}

const LONGEST_ADDRESS = 6000;

/**
 * Downloads an archive of these paths. Uses POST only when an address can't hold them: over plain HTTP a form of this
 * page, which sends no referrer, looks like another site's.
 */
export function downloadZip(paths) {
  const address = addressOf('zip', paths.length > 0 ? {paths: JSON.stringify(paths)} : {});
  if (address.length <= LONGEST_ADDRESS) {
    Object.assign(document.createElement('a'), {href: address, download: ''}).click();
    return;
  }
  const form = document.createElement('form');
  form.method = 'post';
  form.action = path;
  form.hidden = true;
  for (const [name, value] of Object.entries({api: API, version: 1, method: 'zip', paths: JSON.stringify(paths)})) {
    form.append(Object.assign(document.createElement('input'), {name, value}));
  }
  document.body.append(form);
  form.submit();
  form.remove();
}

const WORDS = {
  105: 'Your visit has ended. Reload the page.',
  1000: 'This link doesn’t open any more.',
  1006: 'Your visit has ended. Reload the page.',
  1012: 'This link is used up.',
  2000: 'What this link shares is not available any more.',
  2001: 'This is not there any more.',
  2002: 'A file has become a folder, or a folder a file. Reload the page.',
  2003: 'This link shares nothing.',
  2004: 'This link takes no files at the moment.',
  2005: 'This file is too large, or the link has taken as many files as it may.',
  2006: 'There is no room left on the device.',
  2008: 'The upload was given up. Begin it again.',
  2009: 'The device can’t hand out files at the moment.',
};

export function wordsFor(error) {
  return WORDS[error.code] ?? explain(error).text;
}
