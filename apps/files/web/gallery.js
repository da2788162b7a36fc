// Pictures in rows of one height, as many in each as there is room for. A picture's shape is known when its small picture
// has come. The row then shares out its width anew, and nothing outside of it moves.

import {make} from '/shared/dom.js';
import {addressOf} from '/pkg/files/link.js';
import {showName} from '/pkg/files/names.js';

const USUAL_SHAPE = 1.5; // width to height
const WIDEST = 3;
const ROW_HEIGHT = 190; // pixels; as in files.css

function smallPicture(entry, shapeKnown) {
  const source = (size) => addressOf('thumbnail', {path: entry.path, size});
  return make('img', {
    alt: '', loading: 'lazy', srcset: `${source('small')} 1x, ${source('large')} 2x`, src: source('small'),
    on: {
      load: ({target}) => shapeKnown(target.naturalWidth / target.naturalHeight),
      error: ({target}) => target.replaceWith(make('img', {class: 'plain', alt: '', src: '/pkg/files/file.svg'})),
    },
  });
}

export class Gallery {
  element = make('div', {class: 'gallery', role: 'list', hidden: true});
  #open;
  #entries = [];
  #inRow = 0;
  #makeBox;

  /** `open(entry)` shows a picture, `makeBox(entry)` makes the box that chooses it. */
  constructor(open, makeBox) {
    this.#open = open;
    this.#makeBox = makeBox;
    new ResizeObserver(() => this.#fit()).observe(this.element);
  }

  clear() {
    this.#entries = [];
    this.element.hidden = true;
    this.element.replaceChildren();
  }

  add(entries) {
    this.#entries.push(...entries);
    this.element.hidden = this.#entries.length === 0;
    this.#fit();
    let row = this.element.lastElementChild;
    for (const entry of entries) {
      if (!row || row.querySelectorAll('.tile').length >= this.#inRow) {
        row = make('div', {class: 'gallery-row', role: 'presentation'});
        this.element.append(row);
      }
      row.querySelector('.gap')?.remove();
      row.append(this.#tile(entry));
    }
    const missing = row ? this.#inRow - row.querySelectorAll('.tile').length : 0;
    if (missing > 0) {
      const gap = make('span', {class: 'gap'});
      gap.style.flexGrow = missing * USUAL_SHAPE;
      row.querySelector('.gap')?.remove();
      row.append(gap);
    }
  }

  // Makes the rows anew when the page has got wider or narrower.
  #fit() {
    const width = this.element.clientWidth;
    const inRow = Math.max(2, Math.round(width / (ROW_HEIGHT * USUAL_SHAPE)));
    if (width === 0 || inRow === this.#inRow) return;
    this.#inRow = inRow;
    const entries = this.#entries;
    if (!this.element.firstChild) return;
    this.clear();
    this.add(entries);
  }

  #tile(entry) {
    const tile = make('div', {class: 'tile', role: 'listitem', 'data-path': entry.path});
    tile.style.flexGrow = USUAL_SHAPE;
    const picture = smallPicture(entry, (shape) => {
      tile.style.flexGrow = Math.min(WIDEST, Math.max(1 / WIDEST, shape));
    });
    tile.append(make('button', {
      type: 'button', class: 'picture', 'aria-label': showName(entry.name), on: {click: () => this.#open(entry)},
    }, picture), this.#makeBox(entry));
    return tile;
  }
}
