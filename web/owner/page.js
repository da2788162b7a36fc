// The owner's page: lists links and acts on them.

import {callApi} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {explain} from '/shared/errors.js';
import {chooseLanguage, fillTexts, listenToLanguage, loadTexts, t} from '/shared/texts.js';
import {listenToMenu, startAccount} from './account.js';
import {changeOf, drawContents, loadApplications} from './applications.js';
import {ConfirmDialog, copyText, titleOf} from './dialogs.js';
import {LinkForm} from './form.js';
import {drawSummaries, drawVisits, visitsById} from './rows.js';
import {Selection} from './selection.js';
import {drawTell, listenToNotify} from './notify.js';
import {ShareView} from './share.js';
import {COLUMNS, drawTable} from './table.js';
import {DelayedDeletion} from './undo.js';

const find = (selector) => document.querySelector(selector);
const call = (method, params, options) => callApi('webapi/entry.cgi', 'VELT.Core.Sharing', method, params, options);
const NO_SUCH_LINK = 1005;
const MOST_FAILURES = 10; // that are listed
const SEARCH_PAUSE = 250; // milliseconds in which somebody types on

const view = {
  everybody: false, project: '', status: '', search: '',
  sortBy: 'created_at', ascending: false, offset: 0, limit: 10,
};
const projects = new Set();
let latestLoad = 0;
let drawn = []; // the links that the page shows
let searching; // the timer that begins a search

const share = new ShareView(find('#edit'));
const confirm = new ConfirmDialog(find('#confirm'));
const form = new LinkForm(find('#edit'), {
  save,
  confirmDiscard: () => confirm.ask({
    title: t('discard_title'), text: t('discard_text'), yes: t('discard'),
  }),
});

const selection = new Selection(find('#selection'), doWithChosen);
const deletion = new DelayedDeletion(find('#undo'), {
  remove: removeLinks,
  removed: (failures, count) => finishMany(failures, t('links_deleted', {count: count - failures.length})),
  changed: (text) => load(text),
  closed: () => (find('#selection').hidden ? mainButton() : find('#select-all')).focus(),
});

const rowActions = {
  sort, show, copy, edit, remove,
  isChosen: (entry) => selection.has(entry), choose: (entry, chosen) => selection.toggle(entry, chosen),
};

function scopeParams() {
  return {
    ...(view.everybody && {all_entry: true}),
    ...(view.project !== '' && {project_name: view.project}),
  };
}

// Without QR codes, each of which is a program's work.
function listLinks(page) {
  return callApi('webapi/entry.cgi', 'VELT.Links', 'find', {
    ...scopeParams(), text: view.search, status: view.status,
    sort_by: view.sortBy, sort_direction: view.ascending ? 'ASC' : 'DESC', ...page,
  });
}

// What a page is above all for: the first application's button, or else the menu that makes other links.
function mainButton() {
  return find('[data-application]') ?? find('#more summary');
}

// Asks for the page of links that `view` names and draws it; `done` is announced before the result.
async function load(done = '') {
  const turn = ++latestLoad;
  find('#links').setAttribute('aria-busy', 'true');
  let answer;
  try {
    // As many more as are hidden.
    answer = await listLinks({offset: view.offset, limit: view.limit + deletion.size});
  } catch (error) {
    if (turn === latestLoad) showProblem(error);
    return;
  }
  if (turn !== latestLoad) return;
  const left = answer.sharings.filter((entry) => !deletion.holds(entry));
  answer = {sharings: left.slice(0, view.limit), total: answer.total - answer.sharings.length + left.length};
  if (answer.sharings.length === 0 && view.offset > 0) {
    // The page's last link is gone: show the page that is the last now.
    view.offset = Math.max(0, Math.floor((answer.total - 1) / view.limit) * view.limit);
    if (answer.total > 0) return void await load(done);
  }
  draw(answer, done);
}

function showProblem(error) {
  find('#links').setAttribute('aria-busy', 'false');
  tell(explain(error).text);
}

function tell(problem) {
  find('#problem').textContent = problem;
  find('#problem').hidden = false;
}

