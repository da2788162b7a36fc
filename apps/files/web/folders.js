// The files of folders that are chosen or dropped, each with its path from there on.

/** Those in an input, as [{file, path}]. */
export function chosenIn(input) {
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

/** Those that were dropped. */
export async function droppedIn(event) {
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
