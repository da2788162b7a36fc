// The UI modules that a link's page may load according to its init data.

import {make} from '/shared/dom.js';
import {t} from '/shared/texts.js';

const PLAIN_FILE = /^[\w-]+(\.[\w-]+)*$/;

/**
 * The modules as [{key, title, running, scripts}]. `title` is in the visitor's language where the module has
 * texts, `running` is false when the package behind it is stopped, `scripts` are paths in the module's folder.
 */
export function modulesOf(data) {
  return Object.entries(data.JSConfig ?? {}).map(([key, classes]) => {
    const described = Object.values(classes ?? {}).filter((entry) => typeof entry === 'object' && entry !== null);
    const texts = data.Strings?.[key.replaceAll('/', '.')] ?? {};
    return {
      key,
      title: typeof texts.title === 'string' ? texts.title : key.split('/').at(-1),
      running: described.every((entry) => entry.pkgStatus !== 'disable'),
      scripts: described.map((entry) => entry.script).filter((file) => typeof file === 'string' && PLAIN_FILE.test(file))
        .map((file) => `/${key}/${file}`),
    };
  });
}

/** Loads the stylesheets and scripts of the modules that run. Scripts are JavaScript modules and run in order. */
export function loadModules(data, modules) {
  const running = modules.filter((module) => module.running);
  for (const path of data.CSSFiles ?? []) {
    if (running.some((module) => path.startsWith(`${module.key}/`))) {
      document.head.append(make('link', {rel: 'stylesheet', href: `/${path}`}));
    }
  }
  for (const src of new Set(running.flatMap((module) => module.scripts))) {
    const script = make('script', {type: 'module', src});
    script.async = false;
    document.head.append(script);
  }
}

/** A list of the modules for the page. */
export function listModules(modules) {
  return make('details', {id: 'modules'},
    make('summary', {}, t('parts', {count: modules.length})),
    make('ul', {}, ...modules.map(({key, title, running}) =>
      make('li', {'data-module': key}, title,
        running ? null : make('span', {class: 'stopped'}, ` ${t('part_stopped')}`)))));
}