function draw(answer, done) {
  drawn = answer.sharings;
  find('#problem').hidden = true;
  const table = find('#links');
  table.setAttribute('aria-busy', 'false');
  table.hidden = answer.total === 0;
  if (!drawTable(table, answer.sharings, view, rowActions)) mainButton().focus();
  selection.show(answer.sharings);
  drawSummaries(drawn);
  drawVisits(drawn);
  for (const {project_name: name} of answer.sharings) projects.add(name);
  drawProjects();
  const last = view.offset + answer.sharings.length;
  const range = answer.total === 0 ? t('no_links') : t('range', {first: view.offset + 1, last, total: answer.total});
  find('#range').textContent = range;
  find('#previous').setAttribute('aria-disabled', view.offset === 0);
  find('#next').setAttribute('aria-disabled', last >= answer.total);
  find('.pages').hidden = answer.total === 0;
  drawEmpty(answer.total === 0);
  drawChoices();
  const now = answer.total === 0 ? t('no_links_said') : t('range_said', {range});
  find('#status').textContent = `${done} ${now}`.trim();
}

// For the fields in which somebody writes the name of an application.
function drawProjects() {
  find('#projects').replaceChildren(...[...projects].sort().map((name) => make('option', {value: name})));
}

function drawEmpty(empty) {
  const narrowed = view.project !== '' || view.status !== '' || view.search !== '';
  find('#empty').hidden = !empty;
  const [title, text] = narrowed ? ['no_match', 'no_match_text'] : ['empty_title', 'empty_text'];
  find('#empty h2').textContent = t(title);
  find('#empty p').textContent = t(text);
  find('#empty ol').hidden = narrowed;
  find('#empty button').hidden = narrowed;
}

