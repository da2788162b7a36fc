// Uploads. A file is sent in pieces, and the upload goes on when the connection comes back.

import {ApiError, parseJson} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {t} from '/shared/texts.js';
import {chosenIn, droppedIn} from '/pkg/files/folders.js';
import {forgetUpload, keepUpload, keptUpload, waitingFiles} from '/pkg/files/interrupted.js';
import {addressOf, call, wordsFor} from '/pkg/files/link.js';
import {encodeName, showName, showSize} from '/pkg/files/names.js';
import {Sent} from '/pkg/files/sent.js';
import {makeTerminal} from '/pkg/files/terminal.js';

const PIECE = 4 * 1024 * 1024;
const LONGEST_PAUSE = 16000;
const MOST_FAILURES = 20; // in a row
const AT_ONCE = 3;
const MOST_AT_ONCE = 9;   // with those that wait for the connection

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
  const begun = await persist(row, () => call('upload_begin', {name: encodeName(row.path), size: row.size}));
  row.upload = begun.upload;
  if (begun.upload) keepUpload(row.key, begun.upload);
  return begun;
}

/** Sends one file; returns the name that it got. */
async function sendFile(row) {
  await readPiece(row, 0); // before the upload begins, which may be for nothing
  let {offset, name} = await begin(row);
  while (name === undefined) {
    row.show(offset);
    await row.whileHeld();
    ({offset, name} = await sendAt(row, offset));
  }
  return name;
}

/** One file of the list. It ends by itself, and can be held and cancelled before and tried again afterwards. */
class Row {
  failures = 0;
  sent = 0;
  #held = null; // ends the wait that `#wait` is
  #wait;

