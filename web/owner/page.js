// The owner's page: lists links and acts on them.

import {callApi} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {explain} from '/shared/errors.js';
import {ConfirmDialog, ShareDialog, copyText, titleOf} from './dialogs.js';
import {FilePicker, drawContents, PROJECT as FILES} from './files.js';
import {LinkForm} from './form.js';
import {COLUMNS, drawTable} from './table.js';

const find = (selector) => document.querySelector(selector);
const call = (method, params) => callApi('webapi/entry.cgi', 'VELT.Core.Sharing', method, params);

const view = {
  everybody: false, project: '', sharedWithMe: false,
  sortBy: 'created_at', ascending: false, offset: 0, limit: 10,
};
const projects = new Set();
let latestLoad = 0;

const share = new ShareDialog(find('#share'));
const confirm = new ConfirmDialog(find('#confirm'));
const form = new LinkForm(find('#edit'), {
  save,
  confirmDiscard: () => confirm.ask({
    title: 'Discard your changes?', text: 'What you entered is lost.', yes: 'Discard',
  }),
});

const picker = new FilePicker(find('#pick'), (app, title) => form.open(null, FILES, {app, protect_title: title}));

function scopeParams() {
  return {
    ...(view.everybody && {all_entry: true}),
    ...(view.project !== '' && {project_name: view.project}),
  };
}

// Asks for the page of links that `view` names and draws it; `done` is announced before the result.
async function load(done = '') {
  const turn = ++latestLoad;
  find('#links').setAttribute('aria-busy', 'true');
  let answer;
  try {
    answer = await call('list', {
      ...scopeParams(), ...(view.sharedWithMe && {share_with_me: true}),
      sort_by: view.sortBy, sort_direction: view.ascending ? 'ASC' : 'DESC',
      offset: view.offset, limit: view.limit,
    });
  } catch (error) {
    if (turn === latestLoad) showProblem(error);
    return;
  }
  if (turn !== latestLoad) return;
  if (answer.sharings.length === 0 && view.offset > 0) {
    // The page's last link is gone: show the page that is the last now.
    view.offset = Math.max(0, Math.floor((answer.total - 1) / view.limit) * view.limit);
    if (answer.total > 0) return void await load(done);
  }
  draw(answer, done);
}

function showProblem(error) {
  find('#links').setAttribute('aria-busy', 'false');
  find('#problem').textContent = explain(error).text;
  find('#problem').hidden = false;
}

function draw(answer, done) {
  find('#problem').hidden = true;
  const table = find('#links');
  table.setAttribute('aria-busy', 'false');
  table.hidden = answer.total === 0;
  if (!drawTable(table, answer.sharings, view, {sort, show, copy, edit, remove})) find('#new').focus();
  for (const {project_name: name} of answer.sharings) projects.add(name);
  find('#projects').replaceChildren(...[...projects].sort().map((name) => make('option', {value: name})));

  const last = view.offset + answer.sharings.length;
  const range = answer.total === 0 ? 'No links' : `${view.offset + 1}–${last} of ${answer.total}`;
  find('#range').textContent = range;
  find('#previous').setAttribute('aria-disabled', view.offset === 0);
  find('#next').setAttribute('aria-disabled', last >= answer.total);
  drawEmpty(answer.total === 0);
  drawChoices();
  find('#status').textContent = `${done} ${answer.total === 0 ? 'No links.' : `Links ${range}.`}`.trim();
}

function drawEmpty(empty) {
  const narrowed = view.project !== '' || view.sharedWithMe;
  find('#empty').hidden = !empty;
  find('#empty p').textContent = narrowed ? 'No link matches.' : 'There are no links yet.';
  find('#empty button').hidden = narrowed;
}

function drawChoices() {
  for (const button of find('#scope').children) {
    button.setAttribute('aria-pressed', (button.dataset.scope === 'all') === view.everybody);
  }
  find('#sort-by').value = view.sortBy;
  find('#sort-direction').textContent = view.ascending ? '↑' : '↓';
  find('#sort-direction').setAttribute('aria-label', view.ascending ? 'Ascending' : 'Descending');
}