function drawChoices() {
  for (const button of find('#scope').children) {
    button.setAttribute('aria-pressed', (button.dataset.scope === 'all') === view.everybody);
  }
  find('#sort-by').value = view.sortBy;
  find('#sort-direction').textContent = view.ascending ? '↑' : '↓';
  find('#sort-direction').setAttribute('aria-label', t(view.ascending ? 'ascending' : 'descending'));
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

async function show(entry, hint = t('share_hint')) {
  let link = entry;
  try {
    if (link.qrcode === undefined) link = await call('get', {sharing_id: entry.sharing_id});
  } catch (error) {
    showProblem(error);
    return false;
  }
  form.open(link, {hint});
  share.draw(link, visitsById.get(link.sharing_id));
  find('#share-change').hidden = !changeOf(link);
  find('#share-change').onclick = async () => await form.close() && change(link);
  drawContents(find('#share-contents'), link);
  drawTell(find('#tell'), link.sharing_id);
  find('#share-copy').focus();
  return true;
}

// Has the owner choose anew what the link shares.
async function change(entry) {
  try {
    await changeOf(entry)(entry, async (fields) => {
      await call('set', {sharing_id: entry.sharing_id, project_name: entry.project_name, ...fields});
      loadAll(t('changes_saved'));
    });
  } catch (error) {
    showProblem(error);
  }
}

async function copy(entry, button) {
  if (!await copyText(entry.url)) return show(entry);
  find('#status').textContent = t('address_of_copied', {title: titleOf(entry)});
  button.textContent = t('copied');
  setTimeout(() => { button.textContent = t('copy'); }, 2000);
}

async function edit(entry) {
  if (await show(entry)) form.focus();
}

async function save(params, close) {
  const link = await call('set', params);
  close();
  if (params.sharing_id) return void loadAll(t('changes_saved'));
  showNew(link, params);
}

async function showNew(made, params) {
  view.offset = 0;
  loadAll(t('link_created'));
  await show({...await call('get', {sharing_id: made.sharing_id}), ...made, project_name: params.project_name}, t('link_ready'));
}

// At once, without protection or an end: both can be set where the link is shown.
async function makeLink(project, fields) {
  const params = {project_name: project, ...fields};
  try {
    await showNew(await call('set', params), params);
  } catch (error) {
    showProblem(error);
  }
}

function remove(entry) {
  selection.toggle(entry, false);
  return deletion.begin([entry], t('deletes_link', {title: titleOf(entry)}));
}

async function removeLinks(entries, {leaving}) {
  const request = ({sharing_id: id}) => call('delete', {sharing_id: id}, {keepalive: leaving});
  if (leaving) return void entries.forEach((entry) => request(entry).catch(() => {}));
  return selection.each(entries, async (entry) => {
    try {
      await request(entry);
    } catch (error) {
      if (error.code !== NO_SUCH_LINK) throw error; // somebody else was first
    }
  });
}

async function doWithChosen(what, entries) {
  if (what === 'delete') return deletion.begin(entries, t('deletes_links', {count: entries.length}));
  const enabled = what === 'on';
  const failures = await selection.each(entries, (entry) =>
    call('set', {sharing_id: entry.sharing_id, project_name: entry.project_name, enabled}));
  const count = entries.length - failures.length;
  return finishMany(failures, t(enabled ? 'links_on' : 'links_off', {count}));
}

async function finishMany(failures, done) {
  await loadAll(done);
  const more = failures.length > MOST_FAILURES ? ['…'] : [];
  if (failures.length > 0) tell([...failures.slice(0, MOST_FAILURES), ...more].join('\n'));
}

async function clean() {
  const whose = view.everybody ? 'clean_everybodys' : 'clean_own';
  const done = await confirm.ask({
    title: t('clean_title'), yes: t('clean'),
    text: view.project === '' ? t(whose) : t(`${whose}_of_project`, {project: view.project}),
    action: () => call('trigger_gc', scopeParams()),
  });
  if (done) loadAll(t('expired_removed'));
}

function listen() {
  listenToMenu(find('#more'));
  listenToNotify(find('#account [data-do="notify"]'));
  find('#new').addEventListener('click', () => form.open(null, {project: view.project}));
  find('#clean').addEventListener('click', clean);
  find('#empty button').addEventListener('click', () => {
    const button = mainButton();
    button.focus(); // The other is gone when there is a link.
    if (button.matches('[data-application]')) button.click();
    else form.open(null, {project: view.project});
  });
  for (const button of find('#scope').children) {
    button.addEventListener('click', () => {
      view.everybody = button.dataset.scope === 'all';
      narrow();
      drawScope();
    });
  }
  const filter = find('#project-filter');
  for (const event of ['change', 'search']) { // "search": the field's own clear button
    filter.addEventListener(event, () => {
      if (view.project === filter.value) return;
      view.project = filter.value;
      narrow();
    });
  }
  find('#state-filter').addEventListener('change', (event) => {
    view.status = event.target.value;
    narrow();
  });
  for (const event of ['input', 'change']) {
    find('#search').addEventListener(event, ({target}) => {
      clearTimeout(searching);
      searching = setTimeout(() => {
        if (view.search === target.value.trim()) return;
        view.search = target.value.trim();
        narrow();
      }, SEARCH_PAUSE);
    });
  }
  find('#page-size').addEventListener('change', (event) => {
    view.limit = Number(event.target.value);
    view.offset = 0;
    load();
  });
  listenToTurns();
}

// Other links are to be shown. What was chosen may be none of them, so nothing is.
function narrow() {
  selection.clear();
  view.offset = 0;
  load();
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
    .map((column) => make('option', {value: column.sort}, t(column.title))));
  find('#sort-by').addEventListener('change', (event) => sort(event.target.value));
  find('#sort-direction').addEventListener('click', () => sort(view.sortBy));
}

async function start() {
  const languages = find('#language');
  await chooseLanguage(languages);
  await loadTexts('/shared', '/signin', '/owner');
  if (!await startAccount()) return;
  fillTexts();
  listenToLanguage(languages);
  listen();
  find('#page').hidden = false;
  // A page that comes back out of the browser's memory is of another time.
  addEventListener('pageshow', (event) => event.persisted && loadAll());
  document.addEventListener('resume', () => loadAll());
  find('#empty button').textContent = t('new_link');
  loadAll();
  const applications = await loadApplications(find('#more'), makeLink);
  for (const {project, button} of applications) {
    projects.add(project);
    if (button) find('#empty button').textContent = button;
  }
  drawSummaries(drawn);
}

start();
