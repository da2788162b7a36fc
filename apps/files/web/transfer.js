// Sends files. Each goes in pieces, and goes on when the connection comes back.

import {ApiError, parseJson} from '/shared/api.js';
import {make} from '/shared/dom.js';
import {t} from '/shared/texts.js';
import {forgetUpload, keepUpload, keptUpload} from '/pkg/files/interrupted.js';
import {encodeName, showName, showSize} from '/pkg/files/names.js';

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
async function readPiece({file, size, server: {piece}}, at) {
  const bytes = await (size === 0 ? file : file.slice(at, at + piece)).arrayBuffer().catch(() => null);
  if (bytes?.byteLength !== Math.min(piece, size - at)) throw new ApiError('unreadable');
  return bytes;
}

async function sendPiece({server, upload, signal}, offset, body) {
  let answer;
  try {
    const response = await fetch(server.addressOf('upload_piece', {upload, offset}), {
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
        const {offset, name} = await row.server.call('upload_state', {upload: row.upload});
        if (offset !== at) return {offset, name};
      }
      return await sendPiece(row, at, bytes);
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
      return await persist(row, () => row.server.call('upload_state', {upload: row.upload}));
    } catch (error) {
      if (error.code !== 2008) throw error;
    }
  }
  const begun = await persist(row, () => row.server.call('upload_begin', {name: encodeName(row.path), size: row.size}));
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

  /** `start(row)` has it sent to `server`, `changed()` follows what it shows. */
  constructor({file, path}, server, list, start, changed) {
    this.server = server;
    this.file = file;
    this.path = path;
    this.size = file.size;
    this.key = {place: server.place, name: path, size: file.size, lastModified: file.lastModified};
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

  async send() {
    try {
      if (this.signal.aborted) throw new ApiError('cancelled');
      if (this.size > this.server.largest) throw new ApiError('too_large');
      this.show(0);
      const given = await sendFile(this);
      const name = showName(given);
      forgetUpload(this.key);
      this.finish(name === showName(encodeName(this.path)) ? t('done') : t('done_as', {name}), 'done');
      this.arrived(given);
    } catch (error) {
      this.finish(this.server.wordsFor(this.signal.aborted ? {code: 'cancelled'} : error), 'failed');
      if (this.signal.aborted && this.upload) {
        this.server.call('upload_cancel', {upload: this.upload}).catch(() => {}); // it is given up later then
        forgetUpload(this.key);
        this.upload = undefined;
      }
    }
  }
}

/** A list of files that are being sent, some at a time. `element` shows them. */
export class Transfers {
  #list = make('ul', {class: 'uploads'});
  #together = make('p', {class: 'hint together', hidden: true});
  #arrived;
  #idle;
  #rows = [];
  #waiting = [];
  #begun = 0;
  #paused = 0;
  element = make('div', {}, this.#together, this.#list);

  /** `arrived(name, row)` gets each file's name in the API's form, `idle()` follows when none is being sent any more. */
  constructor({arrived, idle}) {
    this.#arrived = arrived;
    this.#idle = idle;
    addEventListener('beforeunload', (event) => {
      if (this.isBusy) event.preventDefault();
    });
  }

  get isBusy() { return this.#begun + this.#waiting.length > 0; }

  /**
   * Sends files, as folders.js has them. `server` says how: its API (`call`, `addressOf`), what its errors mean
   * (`wordsFor`), the bytes of a `piece`, and if there are such, the `largest` file and the `place` there.
   */
  add(files, server) {
    const start = (row) => { this.#waiting.push(row); this.#next(); };
    const added = files.map((file) => new Row(file, server, this.#list, start, () => this.#draw()));
    for (const row of added) {
      // The same file once more while it is being sent is another upload.
      if (this.#rows.some(({item, upload}) => upload && upload === row.upload && !item.dataset.state)) row.upload = undefined;
    }
    this.#rows.push(...added);
    added.forEach(start);
  }

  clear() {
    this.#rows = [];
    this.#list.replaceChildren();
    this.#draw();
  }

  // Goes on with the next while one waits for the connection.
  #next() {
    while (this.#waiting.length > 0 && this.#begun - this.#paused < AT_ONCE && this.#begun < MOST_AT_ONCE) {
      ++this.#begun;
      const row = this.#waiting.shift();
      row.arrived = (name) => this.#arrived(name, row);
      row.onPause = (is) => { this.#paused += is ? 1 : -1; this.#next(); };
      row.send().then(() => {
        --this.#begun;
        if (!this.isBusy) this.#idle();
        this.#next();
      });
    }
  }

  #draw() {
    const sum = (value) => this.#rows.reduce((total, row) => total + value(row), 0);
    this.#together.hidden = this.#rows.length < 2;
    this.#together.textContent = t('together', {
      done: sum((row) => row.item.dataset.state === 'done' ? 1 : 0), count: this.#rows.length,
      sent: showSize(sum((row) => row.sent)), size: showSize(sum((row) => row.size)),
    });
  }
}
