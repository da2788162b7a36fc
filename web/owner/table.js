// The table of links. At phone width its rows become cards, whose cells carry their column's title.

import {make} from '/shared/dom.js';
import {hasText, showMoment, t} from '/shared/texts.js';
import {titleOf} from './dialogs.js';

/** The columns; `title` is a text's key, `sort` the name by which the API sorts them. */
export const COLUMNS = [
  {title: 'select', cell: selectCell, className: 'select', quiet: true},
  {title: 'title', sort: 'protect_title', cell: linkCell, className: 'link'},
  {title: 'state', cell: stateCell},
  {title: 'project', sort: 'project_name', cell: (entry) => [short(entry.project_name)]},
  {title: 'owner', sort: 'owner_uid', cell: ownerCell, everybody: true},
  {title: 'protection', sort: 'protect_type', cell: protectionCell},
  {title: 'visits', sort: 'visits', cell: visitsCell, className: 'visits'},
  {title: 'starts', sort: 'start_at', cell: (entry) => time(entry.start_at, t('at_once'))},
  {title: 'ends', sort: 'expire_at', cell: (entry) => time(entry.expire_at, t('never'))},
  {title: 'created', sort: 'created_at', cell: (entry) => time(entry.created_at, '')},
  {title: 'actions', cell: actionsCell, className: 'actions', quiet: true},
];

/**
 * Redraws the table. `view` is {everybody, sortBy, ascending}; `on` has the functions `sort(name)`,
 * `show(entry)`, `copy(entry, button)`, `edit(entry)`, `remove(entry)`, `isChosen(entry)` and
 * `choose(entry, chosen)`. The focus stays on its element, or goes to the neighbour of one that is gone;
 * false when there is neither.
 */
export function drawTable(table, entries, view, on) {
  const columns = COLUMNS.filter((column) => view.everybody || !column.everybody);
  const focus = document.activeElement;
  const key = table.contains(focus) ? focus.dataset.key : undefined;
  const rowIndex = focus?.closest('tbody tr')?.sectionRowIndex ?? 0;

  table.tHead.rows[0].replaceChildren(...columns.map((column) => headCell(column, view, on)));
  table.tBodies[0].replaceChildren(...entries.map((entry) => make('tr', {role: 'row', 'data-id': entry.sharing_id},
    ...columns.map((column) => make('td', {
      role: 'cell', class: column.className, 'data-title': column.quiet ? null : t(column.title),
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
      t(column.title), make('span', {class: 'arrow', 'aria-hidden': 'true'}, sorted && !view.ascending ? '↓' : '↑')) :
    make('span', {class: column.quiet ? 'visually-hidden' : null}, t(column.title));
  return make('th', {
    role: 'columnheader', scope: 'col', class: column.className, 'aria-sort': sorted ? direction : null,
  }, title);
}

// A button of a row. Its name includes the link's title, because a screen reader may read it alone.
function rowButton(entry, action, className, listener, text = t(action)) {
  return make('button', {
    type: 'button', class: className, 'data-key': `${action} ${entry.sharing_id}`,
    'aria-label': t(`${action}_of`, {title: titleOf(entry)}), on: {click: listener},
  }, text);
}

function selectCell(entry, on) {
  return [make('input', {
    type: 'checkbox', checked: on.isChosen(entry), 'data-key': `select ${entry.sharing_id}`,
    'aria-label': t('select_of', {title: titleOf(entry)}),
    on: {change: (event) => on.choose(entry, event.target.checked)},
  })];
}

function linkCell(entry, on) {
  return [
    make('span', {class: entry.protect_title ? 'title' : 'title quiet', dir: 'auto'}, titleOf(entry)),
    make('span', {class: 'summary', dir: 'auto', hidden: true}), // of what it shares: drawSummaries
    make('span', {class: 'address'},
      make('a', {href: entry.url, target: '_blank', rel: 'noopener noreferrer', title: entry.url, dir: 'ltr'},
        entry.url.replace(/^https?:\/\//, '')),
      rowButton(entry, 'copy', 'small', (event) => on.copy(entry, event.currentTarget)),
      rowButton(entry, 'show', 'small', () => on.show(entry), t('share'))),
  ];
}

// A text that may be long: cut to the column's width, complete in the tooltip.
function short(text) {
  return make('span', {class: 'short', title: text, dir: 'auto'}, text);
}

// A value of the API; one that is new is shown as it is.
function known(kind, value) {
  return hasText(`${kind}_${value}`) ? t(`${kind}_${value}`) : value;
}

function stateCell(entry) {
  return [make('span', {class: `state ${entry.status}`}, known('state', entry.status))];
}

function ownerCell(entry) {
  return [entry.owner_user ? short(entry.owner_user) :
    make('span', {class: 'quiet'}, t('no_account', {uid: entry.owner_uid}))];
}

function protectionCell(entry) {
  const who = entry.protect_type === 'user' ? [...entry.protect_users, ...entry.protect_groups].join(', ') : '';
  return [make('span', {}, known('protection', entry.protect_type)),
    who !== '' && make('span', {class: 'second', title: who, dir: 'auto'}, who)];
}

function time(text, none) {
  if (text === '') return [make('span', {class: 'quiet'}, none)];
  return [make('time', {datetime: text.replace(' ', 'T'), dir: 'auto'},
    make('span', {class: 'short'}, showMoment(text, {dateStyle: 'medium'})), ' ',
    make('span', {class: 'second'}, showMoment(text, {timeStyle: 'short'})))];
}

function visitsCell(entry) {
  if (entry.expire_times === 0) {
    return [make('span', {}, t('no_limit')), ' ', make('span', {class: 'second'}, t('so_far', {count: entry.visits}))];
  }
  const left = Math.max(0, entry.expire_times - entry.visits);
  return [make('span', {}, t('visits_left', {count: left})), ' ',
    make('span', {class: 'second'}, t('visits_of', {count: entry.expire_times}))];
}

function actionsCell(entry, on) {
  return [make('div', {},
    rowButton(entry, 'edit', 'small', () => on.edit(entry)),
    rowButton(entry, 'delete', 'small remove', () => on.remove(entry)))];
}
