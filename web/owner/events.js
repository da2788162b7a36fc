// What visitors did with a link, in its dialog.

import {callApi} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {explain} from '/shared/errors.js';
import {locale, t} from '/shared/texts.js';

const PAGE = 20;
const ADDRESS = 'webapi/entry.cgi';
const API = 'VELT.Visits';

// The time of the newest event that this browser has shown of the link, in seconds since 1970.
const keyOf = (id) => `velt-sharing-seen:${id}`;

function row({time, kind, file, result, address, browser, times}, isNew) {
  const when = new Date(time * 1000);
  const about = [address, browser, times > 1 && t('event_times', {count: times})].filter(Boolean).join(' · ');
  return make('li', {class: isNew ? 'new' : null},
    make('time', {datetime: when.toISOString()}, when.toLocaleString(locale(), {dateStyle: 'medium', timeStyle: 'short'})),
    ' ', make('strong', {}, t(`event_${kind}`)), file && ' ', file && make('bdi', {}, file),
    result === 'incomplete' && ` ${t('event_incomplete')}`, result === 'braked' && ` ${t('event_braked')}`,
    isNew && make('span', {class: 'mark-new'}, ` ${t('event_new')}`),
    about && make('span', {class: 'second'}, about));
}

/** Fills `place`, a details element, with what visitors did with the link; hides it where they did nothing. */
export async function drawEvents(place, id) {
  const list = place.querySelector('ol');
  const more = place.querySelector('button');
  place.hidden = true;
  place.open = false;
  place.dataset.link = id;
  list.replaceChildren();
  const seen = Number(localStorage.getItem(keyOf(id)) ?? 0);
  const load = async () => {
    const offset = list.children.length;
    const {events, total} = await callApi(ADDRESS, API, 'event_list', {sharing_id: id, offset, limit: PAGE});
    if (place.dataset.link !== id) return {total: 0};
    list.append(...events.map((event) => row(event, seen > 0 && event.time > seen)));
    more.hidden = list.children.length >= total;
    return {newest: events[0]?.time, total};
  };
  more.onclick = () => load().catch((error) => list.append(make('li', {}, explain(error).text)));
  try {
    const [{newest, total}, fresh] = await Promise.all([load(), callApi(ADDRESS, API, 'event_list', {
      sharing_id: id, since: seen, limit: 0,
    })]);
    if (total === 0) return;
    place.querySelector('summary').textContent = seen > 0 && fresh.total > 0 ?
      t('events_and_new', {count: total, fresh: fresh.total}) : t('events', {count: total});
    place.querySelector('a').href = `/${ADDRESS}?${new URLSearchParams({
      api: API, version: 1, method: 'event_csv', sharing_id: id})}`;
    place.hidden = false;
    place.ontoggle = () => place.open && localStorage.setItem(keyOf(id), newest);
  } catch {
    // The dialog works without it.
  }
}
