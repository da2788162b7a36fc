// The texts of a page in its reader's language. They are in tables, FOLDER/texts/CODE.json; languages.json lists the
// languages. A text that depends on a number is an object of its plural forms, and {name} stands for a value.

const COOKIE = 'velt_language'; // the server reads it too
const YEAR = 365 * 24 * 60 * 60;

const page = document.documentElement;
const texts = new Map();

async function read(path) {
  try {
    // From the origin, because a page whose own address holds a login may not fetch relative to it.
    const response = await fetch(new URL(path, location.origin));
    return response.ok ? await response.json() : {};
  } catch {
    return {};
  }
}

function chosenCode() {
  return document.cookie.match(new RegExp(`(?:^|; )${COOKIE}=(\\w+)`))?.[1];
}

function find(languages) {
  const chosen = languages.find(({code}) => code === chosenCode());
  if (chosen) return chosen;
  for (const wanted of navigator.languages) {
    const known = languages.find(({tag}) => wanted === tag || wanted.startsWith(`${tag}-`));
    if (known) return known;
  }
  return languages[0];
}

/** Gives a page that the server doesn't make its language, and `select` the choice. */
export async function chooseLanguage(select) {
  const languages = await read('/shared/texts/languages.json');
  if (!Array.isArray(languages)) return;
  const {code, tag, direction} = find(languages);
  page.dataset.language = code;
  page.lang = tag;
  page.dir = direction;
  select.replaceChildren(...languages.map((language) => {
    const option = new Option(language.name, language.code, false, language.code === code);
    option.lang = language.tag;
    return option;
  }));
}

/** Keeps the language that is chosen in `select`, and loads the page in it. */
export function listenToLanguage(select) {
  select.addEventListener('change', () => {
    document.cookie = `${COOKIE}=${select.value}; path=/; max-age=${YEAR}; SameSite=Lax`;
    location.reload();
  });
}

/** Loads the tables of these folders. A table that can't be had leaves its texts' keys in the page. */
export async function loadTexts(...folders) {
  const tables = await Promise.all(folders.map((folder) => read(`${folder}/texts/${page.dataset.language}.json`)));
  for (const [key, text] of tables.flatMap(Object.entries)) texts.set(key, text);
}

/** For Intl, with the digits that times and addresses have. */
export function locale() {
  return `${page.lang}-u-nu-latn`;
}

/** A time that the API writes, by the server's clock, in the reader's style. */
export function showMoment(text, style = {dateStyle: 'long', timeStyle: 'short'}) {
  const time = Date.parse(`${text.replace(' ', 'T')}Z`);
  return Number.isNaN(time) ? text : new Intl.DateTimeFormat(locale(), {...style, timeZone: 'UTC'}).format(time);
}

export function hasText(key) {
  return texts.has(key);
}

/** The text of `key`; `values.count` chooses its plural form. */
export function t(key, values = {}) {
  let text = texts.get(key) ?? key;
  if (typeof text === 'object') text = text[new Intl.PluralRules(page.lang).select(values.count)] ?? text.other;
  // A value may be of the other direction; isolated, it leaves the text around it in order.
  const [before, after] = page.dir === 'rtl' ? ['\u2068', '\u2069'] : ['', ''];
  return text.replace(/\{(\w+)\}/g, (whole, name) => (name in values ? `${before}${values[name]}${after}` : whole));
}

/** Sets the texts that elements name: data-text="key", data-texts="attribute:key ...". */
export function fillTexts(root = document) {
  for (const element of root.querySelectorAll('[data-text]')) element.textContent = t(element.dataset.text);
  for (const element of root.querySelectorAll('[data-texts]')) {
    for (const pair of element.dataset.texts.split(' ')) {
      const [name, key] = pair.split(':');
      element.setAttribute(name, t(key));
    }
  }
}
