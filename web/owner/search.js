// Searching links by title. The service has no such search, so the page goes through the lists that it gives.

const PAGE = 50;
const MOST = 1000;

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

  /** The links have changed: what was loaded is of no use. */
  forget() {
    this.#about = '';
  }

  /**
   * Looks for `text` in the links of the list that `about` names, and calls `found({matches, searched, total, done})`
   * with what there is so far until it returns false.
   */
  async find(text, about, found) {
    if (about !== this.#about) {
      this.#about = about;
      this.#loaded = [];
      this.#total = Infinity;
    }
    for (;;) {
      const done = this.#loaded.length >= Math.min(this.#total, MOST);
      const matches = this.#loaded.filter((entry) => plain(entry.protect_title).includes(plain(text)));
      const goesOn = found({matches, searched: this.#loaded.length, total: this.#total, done});
      if (done || !goesOn) return;
      const {sharings, total} = await this.#list({offset: this.#loaded.length, limit: PAGE});
      if (about !== this.#about) return;
      this.#loaded.push(...sharings);
      this.#total = sharings.length > 0 ? total : this.#loaded.length;
    }
  }
}
