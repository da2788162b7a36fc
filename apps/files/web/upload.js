// Uploads. A file is sent in pieces, and the upload goes on when the connection comes back.

import {ApiError, parseJson} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {encodeName, showName, showSize} from '/shared/file-names.js';
import {t} from '/shared/texts.js';
import {addressOf, call, wordsFor} from '/pkg/files/link.js';

const PIECE = 4 * 1024 * 1024;
const LONGEST_PAUSE = 16000;
const MOST_FAILURES = 20; // in a row

const pause = (milliseconds) => new Promise((done) => { setTimeout(done, milliseconds); });

async function sendPiece(upload, offset, blob) {
  let answer;
  try {
    const response = await fetch(addressOf('upload_piece', {upload, offset}), {
      method: 'POST', headers: {'Content-Type': 'application/octet-stream'}, body: blob, cache: 'no-store',
    });
    answer = parseJson(await response.text());
  } catch {
    throw new ApiError('network');
  }
  if (answer?.success !== true) throw new ApiError(answer?.error?.code ?? 'server', answer?.error?.errors);
  return answer.data;
}

// Waits between tries, longer each time. Tries again only after failures that may pass.
async function persist(state, step) {
  for (;;) {
    try {
      const result = await step();
      state.failures = 0;
      return result;
    } catch (error) {
      const passing = ['network', 'server', 100, 117].includes(error.code);
      if (!passing || ++state.failures > MOST_FAILURES) throw error;
      state.say(t('waiting_connection'));
      await pause(Math.min(LONGEST_PAUSE, 250 * 2 ** state.failures));
    }
  }
}

/** Sends the piece at `at`; returns {offset, name}, where `name` is undefined until the file is complete. */
function sendAt(upload, at, file, state) {
  let tried = false;
  return persist(state, async () => {
    const again = tried;
    tried = true;
    try {
      if (again) {
        // The piece may have arrived although its answer was lost.
        const {offset, name} = await call('upload_state', {upload});
        if (offset !== at) return {offset, name};
      }
      return await sendPiece(upload, at, file.slice(at, at + PIECE));
    } catch (error) {
      if (error.code === 2007) return {offset: error.detail.offset};
      throw error;
    }
  });
}

/** Sends one file; returns the name that it got. */
async function sendFile(file, state) {
  let {upload, offset, name} = await persist(state, () =>
    call('upload_begin', {name: encodeName(file.name), size: file.size}));
  while (name === undefined) {
    ({offset, name} = await sendAt(upload, offset, file, state));
    state.show(offset);
  }
  return name;
}

class Row {
  failures = 0;

  constructor(file, list) {
    this.file = file;
    this.bar = make('progress', {max: Math.max(1, file.size), value: 0, 'aria-label': file.name});
    this.text = make('span', {class: 'hint', role: 'status'}, t('waiting'));
    this.item = make('li', {}, make('bdi', {}, showName(encodeName(file.name))), this.bar, this.text);
    list.append(this.item);
  }

  say(text) { this.text.textContent = text; }

  show(offset) {
    this.bar.value = offset;
    this.say(t('size_of', {sent: showSize(offset), size: showSize(this.file.size)}));
  }

  finish(text, state) {
    this.item.dataset.state = state;
    this.bar.remove();
    this.say(text);
  }
}

/** The part of the page where files are left. `done` is called when some have arrived. */
export function makeUpload(rule, done) {
  const list = make('ul', {class: 'uploads'});
  const input = make('input', {type: 'file', id: 'upload-files', multiple: true, class: 'visually-hidden'});
  let queue = Promise.resolve();

  const send = async (row) => {
    try {
      if (row.file.size > rule.max_size) throw new ApiError(2005);
      row.show(0);
      const name = showName(await sendFile(row.file, row));
      row.finish(name === row.file.name ? t('done') : t('done_as', {name}), 'done');
    } catch (error) {
      row.finish(wordsFor(error), 'failed');
    }
  };
  const add = (files) => {
    for (const file of files) {
      const row = new Row(file, list);
      queue = queue.then(() => send(row));
    }
    queue.then(done);
  };
  input.addEventListener('change', () => { add([...input.files]); input.value = ''; });
  const limit = rule.max_size === undefined ? '' : ` ${t('up_to', {size: showSize(rule.max_size)})}`;
  const zone = make('div', {
    class: 'drop',
    on: {
      dragover: (event) => { event.preventDefault(); zone.classList.add('over'); },
      dragleave: () => zone.classList.remove('over'),
      drop: (event) => { event.preventDefault(); zone.classList.remove('over'); add([...event.dataTransfer.files]); },
    },
  }, make('label', {for: 'upload-files', class: 'button'}, t('choose_files')), input,
  make('p', {class: 'hint'}, `${t('or_drop')}${limit}`));
  addEventListener('beforeunload', (event) => {
    if (list.querySelector('li:not([data-state])')) event.preventDefault();
  });
  return make('div', {id: 'upload'}, zone, list);
}
