// The part that albums take in the owner's page.

import {make} from '/shared/dom.js';

/** Lists the photographs of an album that names them. */
function contents({app}) {
  const photos = Array.isArray(app?.photos) ? app.photos : [];
  return photos.map((name) => make('li', {}, name));
}

export function takePart() {
  return {project: 'photo-album', contents};
}
