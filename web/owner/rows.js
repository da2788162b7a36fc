// What comes into the table's rows after the links themselves.

import {callApi} from '/shared/api.js';
import {summaryOf} from './applications.js';
import {drawChart, sumOf} from './chart.js';

/** The visits of each day, today's last, by the link's id. */
export const visitsById = new Map();

const cellOf = (id, css) => document.querySelector(`#links [data-id="${CSS.escape(id)}"] ${css}`);

// The applications that say what a link shares come after the first links.
export function drawSummaries(entries) {
  for (const entry of entries) {
    const place = cellOf(entry.sharing_id, '.summary');
    const text = summaryOf(entry);
    place.textContent = place.title = text;
    place.hidden = text === '' || text === entry.protect_title;
  }
}

// The visits of each day come after the links. Where the appliance keeps none, there are no charts.
export async function drawVisits(entries) {
  const ids = entries.filter(({visits}) => visits > 0).map(({sharing_id: id}) => id);
  if (ids.length === 0) return;
  try {
    const {visits} = await callApi('webapi/entry.cgi', 'VELT.Visits', 'list', {sharing_ids: ids});
    for (const [id, days] of Object.entries(visits)) visitsById.set(id, days);
  } catch {
    return;
  }
  for (const id of ids) {
    const cell = cellOf(id, 'td.visits');
    const days = visitsById.get(id);
    if (!cell || !days || sumOf(days) === 0) continue;
    cell.querySelector('svg')?.remove();
    cell.append(drawChart(days));
  }
}
