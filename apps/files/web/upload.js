// Uploads. A file is sent in pieces, and the upload goes on when the connection comes back.

import {ApiError, parseJson} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {t} from '/shared/texts.js';
import {addressOf, call, wordsFor} from '/pkg/files/link.js';
import {encodeName, showName, showSize} from '/pkg/files/names.js';

const PIECE = 4 * 1024 * 1024;
const LONGEST_PAUSE = 16000;
const MOST_FAILURES = 20; // in a row
const MOST_AT_ONCE = 3;   // one is sent, and others wait for the connection

// Waits, but no longer than until `signal` is aborted.
const pause = (milliseconds, signal) => new Promise((done) => {
  setTimeout(done, milliseconds);
  signal.addEventListener('abort', done);
});

// The file's bytes from `at` on. Fails for a folder, and for a file that is gone or has changed: it has no size any more,
// and a part of it can be read as empty.
async function readPiece({file, size}, at) {
  const bytes = await (size === 0 ? file : file.slice(at, at + PIECE)).arrayBuffer().catch(() => null);
  if (bytes?.byteLength !== Math.min(PIECE, size - at)) throw new ApiError('unreadable');
  return bytes;
}

async function sendPiece(upload, offset, body, signal) {
  let answer;
  try {
    const response = await fetch(addressOf('upload_piece', {upload, offset}), {
      method: 'POST', headers: {'Content-Type': 'application/octet-stream'}, body, cache: 'no-store', signal,
    });
    answer = parseJson(await response.text());
  } catch {
    throw new ApiError('network');
  }
  if (answer?.success !== true) throw new ApiError(answer?.error?.code ?? 'server', answer?.error?.errors);
  return answer.data;
}

// Waits between tries, longer each time. Tries again only after failures that may pass.
async function persist(row, step) {
  for (;;) {
    if (row.signal.aborted) throw new ApiError('cancelled');
    try {
      const result = await step();
      row.failures = 0;
      return result;
    } catch (error) {
      const passing = ['network', 'server', 100, 117].includes(error.code);
      if (row.signal.aborted || !passing || ++row.failures > MOST_FAILURES) throw error;
      row.say(t('waiting_connection'));
      row.onPause(true);
      await pause(Math.min(LONGEST_PAUSE, 250 * 2 ** row.failures), row.signal);
      row.onPause(false);
    }
  }
}

/** Sends the piece at `at`; returns {offset, name}, where `name` is undefined until the file is complete. */
async function sendAt(row, at) {
  const bytes = await readPiece(row, at);
  let tried = false;
  return persist(row, async () => {
    const again = tried;
    tried = true;
    try {
      if (again) {
        // The piece may have arrived although its answer was lost.
        const {offset, name} = await call('upload_state', {upload: row.upload});
        if (offset !== at) return {offset, name};
      }
      return await sendPiece(row.upload, at, bytes, row.signal);
    } catch (error) {
      if (error.code === 2007) return {offset: error.detail.offset};
      throw error;
    }
  });
}

// Where the row's upload goes on; begins one when there is none any more.
async function begin(row) {
  if (row.upload) {
    try {
      return await persist(row, () => call('upload_state', {upload: row.upload}));
    } catch (error) {
      if (error.code !== 2008) throw error;
    }
  }
  const begun = await persist(row, () => call('upload_begin', {name: encodeName(row.file.name), size: row.size}));
  row.upload = begun.upload;
  return begun;
}

/** Sends one file; returns the name that it got. */
async function sendFile(row) {
  await readPiece(row, 0); // before the upload begins, which may be for nothing
  let {offset, name} = await begin(row);
  while (name === undefined) {
    row.show(offset);
    ({offset, name} = await sendAt(row, offset));
  }
  return name;
}

/** One file of the list. It ends by itself, and can be cancelled before and tried again afterwards. */
class Row {
  failures = 0;

  constructor(file, list, start) {
    this.file = file;
    this.size = file.size;
    this.bar = make('progress', {max: Math.max(1, this.size), value: 0, 'aria-label': file.name});
    this.text = make('span', {class: 'hint', role: 'status'});
    this.button = make('button', {type: 'button', on: {click: () => {
      if (this.item.dataset.state) start(this.wait());
      else this.abort.abort();
    }}});
    this.item = make('li', {}, make('bdi', {}, showName(encodeName(file.name))), this.bar, this.text, this.button);
    list.append(this.item);
    this.wait();
  }

  wait() {
    this.failures = 0;
    this.abort = new AbortController();
    this.signal = this.abort.signal;
    delete this.item.dataset.state;
    this.bar.hidden = false;
    this.name('cancel');
    this.say(t('waiting'));
    return this;
  }

  name(action) {
    this.button.textContent = t(action);
    this.button.setAttribute('aria-label', `${t(action)}: ${this.file.name}`);
  }

  say(text) { this.text.textContent = text; }

  show(offset) {
    this.bar.value = offset;
    this.say(t('size_of', {sent: showSize(offset), size: showSize(this.size)}));
  }

  finish(text, state) {
    this.item.dataset.state = state;
    this.bar.hidden = true;
    this.button.hidden = state === 'done';
    this.name('try_again');
    this.say(text);
  }

  async send(rule) {
    try {
      if (this.signal.aborted) throw new ApiError('cancelled');
      if (this.size > rule.max_size) throw new ApiError(2005);
      this.show(0);
      const name = showName(await sendFile(this));
      this.finish(name === this.file.name ? t('done') : t('done_as', {name}), 'done');
    } catch (error) {
      this.finish(wordsFor(this.signal.aborted ? {code: 'cancelled'} : error), 'failed');
      if (this.signal.aborted && this.upload) {
        call('upload_cancel', {upload: this.upload}).catch(() => {}); // it is given up later then
        this.upload = undefined;
      }
    }
  }
}

/** The part of the page where files are left. `done` is called when some have arrived. */
export function makeUpload(rule, done) {
  const list = make('ul', {class: 'uploads'});
  const input = make('input', {type: 'file', id: 'upload-files', multiple: true, class: 'visually-hidden'});
  const waiting = [];
  let begun = 0;
  let paused = 0;

  // Sends one after the other, and goes on with the next while one waits for the connection.
  const next = () => {
    while (waiting.length > 0 && begun - paused < 1 && begun < MOST_AT_ONCE) {
      ++begun;
      const row = waiting.shift();
      row.onPause = (is) => { paused += is ? 1 : -1; next(); };
      row.send(rule).then(() => {
        --begun;
        if (begun + waiting.length === 0) done();
        next();
      });
    }
  };
  const start = (row) => { waiting.push(row); next(); };
  const add = (files) => {
    for (const file of files) start(new Row(file, list, start));
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
