// The UI modules that a link's page may load according to its init data.

import {make} from '/shared/dom.js';

const PLAIN_FILE = /^[\w-]+(\.[\w-]+)*$/;

/** The modules as [{key, running, scripts}]: `running` is false when the package behind it is stopped, `scripts` are paths. */
export function modulesOf(data) {
  return Object.entries(data.JSConfig ?? {}).map(([key, classes]) => {
    const described = Object.values(classes ?? {}).filter((entry) => typeof entry === 'object' && entry !== null);
    return {
      key,
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
