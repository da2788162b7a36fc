// The part that files take in the owner's page: choosing files and folders to share, and what a link shares.

import {callApi} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {explain} from '/shared/errors.js';
import {loadTexts, t} from '/shared/texts.js';
import {showName, showSize} from '../names.js';
import {FilePicker} from './picker.js';

const PROJECT = 'files';

const call = (method, params) => callApi('/webapi/entry.cgi', 'VELT.Files', method, params);

function uploadWords({only, max_size: size, max_files: files}) {
  const words = [t('files_leave'), size !== undefined && t('files_leave_up_to', {size: showSize(size)}),
    files !== undefined && t('files_leave_at_most', {count: files}), only && t('files_leave_unseen')];
  return words.filter(Boolean).join(t('files_comma'));
}

// An upload that is not complete, with a button that removes it.
function unfinishedRow(id, {upload, name, size, offset}) {
  const shown = showName(name ?? '');
  const row = make('li', {}, make('bdi', {}, shown),
    ` (${t('files_unfinished', {sent: showSize(offset), size: showSize(size)})}) `);
  row.append(make('button', {
    type: 'button', 'aria-label': t('files_remove_unfinished', {name: shown}),
    on: {
      click: () => call('upload_remove', {sharing_id: id, upload})
        .then(() => row.remove(), (error) => row.append(' ', explain(error).text)),
    },
  }, t('files_remove')));
  return row;
}

// In the list of links, which has the link's data alone.
function summary({app}) {
  const names = app.items.map((path) => showName(path.split('/').at(-1)));
  return names[0] === '' ? '' : names.join(', ');
}

async function contents({sharing_id: id}) {
  const {title, items, upload, unfinished = []} = await call('describe', {sharing_id: id});
  return [
    ...items.map((item) => make('li', {class: item.missing ? 'missing' : null},
      make('bdi', {}, [title, ...item.path === '' ? [] : item.path.split('/').map(showName)].join(' › ')),
      item.missing ? ` ${t('files_gone')}` : item.type === 'file' ? ` (${showSize(item.size)})` : null)),
    ...upload ? [make('li', {}, uploadWords(upload))] : [],
    ...unfinished.map((each) => unfinishedRow(id, each)),
  ];
}

export async function takePart({newLink}) {
  await loadTexts('/pkg/files', '/pkg/files/owner');
  const {roots} = await call('roots').catch(() => ({roots: []})); // The application is not set up.
  if (roots.length === 0) return {project: PROJECT, contents, summary};
  document.head.append(make('link', {rel: 'stylesheet', href: '/pkg/files/owner/picker.css'}));
  const picker = new FilePicker(call, roots);
  return {
    project: PROJECT, contents, summary, button: t('files_share'),
    open: () => picker.open((app, title) => newLink(PROJECT, {app, protect_title: title})),
    change: async ({sharing_id: id, app}, save) => {
      const {items} = await call('describe', {sharing_id: id});
      picker.open((changed) => save({app: changed}), {...app, items: items.filter(({missing}) => !missing)});
    },
  };
}
