// Choosing and dropping files and folders. Each file comes with its path from there on.

import {make} from '/shared/dom.js';
import {t} from '/shared/texts.js';

// As [{file, path}].
function chosenIn(input) {
  return [...input.files].map((file) => ({file, path: file.webkitRelativePath || file.name}));
}

const ask = (object, method) => new Promise((resolve, reject) => { object[method](resolve, reject); });

// What can't be read stays in the list as it is, so that its row says so.
async function filesOf(entry, file) {
  const path = entry.fullPath.replace(/^\//, '');
  try {
    if (entry.isFile) return [{file: await ask(entry, 'file'), path}];
    const found = [];
    const reader = entry.createReader();
    for (let some = await ask(reader, 'readEntries'); some.length > 0; some = await ask(reader, 'readEntries')) {
      for (const inner of some) found.push(...await filesOf(inner, null));
    }
    return found;
  } catch {
    return [{file: file ?? new File([], entry.name), path}];
  }
}

async function droppedIn(event) {
  // The event forgets them when this first waits.
  const items = [...event.dataTransfer.items].filter(({kind}) => kind === 'file')
    .map((item) => ({file: item.getAsFile(), entry: item.webkitGetAsEntry?.()}));
  const found = [];
  for (const {file, entry} of items) {
    if (entry) found.push(...await filesOf(entry, file));
    else if (file) found.push({file, path: file.name});
  }
  return found;
}

/** Buttons that choose files, and where the browser can, a folder. `add(files)` gets them. */
export function makeChoosers(id, add) {
  const chooser = (kind, text, more) => {
    const input = make('input', {type: 'file', id: `${id}-${kind}`, multiple: true, class: 'visually-hidden', ...more});
    input.addEventListener('change', () => { add(chosenIn(input)); input.value = ''; });
    return [make('label', {for: input.id, class: 'button'}, t(text)), input];
  };
  return [...chooser('files', 'choose_files'),
    ...'webkitdirectory' in HTMLInputElement.prototype ? chooser('folder', 'choose_folder', {webkitdirectory: true}) : []];
}

/** Has files that are dropped on `zone` passed to `add`. */
export function takeDropped(zone, add) {
  const over = (is) => zone.classList.toggle('over', is);
  zone.addEventListener('dragover', (event) => {
    if (![...event.dataTransfer.types].includes('Files')) return;
    event.preventDefault();
    over(true);
  });
  zone.addEventListener('dragleave', () => over(false));
  zone.addEventListener('drop', (event) => {
    event.preventDefault();
    over(false);
    droppedIn(event).then(add);
  });
}
