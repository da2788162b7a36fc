// The table of links. At phone width its rows become cards, whose cells carry their column's title.

import {make} from '/shared/dom.js';
import {qrImage, titleOf} from './dialogs.js';

const STATES = {
  active: 'Active', pending: 'Not started', disabled: 'Off', expired: 'Expired', used_up: 'Used up',
};

const PROTECTIONS = {none: 'None', password: 'Password', user: 'Accounts'};

/** The columns; `sort` is the name by which the API sorts them. */
export const COLUMNS = [
  {title: 'QR code', cell: qrCell, className: 'qr'},
  {title: 'Title', sort: 'protect_title', cell: linkCell, className: 'link'},
  {title: 'State', cell: stateCell},
  {title: 'Project', sort: 'project_name', cell: (entry) => [short(entry.project_name)]},
  {title: 'Owner', sort: 'owner_uid', cell: ownerCell, everybody: true},
  {title: 'Protection', sort: 'protect_type', cell: protectionCell},
  {title: 'Visits', sort: 'visits', cell: visitsCell, className: 'visits'},
  {title: 'Starts', sort: 'start_at', cell: (entry) => time(entry.start_at, 'At once')},
  {title: 'Ends', sort: 'expire_at', cell: (entry) => time(entry.expire_at, 'Never')},
  {title: 'Created', sort: 'created_at', cell: (entry) => time(entry.created_at, '')},
  {title: 'Actions', cell: actionsCell, className: 'actions', quiet: true},
];

/**
 * Draws the table anew. `view` is {everybody, sortBy, ascending}; `on` has the functions `sort(name)`,
 * `show(entry)`, `copy(entry, button)`, `edit(entry)` and `remove(entry)`. The focus stays on its element,
 * or goes to the neighbour of one that is gone; false when there is neither.
 */
export function drawTable(table, entries, view, on) {
  const columns = COLUMNS.filter((column) => view.everybody || !column.everybody);
  const focus = document.activeElement;
  const key = table.contains(focus) ? focus.dataset.key : undefined;
  const rowIndex = focus?.closest('tbody tr')?.sectionRowIndex ?? 0;

  table.tHead.rows[0].replaceChildren(...columns.map((column) => headCell(column, view, on)));
  table.tBodies[0].replaceChildren(...entries.map((entry) => make('tr', {role: 'row'},
    ...columns.map((column) => make('td', {
      role: 'cell', class: column.className, 'data-title': column.quiet ? null : column.title,
    }, ...column.cell(entry, on))))));

  if (key === undefined) return true;
  const rows = table.tBodies[0].rows;
  const next = table.querySelector(`[data-key="${CSS.escape(key)}"]`) ??
    rows[Math.min(rowIndex, rows.length - 1)]?.querySelector(`[data-key^="${key.split(' ')[0]} "]`);
  next?.focus();
  return Boolean(next);
}

function headCell(column, view, on) {
  const sorted = column.sort && column.sort === view.sortBy;
  const direction = view.ascending ? 'ascending' : 'descending';
  const title = column.sort ?
    make('button', {type: 'button', 'data-key': `sort ${column.sort}`, on: {click: () => on.sort(column.sort)}},
      column.title, make('span', {class: 'arrow', 'aria-hidden': 'true'}, sorted && !view.ascending ? '↓' : '↑')) :
    make('span', {class: column.quiet ? 'visually-hidden' : null}, column.title);
  return make('th', {
    role: 'columnheader', scope: 'col', class: column.className, 'aria-sort': sorted ? direction : null,
  }, title);
}

// A button of a row. Its name includes the link's title, because a screen reader may read it alone.
function rowButton(entry, action, text, className, listener) {
  return make('button', {
    type: 'button', class: className, 'data-key': `${action} ${entry.sharing_id}`,
    'aria-label': `${text} ${titleOf(entry)}`, on: {click: listener},
  }, text);
}

function qrCell(entry, on) {
  const image = qrImage(entry);
  if (!image) return [make('span', {class: 'quiet'}, 'None')];
  return [make('button', {
    type: 'button', class: 'qr-small', 'data-key': `show ${entry.sharing_id}`,
    'aria-label': `Show the QR code of ${titleOf(entry)}`, on: {click: () => on.show(entry)},
  }, make('img', {src: image, alt: '', width: 52, height: 52}))];
}

function linkCell(entry, on) {
  return [
    make('span', {class: entry.protect_title ? 'title' : 'title quiet'}, titleOf(entry)),
    make('span', {class: 'address'},
      make('a', {href: entry.url, target: '_blank', rel: 'noopener noreferrer', title: entry.url},
        entry.url.replace(/^https?:\/\//, '')),
      rowButton(entry, 'copy', 'Copy', 'small', (event) => on.copy(entry, event.currentTarget))),
  ];
}

// A text that may be long: cut to the column's width, complete in the tooltip.
function short(text) {
  return make('span', {class: 'short', title: text}, text);
}

function stateCell(entry) {
  return [make('span', {class: `state ${entry.status in STATES ? entry.status : ''}`},
    STATES[entry.status] ?? entry.status)];
}

function ownerCell(entry) {
  return [entry.owner_user ? short(entry.owner_user) : make('span', {class: 'quiet'}, `No account (uid ${entry.owner_uid})`)];
}

function protectionCell(entry) {
  const who = entry.protect_type === 'user' ? [...entry.protect_users, ...entry.protect_groups].join(', ') : '';
  return [make('span', {}, PROTECTIONS[entry.protect_type] ?? entry.protect_type),
    who !== '' && make('span', {class: 'second', title: who}, who)];
}

function time(text, none) {
  if (text === '') return [make('span', {class: 'quiet'}, none)];
  const [day, clock] = text.split(' ');
  return [make('time', {datetime: text.replace(' ', 'T')},
    make('span', {class: 'short'}, day), ' ', make('span', {class: 'second'}, clock.replace(/:00$/, '')))];
}

function visitsCell(entry) {
  if (entry.expire_times === 0) {
    return [make('span', {}, 'No limit'), ' ', make('span', {class: 'second'}, `${entry.visits} so far`)];
  }
  const left = Math.max(0, entry.expire_times - entry.visits);
  return [make('span', {}, `${left} left`), ' ', make('span', {class: 'second'}, `of ${entry.expire_times}`)];
}

function actionsCell(entry, on) {
  return [make('div', {},
    rowButton(entry, 'edit', 'Edit', 'small', () => on.edit(entry)),
    rowButton(entry, 'delete', 'Delete', 'small remove', () => on.remove(entry)))];
}