// No answer says whether the caller is an administrator. But only for an administrator does a list of
// everybody's links count more than the caller's own. When both counts are equal the switch would change
// nothing, so it is hidden. A limit of 0 returns the count alone.
async function drawScope() {
  let totals;
  try {
    totals = await Promise.all([false, true].map((all) => call('list', {all_entry: all, offset: 0, limit: 0})));
  } catch {
    return; // The list itself reports what is wrong.
  }
  const [own, all] = totals.map((answer) => answer.total);
  find('#scope').hidden = all <= own && !view.everybody;
  for (const button of find('#scope').children) {
    button.querySelector('.count').textContent = button.dataset.scope === 'all' ? all : own;
  }
}

async function loadAll(done) {
  await Promise.all([load(done), drawScope()]);
}

function sort(name) {
  // The same column again turns the order; another starts with the smallest, a time with the latest.
  view.ascending = name === view.sortBy ? !view.ascending : !name.endsWith('_at');
  view.sortBy = name;
  view.offset = 0;
  load();
}

function show(entry, title = titleOf(entry)) {
  share.open(entry, title, 'Scan the code, or send the address.');
  drawContents(find('#share-contents'), entry);
}

async function copy(entry, button) {
  if (!await copyText(entry.url)) return show(entry);
  find('#status').textContent = `Address of ${titleOf(entry)} copied.`;
  button.textContent = 'Copied';
  setTimeout(() => { button.textContent = 'Copy'; }, 2000);
}

async function edit({sharing_id: id}) {
  try {
    form.open(await call('get', {sharing_id: id}));
  } catch (error) {
    showProblem(error);
  }
}

async function save(params, close) {
  const link = await call('set', params);
  close();
  if (params.sharing_id) return void loadAll('Changes saved.');
  view.offset = 0;
  show({...link, project_name: params.project_name}, 'Your link is ready');
  loadAll('Link created.');
}

async function remove(entry) {
  const done = await confirm.ask({
    title: 'Delete this link?',
    text: `“${titleOf(entry)}” in ${entry.project_name} stops working at once, and visits to it end. ` +
      'It cannot be brought back.',
    yes: 'Delete',
    action: () => call('delete', {sharing_id: entry.sharing_id}),
  });
  if (done) loadAll('Link deleted.');
}

async function clean() {
  const whose = view.everybody ? 'everybody’s links' : 'your links';
  const where = view.project === '' ? '' : ` in ${view.project}`;
  const done = await confirm.ask({
    title: 'Clean expired links?',
    text: `Of ${whose}${where}, those that have ended or are used up and are marked “Remove it once it has ended” ` +
      'are deleted for good.',
    yes: 'Clean',
    action: () => call('trigger_gc', scopeParams()),
  });
  if (done) loadAll('Expired links removed.');
}

function listen() {
  for (const button of [find('#new'), find('#empty button')]) {
    button.addEventListener('click', () => {
      find('#new').focus(); // The other button is gone when the form is closed.
      form.open(null, view.project);
    });
  }
  find('#share-files').addEventListener('click', () => picker.open());
  find('#clean').addEventListener('click', clean);
  for (const button of find('#scope').children) {
    button.addEventListener('click', () => {
      view.everybody = button.dataset.scope === 'all';
      view.offset = 0;
      loadAll();
    });
  }
  const filter = find('#project-filter');
  for (const event of ['change', 'search']) { // "search": the field's own clear button
    filter.addEventListener(event, () => {
      if (view.project === filter.value) return;
      view.project = filter.value;
      view.offset = 0;
      load();
    });
  }
  find('#shared-with-me').addEventListener('change', (event) => {
    view.sharedWithMe = event.target.checked;
    view.offset = 0;
    load();
  });
  find('#page-size').addEventListener('change', (event) => {
    view.limit = Number(event.target.value);
    view.offset = 0;
    load();
  });
  listenToTurns();
}

function listenToTurns() {
  for (const [button, step] of [[find('#previous'), -1], [find('#next'), 1]]) {
    button.addEventListener('click', () => {
      if (button.getAttribute('aria-disabled') === 'true') return;
      view.offset = Math.max(0, view.offset + step * view.limit);
      load();
    });
  }
  find('#sort-by').append(...COLUMNS.filter((column) => column.sort)
    .map((column) => make('option', {value: column.sort}, column.title)));
  find('#sort-by').addEventListener('change', (event) => sort(event.target.value));
  find('#sort-direction').addEventListener('click', () => sort(view.sortBy));
}

listen();
loadAll();
picker.isOffered().then((offered) => { find('#share-files').hidden = !offered; });
