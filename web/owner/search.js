// Searching links by title. The service has no such search, so the page goes through the lists that it gives.

const PAGE = 50;
const MOST = 5000;

const plain = (text) => text.normalize('NFKC').toLocaleLowerCase();

export class TitleSearch {
  #list;
  #loaded = [];
  #total = Infinity;
  #about = '';

  /** `list(page)` asks for {offset, limit} of the links and returns the answer's data. */
  constructor(list) {
    this.#list = list;
  }

  /** The links have changed: what was loaded is out of date. */
  forget() {
    this.#loaded = [];
    this.#total = Infinity;
  }

  /**
   * Looks for `text` in the links of the list that `about` names, and calls `found({matches, searched, total, done})`
   * with what there is so far until it returns false.
   */
  async find(text, about, found) {
    if (about !== this.#about) {
      this.#about = about;
      this.forget();
    }
    const loaded = this.#loaded;
    for (;;) {
      const offset = loaded.length;
      const done = offset >= Math.min(this.#total, MOST);
      const matches = loaded.filter((entry) => plain(entry.protect_title).includes(plain(text)));
      const goesOn = found({matches, searched: offset, total: this.#total, done});
      if (done || !goesOn) return;
      const {sharings, total} = await this.#list({offset, limit: PAGE});
      if (loaded !== this.#loaded) return; // out of date meanwhile
      if (loaded.length > offset) continue; // Another search has loaded the same page.
      loaded.push(...sharings);
      this.#total = sharings.length > 0 ? total : loaded.length;
    }
  }
}