  /** `start(row)` has it sent, `changed()` follows what it shows. */
  constructor({file, path}, list, start, changed) {
    this.file = file;
    this.path = path;
    this.size = file.size;
    this.key = {name: path, size: file.size, lastModified: file.lastModified};
    this.upload = keptUpload(this.key);
    this.changed = changed;
    this.hold = make('button', {type: 'button', on: {click: () => this.#turn()}});
    this.bar = make('progress', {max: Math.max(1, this.size), value: 0, 'aria-label': path});
    this.text = make('span', {class: 'hint', role: 'status'});
    this.button = make('button', {type: 'button', on: {click: () => {
      if (this.item.dataset.state) start(this.wait());
      else this.abort.abort();
    }}});
    this.item = make('li', {}, make('bdi', {}, showName(encodeName(path))), this.bar, this.text, this.hold, this.button);
    list.append(this.item);
    this.wait();
  }

  wait() {
    this.failures = 0;
    this.abort = new AbortController();
    this.signal = this.abort.signal;
    delete this.item.dataset.state;
    this.bar.hidden = this.hold.hidden = false;
    this.name(this.hold, 'hold');
    this.name(this.button, 'cancel');
    this.say(t('waiting'));
    return this;
  }

  name(button, action) {
    button.textContent = t(action);
    button.setAttribute('aria-label', `${t(action)}: ${this.path}`);
  }

  // Holds the upload after the piece that is being sent, or lets it go on.
  #turn() {
    if (this.#held) {
      this.#held();
      return;
    }
    this.#wait = new Promise((resolve) => { this.#held = resolve; });
    this.name(this.hold, 'go_on');
    this.say(t('held'));
  }

  async whileHeld() {
    if (!this.#held) return;
    this.say(t('held'));
    this.onPause(true);
    this.signal.addEventListener('abort', () => this.#held?.());
    await this.#wait;
    this.#held = null;
    this.name(this.hold, 'hold');
    this.onPause(false);
    if (this.signal.aborted) throw new ApiError('cancelled');
  }

  say(text) { this.text.textContent = text; }

  show(offset) {
    this.bar.value = this.sent = offset;
    this.changed();
    this.say(t('size_of', {sent: showSize(offset), size: showSize(this.size)}));
  }

  finish(text, state) {
    this.item.dataset.state = state;
    this.bar.hidden = this.hold.hidden = true;
    this.button.hidden = state === 'done';
    this.sent = state === 'done' ? this.size : 0;
    this.name(this.button, 'try_again');
    this.changed();
    this.say(text);
  }

  async send(rule) {
    try {
      if (this.signal.aborted) throw new ApiError('cancelled');
      if (this.size > rule.max_size) throw new ApiError('too_large');
      this.show(0);
      const name = showName(await sendFile(this));
      forgetUpload(this.key);
      this.finish(name === showName(encodeName(this.path)) ? t('done') : t('done_as', {name}), 'done');
      this.arrived(name);
    } catch (error) {
      this.finish(wordsFor(this.signal.aborted ? {code: 'cancelled'} : error), 'failed');
      if (this.signal.aborted && this.upload) {
        call('upload_cancel', {upload: this.upload}).catch(() => {}); // it is given up later then
        forgetUpload(this.key);
        this.upload = undefined;
      }
    }
  }
}

/** The part of the page where files are left. `done` is called when some have arrived. */
export function makeUpload(rule, done) {
  const list = make('ul', {class: 'uploads'});
  const sent = new Sent();
  const together = make('p', {class: 'hint together', hidden: true});
  const interrupted = make('p', {class: 'hint', role: 'status'}, waitingFiles());
  const rows = [];
  const waiting = [];
  let begun = 0;
  let paused = 0;

  // Sends some at a time, and goes on with the next while one waits for the connection.
  const next = () => {
    while (waiting.length > 0 && begun - paused < AT_ONCE && begun < MOST_AT_ONCE) {
      ++begun;
      const row = waiting.shift();
      row.arrived = (name) => sent.add(name, row.size);
      row.onPause = (is) => { paused += is ? 1 : -1; next(); };
      row.send(rule).then(() => {
        --begun;
        if (begun + waiting.length === 0) done();
        next();
      });
    }
  };
  const start = (row) => { waiting.push(row); next(); };
  const sum = (value) => rows.reduce((total, row) => total + value(row), 0);
  const changed = () => {
    together.hidden = rows.length < 2;
    together.textContent = t('together', {
      done: sum((row) => row.item.dataset.state === 'done' ? 1 : 0), count: rows.length,
      sent: showSize(sum((row) => row.sent)), size: showSize(sum((row) => row.size)),
    });
  };
  const add = (files) => {
    interrupted.textContent = '';
    const added = files.map((file) => new Row(file, list, start, changed));
    for (const row of added) {
      // The same file once more while it is being sent is another upload.
      if (rows.some(({item, upload}) => upload && upload === row.upload && !item.dataset.state)) row.upload = undefined;
    }
    rows.push(...added);
    added.forEach(start);
  };
  const chooser = (id, text, more) => {
    const input = make('input', {type: 'file', id, multiple: true, class: 'visually-hidden', ...more});
    input.addEventListener('change', () => { add(chosenIn(input)); input.value = ''; });
    return [make('label', {for: id, class: 'button'}, t(text)), input];
  };
  const limit = rule.max_size === undefined ? '' : ` ${t('up_to', {size: showSize(rule.max_size)})}`;
  const zone = make('div', {
    class: 'drop',
    on: {
      dragover: (event) => { event.preventDefault(); zone.classList.add('over'); },
      dragleave: () => zone.classList.remove('over'),
      drop: (event) => { event.preventDefault(); zone.classList.remove('over'); droppedIn(event).then(add); },
    },
  }, ...chooser('upload-files', 'choose_files'),
  ...'webkitdirectory' in HTMLInputElement.prototype ? chooser('upload-folder', 'choose_folder', {webkitdirectory: true}) : [],
  make('p', {class: 'hint'}, `${t('or_drop')}${limit}`));
  addEventListener('beforeunload', (event) => {
    if (list.querySelector('li:not([data-state])')) event.preventDefault();
  });
  return make('div', {id: 'upload'}, rule.note && make('p', {class: 'note', dir: 'auto'}, rule.note),
    zone, interrupted, together, list, sent.element, makeTerminal());
}
