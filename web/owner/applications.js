// The parts that installed applications take in the page. docs/plugins.md has the contract.

import {callApi} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {explain} from '/shared/errors.js';

const parts = new Map(); // of each project

async function partOf(application, newLink) {
  try {
    const {takePart} = await import(`/pkg/${encodeURIComponent(application)}/owner/part.js`);
    return {application, ...await takePart({newLink})};
  } catch (error) {
    console.error(application, error); // The page works without it.
    return {};
  }
}

/**
 * Loads the parts and returns them. Those that make links have their buttons before `place` then. `newLink(project, fields)`
 * makes a link and shows it.
 */
export async function loadApplications(place, newLink) {
  const {applications} = await callApi('webapi/entry.cgi', 'VELT.Links', 'applications').catch(() => ({applications: []}));
  for (const part of await Promise.all(applications.map((name) => partOf(name, newLink)))) {
    if (part.project) parts.set(part.project, part);
    if (!part.open) continue;
    place.before(make('button', {
      type: 'button', class: 'primary', 'data-application': part.application, on: {click: () => part.open()},
    }, part.button));
  }
  return [...parts.values()];
}

/** A line about what the link shares, as far as its application says it. */
export function summaryOf(entry) {
  try {
    return parts.get(entry.project_name)?.summary?.(entry) ?? '';
  } catch {
    return ''; // The data may be anything.
  }
}

/** What lets the owner change what the link shares, where its application has that: `change(entry, save)`. */
export function changeOf(entry) {
  return parts.get(entry.project_name)?.change;
}

/** Lists in `place` what the link `entry` shares; hides `place` when its application doesn't say. */
export async function drawContents(place, entry) {
  const part = parts.get(entry.project_name);
  place.hidden = true;
  if (!part?.contents) return;
  const list = place.querySelector('ul');
  list.replaceChildren();
  try {
    list.append(...await part.contents(entry));
  } catch (error) {
    list.append(make('li', {class: 'missing'}, explain(error).text));
  }
  place.hidden = list.children.length === 0;
}
