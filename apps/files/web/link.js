// The API of the page's link, and what its errors mean.

import {callApi} from '/shared/api.js';
import {explain} from '/shared/errors.js';
import {hasText, t} from '/shared/texts.js';

const API = 'VELT.Files.Link';
const link = `/sharing/${location.pathname.split('/')[2]}`;
const path = `${link}/webapi`;

export const call = (method, params) => callApi(path, API, method, params);

/** The address of a GET of `method`. An archive is sent in pieces, from an address of its own. */
export function addressOf(method, params) {
  return `${method === 'zip' ? `${link}/stream` : path}?${new URLSearchParams({api: API, version: 1, method, ...params})}`;
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
  form.action = `${link}/stream`;
  form.hidden = true;
  for (const [name, value] of Object.entries({api: API, version: 1, method: 'zip', paths: JSON.stringify(paths)})) {
    form.append(Object.assign(document.createElement('input'), {name, value}));
  }
  document.body.append(form);
  form.submit();
  form.remove();
}

export function wordsFor(error) {
  return hasText(`files_${error.code}`) ? t(`files_${error.code}`) : explain(error).text;
}
